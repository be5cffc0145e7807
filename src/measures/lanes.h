// The positions of one sample, twelve numbers that are computed with side by side.
#pragma once

#include "records/sample.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace trk {

// Lanes 0-3 gaze, 4-7 HREF, 8-11 raw pupil; in each group x left, x right, y left, y right. The order is that of
// the velocity fields of a sample.
struct Lanes {
    static constexpr int kCount = 12;
    static constexpr std::size_t kHrefGroup = 4;

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
    friend Lanes operator/(const Lanes &a, const Lanes &b) {
        return combine(a, b, [](float x, float y) { return x / y; });
    }
    friend Lanes operator*(const Lanes &a, const Lanes &b) {
        return combine(a, b, [](float x, float y) { return x * y; });
    }
    friend Lanes operator*(const Lanes &a, float factor) { return a * filledWith(factor); }
    friend Lanes operator/(const Lanes &a, float divisor) { return a / filledWith(divisor); }
    friend Lanes operator-(const Lanes &a) {
        return combine(a, a, [](float x, float) { return -x; });
    }

  private:
    template <class Operation> static Lanes combine(const Lanes &a, const Lanes &b, Operation operation) {
        Lanes result;
        for (std::size_t i = 0; i < kCount; ++i) {
            result.value[i] = operation(a.value[i], b.value[i]);
        }
        return result;
    }
};

// One bit per lane.
using LaneMask = uint16_t;
inline constexpr LaneMask kAllLanes = (1U << Lanes::kCount) - 1;

struct PositionLanes {
    Lanes position;   // MISSING_DATA where there is none
    LaneMask missing; // the lanes that read MISSING_DATA
};

inline PositionLanes positionsOf(const Sample &sample) {
    constexpr int kKinds[] = {kGaze, kHref, kRawPupil};
    PositionLanes lanes{};
    std::size_t lane = 0;
    for (const int kind : kKinds) {
        for (std::size_t eye = 0; eye < kEyes; ++eye) {
            static_cast<void>(sample.getSampleData(lanes.position.value[lane + eye],
                                                   lanes.position.value[lane + kEyes + eye],
                                                   static_cast<int>(eye), kind));
        }
        lane += 2 * kEyes;
    }
    for (lane = 0; lane < Lanes::kCount; ++lane) {
        lanes.missing |= static_cast<LaneMask>((lanes.position.value[lane] == MISSING_DATA ? 1U : 0U) << lane);
    }
    return lanes;
}

} // namespace trk
