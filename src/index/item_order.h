// The ordering rule of items.
#pragma once

#include "index/item_index.h"

namespace trk {

// Whether `a` must stand before `b`: by effective key, at equal keys by what the items are. Not a strict weak
// order: some pairs are true both ways.
[[nodiscard]] bool sortByTime(const ItemIndex &index, const TRKItem &a, const TRKItem &b);

// Whether the rule asks for `a` before `b` and not also for the reverse.
[[nodiscard]] inline bool mustPrecede(const ItemIndex &index, const TRKItem &a, const TRKItem &b) {
    if (!a.isRecordingBlock() && !b.isRecordingBlock() && a.sort_key != b.sort_key) [[likely]] {
        return a.sort_key < b.sort_key;
    }
    return sortByTime(index, a, b) && !sortByTime(index, b, a);
}

} // namespace trk
