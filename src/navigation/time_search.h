// Search for a sample by its time.
#pragma once

#include "index/item_index.h"

#include <cstdint>

namespace trk {

// The place of a sample with exactly this key between two places, or -1. The upper one may lie one past the last
// item. A sample that shares its key with items of other kinds may be missed.
int findIndex(const ItemIndex &index, uint32_t key, int low, int high);

} // namespace trk
