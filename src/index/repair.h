// The repairs of the index, made once per file after the scan.
#pragma once

#include "index/item_index.h"

namespace trk {

// Sets close recording blocks apart, puts the index into its final order, drops samples outside recording blocks
// and repairs eye events; `strict` adds the repairs of blinks. Defects are logged.
void repairIndex(ItemIndex &index, bool strict);

} // namespace trk
