// The eye positions of one sample, twelve numbers that are computed with side by side.
#pragma once

#include "trkapi/trkapi.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

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

struct alignas(64) PositionLanes {
    Lanes position;   // MISSING_DATA where there is none
    LaneMask missing; // the lanes that read MISSING_DATA
};

// An eye whose pupil is smaller than this counts as lost even though its data is present.
inline constexpr float kSmallestPupil = 15.0F;

// The eye positions of a sample: those of an absent or lost eye, and of a coordinate system that the sample does
// not carry, are missing.
inline PositionLanes getSampleData(const FSAMPLE_REC &sample) {
    constexpr std::array<std::size_t, 3> kOffsets{offsetof(FSAMPLE_REC, gaze_x), offsetof(FSAMPLE_REC, href_x),
                                                  offsetof(FSAMPLE_REC, pupil_x)};
    constexpr std::array<uint16_t, 3> kPresent{TRK_SAMPLE_GAZE, TRK_SAMPLE_HREF, TRK_SAMPLE_PUPIL_POSITION};
    static_assert(offsetof(FSAMPLE_REC, gaze_y) == offsetof(FSAMPLE_REC, gaze_x) + 2 * sizeof(float));
    static_assert(offsetof(FSAMPLE_REC, href_y) == offsetof(FSAMPLE_REC, href_x) + 2 * sizeof(float));
    static_assert(offsetof(FSAMPLE_REC, pupil_y) == offsetof(FSAMPLE_REC, pupil_x) + 2 * sizeof(float));

    // For each combination of usable eyes (bit 0 left, bit 1 right) the lanes of a group.
    constexpr uint32_t kSet = 0xFFFFFFFF;
    static constexpr std::array<std::array<uint32_t, Lanes::kGroup>, 4> kEyeLanes{
        {{0, 0, 0, 0}, {kSet, 0, kSet, 0}, {0, kSet, 0, kSet}, {kSet, kSet, kSet, kSet}}};

    const bool sized = (sample.flags & TRK_SAMPLE_PUPIL_SIZE) != 0;
    const bool left = (sample.flags & TRK_SAMPLE_LEFT) != 0 && !(sized && sample.pupil_size[0] < kSmallestPupil);
    const bool right = (sample.flags & TRK_SAMPLE_RIGHT) != 0 && !(sized && sample.pupil_size[1] < kSmallestPupil);
    const unsigned eyes = (left ? 1U : 0U) | (right ? 2U : 0U);
    PositionLanes lanes;
    for (std::size_t group = 0; group < kOffsets.size(); ++group) {
        const bool present = (sample.flags & kPresent[group]) != 0;
        const auto &usable = kEyeLanes[present ? eyes : 0];
        std::array<uint32_t, Lanes::kGroup> bits;
        std::memcpy(bits.data(), reinterpret_cast<const unsigned char *>(&sample) + kOffsets[group], sizeof(bits));
        for (std::size_t i = 0; i < Lanes::kGroup; ++i) {
            bits[i] = (bits[i] & usable[i]) | (std::bit_cast<uint32_t>(MISSING_DATA) & ~usable[i]);
        }
        std::memcpy(&lanes.position.value[group * Lanes::kGroup], bits.data(), sizeof(bits));
    }
    lanes.missing = missingIn(lanes.position);
    return lanes;
}

} // namespace trk
