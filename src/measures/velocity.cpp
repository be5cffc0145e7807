#include "measures/velocity.h"

#include "base/numeric.h"
#include "measures/href_plane.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

namespace trk {

namespace {

constexpr int kFirstHighSpeedModel = 3;
constexpr int kPlainHalfSpan = 2;
constexpr uint64_t kUnreachable = ~uint64_t{0}; // distance in keys at rates below one sample per second

constexpr float kSmallestResolution = 0.01F;
constexpr float kLargestResolution = 10000.0F;

constexpr Lanes kMissingLanes = Lanes::filledWith(MISSING_DATA);

} // namespace

// How the high-speed model takes the samples of a range of rates together. On either side of the sample stand two
// groups; the nearer one on the right begins at `nearBehind`. What lies between the groups must be known as well.
struct VelocityComputer::Band {
    float belowRate; // samples per second
    int nearBehind;
    int groupSize;
    float scale;

    [[nodiscard]] int farBehind() const { return nearBehind + groupSize; }
    [[nodiscard]] int nearBefore() const { return 1 - farBehind(); }
    [[nodiscard]] int farBefore() const { return nearBefore() - groupSize; }
    [[nodiscard]] int halfSpan() const { return -farBefore(); }
};

// The positions of the samples around one sample, by their distance in sample intervals. Only distances that were
// looked up may be asked for.
class VelocityComputer::Neighbourhood {
  public:
    // All missing where there is no sample.
    [[nodiscard]] PositionLanes &operator[](int distance) { return at_[place(distance)]; }
    [[nodiscard]] const PositionLanes &operator[](int distance) const { return at_[place(distance)]; }

  private:
    static std::size_t place(int distance) {
        const int fromFirst = distance + kLargestHalfSpan;
        return static_cast<std::size_t>(fromFirst);
    }

