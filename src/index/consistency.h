// The consistency pass, run once per file after the scan.
#pragma once

#include "index/item_index.h"

namespace trk {

// Sets close recording blocks apart, puts the index into its final order, drops samples outside recording blocks
// and repairs eye events; `strict` adds the repairs of blinks. Defects are logged. Returns 0.
int checkConsistency(ItemIndex &index, bool strict);

} // namespace trk
