// How the 16-bit words of a record become floats.
#pragma once

#include "trkapi/trkapi.h"

#include <array>
#include <bit>
#include <cstddef>
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
        // A choice by bits, which several words can make side by side.
        const uint32_t missing = word == kMissingWord ? 0xFFFFFFFF : 0;
        const auto value = std::bit_cast<uint32_t>(plainValue(word) / divisor_);
        return std::bit_cast<float>((value & ~missing) | (std::bit_cast<uint32_t>(MISSING_DATA) & missing));
    }

  private:
    static constexpr float kSmallestDivisor = 0.1F;
    float divisor_;
};

template <std::size_t kCount, class Convert>
[[nodiscard, gnu::always_inline]] inline std::array<float, kCount>
convertAll(const std::array<uint16_t, kCount> &words, Convert convert) {
    std::array<float, kCount> values;
    for (std::size_t i = 0; i < kCount; ++i) {
        values[i] = convert(words[i]);
    }
    return values;
}

} // namespace trk
