#include "navigation/time_search.h"

namespace trk {

std::optional<ItemNumber> findSample(const ItemIndex &index, uint64_t key) {
    ItemNumber low = 0;
    ItemNumber high = index.size(); // one past the last
    while (low + 2 <= high) {
        const ItemNumber middle = low + (high - low) / 2;
        const uint64_t middleKey = index.effectiveKey(index[middle]);
        if (middleKey == key && index[middle].isSample()) {
            return middle;
        }
        (middleKey > key ? high : low) = middle;
    }
    for (const ItemNumber place : {low, high}) {
        if (place < index.size() && index[place].isSample() && index[place].key == key) {
            return place;
        }
    }
    return std::nullopt;
}

} // namespace trk
