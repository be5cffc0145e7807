#include "index/gap_filler.h"

#include "base/log.h"
#include "base/numeric.h"

namespace trk {

namespace {

constexpr int32_t kLargestGap = 10000;

} // namespace

void GapFiller::learnPeriod(uint64_t previousKey, uint64_t key, float sampleRate) {
    const uint64_t difference = key - previousKey;
    period_ = isPlausiblePeriod(difference) ? difference : 0;
    if (!periodIsSettled()) {
        return;
    }
    const auto blockPeriod =
        truncateTo<uint64_t>(static_cast<double>(TimeKey::kPerSecond) / static_cast<double>(sampleRate));
    if (isPlausiblePeriod(blockPeriod) && blockPeriod != period_) {
        logLine("Intersample period does not match with the sample rate given by the start recording event! "
                "Using start recording sample rate. %d %d %d %d \n",
                static_cast<int>(blockPeriod), static_cast<int>(period_), static_cast<int>(previousKey),
                static_cast<int>(key));
        period_ = blockPeriod;
    }
}

GapFiller::Gap GapFiller::measure(uint32_t previousTime, uint64_t previousKey, uint64_t key) const {
    const auto missing = static_cast<int32_t>((key - TimeKey::of(previousTime)) / period_);
    logLine("Missing %d samples. Inserting dummy samples \n", missing);
    logLine("Missing (%llu-%llu) samples. Calculating speriod \n", static_cast<unsigned long long>(previousTime),
            static_cast<unsigned long long>(TimeKey::time(key)));
    flushStreams();
    if (missing > kLargestGap) {
        logLine("Missing samples are over 10000, skip it without addimg missing samples\n ");
        return {};
    }
    return {previousKey, period_, missing >= 2 ? static_cast<uint32_t>(missing - 1) : 0};
}

} // namespace trk
