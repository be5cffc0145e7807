// Steps through the items and hands out the current one.
#pragma once

#include "delivery/event_pairing.h"
#include "delivery/item_reader.h"
#include "index/item_index.h"

#include <cstdint>

namespace trk {

class Delivery {
  public:
    // `strict`: the file was opened with the strict checks.
    Delivery(ItemReader &reader, const ItemIndex &index, bool strict)
        : reader_(reader), index_(index), strict_(strict), pairing_(index) {}

    // Steps to the next item. Returns its code, or 0 when there is none.
    int step();

    // Decodes the current item into the buffer and returns the buffer, or null when there is no current item or
    // it cannot be read. Before the first step the buffer is returned as it is.
    ALLF_DATA *getFloatData();

    // Decodes the item at `index` likewise, whether or not the walk has begun, and leaves the read position.
    ALLF_DATA *read(std::size_t index);

    // The same for a look at an item that is not delivered: starts and ends of eye events are not paired.
    ALLF_DATA *peek(std::size_t index);

    // 1-based position of the item last delivered; 0 before the first. Jumps set it.
    [[nodiscard]] uint32_t currentIndex() const { return currentIndex_; }
    void setCurrentIndex(uint32_t index) { currentIndex_ = index; }

    // The item last delivered; null before the first and past the end.
    [[nodiscard]] const TRKItem *currentItem() const {
        return currentIndex_ == 0 || currentIndex_ > index_.size() ? nullptr : &index_[currentIndex_ - 1];
    }

    // Whether a record that getFloatData returned is the buffer as it is before the first step.
    [[nodiscard]] bool isUndecoded(const ALLF_DATA *record) const { return !walkStarted_ && record == &buffer_; }

    // The recording block in force; null outside.
    [[nodiscard]] const FRECORDING *currentRecording() const { return currentRecording_; }

  private:
    ItemReader &reader_;
    const ItemIndex &index_;
    bool strict_;
    EventPairing pairing_;
    uint32_t currentIndex_ = 0;
    bool walkStarted_ = false;
    const FRECORDING *currentRecording_ = nullptr; // in the index
    ALLF_DATA buffer_{};
};

} // namespace trk
