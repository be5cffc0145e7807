// How velocities come from positions, whichever way the positions are at hand.
#pragma once

#include "base/numeric.h"
#include "measures/href_plane.h"
#include "measures/lanes.h"
#include "records/sample.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <type_traits>

namespace trk {

// Fixed resolution in position units per degree, used in place of each sample's own; MISSING_DATA in x: none.
struct FixedResolution {
    float x = MISSING_DATA;
    float y = MISSING_DATA;
};

// How the high-speed model takes the samples of a range of rates together. On either side of the sample stand two
// groups; the nearer one on the right begins at `nearBehind`. What lies between the groups must be known as well.
struct VelocityBand {
    float belowRate; // samples per second
    int nearBehind;
    int groupSize;
    float scale;

    [[nodiscard]] int farBehind() const { return nearBehind + groupSize; }
    [[nodiscard]] int nearBefore() const { return 1 - farBehind(); }
    [[nodiscard]] int farBefore() const { return nearBefore() - groupSize; }
    [[nodiscard]] int halfSpan() const { return -farBefore(); }
};

// What a tracker model and a rate ask for. Made once for a run of samples of one rate.
class VelocityModel {
  public:
    static constexpr int kLargestHalfSpan = 19;

    // High-speed trackers, the models from 3 on, have a way of their own to compute velocities.
    VelocityModel(int trackerModel, int rate)
        : highSpeed_(trackerModel >= kFirstHighSpeedModel), rate_(rate), band_(&bandOf(static_cast<float>(rate))),
          halfSpan_(highSpeed_ ? band_->halfSpan() : kPlainHalfSpan) {
        const float interval = 1000.0F / static_cast<float>(rate); // milliseconds
        for (std::size_t i = 0; i < keyOffsets_.size(); ++i) {
            keyOffsets_[i] = truncateTo<uint64_t>(2.0F * (interval * static_cast<float>(i + 1)));
        }
    }

    [[nodiscard]] bool isHighSpeed() const { return highSpeed_; }
    [[nodiscard]] int rate() const { return rate_; } // samples per second
    [[nodiscard]] const VelocityBand &band() const { return *band_; }
    [[nodiscard]] int halfSpan() const { return halfSpan_; } // neighbours needed on either side
    // Distance of the key of a neighbour, from 1 for the nearest.
    [[nodiscard]] uint64_t keyOffset(int distance) const {
        return keyOffsets_[static_cast<std::size_t>(distance) - 1];
    }

    // Whether the neighbours needed stand side by side where keys have this spacing.
    [[nodiscard]] bool standInARow(uint64_t spacing) const {
        if (spacing == 0) {
            return false;
        }
        for (std::size_t i = 0; i < static_cast<std::size_t>(halfSpan_); ++i) {
            if (keyOffsets_[i] != (i + 1) * spacing) {
                return false;
            }
        }
        return true;
    }

  private:
    static constexpr int kFirstHighSpeedModel = 3;
    static constexpr int kPlainHalfSpan = 2;

    static const VelocityBand &bandOf(float rate) {
        static constexpr std::array kBands{
            VelocityBand{500.0F, 1, 1, 1.0F},
            VelocityBand{1000.0F, 1, 2, 1.2F},
            VelocityBand{2000.0F, 2, 4, 1.0909091F},
            VelocityBand{INFINITY, 4, 8, 1.0434783F},
        };
        return *std::ranges::find_if(kBands, [rate](const VelocityBand &band) { return rate < band.belowRate; });
    }

