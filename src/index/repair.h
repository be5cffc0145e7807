// The repairs of the index, made once per file after the scan.
#pragma once

#include "index/item_index.h"

namespace trk {

// How often each repair was made.
struct RepairCounts {
    uint32_t droppedSamples = 0;
    uint32_t movedEvents = 0;
    uint32_t joinedBlinks = 0; // that are no more
};

// Sets close recording blocks apart, puts the index into its final order, drops samples outside recording blocks
// and repairs eye events; `strict` adds the repairs of blinks. Defects are logged.
RepairCounts repairIndex(ItemIndex &index, bool strict);

} // namespace trk
