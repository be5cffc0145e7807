// Random numbers that are the same everywhere, which the distributions of the standard library are not.
#pragma once

#include <cstdint>

namespace trkwriter {

// SplitMix64: adds a constant to a counter and mixes the sum. Streams of one seed are independent of each other,
// so that what draws from one changes nothing for the others.
class Random {
  public:
    Random(uint64_t seed, uint64_t stream) : state_(mixed(mixed(seed) + stream)) {}

    uint64_t bits() { return mixed(state_ += kStep); }

    // At least 0, and below 1.
    double uniform() { return static_cast<double>(bits() >> 11U) / 9007199254740992.0; }
    double uniform(double low, double high) { return low + (high - low) * uniform(); }

    // Bell-shaped, of mean 0 and standard deviation 1: the sum of four uniform numbers, never beyond 3.5.
    double bell() {
        const uint64_t word = bits();
        const uint64_t sum = (word & 0xFFFFU) + (word >> 16U & 0xFFFFU) + (word >> 32U & 0xFFFFU) + (word >> 48U);
        constexpr double kMean = 2.0 * 0xFFFF;
        constexpr double kDeviation = 65536.0 / 1.7320508075688772;
        return (static_cast<double>(sum) - kMean) / kDeviation;
    }

  private:
    static constexpr uint64_t kStep = 0x9E3779B97F4A7C15;

    static uint64_t mixed(uint64_t word) {
        word = (word ^ (word >> 30U)) * 0xBF58476D1CE4E5B9;
        word = (word ^ (word >> 27U)) * 0x94D049BB133111EB;
        return word ^ (word >> 31U);
    }

    uint64_t state_;
};

} // namespace trkwriter
