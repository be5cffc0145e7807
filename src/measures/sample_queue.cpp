#include "measures/sample_queue.h"

#include <algorithm>

namespace trk {

namespace {

// Samples in the last 64 slots have too few behind them for the velocity.
constexpr int kFirstSlotOfLookAhead = 448;
constexpr uint64_t kLargestSpacing = 8;           // key units, 250 samples per second
constexpr uint32_t kSearchableSpacings = 0x00116; // 1, 2, 4 and 8

} // namespace

void SampleQueue::clear() {
    spacingIsStale_ = true;
    head_ = count_ = uniformRun_ = 0;
    lastPupilSize_ = {kUnknownPupilSize, kUnknownPupilSize};
}

void SampleQueue::shiftQueue() {
    spacingIsStale_ = true;
    if (count_ < kShift) {
        count_ = uniformRun_ = 0;
    } else {
        head_ = (head_ + kShift) % kCapacity;
        count_ -= kShift;
    }
}

// The distance of the first two keys, or of the last two when the first show a gap.
uint64_t SampleQueue::firstSpacing() const {
    const uint64_t first = key(1) - key(0);
    return first <= kLargestSpacing ? first : lastKey() - key(count_ - 2);
}

bool SampleQueue::isOutOfBoundsToAdd(uint64_t key) const {
    if (count_ == 0) {
        return false;
    }
    if (key < this->key(0)) {
        return true;
    }
    if (key <= lastKey()) {
        return false;
    }
    return count_ < 3 || lastKey() + firstSpacing() < key;
}

bool SampleQueue::addSample(Sample &sample, uint64_t key) {
    if (count_ > 0 && lastKey() >= key) {
        return false;
    }
    for (std::size_t eye = 0; eye < kEyes; ++eye) {
        if ((sample.flags & TRK_SAMPLE_PUPIL_SIZE) != 0) {
            lastPupilSize_[eye] = sample.pupil_size[eye];
        } else {
            sample.pupil_size[eye] = lastPupilSize_[eye];
        }
    }
    const uint64_t step = count_ > 0 ? key - lastKey() : runStep_;
    uniformRun_ = step == runStep_ ? std::min(uniformRun_ + 1, kCapacity) : 2;
    runStep_ = step;
    spacingIsStale_ = true;
    Sample &entry = freeSlot();
    if (&entry != &sample) {
        entry = sample;
    }
    entry.sort_key = key;
    keys_[slot(count_)] = key;
    ++count_;
    ++added_;
    return true;
}

SampleQueue::Spacing SampleQueue::spacingOfKeys() const {
    Spacing spacing;
    if (count_ < 1) {
        return spacing;
    }
    spacing.first = key(0);
    spacing.last = lastKey();
    if (count_ >= 3) {
        const uint64_t step = firstSpacing();
        if (step <= kLargestSpacing && (kSearchableSpacings >> step & 1U) != 0) {
            spacing.step = step;
            spacing.shift = std::countr_zero(step);
            spacing.uniform = uniformRun_ >= count_;
        }
        spacing.lastStep = spacing.last - key(count_ - 2);
    }
    return spacing;
}

int SampleQueue::findInBrokenSpacing(uint64_t key) const {
    if (count_ < 1) {
        return -1;
    }
    const auto last = static_cast<uint64_t>(count_ - 1);
    if (key == spacing_.first) {
        return 0;
    }
    if (key == spacing_.last) {
        return static_cast<int>(last);
    }
    if (spacing_.step == 0 || key <= spacing_.first || key >= spacing_.last) {
        return -1;
    }
    const uint64_t fromFront = (key - spacing_.first) >> spacing_.shift;
    if (holds(fromFront, key)) {
        return static_cast<int>(fromFront);
    }
    const uint64_t fromBack = last - ((spacing_.last - key) >> spacing_.shift);
    if (holds(fromBack, key)) {
        return static_cast<int>(fromBack);
    }
    const uint64_t fromBackByLastStep = last - (spacing_.last - key) / spacing_.lastStep;
    return holds(fromBackByLastStep, key) ? static_cast<int>(fromBackByLastStep) : -1;
}

const Sample *SampleQueue::getOldSample(uint64_t key, int *position) const {
    const int found = find(key);
    if (position != nullptr) {
        *position = found;
    }
    return found < 0 ? nullptr : &entry(found);
}

const Sample *SampleQueue::getOldSampleSlow(uint64_t key, int *position) const {
    int found = 0;
    while (found < count_ && this->key(found) != key) {
        ++found;
    }
    if (position != nullptr) {
        *position = found < count_ ? found : -1;
    }
    return found < count_ ? &entry(found) : nullptr;
}

const Sample *SampleQueue::getSample(std::size_t index, SampleRefill &refill) {
    const uint64_t key = index_.effectiveKey(index_[index]);
    int position = -1;
    while (const Sample *const sample = getOldSample(key, &position)) {
        if (position < kFirstSlotOfLookAhead) {
            return sample;
        }
        refill.batchReadSample(index);
    }
    if (count_ > 0 && this->key(0) <= key && key <= lastKey()) {
        return getOldSampleSlow(key);
    }
    refill.batchReadSample(index);
    if (const Sample *const sample = getOldSample(key)) {
        return sample;
    }
    if (const Sample *const sample = getOldSampleSlow(key)) {
        return sample;
    }
    clear();
    refill.batchReadSample(index);
    return getOldSample(key);
}

} // namespace trk
