#include "index/gap_filler.h"

#include "base/log.h"
#include "base/numeric.h"
#include "index/item.h"

#include <cstdio>

namespace trk {

namespace {

constexpr uint64_t kLargestPeriod = 8; // 250 samples per second
constexpr float kKeysPerSecond = 2000.0F;
constexpr int32_t kLargestGap = 10000;

constexpr bool isPlausiblePeriod(uint64_t period) { return period >= 1 && period <= kLargestPeriod; }

} // namespace

bool GapFiller::periodIsSettled() const { return isPlausiblePeriod(period_); }

uint64_t GapFiller::keyOf(uint32_t time) const { return keyOfTime(time) + (time == previousTime_ ? 1 : 0); }

void GapFiller::learnPeriod(uint64_t previousKey, uint64_t key, float sampleRate) {
    const uint64_t difference = key - previousKey;
    period_ = isPlausiblePeriod(difference) ? difference : 0;
    if (!periodIsSettled()) {
        return;
    }
    const auto blockPeriod = truncateTo<uint64_t>(kKeysPerSecond / sampleRate);
    if (isPlausiblePeriod(blockPeriod) && blockPeriod != period_) {
        print_log("Intersample period does not match with the sample rate given by the start recording event! "
                  "Using start recording sample rate. %d %d %d %d \n",
                  static_cast<int>(blockPeriod), static_cast<int>(period_), static_cast<int>(previousKey),
                  static_cast<int>(key));
        period_ = blockPeriod;
    }
}

GapFiller::Gap GapFiller::check(uint64_t key, float sampleRate) {
    if (previousTime_ <= 0 || timeBeforePrevious_ <= 0) {
        return {};
    }
    const auto previousTime = static_cast<uint32_t>(previousTime_);
    const uint64_t previousKey = keyOfTime(previousTime) + (previousTime_ == timeBeforePrevious_ ? 1 : 0);
    if (!periodIsSettled()) {
        learnPeriod(previousKey, key, sampleRate);
        if (!periodIsSettled()) {
            return {};
        }
    }
    // Unsigned on purpose: a sample that goes back in time counts as a gap with a negative number.
    if (key - previousKey <= period_) {
        return {};
    }
    const auto missing = static_cast<int32_t>((key - keyOfTime(previousTime)) / period_);
    print_log("Missing %d samples. Inserting dummy samples \n", missing);
    print_log("Missing (%llu-%llu) samples. Calculating speriod \n", static_cast<unsigned long long>(previousTime),
              static_cast<unsigned long long>(timeOfKey(key)));
    std::fflush(nullptr);
    if (missing > kLargestGap) {
        print_log("Missing samples are over 10000, skip it without addimg missing samples\n ");
        return {};
    }
    return {previousKey, period_, missing >= 2 ? static_cast<uint32_t>(missing - 1) : 0};
}

} // namespace trk
