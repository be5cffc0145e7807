// A sliding window of decoded samples, from which the velocities are computed.
#pragma once

#include "base/time_key.h"
#include "records/sample.h"

#include <array>
#include <bit>
#include <cstdint>

namespace trk {

// Up to 512 samples, oldest first, with strictly increasing keys. Entries live in a ring, so that dropping the
// oldest moves nothing.
class SampleWindow {
  public:
    static constexpr int kCapacity = 512;
    static constexpr float kUnknownPupilSize = 1000.0F; // while no sample had one

    // The spacings of 2000, 1000, 500 and 250 samples per second: entries of others are not found by their
    // distance.
    [[nodiscard]] static constexpr bool isSearchable(uint64_t spacing) {
        return spacing <= TimeKey::kLargestSpacing && std::has_single_bit(spacing);
    }

    [[nodiscard]] int count() const { return count_; }
    [[nodiscard]] bool isFull() const { return count_ == kCapacity; }
    [[nodiscard]] const Sample &entry(int position) const { return entries_[slot(position)]; }
    [[nodiscard]] uint64_t key(int position) const { return keys_[slot(position)]; }

    // How many samples were added before this one in the life of the window: tells entries apart for good.
    [[nodiscard]] uint64_t serial(int position) const { return added_ - static_cast<uint64_t>(count_ - position); }

    void clear();

    // Drops the 128 oldest entries, or all when there are fewer.
    void dropOldest();

    // Whether samples from `key` on continue the window; else they must start from an empty one.
    [[nodiscard]] bool isContinuedBy(uint64_t key) const;

    // Whether a key lies between the first and the last, be it there or not.
    [[nodiscard]] bool spans(uint64_t key) const { return count_ > 0 && this->key(0) <= key && key <= lastKey(); }

    // Whether enough entries can lie behind a position for the velocity there.
    [[nodiscard]] static bool reachesAhead(int position) { return position < kCapacity - kLookAhead; }

    // Where the next sample will live; decoding into it saves add() the copy. The window must not be full.
    [[nodiscard]] Sample &freeSlot() { return entries_[slot(count_)]; }

    // Adds a copy of the sample, unless its key does not lie behind the last. A sample without pupil sizes gets
    // the last ones seen. The window must not be full. Returns whether it was added.
    bool add(Sample &sample, uint64_t key);

    // Finds the entry with exactly this key by the spacing of the keys; there is no search where that is broken.
    // Returns its position, or -1.
    [[nodiscard]] int find(uint64_t key) const {
        refreshSpacing();
        if (spacing_.uniform) [[likely]] {
            const uint64_t distance = key - spacing_.first;
            const bool found = distance <= spacing_.last - spacing_.first && (distance & (spacing_.step - 1)) == 0;
            return found ? static_cast<int>(distance >> spacing_.shift) : -1;
        }
        return findInBrokenSpacing(key);
    }

    // Distance of the keys when all of them have the same and they can be found by it, else 0.
    [[nodiscard]] uint64_t uniformSpacing() const {
        refreshSpacing();
        return spacing_.uniform ? spacing_.step : 0;
    }

    // The same by looking at all entries.
    [[nodiscard]] int search(uint64_t key) const;

  private:
    static constexpr int kShift = 128;
    static constexpr int kLookAhead = 64;

    [[nodiscard]] std::size_t slot(int position) const {
        return static_cast<unsigned>(head_ + position) % unsigned{kCapacity};
    }
    [[nodiscard]] uint64_t lastKey() const { return key(count_ - 1); }
    [[nodiscard]] uint64_t firstSpacing() const;
    [[nodiscard]] bool holds(uint64_t position, uint64_t key) const {
        return position < static_cast<uint64_t>(count_) && this->key(static_cast<int>(position)) == key;
    }
    [[nodiscard]] int findInBrokenSpacing(uint64_t key) const;
    void refreshSpacing() const {
        if (spacingIsStale_) [[unlikely]] {
            spacing_ = spacingOfKeys();
            spacingIsStale_ = false;
        }
    }

    // What entries are found by. Worked out when the first one is looked for after a change.
    struct Spacing {
        uint64_t first = 0;
        uint64_t last = 0;
        uint64_t lastStep = 0; // distance of the last two keys
        uint64_t step = 0;     // the spacing, a power of 2; 0: it is none that can be searched by
        int shift = 0;         // log2 of the spacing
        bool uniform = false;  // all keys have this spacing
    };
    [[nodiscard]] Spacing spacingOfKeys() const;

    int head_ = 0; // slot of the oldest entry
    int count_ = 0;
    uint64_t added_ = 0;
    int uniformRun_ = 0; // number of entries at the end, at least, whose keys have one spacing
    uint64_t runStep_ = 0;
    mutable Spacing spacing_;
    mutable bool spacingIsStale_ = true;
    std::array<float, kEyes> lastPupilSize_{kUnknownPupilSize, kUnknownPupilSize};
    std::array<uint64_t, kCapacity> keys_{};
    std::array<Sample, kCapacity> entries_{};
};

} // namespace trk
