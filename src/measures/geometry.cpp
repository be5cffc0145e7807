#include "measures/geometry.h"

#include "measures/href_plane.h"

#include "base/numeric.h"

#include <cmath>

namespace trk {

namespace {

constexpr double kSmallestW = 1e-8;
constexpr double kSmallestAngle = 1e-5; // degrees
constexpr double kSmallestPpd = 1.0;

double wide(float value) { return static_cast<double>(value); }

Corners cornersOf(const Extent &screen) {
    const double left = wide(screen.left);
    const double top = wide(screen.top);
    const double right = wide(screen.right);
    const double bottom = wide(screen.bottom);
    return {{{left, top}, {left, bottom}, {right, top}, {right, bottom}}};
}

// The corners of the screen in display pixels. Only the size of a pixel is worked out in single precision.
Corners pixelCorners(const Extent &screen, const Extent &display) {
    const float pixelWidth = (screen.right - screen.left) / (display.right - display.left);
    const float pixelHeight = (screen.bottom - screen.top) / (display.bottom - display.top);
    const double kx = 1.0 / wide(pixelWidth);
    const double ky = 1.0 / wide(pixelHeight);
    const double ox = wide(display.left) - kx * wide(screen.left);
    const double oy = wide(display.top) - ky * wide(screen.top);
    Corners corners = cornersOf(screen);
    for (PlanePoint &corner : corners) {
        corner = {ox + kx * corner.x, oy + ky * corner.y};
    }
    return corners;
}

// A screen that the line of sight meets at right angles.
Corners hrefCornersOfFlat(const Extent &screen, double distance) {
    Corners corners = cornersOf(screen);
    for (PlanePoint &corner : corners) {
        corner = {corner.x / distance * kHrefDistance, -corner.y / distance * kHrefDistance};
    }
    return corners;
}

// A tilted screen, known by the distances of its top and bottom edge. Unlike on the flat screen, y at the top is
// negative whatever the sign of screen.top: setups that give the top as a height above the eye mean the same.
Corners hrefCornersOfTilted(const Extent &screen, double toTop, double toBottom) {
    const auto angleOpposite = [=](double side) {
        return std::acos((toTop * toTop + toBottom * toBottom - side * side) / (2 * toTop * toBottom));
    };
    const double t1 = angleOpposite(wide(screen.bottom) - wide(screen.top));
    const double t2 = angleOpposite(std::abs(wide(screen.top)));
    const double topY = -toTop * std::sin(t2);
    const double topZ = toTop * std::cos(t2);
    const double bottomY = toBottom * std::sin(t1 - t2);
    const double bottomZ = toBottom * std::cos(t1 - t2);
    const auto project = [](PlanePoint &corner, double y, double z) {
        corner = {corner.x / z * kHrefDistance, y / z * kHrefDistance};
    };
    Corners corners = cornersOf(screen);
    project(corners[0], topY, topZ);
    project(corners[1], bottomY, bottomZ);
    project(corners[2], topY, topZ);
    project(corners[3], bottomY, bottomZ);
    return corners;
}

// Between two positions on the HREF plane, seen from the eye. Rounding can make it NaN where they are the same.
double degreesBetween(const PlanePoint &a, const PlanePoint &b) {
    const double product = b.x * a.x + kHrefDistanceSquared + b.y * a.y;
    const double squareOfA = a.x * a.x + kHrefDistanceSquared + a.y * a.y;
    const double squareOfB = b.x * b.x + kHrefDistanceSquared + b.y * b.y;
    return std::acos(product / std::sqrt(squareOfA * squareOfB)) * kDegreesPerRadian;
}

// The distance in pixels from the gaze to the place that the angle is measured to.
double probeDistance(float step) { return (wide(step) + 1.0) / 50.0; }

} // namespace

Matrix mapOfSquareOnto(const Corners &corners) {
    const auto &[c0, c1, c2, c3] = corners;
    const double sx = c1.x - c3.x + c2.x - c0.x;
    const double sy = c1.y - c3.y + c2.y - c0.y;
    double g = 0;
    double h = 0;
    if (sx != 0 || sy != 0) {
        const double dx1 = c0.x - c2.x;
        const double dy1 = c0.y - c2.y;
        const double dx2 = c3.x - c2.x;
        const double dy2 = c3.y - c2.y;
        // A degenerate quadrilateral is mapped onto as if it were a parallelogram.
        if (const double den = dx2 * dy1 - dx1 * dy2; den != 0) {
            g = (sx * dy1 - dx1 * sy) / den;
            h = (dx2 * sy - sx * dy2) / den;
        }
    }
    return {{{c3.x - c1.x + c3.x * g, c3.y - c1.y + c3.y * g, g},
             {c0.x - c1.x + c0.x * h, c0.y - c1.y + c0.y * h, h},
             {c1.x, c1.y, 1}}};
}

Matrix inverse(const Matrix &map) {
    const auto &[m0, m1, m2] = map;
    return {{{m1[1] * m2[2] - m1[2] * m2[1], m0[2] * m2[1] - m0[1] * m2[2], m0[1] * m1[2] - m0[2] * m1[1]},
             {m1[2] * m2[0] - m1[0] * m2[2], m0[0] * m2[2] - m0[2] * m2[0], m0[2] * m1[0] - m0[0] * m1[2]},
             {m1[0] * m2[1] - m1[1] * m2[0], m0[1] * m2[0] - m0[0] * m2[1], m0[0] * m1[1] - m0[1] * m1[0]}}};
}

Homogeneous product(const Homogeneous &vector, const Matrix &map) {
    const auto column = [&](std::size_t i) {
        return vector.x * map[0][i] + vector.y * map[1][i] + vector.w * map[2][i];
    };
    return {column(0), column(1), column(2)};
}

double toOneDecimal(double mean) { return static_cast<double>(truncateTo<int64_t>((mean + 0.05) * 10)) / 10; }

void ViewingGeometry::History::add(PixelsPerDegree value) {
    x[next] = value.x;
    y[next] = value.y;
    next = (next + 1) % kLength;
}

// Empty slots, and those of an angle that was none, are left out.
PixelsPerDegree ViewingGeometry::History::mean() const {
    double sumX = 0;
    double sumY = 0;
    int count = 0;
    for (std::size_t i = 0; i < kLength; ++i) {
        if (x[i] > kSmallestPpd && y[i] > kSmallestPpd) {
            sumX += x[i];
            sumY += y[i];
            ++count;
        }
    }
    return count > 0 ? PixelsPerDegree{toOneDecimal(sumX / count), toOneDecimal(sumY / count)} : PixelsPerDegree{};
}

void ViewingGeometry::setUp(float distance, float distance2, const Extent &screen, const Extent &display) {
    for (History &history : histories_) {
        history.x.fill(0);
        history.y.fill(0);
    }
    histories_[0].next = 0; // the right eye goes on at its slot: which values a mean is of then stays the same

    const bool flat = distance2 == MISSING_DATA;
    squareToHref_ = mapOfSquareOnto(flat ? hrefCornersOfFlat(screen, wide(distance))
                                         : hrefCornersOfTilted(screen, wide(distance), wide(distance2)));
    displayToSquare_ = inverse(mapOfSquareOnto(pixelCorners(screen, display)));
}

std::optional<PlanePoint> ViewingGeometry::hrefOfGaze(PlanePoint gaze) {
    const auto [x, y, w] = product(product({gaze.x, gaze.y, 1}, displayToSquare_), squareToHref_);
    // Also where w is no number.
    if (!(std::abs(w) > kSmallestW)) {
        countMathError();
        return std::nullopt;
    }
    return PlanePoint{x / w, y / w};
}

// Wraps: a caller may go on failing for as long as it likes.
void ViewingGeometry::countMathError() {
    mathErrors_ = static_cast<int32_t>(static_cast<uint32_t>(mathErrors_) + 1);
}

// Horizontally and vertically, without regard to the history.
std::optional<PixelsPerDegree> ViewingGeometry::measure(const Sample &sample, std::size_t eye, double dx,
                                                        double dy) {
    const PlanePoint gaze{wide(sample.gaze_x[eye]), wide(sample.gaze_y[eye])};
    const PlanePoint href{wide(sample.href_x[eye]), wide(sample.href_y[eye])};
    const auto beside = hrefOfGaze({gaze.x + dx, gaze.y});
    const auto below = beside ? hrefOfGaze({gaze.x, gaze.y + dy}) : std::nullopt;
    if (below) {
        const double ax = degreesBetween(href, *beside);
        const double ay = degreesBetween(href, *below);
        // An angle that is not a number passes: it takes a slot of the history that no mean counts, where a
        // failure would forget the samples before.
        if (!(ax < kSmallestAngle || ay < kSmallestAngle)) {
            return PixelsPerDegree{std::abs(dx / ax), std::abs(dy / ay)};
        }
    }
    countMathError();
    return std::nullopt;
}

PixelsPerDegree ViewingGeometry::pixelsPerDegree(const Sample &sample, int eye, float stepX, float stepY) {
    constexpr uint16_t kNeeded = TRK_SAMPLE_GAZE | TRK_SAMPLE_HREF;
    if ((sample.flags & kNeeded) != kNeeded) {
        return {};
    }
    const std::size_t index = indexOf(eye);
    History &history = histories_[index];
    const auto ppd = measure(sample, index, probeDistance(stepX), probeDistance(stepY));
    if (!ppd || ppd->x < kSmallestPpd || ppd->y < kSmallestPpd) {
        history = {};
        return {};
    }
    history.add(*ppd);
    return history.mean();
}

} // namespace trk