    std::array<PositionLanes, 2 * kLargestHalfSpan + 1> at_;
};

namespace {

// The mean positions of a group; `at` gives its samples. Sums run from left to right.
template <class At> PositionLanes meanOf(int groupSize, At at) {
    PositionLanes mean = at(0);
    for (int i = 1; i < groupSize; ++i) {
        mean.missing |= at(i).missing;
    }
    const auto meanOfPair = [&at](int i) { return (at(i).position + at(i + 1).position) * 0.5F; };
    if (groupSize == 2) {
        mean.position = meanOfPair(0);
    } else if (groupSize == 4) {
        mean.position = (at(0).position + at(1).position + at(2).position + at(3).position) * 0.25F;
    } else if (groupSize == 8) {
        mean.position = (meanOfPair(0) + meanOfPair(2) + meanOfPair(4) + meanOfPair(6)) * 0.25F;
    }
    return mean;
}

// The velocities from the means of the four groups, from left to right. The factor 250 is the same for all rates:
// the distance of the groups and the scale stand in for the sampling interval. 0.167, not one sixth: else all
// velocities would differ by 0.2 per cent from those of analyses made so far.
Velocities velocitiesOfGroups(const Lanes &a, const Lanes &b, const Lanes &c, const Lanes &d,
                              const Lanes &resolution, float scale) {
    const Lanes perDegree = Lanes::filledWith(250.0F) / resolution;
    return {.smoothed = perDegree * ((-a - b + c + d) * 0.167F) * scale,
            .fast = perDegree * ((c - b) * 0.5F) * scale};
}

// One lane of the plain model where a neighbour is missing: the other one and the sample itself must do.
float velocityFromCentre(float before, float here, float after, float resolution, float rate) {
    const bool bothMissing = before == MISSING_DATA && after == MISSING_DATA;
    if (bothMissing || here == MISSING_DATA) {
        return MISSING_DATA;
    }
    return (before == MISSING_DATA ? after - here : here - before) * rate / resolution;
}

// A fixed resolution is used as it is, unless it is next to nothing.
FixedResolution usable(FixedResolution fixed) {
    return {fixed.x > kSmallestResolution ? fixed.x : MISSING_DATA,
            fixed.y > kSmallestResolution ? fixed.y : MISSING_DATA};
}

// A resolution out of bounds, on either axis, is none.
FixedResolution checked(FixedResolution resolution) {
    const auto plausible = [](float value) { return value > kSmallestResolution && value < kLargestResolution; };
    return plausible(resolution.x) && plausible(resolution.y) ? resolution : FixedResolution{};
}

// HREF units per degree at the positions of a group on the HREF plane, computed side by side.
std::array<float, Lanes::kGroup> hrefResolutions(const float *group) {
    std::array<double, Lanes::kGroup> square;
    for (std::size_t i = 0; i < Lanes::kGroup; ++i) {
        square[i] = static_cast<double>(group[i]) * static_cast<double>(group[i]);
    }
    std::array<float, Lanes::kGroup> resolution;
    for (std::size_t i = 0; i < Lanes::kGroup; ++i) {
        const std::size_t eye = i % kEyes;
        const std::size_t otherAxis = (i + kEyes) % Lanes::kGroup;
        const double distanceSquared = square[eye] + square[eye + kEyes] + kHrefDistanceSquared;
        const double perRadian = distanceSquared / std::sqrt(square[otherAxis] + kHrefDistanceSquared);
        resolution[i] = static_cast<float>(perRadian / kDegreesPerRadian);
    }
    return resolution;
}

// The resolution of each lane; MISSING_DATA where there is none.
Lanes resolutionOf(const Sample &sample, const PositionLanes &centre, FixedResolution fixed) {
    const bool isFixed = fixed.x != MISSING_DATA;
    const FixedResolution common = isFixed ? usable(fixed) : checked({sample.res_x, sample.res_y});
    Lanes lanes;
    for (std::size_t group = 0; group < Lanes::kCount; group += Lanes::kGroup) {
        lanes.value[group] = lanes.value[group + 1] = common.x;
        lanes.value[group + 2] = lanes.value[group + 3] = common.y;
    }
    if (isFixed) {
        return lanes;
    }
    const auto href = hrefResolutions(&centre.position.value[Lanes::kHref]);
    for (std::size_t eye = 0; eye < kEyes; ++eye) {
        const std::size_t x = Lanes::kHref + eye;
        const std::size_t y = x + kEyes;
        if (!hasLane(centre.missing, x) && !hasLane(centre.missing, y)) {
            const FixedResolution own = checked({href[eye], href[eye + kEyes]});
            lanes.value[x] = own.x;
            lanes.value[y] = own.y;
        }
    }
    return lanes;
}

LaneMask lanesOfAbsentEyes(const Sample &sample) {
    constexpr LaneMask kLeftLanes = 0x555;
    constexpr LaneMask kRightLanes = kAllLanes & ~kLeftLanes;
    return ((sample.flags & TRK_SAMPLE_LEFT) != 0 ? 0 : kLeftLanes) |
           ((sample.flags & TRK_SAMPLE_RIGHT) != 0 ? 0 : kRightLanes);
}

// The lanes stand in the order of the sample's fields.
void store(const Velocities &velocities, Sample &sample) {
    constexpr std::size_t kBytes = sizeof(Lanes::value);
    constexpr std::size_t kSmoothed = offsetof(FSAMPLE_REC, gaze_vel_x);
    constexpr std::size_t kFast = offsetof(FSAMPLE_REC, gaze_fvel_x);
    static_assert(kFast == kSmoothed + kBytes && offsetof(FSAMPLE_REC, ext_data) == kFast + kBytes);
    auto *const bytes = reinterpret_cast<unsigned char *>(&sample);
    std::memcpy(bytes + kSmoothed, velocities.smoothed.value.data(), kBytes);
    std::memcpy(bytes + kFast, velocities.fast.value.data(), kBytes);
}

} // namespace

VelocityComputer::VelocityComputer(const SampleWindow &window, int trackerModel)
    : window_(window), highSpeed_(trackerModel >= kFirstHighSpeedModel) {
    setRate(0);
}

const VelocityComputer::Band &VelocityComputer::bandOf(float rate) {
    static constexpr std::array kBands{
        Band{500.0F, 1, 1, 1.0F},
        Band{1000.0F, 1, 2, 1.2F},
        Band{2000.0F, 2, 4, 1.0909091F},
        Band{INFINITY, 4, 8, 1.0434783F},
    };
    return *std::ranges::find_if(kBands, [rate](const Band &band) { return rate < band.belowRate; });
}

void VelocityComputer::setRate(int rate) {
    rate_ = rate;
    const Band &band = bandOf(static_cast<float>(rate));
    if (band_ != &band) {
        band_ = &band;
        for (Cached &cached : cache_) {
            cached.groupSerial = Cached::kNever;
        }
    }
    halfSpan_ = highSpeed_ ? band.halfSpan() : kPlainHalfSpan;
    const float interval = 1000.0F / static_cast<float>(rate); // milliseconds
    for (std::size_t i = 0; i < keyOffsets_.size(); ++i) {
        keyOffsets_[i] = truncateTo<uint64_t>(2.0F * (interval * static_cast<float>(i + 1)));
    }
}

// Whether the neighbours needed stand side by side in a window with this spacing of keys.
bool VelocityComputer::standInARow(uint64_t spacing) const {
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

const PositionLanes &VelocityComputer::positionsAt(int position) {
    const uint64_t serial = window_.serial(position);
    Cached &cached = cache_[serial % cache_.size()];
    if (cached.positionSerial != serial) {
        cached.position = positionsOf(window_.entry(position));
        cached.positionSerial = serial;
    }
    return cached.position;
}

const PositionLanes &VelocityComputer::groupAt(int position) {
    const uint64_t serial = window_.serial(position);
    Cached &cached = cache_[serial % cache_.size()];
    if (cached.groupSerial != serial) {
        cached.group = meanOf(band_->groupSize, [this, position](int i) -> const PositionLanes & {
            return positionsAt(position + i);
        });
        cached.groupSerial = serial;
    }
    return cached.group;
}

// Looks the neighbours up one by one; returns whether all are there.
bool VelocityComputer::findNeighbours(uint64_t key, Neighbourhood &neighbours) {
    bool complete = true;
    const auto find = [&](int distance, uint64_t offset, uint64_t neighboursKey) {
        const int position = offset == kUnreachable ? -1 : window_.find(neighboursKey);
        complete = complete && position >= 0;
        neighbours[distance] = position >= 0 ? positionsAt(position) : PositionLanes{kMissingLanes, kAllLanes};
    };
    for (int distance = 1; distance <= halfSpan_; ++distance) {
        const uint64_t offset = keyOffsets_[static_cast<std::size_t>(distance - 1)];
        find(-distance, offset, key - offset);
        find(distance, offset, key + offset);
    }
    return complete;
}

// The model of high-speed trackers: all positions of the span or nothing.
Velocities VelocityComputer::highSpeedVelocities(uint64_t key, int place, const PositionLanes &centre,
                                                 const Lanes &resolution) {
    const Band &band = *band_;
    LaneMask missing = centre.missing;
    const auto fromGroups = [&](auto groupAtDistance, auto positionAtDistance) {
        const PositionLanes &a = groupAtDistance(band.farBefore());
        const PositionLanes &b = groupAtDistance(band.nearBefore());
        const PositionLanes &c = groupAtDistance(band.nearBehind);
        const PositionLanes &d = groupAtDistance(band.farBehind());
        missing |= a.missing | b.missing | c.missing | d.missing;
        for (int distance = 1; distance < band.nearBehind; ++distance) {
            missing |= positionAtDistance(-distance).missing | positionAtDistance(distance).missing;
        }
        Velocities velocities =
            velocitiesOfGroups(a.position, b.position, c.position, d.position, resolution, band.scale);
        replaceLanes(velocities.smoothed, missing, kMissingLanes);
        replaceLanes(velocities.fast, missing, kMissingLanes);
        return velocities;
    };

    if (place >= 0 && standInARow(window_.uniformSpacing())) {
        if (place < halfSpan_ || place + halfSpan_ >= window_.count()) {
            return {kMissingLanes, kMissingLanes};
        }
        return fromGroups([&](int first) -> const PositionLanes & { return groupAt(place + first); },
                          [&](int distance) -> const PositionLanes & { return positionsAt(place + distance); });
    }
    Neighbourhood neighbours;
    if (!findNeighbours(key, neighbours)) {
        return {kMissingLanes, kMissingLanes};
    }
    std::array<PositionLanes, 4> groups;
    std::size_t next = 0;
    return fromGroups(
        [&](int first) -> const PositionLanes & {
            groups[next] = meanOf(band.groupSize, [&neighbours, first](int i) -> const PositionLanes & {
                return neighbours[first + i];
            });
            return groups[next++];
        },
        [&](int distance) -> const PositionLanes & { return neighbours[distance]; });
}

// The model of all other trackers: it makes do with fewer positions where some are missing.
Velocities VelocityComputer::plainVelocities(uint64_t key, const PositionLanes &centre, const Lanes &resolution) {
    Neighbourhood near;
    findNeighbours(key, near);
    const LaneMask missingPair = near[-1].missing | near[1].missing;
    const LaneMask missing = missingPair | near[-2].missing | near[2].missing;

    const auto rate = static_cast<float>(rate_);
    const auto position = [&near](int distance) -> const Lanes & { return near[distance].position; };
    Lanes fast = kMissingLanes;
    if (missingPair != kAllLanes) {
        fast = (position(1) - position(-1)) * rate * 0.5F / resolution;
    }
    if (missingPair != 0) {
        for (std::size_t lane = 0; lane < Lanes::kCount; ++lane) {
            if (hasLane(missingPair, lane)) {
                fast.value[lane] = velocityFromCentre(position(-1).value[lane], centre.position.value[lane],
                                                      position(1).value[lane], resolution.value[lane], rate);
            }
        }
    }
    if (missing == kAllLanes) {
        return {fast, fast};
    }
    Lanes smoothed = (-position(-2) - position(-1) + position(1) + position(2)) * rate / 6.0F / resolution;
    replaceLanes(smoothed, missing, fast);
    return {smoothed, fast};
}

void VelocityComputer::setVelocity(Sample &sample, FixedResolution fixed, int rate) {
    if (rate != rate_) {
        setRate(rate);
    }
    const int place = window_.find(sample.sort_key);
    const PositionLanes centre = place >= 0 ? positionsAt(place) : positionsOf(sample);
    const Lanes resolution = resolutionOf(sample, centre, fixed);
    Velocities velocities = highSpeed_ ? highSpeedVelocities(sample.sort_key, place, centre, resolution)
                                       : plainVelocities(sample.sort_key, centre, resolution);
    const LaneMask without = missingIn(resolution) | lanesOfAbsentEyes(sample);
    replaceLanes(velocities.smoothed, without, kMissingLanes);
    replaceLanes(velocities.fast, without, kMissingLanes);
    store(velocities, sample);
}

} // namespace trk
