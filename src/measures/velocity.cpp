#include "measures/velocity.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

namespace trk {

namespace {

constexpr uint64_t kUnreachable = ~uint64_t{0}; // distance in keys at rates below one sample per second

constexpr Lanes kMissingLanes = Lanes::filledWith(MISSING_DATA);

} // namespace

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

// The mean positions of a group; `at` gives its samples.
template <class At> PositionLanes meanOf(int groupSize, At at) {
    if (groupSize == 1) {
        return at(0);
    }
    PositionLanes mean;
    mean.missing = at(0).missing;
    for (int i = 1; i < groupSize; ++i) {
        mean.missing |= at(i).missing;
    }
    mean.position = meanOfGroup(groupSize, [&at](int i) -> const Lanes & { return at(i).position; });
    return mean;
}

// HREF units per degree at the positions of a group on the HREF plane, computed side by side.
std::array<float, Lanes::kGroup> hrefResolutions(const float *group) {
    std::array<double, Lanes::kGroup> square;
    for (std::size_t i = 0; i < Lanes::kGroup; ++i) {
        square[i] = squareOf(group[i]);
    }
    std::array<float, Lanes::kGroup> resolution;
    for (std::size_t i = 0; i < Lanes::kGroup; ++i) {
        const std::size_t eye = i % kEyes;
        const std::size_t otherAxis = (i + kEyes) % Lanes::kGroup;
        resolution[i] = hrefResolution(square[eye], square[eye + kEyes], square[otherAxis]);
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

// Rows from the entries of the window: the samples from a place on, and their neighbours.
void fillRun(const SampleWindow &window, int place, std::size_t count, int halfSpan, RunRows &rows) {
    constexpr std::array<float(FSAMPLE_REC::*)[kEyes], 6> kFields{&FSAMPLE_REC::gaze_x,  &FSAMPLE_REC::gaze_y,
                                                                  &FSAMPLE_REC::href_x,  &FSAMPLE_REC::href_y,
                                                                  &FSAMPLE_REC::pupil_x, &FSAMPLE_REC::pupil_y};
    const std::size_t first = RunRows::kContext - static_cast<std::size_t>(halfSpan);
    const std::size_t end = RunRows::kContext + count + static_cast<std::size_t>(halfSpan);
    for (std::size_t row = first; row < end; ++row) {
        const Sample &entry = window.entry(place - halfSpan + static_cast<int>(row - first));
        rows.resolutionX[row] = entry.res_x;
        rows.resolutionY[row] = entry.res_y;
        for (int eye = 0; eye < kEyes; ++eye) {
            const auto side = static_cast<std::size_t>(eye);
            rows.present[side][row] = (entry.flags & kEyePresent[eye]) != 0 ? 0xFFFFFFFF : 0;
            const bool tracked = tracksEye(entry, eye);
            for (std::size_t field = 0; field < kFields.size(); ++field) {
                const uint32_t known = tracked && (entry.flags & kPositionFlags[field / 2]) != 0 ? 0xFFFFFFFF : 0;
                rows.position[kEyes * field + side][row] =
                    chosen(known, (entry.*kFields[field])[eye], MISSING_DATA);
            }
        }
    }
}

LaneMask lanesOfAbsentEyes(const Sample &sample) {
    constexpr LaneMask kLeftLanes = 0x555;
    constexpr LaneMask kRightLanes = kAllLanes & ~kLeftLanes;
    return ((sample.flags & TRK_SAMPLE_LEFT) != 0 ? 0 : kLeftLanes) |
           ((sample.flags & TRK_SAMPLE_RIGHT) != 0 ? 0 : kRightLanes);
}

// The velocities of a sample as they stand in it: smoothed, then fast, lanes in order.
constexpr std::size_t kVelocitiesOffset = offsetof(FSAMPLE_REC, gaze_vel_x);
static_assert(offsetof(FSAMPLE_REC, gaze_fvel_x) == kVelocitiesOffset + sizeof(Lanes::value) &&
              offsetof(FSAMPLE_REC, ext_data) == kVelocitiesOffset + 2 * sizeof(Lanes::value));

unsigned char *velocitiesIn(Sample &sample) {
    return reinterpret_cast<unsigned char *>(&sample) + kVelocitiesOffset;
}

void store(const Velocities &velocities, Sample &sample) {
    std::memcpy(velocitiesIn(sample), velocities.smoothed.value.data(), sizeof(Lanes::value));
    std::memcpy(velocitiesIn(sample) + sizeof(Lanes::value), velocities.fast.value.data(), sizeof(Lanes::value));
}

} // namespace

void VelocityComputer::setRate(int rate) {
    run_.count = 0;
    const VelocityModel model(trackerModel_, rate);
    if (&model.band() != &model_.band()) {
        for (Cached &cached : cache_) {
            cached.groupSerial = Cached::kNever;
        }
    }
    model_ = model;
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
        cached.group = meanOf(model_.band().groupSize, [this, position](int i) -> const PositionLanes & {
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
    for (int distance = 1; distance <= model_.halfSpan(); ++distance) {
        const uint64_t offset = model_.keyOffset(distance);
        find(-distance, offset, key - offset);
        find(distance, offset, key + offset);
    }
    return complete;
}

// The model of high-speed trackers: all positions of the span or nothing.
Velocities VelocityComputer::highSpeedVelocities(uint64_t key, int place, const PositionLanes &centre,
                                                 const Lanes &resolution) {
    const VelocityBand &band = model_.band();
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
        const Lanes perDegree = Lanes::filledWith(kGroupsPerSecond) / resolution;
        Velocities velocities{
            smoothedOfGroups(a.position, b.position, c.position, d.position, perDegree, band.scale),
            fastOfGroups(b.position, c.position, perDegree, band.scale)};
        replaceLanes(velocities.smoothed, missing, kMissingLanes);
        replaceLanes(velocities.fast, missing, kMissingLanes);
        return velocities;
    };

    if (place >= 0 && model_.standInARow(window_.uniformSpacing())) {
        if (place < model_.halfSpan() || place + model_.halfSpan() >= window_.count()) {
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

    const auto rate = static_cast<float>(model_.rate());
    const auto position = [&near](int distance) -> const Lanes & { return near[distance].position; };
    Lanes fast = kMissingLanes;
    if (missingPair != kAllLanes) {
        fast = plainFast(position(-1), position(1), rate, resolution);
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
    Lanes smoothed = plainSmoothed(position(-2), position(-1), position(1), position(2), rate, resolution);
    replaceLanes(smoothed, missing, fast);
    return {smoothed, fast};
}

// Whether the velocities were, or now are, worked out together with those of the samples behind. They are when
// this sample follows the one asked for last, and all neighbours stand in a row. What a run says holds only while
// they still do: the window may have dropped entries or become uneven since.
bool VelocityComputer::takeFromRun(Sample &sample, int place, FixedResolution fixed) {
    const uint64_t serial = window_.serial(place);
    const uint64_t spacing = window_.uniformSpacing();
    const bool follows = std::exchange(nextSerial_, serial + 1) == serial;
    const int withNeighbours = window_.count() - place - model_.halfSpan(); // samples from this one on
    if (place < model_.halfSpan() || withNeighbours < 1) {
        return false;
    }
    const bool isIn = serial - run_.firstSerial < run_.count && spacing == run_.spacing &&
                      fixed.x == run_.fixed.x && fixed.y == run_.fixed.y;
    if (!isIn) {
        constexpr int kWorthIt = 16;
        if (!follows || withNeighbours < kWorthIt || !model_.standInARow(spacing)) {
            return false;
        }
        run_.firstSerial = serial;
        run_.spacing = spacing;
        run_.fixed = fixed;
        computeRun(place, std::min(static_cast<std::size_t>(withNeighbours), RunRows::kRows), fixed);
    }
    std::memcpy(velocitiesIn(sample), run_.velocities[serial - run_.firstSerial].data(),
                sizeof(run_.velocities[0]));
    return true;
}

void VelocityComputer::computeRun(int place, std::size_t count, FixedResolution fixed) {
    run_.count = count;
    fillRun(window_, place, count, model_.halfSpan(), rows_);
    RunVelocity velocity(model_, fixed);
    velocity.setRows(rows_);
    LaneVelocities out;
    for (std::size_t lane = 0; lane < Lanes::kCount; ++lane) {
        velocity.compute(lane, count, out);
        for (std::size_t i = 0; i < count; ++i) {
            run_.velocities[i][lane] = out.smoothed[i];
            run_.velocities[i][Lanes::kCount + lane] = out.fast[i];
        }
    }
}

void VelocityComputer::setVelocity(Sample &sample, FixedResolution fixed, int rate) {
    if (rate != model_.rate()) {
        setRate(rate);
    }
    const int place = window_.find(sample.sort_key);
    if (place >= 0 && takeFromRun(sample, place, fixed)) {
        return;
    }
    const PositionLanes centre = place >= 0 ? positionsAt(place) : positionsOf(sample);
    const Lanes resolution = resolutionOf(sample, centre, fixed);
    Velocities velocities = model_.isHighSpeed() ? highSpeedVelocities(sample.sort_key, place, centre, resolution)
                                                 : plainVelocities(sample.sort_key, centre, resolution);
    const LaneMask without = missingIn(resolution) | lanesOfAbsentEyes(sample);
    replaceLanes(velocities.smoothed, without, kMissingLanes);
    replaceLanes(velocities.fast, without, kMissingLanes);
    store(velocities, sample);
}

} // namespace trk
