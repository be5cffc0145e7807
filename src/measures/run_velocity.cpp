#include "measures/run_velocity.h"

namespace trk {

namespace {

constexpr std::size_t kFirst = RunRows::kContext; // row of the first sample that is wanted

// Lanes of a group: x left, x right, y left, y right.
constexpr std::size_t eyeOf(std::size_t lane) { return lane % kEyes; }
constexpr bool isVertical(std::size_t lane) { return lane % Lanes::kGroup >= kEyes; }
constexpr bool isHref(std::size_t lane) { return lane / Lanes::kGroup == Lanes::kHref / Lanes::kGroup; }

// Means of the groups of `kSize` positions that begin at each row.
template <int kSize> void meanGroups(const RunRows::Column<float> &position, RunRows::Column<float> &group) {
    for (std::size_t row = 0; row + kSize <= RunRows::kAll; ++row) {
        const float *const first = &position[row];
        group[row] = meanOfGroup(kSize, [first](int i) { return first[i]; });
    }
}

} // namespace

void RunVelocity::setRows(const RunRows &rows) {
    rows_ = &rows;
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
    const uint16_t eye = kEyePresent[eyeOf(lane)];
    for (std::size_t i = 0; i < count; ++i) {
        resolution_[i] = (rows_->flags[kFirst + i] & eye) != 0 ? common[i] : MISSING_DATA;
    }
    if (!isHref(lane) || fixed_.x != MISSING_DATA) {
        return;
    }
    const auto &x = rows_->position[Lanes::kHref + eyeOf(lane)];
    const auto &y = rows_->position[Lanes::kHref + kEyes + eyeOf(lane)];
    for (std::size_t i = 0; i < count; ++i) {
        const float hereX = x[kFirst + i];
        const float hereY = y[kFirst + i];
        const double squareX = squareOf(hereX);
        const double squareY = squareOf(hereY);
        const FixedResolution own =
            checked({hrefResolution(squareX, squareY, squareY), hrefResolution(squareX, squareY, squareX)});
        const bool known = hereX != MISSING_DATA && hereY != MISSING_DATA;
        const float lanes = isVertical(lane) ? own.y : own.x;
        const bool present = (rows_->flags[kFirst + i] & eye) != 0;
        resolution_[i] = known && present ? lanes : resolution_[i];
    }
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
    const float *const a = groupFrom(band.farBefore());
    const float *const b = groupFrom(band.nearBefore());
    const float *const c = groupFrom(band.nearBehind);
    const float *const d = groupFrom(band.farBehind());
    for (std::size_t i = 0; i < count; ++i) {
        const float perDegree = kGroupsPerSecond / resolution_[i];
        out.smoothed[i] = smoothedOfGroups(a[i], b[i], c[i], d[i], perDegree, band.scale);
        out.fast[i] = fastOfGroups(b[i], c[i], perDegree, band.scale);
    }
    // What is missing within reach of a row, or before it, by the last such place.
    const auto half = static_cast<std::size_t>(model_.halfSpan());
    std::size_t behindLastMissing = 0;
    for (std::size_t row = kFirst - half; row < kFirst + half; ++row) {
        behindLastMissing = position[row] == MISSING_DATA ? row + 1 : behindLastMissing;
    }
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t farthest = kFirst + i + half;
        behindLastMissing = position[farthest] == MISSING_DATA ? farthest + 1 : behindLastMissing;
        if (behindLastMissing + half > kFirst + i || resolution_[i] == MISSING_DATA) {
            out.smoothed[i] = out.fast[i] = MISSING_DATA;
        }
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
