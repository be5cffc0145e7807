#include "measures/velocity.h"

#include "base/numeric.h"
#include "measures/lanes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>

namespace trk {

namespace {

constexpr int kFirstHighSpeedModel = 3;
constexpr int kPlainHalfSpan = 2;

constexpr double kHrefDistanceSquared = 2.25e8; // 15000 HREF units
constexpr double kDegreesPerRadian = 57.2958;
constexpr float kSmallestResolution = 0.01F;
constexpr float kLargestResolution = 10000.0F;

// The samples around one sample, by their distance in sample intervals from -19 to 19. Only those that the model
// needs are looked up.
class Neighbourhood {
  public:
    static constexpr int kReach = 19;

    explicit Neighbourhood(const PositionLanes &centre) : at_{} { at_[kReach] = &centre; }

    void set(int distance, const PositionLanes *positions) { at_[place(distance)] = positions; }
    [[nodiscard]] bool has(int distance) const { return at_[place(distance)] != nullptr; }
    [[nodiscard]] const Lanes &operator[](int distance) const { return at_[place(distance)]->position; }

    // One lane of one sample; MISSING_DATA where there is no sample.
    [[nodiscard]] float position(int distance, std::size_t lane) const {
        return has(distance) ? (*this)[distance].value[lane] : MISSING_DATA;
    }

    // The lanes that are not known in a sample.
    [[nodiscard]] LaneMask missingAt(int distance) const {
        return has(distance) ? at_[place(distance)]->missing : kAllLanes;
    }

  private:
    static std::size_t place(int distance) { return static_cast<std::size_t>(distance + kReach); }

