#include "navigation/time_search.h"

namespace trk {

int findIndex(const ItemIndex &index, uint32_t key, int low, int high) {
    const auto item = [&index](int place) { return index[static_cast<std::size_t>(place)]; };
    if (high < low) {
        return -1;
    }
    while (high - low >= 2) {
        const int middle = low + (high - low) / 2;
        const uint64_t middleKey = index.effectiveKey(item(middle));
        if (item(middle).isSample() && middleKey == key) {
            return middle;
        }
        (middleKey > key ? high : low) = middle;
    }
    for (const int place : {low, high}) {
        const bool exists = place >= 0 && static_cast<std::size_t>(place) < index.size();
        if (exists && item(place).isSample() && index.effectiveKey(item(place)) == key) {
            return place;
        }
    }
    return -1;
}

} // namespace trk
