// Bookmarks: read positions to come back to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace trk {

// Positions are numbers of items delivered before, in the order in which they were marked and without repetition.
class BookmarkList {
  public:
    // Marks a position. Returns false when it is marked already.
    bool set(uint32_t position);

    // Forgets a position. Returns false when it is not marked.
    bool remove(uint32_t position);

    // These return the position to go to, or nothing when there is no such bookmark.
    std::optional<uint32_t> go(uint32_t position);
    std::optional<uint32_t> goNext() { return goAt(current_ + 1); }
    std::optional<uint32_t> goPrevious() { return goAt(current_ - 1); }

  private:
    std::optional<uint32_t> goAt(uint32_t number);

    std::vector<uint32_t> positions_;
    uint32_t current_ = 0; // the bookmark last gone to; removal may wrap it to one before the first
};

} // namespace trk
