// The eye positions of a sample as lanes.
#pragma once

#include "measures/lanes.h"
#include "records/sample.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace trk {

// What a sample carries the groups of positions by.
inline constexpr std::array<uint16_t, 3> kPositionFlags{TRK_SAMPLE_GAZE, TRK_SAMPLE_HREF,
                                                        TRK_SAMPLE_PUPIL_POSITION};

struct alignas(64) PositionLanes {
    Lanes position;   // MISSING_DATA where there is none
    LaneMask missing; // the lanes that read MISSING_DATA
};

// The eye positions of a sample: those of an absent or lost eye, and of a coordinate system that the sample does
// not carry, are missing.
[[nodiscard]] inline PositionLanes positionsOf(const Sample &sample) {
    constexpr std::array<std::size_t, 3> kOffsets{offsetof(FSAMPLE_REC, gaze_x), offsetof(FSAMPLE_REC, href_x),
                                                  offsetof(FSAMPLE_REC, pupil_x)};
    static_assert(offsetof(FSAMPLE_REC, gaze_y) == offsetof(FSAMPLE_REC, gaze_x) + 2 * sizeof(float));
    static_assert(offsetof(FSAMPLE_REC, href_y) == offsetof(FSAMPLE_REC, href_x) + 2 * sizeof(float));
    static_assert(offsetof(FSAMPLE_REC, pupil_y) == offsetof(FSAMPLE_REC, pupil_x) + 2 * sizeof(float));

    // For each combination of usable eyes (bit 0 left, bit 1 right) the lanes of a group.
    constexpr uint32_t kSet = 0xFFFFFFFF;
    static constexpr std::array<std::array<uint32_t, Lanes::kGroup>, 4> kEyeLanes{
        {{0, 0, 0, 0}, {kSet, 0, kSet, 0}, {0, kSet, 0, kSet}, {kSet, kSet, kSet, kSet}}};

    const unsigned eyes = (tracksEye(sample, 0) ? 1U : 0U) | (tracksEye(sample, 1) ? 2U : 0U);
    PositionLanes lanes;
    for (std::size_t group = 0; group < kOffsets.size(); ++group) {
        const bool present = (sample.flags & kPositionFlags[group]) != 0;
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
