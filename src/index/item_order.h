// The ordering rule of items.
#pragma once

#include "index/item_index.h"

namespace trk {

// Whether `a` must stand before `b`: by effective key, at equal keys by what the items are. Not a strict weak
// order: some pairs are true both ways.
[[nodiscard]] bool precedes(const ItemIndex &index, const Item &a, const Item &b);

// Whether the rule asks for `a` before `b` and not also for the reverse.
[[nodiscard]] inline bool mustPrecede(const ItemIndex &index, const Item &a, const Item &b) {
    if (!a.isRecordingBlock() && !b.isRecordingBlock() && a.key != b.key) [[likely]] {
        return a.key < b.key;
    }
    return precedes(index, a, b) && !precedes(index, b, a);
}

} // namespace trk
