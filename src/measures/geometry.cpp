#include "measures/geometry.h"

#include "base/numeric.h"

#include <cmath>

namespace trk {

namespace {

constexpr double kHrefDistance = 15000.0; // of the HREF plane from the eye
constexpr double kHrefDistanceSquared = kHrefDistance * kHrefDistance;
constexpr double kDegreesPerRadian = 57.2958;
constexpr double kSmallestW = 1e-8;
constexpr double kSmallestAngle = 1e-5; // degrees
constexpr double kSmallestPpd = 1.0;

Corners cornersOf(const Extent &screen) {
    const double left = screen.left;
    const double top = screen.top;
    const double right = screen.right;
    const double bottom = screen.bottom;
    return {{{left, top}, {left, bottom}, {right, top}, {right, bottom}}};
}

// Millimetres on the screen to display pixels.
Corners pixelCorners(const Extent &screen, const Extent &display) {
    const float pixelWidth = (screen.right - screen.left) / (display.right - display.left);
    const float pixelHeight = (screen.bottom - screen.top) / (display.bottom - display.top);
    const double kx = 1.0 / double{pixelWidth};
    const double ky = 1.0 / double{pixelHeight};
    const double ox = double{display.left} - kx * double{screen.left};
    const double oy = double{display.top} - ky * double{screen.top};
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

// A tilted screen, known by the distances of its top and bottom edge. That y at the top is negative whatever the
// sign of screen.top, unlike on the flat screen, is on purpose.
Corners hrefCornersOfTilted(const Extent &screen, double toTop, double toBottom) {
    const double height = double{screen.bottom} - double{screen.top};
    const double above = std::abs(double{screen.top});
    const auto angleOpposite = [=](double side) {
        return std::acos((toTop * toTop + toBottom * toBottom - side * side) / (2 * toTop * toBottom));
    };
    const double t1 = angleOpposite(height);
    const double t2 = angleOpposite(above);
    const PlanePoint top{-toTop * std::sin(t2), toTop * std::cos(t2)}; // y and z
    const PlanePoint bottom{toBottom * std::sin(t1 - t2), toBottom * std::cos(t1 - t2)};
    const auto project = [](double x, const PlanePoint &edge) {
        return PlanePoint{x / edge.y * kHrefDistance, edge.x / edge.y * kHrefDistance};
    };
    return {{project(screen.left, top), project(screen.left, bottom), project(screen.right, top),
             project(screen.right, bottom)}};
}

} // namespace
