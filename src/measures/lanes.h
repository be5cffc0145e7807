// The eye positions of one sample, twelve numbers that are computed with side by side.
#pragma once

#include "trkapi/trkapi.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

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

// For each lane all bits set, or none.
struct LaneMask {
    static constexpr uint32_t kSet = 0xFFFFFFFF;

    std::array<uint32_t, Lanes::kCount> bits;

    static constexpr LaneMask all() {
        LaneMask mask{};
        mask.bits.fill(kSet);
        return mask;
    }
    static LaneMask missingIn(const Lanes &lanes) {
        LaneMask mask;
        for (std::size_t i = 0; i < Lanes::kCount; ++i) {
            mask.bits[i] = lanes.value[i] == MISSING_DATA ? kSet : 0;
        }
        return mask;
    }

    [[nodiscard]] bool operator[](std::size_t lane) const { return bits[lane] != 0; }
    [[nodiscard]] bool isAll() const {
        uint32_t common = kSet;
        for (const uint32_t lane : bits) {
            common &= lane;
        }
        return common == kSet;
    }
    [[nodiscard]] bool isNone() const {
        uint32_t any = 0;
        for (const uint32_t lane : bits) {
            any |= lane;
        }
        return any == 0;
    }
    LaneMask &operator|=(const LaneMask &other) {
        for (std::size_t i = 0; i < Lanes::kCount; ++i) {
            bits[i] |= other.bits[i];
        }
        return *this;
    }

    // The lanes of `chosen` where the mask is set, else those of `other`.
    [[nodiscard]] Lanes select(const Lanes &chosen, const Lanes &other) const {
        Lanes result;
        for (std::size_t i = 0; i < Lanes::kCount; ++i) {
            result.value[i] = std::bit_cast<float>((std::bit_cast<uint32_t>(chosen.value[i]) & bits[i]) |
                                                   (std::bit_cast<uint32_t>(other.value[i]) & ~bits[i]));
        }
        return result;
    }
};

struct PositionLanes {
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

    const bool sized = (sample.flags & TRK_SAMPLE_PUPIL_SIZE) != 0;
    const bool left = (sample.flags & TRK_SAMPLE_LEFT) != 0 && !(sized && sample.pupil_size[0] < kSmallestPupil);
    const bool right = (sample.flags & TRK_SAMPLE_RIGHT) != 0 && !(sized && sample.pupil_size[1] < kSmallestPupil);
    Lanes stored;
    LaneMask usable;
    for (std::size_t group = 0; group < kOffsets.size(); ++group) {
        std::memcpy(&stored.value[group * Lanes::kGroup],
                    reinterpret_cast<const unsigned char *>(&sample) + kOffsets[group],
                    Lanes::kGroup * sizeof(float));
        const bool present = (sample.flags & kPresent[group]) != 0;
        uint32_t *const bits = &usable.bits[group * Lanes::kGroup];
        bits[0] = bits[2] = present && left ? LaneMask::kSet : 0;
        bits[1] = bits[3] = present && right ? LaneMask::kSet : 0;
    }
    const Lanes position = usable.select(stored, Lanes::filledWith(MISSING_DATA));
    return {position, LaneMask::missingIn(position)};
}

} // namespace trk
