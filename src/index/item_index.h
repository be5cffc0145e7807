// The item index: every item of a recording once, and the recording blocks.
#pragma once

#include "index/item.h"

#include <cstddef>
#include <deque>
#include <span>
#include <vector>

namespace trk {

class ItemIndex {
  public:
    [[nodiscard]] ItemNumber size() const { return static_cast<ItemNumber>(items_.size()); }
    [[nodiscard]] const Item &operator[](ItemNumber number) const { return items_[number]; }

    // The items themselves, for the passes that repair them. Whoever changes a key or the order calls
    // orderChanged().
    [[nodiscard]] std::vector<Item> &items() { return items_; }
    [[nodiscard]] const std::vector<Item> &items() const { return items_; }
    void orderChanged() { inOrder_ = false; }

    void append(const Item &item) {
        items_.push_back(item);
        inOrder_ = false;
    }
    void appendRecordingBlock(const FRECORDING &recording);

    [[nodiscard]] bool isFull() const { return items_.size() == items_.capacity(); }

    // Makes room after `scanned` of `total` bytes were read; a total of 0 is unknown. It ends at `most` items.
    void makeRoom(int64_t scanned, int64_t total, std::size_t most);

    // Recording blocks in the order of the file. Their addresses stay the same for the life of the index.
    [[nodiscard]] std::deque<FRECORDING> &recordings() { return recordings_; }
    [[nodiscard]] const std::deque<FRECORDING> &recordings() const { return recordings_; }

    // The record of a recording-block item.
    [[nodiscard]] FRECORDING &recordingOf(const Item &item) { return recordings_[item.key]; }
    [[nodiscard]] const FRECORDING &recordingOf(const Item &item) const { return recordings_[item.key]; }

    // The key that an item is ordered by.
    [[nodiscard]] uint64_t effectiveKey(const Item &item) const {
        return item.isRecordingBlock() ? effectiveKey(recordingOf(item)) : item.key;
    }
    // A block that lies close to its neighbour is set off from it: an end half a millisecond, a start one and a
    // half, so that the end comes first.
    [[nodiscard]] static uint64_t effectiveKey(const FRECORDING &recording) {
        if (recording.close_pair == 0) {
            return recording.sort_key;
        }
        return recording.sort_key + (recording.state == TRK_BLOCK_START ? 3 : 1);
    }

    // Puts the items into time order. Large indexes are sorted in overlapping chunks: an item that lies 3000
    // places or more from its place may not reach it.
    void sortItems();

  private:
    std::vector<Item> items_;
    std::deque<FRECORDING> recordings_;
    bool inOrder_ = false; // a whole sort found nothing to do and nothing was changed since
};

} // namespace trk
