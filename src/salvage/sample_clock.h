// The regular beat of the samples of a block.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace trk {

// Sample i of a run at a steady rate has the time floor(phase + i x period). Each sample narrows down the phase;
// one that leaves none is out of the beat. So rates that do not divide a second evenly are followed exactly.
class SampleClock {
  public:
    // `period` in ms; 0 when none is known: then every sample is in the beat.
    void start(double period, uint32_t time) {
        period_ = period;
        origin_ = time;
        count_ = 0;
        lowest_ = 0;
        highest_ = 1;
    }

    // Takes the next sample. Returns false, and takes nothing, when it is out of the beat.
    bool take(uint32_t time) {
        if (period_ <= 0) {
            return true;
        }
        const double lead =
            static_cast<double>(static_cast<int32_t>(time - origin_)) - static_cast<double>(count_ + 1) * period_;
        const double low = std::max(lowest_, lead);
        const double high = std::min(highest_, lead + 1);
        if (high - low < kTolerance) {
            return false;
        }
        lowest_ = low;
        highest_ = high;
        ++count_;
        return true;
    }

    // The time of the sample `steps` behind the last one.
    [[nodiscard]] uint32_t timeAfter(int64_t steps) const {
        const double middle = (lowest_ + highest_) / 2 + static_cast<double>(count_ + steps) * period_;
        return origin_ + static_cast<uint32_t>(static_cast<int64_t>(std::floor(middle)));
    }

    // Whether the sample before the first one would have had the same time.
    [[nodiscard]] bool startsLate() const { return period_ > 0 && lowest_ - period_ > -kTolerance; }

    [[nodiscard]] double period() const { return period_; }

  private:
    static constexpr double kTolerance = 1e-6; // ms

    double period_ = 0;
    uint32_t origin_ = 0;
    int64_t count_ = 0;
    double lowest_ = 0;
    double highest_ = 1;
};

} // namespace trk