    bool highSpeed_;
    int rate_;
    const VelocityBand *band_;
    int halfSpan_;
    std::array<uint64_t, kLargestHalfSpan> keyOffsets_{}; // of the neighbours, the nearest first
};

// The mean of a group of positions, one number or many side by side; `at` gives them. Sums run from left to right.
template <class At> [[gnu::always_inline]] inline auto meanOfGroup(int groupSize, At at) {
    using Numbers = std::decay_t<decltype(at(0))>;
    const auto meanOfPair = [&at](int i) { return (at(i) + at(i + 1)) * 0.5F; };
    switch (groupSize) {
    case 2:
        return Numbers(meanOfPair(0));
    case 4:
        return Numbers((at(0) + at(1) + at(2) + at(3)) * 0.25F);
    case 8:
        return Numbers((meanOfPair(0) + meanOfPair(2) + meanOfPair(4) + meanOfPair(6)) * 0.25F);
    default:
        return Numbers(at(0));
    }
}

// Velocities from the means of the four groups, from left to right. The factor 250 is the same for all rates: the
// distance of the groups and the scale stand in for the sampling interval. 0.167, not one sixth: else all
// velocities would differ by 0.2 per cent from those of analyses made so far.
inline constexpr float kGroupsPerSecond = 250.0F;

template <class Numbers>
[[gnu::always_inline]] inline Numbers smoothedOfGroups(const Numbers &a, const Numbers &b, const Numbers &c,
                                                       const Numbers &d, const Numbers &perDegree, float scale) {
    return perDegree * ((-a - b + c + d) * 0.167F) * scale;
}

template <class Numbers>
[[gnu::always_inline]] inline Numbers fastOfGroups(const Numbers &b, const Numbers &c, const Numbers &perDegree,
                                                   float scale) {
    return perDegree * ((c - b) * 0.5F) * scale;
}

// The plain model, where all neighbours are there.
template <class Numbers>
[[gnu::always_inline]] inline Numbers plainSmoothed(const Numbers &before2, const Numbers &before1,
                                                    const Numbers &behind1, const Numbers &behind2, float rate,
                                                    const Numbers &resolution) {
    return (-before2 - before1 + behind1 + behind2) * rate / 6.0F / resolution;
}

template <class Numbers>
[[gnu::always_inline]] inline Numbers plainFast(const Numbers &before, const Numbers &behind, float rate,
                                                const Numbers &resolution) {
    return (behind - before) * rate * 0.5F / resolution;
}

// The plain model where a neighbour is missing: the other one and the sample itself must do.
[[nodiscard]] inline float velocityFromCentre(float before, float here, float after, float resolution,
                                              float rate) {
    const bool bothMissing = before == MISSING_DATA && after == MISSING_DATA;
    if (bothMissing || here == MISSING_DATA) {
        return MISSING_DATA;
    }
    return (before == MISSING_DATA ? after - here : here - before) * rate / resolution;
}

inline constexpr float kSmallestResolution = 0.01F;
inline constexpr float kLargestResolution = 10000.0F;

// A fixed resolution is used as it is, unless it is next to nothing.
[[nodiscard]] inline FixedResolution usable(FixedResolution fixed) {
    return {fixed.x > kSmallestResolution ? fixed.x : MISSING_DATA,
            fixed.y > kSmallestResolution ? fixed.y : MISSING_DATA};
}

// A resolution out of bounds, on either axis, is none.
[[nodiscard]] inline FixedResolution checked(FixedResolution resolution) {
    const auto plausible = [](float value) { return value > kSmallestResolution && value < kLargestResolution; };
    return plausible(resolution.x) && plausible(resolution.y) ? resolution : FixedResolution{};
}

// HREF units per degree along one axis, at a position on the HREF plane; from the squares of the position on both
// axes, the left or upper one first, and on the other axis alone.
[[nodiscard]] inline float hrefResolution(double squareX, double squareY, double squareOfOtherAxis) {
    const double distanceSquared = squareX + squareY + kHrefDistanceSquared;
    const double perRadian = distanceSquared / std::sqrt(squareOfOtherAxis + kHrefDistanceSquared);
    return static_cast<float>(perRadian / kDegreesPerRadian);
}

[[nodiscard]] inline double squareOf(float position) {
    return static_cast<double>(position) * static_cast<double>(position);
}

} // namespace trk
