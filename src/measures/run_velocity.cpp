#include "measures/run_velocity.h"

#include <algorithm>

namespace trk {

namespace {

constexpr std::size_t kFirst = RunRows::kContext; // row of the first sample that is wanted

// Lanes of a group: x left, x right, y left, y right.
constexpr std::size_t eyeOf(std::size_t lane) { return lane % kEyes; }
constexpr bool isVertical(std::size_t lane) { return lane % Lanes::kGroup >= kEyes; }
constexpr bool isHref(std::size_t lane) { return lane / Lanes::kGroup == Lanes::kHref / Lanes::kGroup; }

// All bits set for MISSING_DATA, else 0.
uint32_t maskOf(float value) {
    return std::bit_cast<uint32_t>(value) == std::bit_cast<uint32_t>(MISSING_DATA) ? 0xFFFFFFFF : 0;
}

// Means of the groups of `kSize` positions that begin at each row.
template <int kSize> void meanGroups(const RunRows::Column<float> &position, RunRows::Column<float> &group) {
    const float *const __restrict from = position.data();
    float *const __restrict to = group.data();
    for (std::size_t row = 0; row + kSize <= RunRows::kAll; ++row) {
        to[row] = meanOfGroup(kSize, [from, row](int i) { return from[row + static_cast<std::size_t>(i)]; });
    }
}

// The velocities of rows from the four groups of each. Into arrays of its own, so that the compiler sees that it
// can compute several rows at once.
void velocitiesOf(const std::array<const float *, 4> &groups, const std::array<float, RunRows::kRows> &resolution,
                  float scale, std::size_t count, LaneVelocities &out) {
    const auto [a, b, c, d] = groups;
    LaneVelocities own;
    for (std::size_t i = 0; i < count; ++i) {
        const float perDegree = kGroupsPerSecond / resolution[i];
        own.smoothed[i] = smoothedOfGroups(a[i], b[i], c[i], d[i], perDegree, scale);
        own.fast[i] = fastOfGroups(b[i], c[i], perDegree, scale);
    }
    for (std::size_t i = 0; i < count; ++i) {
        const uint32_t none = maskOf(resolution[i]);
        out.smoothed[i] = chosen(none, MISSING_DATA, own.smoothed[i]);
        out.fast[i] = chosen(none, MISSING_DATA, own.fast[i]);
    }
}

} // namespace

void RunVelocity::setRows(const RunRows &rows) {
    rows_ = &rows;
    hrefIsKnown_ = {};
    const bool isFixed = fixed_.x != MISSING_DATA;
    const FixedResolution common = usable(fixed_);
    for (std::size_t i = 0; i < RunRows::kRows; ++i) {
        const FixedResolution own =
            isFixed ? common : checked({rows.resolutionX[kFirst + i], rows.resolutionY[kFirst + i]});
        commonX_[i] = own.x;
        commonY_[i] = own.y;
    }
}

void RunVelocity::compute(std::size_t lane, std::size_t count, LaneVelocities &out) {
    findResolution(lane, count);
    if (model_.isHighSpeed()) {
        computeHighSpeed(lane, count, out);
    } else {
        computePlain(lane, count, out);
    }
}

// The resolution of each row for a lane; none for an eye that the row lacks.
void RunVelocity::findResolution(std::size_t lane, std::size_t count) {
    const auto &common = isVertical(lane) ? commonY_ : commonX_;
    const auto &present = rows_->present[eyeOf(lane)];
    for (std::size_t i = 0; i < count; ++i) {
        resolution_[i] = chosen(present[kFirst + i], common[i], MISSING_DATA);
    }
    if (!isHref(lane) || fixed_.x != MISSING_DATA) {
        return;
    }
    const HrefResolutions &both = hrefResolutions(eyeOf(lane), count);
    const auto &own = isVertical(lane) ? both.y : both.x;
    const auto &x = rows_->position[Lanes::kHref + eyeOf(lane)];
    const auto &y = rows_->position[Lanes::kHref + kEyes + eyeOf(lane)];
    for (std::size_t i = 0; i < count; ++i) {
        const uint32_t unknown = maskOf(x[kFirst + i]) | maskOf(y[kFirst + i]);
        resolution_[i] = chosen(unknown, resolution_[i], own[i]);
    }
}

// The resolution that each position of an eye on the HREF plane gives, along both axes.
const RunVelocity::HrefResolutions &RunVelocity::hrefResolutions(std::size_t eye, std::size_t count) {
    HrefResolutions &resolutions = hrefResolutions_[eye];
    if (hrefIsKnown_[eye]) {
        return resolutions;
    }
    hrefIsKnown_[eye] = true;
    const float *const x = &rows_->position[Lanes::kHref + eye][kFirst];
    const float *const y = &rows_->position[Lanes::kHref + kEyes + eye][kFirst];
    HrefResolutions own;
    for (std::size_t i = 0; i < count; ++i) {
        const double squareX = squareOf(x[i]);
        const double squareY = squareOf(y[i]);
        own.x[i] = hrefResolution(squareX, squareY, squareY);
        own.y[i] = hrefResolution(squareX, squareY, squareX);
    }
    for (std::size_t i = 0; i < count; ++i) {
        const FixedResolution sound = checked({own.x[i], own.y[i]});
        resolutions.x[i] = sound.x;
        resolutions.y[i] = sound.y;
    }
    return resolutions;
}

// The model of high-speed trackers: all positions of the span or nothing.
void RunVelocity::computeHighSpeed(std::size_t lane, std::size_t count, LaneVelocities &out) {
    const VelocityBand &band = model_.band();
    const auto &position = rows_->position[lane];
    const RunRows::Column<float> *group = &group_;
    switch (band.groupSize) {
    case 2:
        meanGroups<2>(position, group_);
        break;
    case 4:
        meanGroups<4>(position, group_);
        break;
    case 8:
        meanGroups<8>(position, group_);
        break;
    default:
        group = &position;
    }
    const auto groupFrom = [&](int distance) {
        return group->data() + static_cast<std::ptrdiff_t>(kFirst) + distance;
    };
    velocitiesOf({groupFrom(band.farBefore()), groupFrom(band.nearBefore()), groupFrom(band.nearBehind),
                  groupFrom(band.farBehind())},
                 resolution_, band.scale, count, out);
    hideBesideMissing(position, count, out);
}

// Takes back what was computed from a span in which something is missing.
void RunVelocity::hideBesideMissing(const RunRows::Column<float> &position, std::size_t count,
                                    LaneVelocities &out) const {
    const auto half = static_cast<std::size_t>(model_.halfSpan());
    const std::size_t begin = kFirst - half;
    const std::size_t end = kFirst + count + half;
    uint32_t missing = 0;
    for (std::size_t row = begin; row < end; ++row) {
        missing |= maskOf(position[row]);
    }
    if (missing == 0) {
        return;
    }
    std::size_t done = 0; // rows before it were seen to
    for (std::size_t row = begin; row < end; ++row) {
        if (position[row] != MISSING_DATA) {
            continue;
        }
        const std::size_t firstHit = row < kFirst + half ? 0 : row - half - kFirst;
        const std::size_t behindHits = std::min(row + half + 1 - kFirst, count);
        for (std::size_t i = std::max(firstHit, done); i < behindHits; ++i) {
            out.smoothed[i] = out.fast[i] = MISSING_DATA;
        }
        done = behindHits;
    }
}

// The model of all other trackers: it makes do with fewer positions where some are missing.
void RunVelocity::computePlain(std::size_t lane, std::size_t count, LaneVelocities &out) const {
    const auto rate = static_cast<float>(model_.rate());
    const float *const here = rows_->position[lane].data() + kFirst;
    for (std::size_t i = 0; i < count; ++i) {
        const float before = *(here + i - 1);
        const float behind = *(here + i + 1);
        const float before2 = *(here + i - 2);
        const float behind2 = *(here + i + 2);
        const bool pairIsThere = before != MISSING_DATA && behind != MISSING_DATA;
        const bool allAreThere = pairIsThere && before2 != MISSING_DATA && behind2 != MISSING_DATA;
        const float fast = pairIsThere ? plainFast(before, behind, rate, resolution_[i])
                                       : velocityFromCentre(before, here[i], behind, resolution_[i], rate);
        const float smoothed =
            allAreThere ? plainSmoothed(before2, before, behind, behind2, rate, resolution_[i]) : fast;
        const bool none = resolution_[i] == MISSING_DATA;
        out.fast[i] = none ? MISSING_DATA : fast;
        out.smoothed[i] = none ? MISSING_DATA : smoothed;
    }
}

} // namespace trk
