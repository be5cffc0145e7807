// Conversions from floating point to integers.
#pragma once

#include <concepts>
#include <limits>

namespace trk {

// Truncates toward zero. Values that do not fit give the nearest value that does, and NaN gives 0, so that
// numbers from a file can be converted without a look at them first.
template <std::integral Integer, std::floating_point Float>
[[nodiscard]] constexpr Integer truncateTo(Float value) {
    // Both bounds are exact: the minimum is 0 or a negated power of two, and one past the maximum a power of two.
    constexpr auto kLowest = static_cast<Float>(std::numeric_limits<Integer>::min());
    constexpr Integer kHalf = std::numeric_limits<Integer>::max() / 2 + 1;
    constexpr auto kPastLargest = static_cast<Float>(kHalf) * 2;
    if (value >= kPastLargest) {
        return std::numeric_limits<Integer>::max();
    }
    if (value > kLowest - 1) {
        return static_cast<Integer>(value);
    }
    return value <= kLowest ? std::numeric_limits<Integer>::min() : Integer{0};
}

} // namespace trk
