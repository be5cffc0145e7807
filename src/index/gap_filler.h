// Detection of gaps in the samples of a recording block.
#pragma once

#include "index/item.h"

#include <cstdint>

namespace trk {

// Learns the spacing of the samples of a block and tells where samples are missing. Times and keys are those of
// indexed samples, in the order of the file.
class GapFiller {
  public:
    // Dummy samples to be put before a sample: `count` keys, the first one `period` after the key before.
    struct Gap {
        uint64_t keyBefore = 0;
        uint64_t period = 0;
        uint32_t count = 0;
    };

    // The key of a sample: a time that repeats the one before gets the odd key.
    [[nodiscard]] uint64_t keyOf(uint32_t time) const { return TimeKey::of(time, time == previousTime_); }

    // The gap before a sample with this key. `sampleRate` is that of the recording block.
    Gap check(uint64_t key, float sampleRate) {
        if (previousTime_ <= 0 || timeBeforePrevious_ <= 0) {
            return {};
        }
        const auto previousTime = static_cast<uint32_t>(previousTime_);
        const uint64_t previousKey = TimeKey::of(previousTime, previousTime_ == timeBeforePrevious_);
        if (!periodIsSettled()) {
            learnPeriod(previousKey, key, sampleRate);
        }
        // Unsigned: a sample that goes back in time counts as a gap, and its line in the log tells of it.
        if (!periodIsSettled() || key - previousKey <= period_) [[likely]] {
            return {};
        }
        return measure(previousTime, previousKey, key);
    }

    // The sample was indexed.
    void advance(uint32_t time) {
        timeBeforePrevious_ = previousTime_;
        previousTime_ = time;
    }

    // At the border of a recording block.
    void forgetTimes() { previousTime_ = timeBeforePrevious_ = kNone; }
    void forgetPeriod() { period_ = 0; }

  private:
    static constexpr int64_t kNone = -1;

    static constexpr bool isPlausiblePeriod(uint64_t period) { return period - 1 < TimeKey::kLargestSpacing; }
    [[nodiscard]] bool periodIsSettled() const { return isPlausiblePeriod(period_); }
    void learnPeriod(uint64_t previousKey, uint64_t key, float sampleRate);
    [[nodiscard]] Gap measure(uint32_t previousTime, uint64_t previousKey, uint64_t key) const;

    int64_t previousTime_ = kNone;
    int64_t timeBeforePrevious_ = kNone;
    uint64_t period_ = 0; // spacing of samples in key units; not settled outside 1 to 8
};

} // namespace trk
