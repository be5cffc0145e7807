// How navigation gets at the contents of items.
#pragma once

#include "trkapi/trkapi.h"

#include <cstddef>

namespace trk {

// Decodes an item, whether or not the walk has begun, and leaves the read position alone.
class ItemSource {
  public:
    virtual ~ItemSource() = default;

    // Null when the item cannot be read. The record is valid until the next one is asked for.
    virtual ALLF_DATA *itemAt(std::size_t index) = 0;
};

} // namespace trk
