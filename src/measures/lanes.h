// Twelve numbers that are computed with side by side: the eye positions of one sample, or their velocities.
#pragma once

#include "trkapi/trkapi.h"

#include <array>
#include <cstddef>
#include <cstdint>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace trk {

// Lanes 0-3 gaze, 4-7 HREF, 8-11 raw pupil; in each group x left, x right, y left, y right. Groups stand in the
// order of a sample's velocity fields, lanes in the order of its position and velocity fields.
struct Lanes {
    static constexpr std::size_t kCount = 12;
    static constexpr std::size_t kGroup = 4;
    static constexpr std::size_t kHref = 4; // first lane of the HREF group

    std::array<float, kCount> value;

    static constexpr Lanes filledWith(float number) {
        Lanes lanes{};
        lanes.value.fill(number);
        return lanes;
    }

    friend Lanes operator+(const Lanes &a, const Lanes &b) {
        return combine(a, b, [](float x, float y) { return x + y; });
    }
    friend Lanes operator-(const Lanes &a, const Lanes &b) {
        return combine(a, b, [](float x, float y) { return x - y; });
    }
    friend Lanes operator*(const Lanes &a, const Lanes &b) {
        return combine(a, b, [](float x, float y) { return x * y; });
    }
    friend Lanes operator/(const Lanes &a, const Lanes &b) {
        return combine(a, b, [](float x, float y) { return x / y; });
    }
    friend Lanes operator*(const Lanes &a, float factor) { return a * filledWith(factor); }
    friend Lanes operator/(const Lanes &a, float divisor) { return a / filledWith(divisor); }
    friend Lanes operator-(const Lanes &a) {
        return combine(a, a, [](float x, float) { return -x; });
    }

  private:
    template <class Operation>
    [[gnu::always_inline]] static Lanes combine(const Lanes &a, const Lanes &b, Operation operation) {
        Lanes result;
        for (std::size_t i = 0; i < kCount; ++i) {
            result.value[i] = operation(a.value[i], b.value[i]);
        }
        return result;
    }
};

// One bit per lane.
using LaneMask = uint32_t;
inline constexpr LaneMask kAllLanes = (1U << Lanes::kCount) - 1;

// The lanes that read MISSING_DATA.
[[nodiscard]] inline LaneMask missingIn(const Lanes &lanes) {
    LaneMask mask = 0;
    for (std::size_t group = 0; group < Lanes::kCount; group += Lanes::kGroup) {
#ifdef __SSE2__
        const __m128 values = _mm_loadu_ps(&lanes.value[group]);
        const int missing = _mm_movemask_ps(_mm_cmpeq_ps(values, _mm_set1_ps(MISSING_DATA)));
        mask |= static_cast<LaneMask>(missing) << group;
#else
        for (std::size_t lane = group; lane < group + Lanes::kGroup; ++lane) {
            mask |= (lanes.value[lane] == MISSING_DATA ? LaneMask{1} : LaneMask{0}) << lane;
        }
#endif
    }
    return mask;
}

[[nodiscard]] constexpr bool hasLane(LaneMask mask, std::size_t lane) { return (mask >> lane & 1U) != 0; }

// Puts the lanes of `from` where the mask is set.
inline void replaceLanes(Lanes &lanes, LaneMask mask, const Lanes &from) {
    if (mask == 0) [[likely]] {
        return;
    }
    for (std::size_t lane = 0; lane < Lanes::kCount; ++lane) {
        if (hasLane(mask, lane)) {
            lanes.value[lane] = from.value[lane];
        }
    }
}

} // namespace trk
