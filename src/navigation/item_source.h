// How navigation gets at the contents of items.
#pragma once

#include "index/item.h"

namespace trk {

// Decodes an item, whether or not the walk has begun, and leaves the read position alone.
class ItemSource {
  public:
    virtual ~ItemSource() = default;

    // Null when the item cannot be read. The record is valid until the next one is asked for.
    virtual ALLF_DATA *itemAt(ItemNumber number) = 0;
};

} // namespace trk
