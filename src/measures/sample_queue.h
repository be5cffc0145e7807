// A sliding window of decoded samples, from which the velocities are computed.
#pragma once

#include "index/item_index.h"
#include "measures/lanes.h"
#include "records/sample.h"

#include <array>
#include <bit>
#include <cstdint>

namespace trk {

// Reads samples into the queue, beginning with the item at `index`.
class SampleRefill {
  public:
    virtual ~SampleRefill() = default;
    virtual int batchReadSample(std::size_t index) = 0;
};

// Up to 512 samples, oldest first, with strictly increasing keys. Entries live in a ring, so that dropping the
// oldest moves nothing.
class SampleQueue {
  public:
    static constexpr int kCapacity = 512;

    explicit SampleQueue(const ItemIndex &index) : index_(index) {}

    [[nodiscard]] int count() const { return count_; }
    [[nodiscard]] bool isFull() const { return count_ == kCapacity; }
    [[nodiscard]] const Sample &entry(int position) const { return entries_[slot(position)]; }
    [[nodiscard]] uint64_t key(int position) const { return keys_[slot(position)]; }

    // The eye positions of an entry; null for position -1.
    [[nodiscard]] const PositionLanes *positionsAt(int position) const {
        return position < 0 ? nullptr : &positions_[slot(position)];
    }

    void clear();

    // Drops the 128 oldest entries, or all when there are fewer.
    void shiftQueue();

    // Whether a refill that starts at `key` must start from an empty queue.
    [[nodiscard]] bool isOutOfBoundsToAdd(uint64_t key) const;

    // Where the next sample will live; decoding into it saves addSample the copy. The queue must not be full.
    [[nodiscard]] Sample &freeSlot() { return entries_[slot(count_)]; }

    // Adds a copy of the sample, unless its key does not lie behind the last. A sample without pupil sizes gets
    // the last ones seen. The queue must not be full.
    void addSample(Sample &sample, uint64_t key);

    // Finds entries with exactly this key by the spacing of the keys; there is no search where it is broken.
    // Null when none is found; `position` (when given) is then -1.
    const Sample *getOldSample(uint64_t key, int *position = nullptr) const;

    // The same by looking at all entries.
    const Sample *getOldSampleSlow(uint64_t key, int *position = nullptr) const;

    // The sample of an item, refilling as needed; null when it cannot be had.
    const Sample *getSample(std::size_t index, SampleRefill &refill);

    // Constant-time lookup of keys, made once for several of them.
    class KeyFinder {
      public:
        explicit KeyFinder(const SampleQueue &queue);
        // Position of the entry with this key, or -1.
        [[nodiscard]] int find(uint64_t key) const;

      private:
        [[nodiscard]] bool holds(uint64_t position, uint64_t key) const {
            return position < static_cast<uint64_t>(queue_.count_) &&
                   queue_.key(static_cast<int>(position)) == key;
        }

        const SampleQueue &queue_;
        uint64_t first_ = 0;
        uint64_t last_ = 0;
        uint64_t lastStep_ = 0; // distance of the last two keys
        int stepShift_ = -1;    // log2 of the spacing; -1: it is none that can be searched by
        bool uniform_ = false;  // all keys have this spacing
    };

  private:
    static constexpr int kShift = 128;

    [[nodiscard]] std::size_t slot(int position) const {
        return static_cast<std::size_t>(head_ + position) % kCapacity;
    }
    [[nodiscard]] uint64_t lastKey() const { return key(count_ - 1); }
    [[nodiscard]] uint64_t spacing() const;

    const ItemIndex &index_;
    int head_ = 0; // slot of the oldest entry
    int count_ = 0;
    int uniformRun_ = 0; // number of entries at the end, at least, whose keys have one spacing
    uint64_t runStep_ = 0;
    std::array<float, kEyes> lastPupilSize_{kUnknownPupilSize, kUnknownPupilSize};
    std::array<uint64_t, kCapacity> keys_{};
    std::array<PositionLanes, kCapacity> positions_{};
    std::array<Sample, kCapacity> entries_{};

    static constexpr float kUnknownPupilSize = 1000.0F;
};

} // namespace trk
