#include "navigation/bookmarks.h"

#include <algorithm>

namespace trk {

bool BookmarkList::set(uint32_t position) {
    if (std::ranges::find(positions_, position) != positions_.end()) {
        return false;
    }
    positions_.push_back(position);
    return true;
}

bool BookmarkList::remove(uint32_t position) {
    const auto found = std::ranges::find(positions_, position);
    if (found == positions_.end()) {
        return false;
    }
    const auto number = static_cast<uint32_t>(found - positions_.begin());
    positions_.erase(found);
    if (current_ >= number) {
        --current_; // wraps, so that the next bookmark is then the first
    }
    return true;
}

std::optional<uint32_t> BookmarkList::go(uint32_t position) {
    const auto found = std::ranges::find(positions_, position);
    return found == positions_.end() ? std::nullopt : goAt(static_cast<uint32_t>(found - positions_.begin()));
}

std::optional<uint32_t> BookmarkList::goAt(uint32_t number) {
    if (number >= positions_.size()) {
        return std::nullopt;
    }
    current_ = number;
    return positions_[number];
}

} // namespace trk
