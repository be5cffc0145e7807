// How the 16-bit words of a record become floats.
#pragma once

#include "trkapi/trkapi.h"

#include <cstdint>

namespace trk {

inline constexpr uint16_t kMissingWord = 0x8000;

[[nodiscard]] inline float plainValue(uint16_t word) { return static_cast<float>(static_cast<int16_t>(word)); }

[[nodiscard]] inline float missingMarkedValue(uint16_t word) {
    return word == kMissingWord ? MISSING_DATA : plainValue(word);
}

// Missing-marked, and divided by a divisor that the recording block names. Smaller divisors stand for none.
class ScaledValue {
  public:
    explicit ScaledValue(float divisor) : divisor_(divisor > kSmallestDivisor ? divisor : 1.0F) {}
    float operator()(uint16_t word) const {
        const float value = plainValue(word) / divisor_;
        return word == kMissingWord ? MISSING_DATA : value;
    }

  private:
    static constexpr float kSmallestDivisor = 0.1F;
    float divisor_;
};

} // namespace trk