    std::array<const PositionLanes *, 2 * kReach + 1> at_;
};

struct Velocities {
    Lanes smoothed = Lanes::filledWith(MISSING_DATA);
    Lanes fast = Lanes::filledWith(MISSING_DATA);
};

// The means of four groups of positions, two on either side of the sample, from left to right. Group sizes and
// distances grow with the sample rate; all the sums run from left to right.
struct GroupMeans {
    Lanes a, b, c, d;
};

Lanes meanOf2(const Neighbourhood &at, int first) { return (at[first] + at[first + 1]) * 0.5F; }

Lanes meanOf4(const Neighbourhood &at, int first) {
    return (at[first] + at[first + 1] + at[first + 2] + at[first + 3]) * 0.25F;
}

Lanes meanOf4Pairs(const Neighbourhood &at, int first) {
    return (meanOf2(at, first) + meanOf2(at, first + 2) + meanOf2(at, first + 4) + meanOf2(at, first + 6)) * 0.25F;
}

struct Band {
    float belowRate; // samples per second
    int halfSpan;
    float scale;
    GroupMeans (*means)(const Neighbourhood &at);
};

constexpr std::array kBands{
    Band{500.0F, 2, 1.0F,
         [](const Neighbourhood &at) { return GroupMeans{at[-2], at[-1], at[1], at[2]}; }},
    Band{1000.0F, 4, 1.2F,
         [](const Neighbourhood &at) {
             return GroupMeans{meanOf2(at, -4), meanOf2(at, -2), meanOf2(at, 1), meanOf2(at, 3)};
         }},
    Band{2000.0F, 9, 1.0909091F,
         [](const Neighbourhood &at) {
             return GroupMeans{meanOf4(at, -9), meanOf4(at, -5), meanOf4(at, 2), meanOf4(at, 6)};
         }},
    Band{INFINITY, 19, 1.0434783F,
         [](const Neighbourhood &at) {
             return GroupMeans{meanOf4Pairs(at, -19), meanOf4Pairs(at, -11), meanOf4Pairs(at, 4),
                               meanOf4Pairs(at, 12)};
         }},
};

const Band &bandOf(float rate) {
    std::size_t band = 0;
    while (rate >= kBands[band].belowRate) {
        ++band;
    }
    return kBands[band];
}

void setMissing(Lanes &lanes, LaneMask missing) {
    for (std::size_t lane = 0; lane < Lanes::kCount; ++lane) {
        if ((missing >> lane & 1U) != 0) {
            lanes.value[lane] = MISSING_DATA;
        }
    }
}

// The model of high-speed trackers: all positions of the span or nothing.
Velocities calcVelocity_pn7200(const Neighbourhood &at, const Lanes &resolution, float rate) {
    // The factor is the same for all rates on purpose: the distance of the groups and the scale stand in for the
    // sampling interval. That 0.167 is not one sixth is on purpose as well.
    constexpr float kRateFactor = 250.0F;
    constexpr float kSmoothedFactor = 0.167F;
    const Band &band = bandOf(rate);
    LaneMask missing = 0;
    for (int distance = -band.halfSpan; distance <= band.halfSpan; ++distance) {
        missing |= at.missingAt(distance);
    }
    Velocities result;
    if (missing == kAllLanes) {
        return result;
    }
    const GroupMeans mean = band.means(at);
    const Lanes perDegree = Lanes::filledWith(kRateFactor) / resolution;
    result.fast = perDegree * ((mean.c - mean.b) * 0.5F) * band.scale;
    result.smoothed = perDegree * ((-mean.a - mean.b + mean.c + mean.d) * kSmoothedFactor) * band.scale;
    setMissing(result.fast, missing);
    setMissing(result.smoothed, missing);
    return result;
}

// One lane of the other model where neighbours are missing: it makes do with the next two points, or with one
// and the sample itself.
float velocityFromNearest(const Neighbourhood &at, std::size_t lane, float resolution, float rate) {
    const float before = at.position(-1, lane);
    const float here = at.position(0, lane);
    const float after = at.position(1, lane);
    if (before != MISSING_DATA && after != MISSING_DATA) {
        return (after - before) * rate * 0.5F / resolution;
    }
    if (here == MISSING_DATA) {
        return MISSING_DATA;
    }
    if (after != MISSING_DATA) {
        return (after - here) * rate / resolution;
    }
    return before != MISSING_DATA ? (here - before) * rate / resolution : MISSING_DATA;
}

// The model of all other trackers.
Velocities calcVelocity_non_pn7200(const Neighbourhood &at, const Lanes &resolution, float rate) {
    const LaneMask missingPair = at.missingAt(-1) | at.missingAt(1);
    const LaneMask missing = missingPair | at.missingAt(-2) | at.missingAt(2);
    Velocities result;
    if (missingPair != kAllLanes) {
        result.fast = (at[1] - at[-1]) * rate * 0.5F / resolution;
    }
    for (std::size_t lane = 0; lane < Lanes::kCount && missingPair != 0; ++lane) {
        if ((missingPair >> lane & 1U) != 0) {
            result.fast.value[lane] = velocityFromNearest(at, lane, resolution.value[lane], rate);
        }
    }
    result.smoothed = result.fast;
    if (missing != kAllLanes) {
        const Lanes fourPoints = (-at[-2] - at[-1] + at[1] + at[2]) * rate / 6.0F / resolution;
        for (std::size_t lane = 0; lane < Lanes::kCount; ++lane) {
            if ((missing >> lane & 1U) == 0) {
                result.smoothed.value[lane] = fourPoints.value[lane];
            }
        }
    }
    return result;
}

// A resolution out of bounds, on either axis, is none.
FixedResolution checked(FixedResolution resolution) {
    const auto plausible = [](float value) { return value > kSmallestResolution && value < kLargestResolution; };
    return plausible(resolution.x) && plausible(resolution.y) ? resolution : FixedResolution{};
}

// HREF units per degree at a position on the HREF plane.
FixedResolution hrefResolution(double x, double y) {
    const double distanceSquared = x * x + y * y + kHrefDistanceSquared;
    return {static_cast<float>(distanceSquared / std::sqrt(y * y + kHrefDistanceSquared) / kDegreesPerRadian),
            static_cast<float>(distanceSquared / std::sqrt(x * x + kHrefDistanceSquared) / kDegreesPerRadian)};
}

// The resolution of each lane; MISSING_DATA where there is none.
Lanes resolutionOf(const Sample &sample, const PositionLanes &centre, FixedResolution fixed) {
    const bool isFixed = fixed.x != MISSING_DATA;
    const FixedResolution common = isFixed ? fixed : checked({sample.res_x, sample.res_y});
    Lanes lanes{};
    for (std::size_t group = 0; group < Lanes::kCount; group += 2 * kEyes) {
        for (std::size_t eye = 0; eye < kEyes; ++eye) {
            const std::size_t laneX = group + eye;
            const std::size_t laneY = laneX + kEyes;
            FixedResolution resolution = common;
            const bool known = (centre.missing >> laneX & 1U) == 0 && (centre.missing >> laneY & 1U) == 0;
            if (!isFixed && group == Lanes::kHrefGroup && known) {
                resolution = checked(hrefResolution(static_cast<double>(centre.position.value[laneX]),
                                                    static_cast<double>(centre.position.value[laneY])));
            }
            lanes.value[laneX] = resolution.x;
            lanes.value[laneY] = resolution.y;
        }
    }
    return lanes;
}

LaneMask lanesWithout(const Lanes &resolution) {
    LaneMask without = 0;
    for (std::size_t lane = 0; lane < Lanes::kCount; ++lane) {
        const float value = resolution.value[lane];
        const bool usable = value != MISSING_DATA && value > kSmallestResolution;
        without |= static_cast<LaneMask>((usable ? 0U : 1U) << lane);
    }
    return without;
}

constexpr std::size_t kVelocityBytes = sizeof(Lanes::value);
constexpr std::size_t kSmoothedOffset = offsetof(FSAMPLE_REC, gaze_vel_x);
constexpr std::size_t kFastOffset = offsetof(FSAMPLE_REC, gaze_fvel_x);
static_assert(kFastOffset == kSmoothedOffset + kVelocityBytes);
static_assert(offsetof(FSAMPLE_REC, ext_data) == kFastOffset + kVelocityBytes);

} // namespace

VelocityComputer::VelocityComputer(const SampleQueue &queue, int trackerModel)
    : queue_(queue), highSpeed_(trackerModel >= kFirstHighSpeedModel) {
    setRate(0);
}

void VelocityComputer::setRate(int rate) {
    rate_ = rate;
    halfSpan_ = highSpeed_ ? bandOf(static_cast<float>(rate)).halfSpan : kPlainHalfSpan;
    const float interval = 1000.0F / static_cast<float>(rate); // milliseconds
    for (std::size_t distance = 1; distance < keyOffsets_.size(); ++distance) {
        keyOffsets_[distance] = truncateTo<uint64_t>(2.0F * (interval * static_cast<float>(distance)));
    }
}

void VelocityComputer::setVelocity(Sample &sample, FixedResolution fixed, int rate) {
    if (rate != rate_) {
        setRate(rate);
    }
    const PositionLanes centre = positionsOf(sample);
    Neighbourhood neighbours(centre);
    const SampleQueue::KeyFinder finder(queue_);
    for (int distance = 1; distance <= halfSpan_; ++distance) {
        const uint64_t offset = keyOffsets_[static_cast<std::size_t>(distance)];
        neighbours.set(-distance, queue_.positionsAt(finder.find(sample.sort_key - offset)));
        neighbours.set(distance, queue_.positionsAt(finder.find(sample.sort_key + offset)));
    }

    const Lanes resolution = resolutionOf(sample, centre, fixed);
    const auto samplesPerSecond = static_cast<float>(rate);
    Velocities velocities = highSpeed_ ? calcVelocity_pn7200(neighbours, resolution, samplesPerSecond)
                                       : calcVelocity_non_pn7200(neighbours, resolution, samplesPerSecond);
    const LaneMask without = lanesWithout(resolution);
    setMissing(velocities.smoothed, without);
    setMissing(velocities.fast, without);

    // The lanes stand in the order of the sample's fields. Those of an absent eye are missing as they were.
    auto *const bytes = reinterpret_cast<unsigned char *>(&sample);
    std::memcpy(bytes + kSmoothedOffset, velocities.smoothed.value.data(), kVelocityBytes);
    std::memcpy(bytes + kFastOffset, velocities.fast.value.data(), kVelocityBytes);
}

} // namespace trk
