// Steps through the items and hands out the current one.
#pragma once

#include "delivery/event_pairing.h"
#include "delivery/item_reader.h"
#include "index/item_index.h"

namespace trk {

// Whether gaze is hidden from a caller for a blink of the eye, by the type of the sample's item.
[[nodiscard]] inline bool hidesGaze(uint16_t type, std::size_t eye) {
    return (type & (eye == 0 ? kItemInLeftBlink : kItemInRightBlink)) != 0;
}

// The flags of a sample as it is delivered, from those of its record. The doubling wraps at 32 bits: from
// 2147483648 ms on every sample has the flag of a repeated time, as callers know it.
[[nodiscard]] inline uint16_t deliveredFlags(uint64_t key, uint16_t flags, uint32_t time) {
    const uint32_t doubled = 2 * time;
    return key != doubled ? flags | TRK_SAMPLE_DUPLICATE_TIME : flags;
}

class Delivery {
  public:
    // `strict`: the file was opened with the strict checks.
    Delivery(ItemReader &reader, const ItemIndex &index, bool strict)
        : reader_(reader), index_(index), strict_(strict), pairing_(index) {}

    // Steps to the next item. Returns its code, or 0 when there is none.
    int step();

    // Decodes the current item into the buffer and returns the buffer, or null when there is no current item or
    // it cannot be read. Before the first step the buffer is returned as it is.
    ALLF_DATA *fetch();

    // Decodes an item likewise, whether or not the walk has begun, and leaves the read position.
    ALLF_DATA *read(ItemNumber number);

    // The same for a look at an item that is not delivered: starts and ends of eye events are not paired.
    ALLF_DATA *peek(ItemNumber number);

    // The read position: the number of items before it, the one stepped to last among them. Jumps set it.
    [[nodiscard]] ItemNumber itemsPassed() const { return itemsPassed_; }
    void goTo(ItemNumber itemsPassed) { itemsPassed_ = itemsPassed; }

    // The item before the read position; null before the first and past the end.
    [[nodiscard]] const Item *currentItem() const {
        return itemsPassed_ == 0 || itemsPassed_ > index_.size() ? nullptr : &index_[itemsPassed_ - 1];
    }

    // Whether a record that fetch returned is the buffer as it is before the first step.
    [[nodiscard]] bool isUndecoded(const ALLF_DATA *record) const { return !walkStarted_ && record == &buffer_; }

    // The recording block in force; null outside.
    [[nodiscard]] const FRECORDING *currentRecording() const { return currentRecording_; }

  private:
    ItemReader &reader_;
    const ItemIndex &index_;
    bool strict_;
    EventPairing pairing_;
    ItemNumber itemsPassed_ = 0;
    bool walkStarted_ = false;
    const FRECORDING *currentRecording_ = nullptr; // in the index
    ALLF_DATA buffer_{};
};

} // namespace trk
