#include "measures/sample_window.h"

#include <algorithm>

namespace trk {

void SampleWindow::clear() {
    spacingIsStale_ = true;
    head_ = count_ = uniformRun_ = 0;
    lastPupilSize_ = {kUnknownPupilSize, kUnknownPupilSize};
}

void SampleWindow::dropOldest() {
    spacingIsStale_ = true;
    if (count_ < kShift) {
        count_ = uniformRun_ = 0;
    } else {
        head_ = (head_ + kShift) % kCapacity;
        count_ -= kShift;
    }
}

// The distance of the first two keys, or of the last two when the first show a gap.
uint64_t SampleWindow::firstSpacing() const {
    const uint64_t first = key(1) - key(0);
    return first <= TimeKey::kLargestSpacing ? first : lastKey() - key(count_ - 2);
}

bool SampleWindow::isContinuedBy(uint64_t key) const {
    if (count_ == 0 || spans(key)) {
        return true;
    }
    return key > lastKey() && count_ >= 3 && key <= lastKey() + firstSpacing();
}

bool SampleWindow::add(Sample &sample, uint64_t key) {
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

SampleWindow::Spacing SampleWindow::spacingOfKeys() const {
    Spacing spacing;
    if (count_ < 1) {
        return spacing;
    }
    spacing.first = key(0);
    spacing.last = lastKey();
    if (count_ >= 3) {
        const uint64_t step = firstSpacing();
        if (isSearchable(step)) {
            spacing.step = step;
            spacing.shift = std::countr_zero(step);
            spacing.uniform = uniformRun_ >= count_;
        }
        spacing.lastStep = spacing.last - key(count_ - 2);
    }
    return spacing;
}

int SampleWindow::findInBrokenSpacing(uint64_t key) const {
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

int SampleWindow::search(uint64_t key) const {
    int found = 0;
    while (found < count_ && this->key(found) != key) {
        ++found;
    }
    return found < count_ ? found : -1;
}

} // namespace trk
