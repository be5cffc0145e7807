// Search for a sample by its time.
#pragma once

#include "index/item_index.h"

#include <cstdint>
#include <optional>

namespace trk {

// The place of a sample with exactly this key. One that shares its key with items of other kinds may be missed.
std::optional<ItemNumber> findSample(const ItemIndex &index, uint64_t key);

} // namespace trk
