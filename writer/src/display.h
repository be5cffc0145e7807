// The display of a session as the eye sees it. Points are pixels from its centre. Functions of angles are worked
// out here with nothing but exactly defined operations, for the same bytes everywhere.
#pragma once

#include "trkwriter/recorder.h"

#include <cmath>

namespace trkwriter::display {

inline constexpr Point kCentre{960, 540};
inline constexpr Point kReach{850, 450}; // how far from the centre gaze goes
inline constexpr double kDegreesPerRadian = 57.295779513082323;
inline constexpr double kPixelsPerDegree = 40.0;                          // at the centre
inline constexpr double kDistance = kPixelsPerDegree * kDegreesPerRadian; // of the eye from the display, pixels
inline constexpr double kHrefDistance = 15000.0;

// Of an angle in turns; off by less than 1e-7.
inline double sine(double turns) {
    double folded = turns - std::floor(turns + 0.5);
    if (folded > 0.25) {
        folded = 0.5 - folded;
    } else if (folded < -0.25) {
        folded = -0.5 - folded;
    }
    const double angle = folded * 6.283185307179586;
    const double s = -angle * angle;
    return angle * (1 + s / 6 * (1 + s / 20 * (1 + s / 42 * (1 + s / 72 * (1 + s / 110)))));
}

// In radians, of a ratio from 0 to 1.
inline double arcTangent(double ratio) {
    for (int i = 0; i < 3; ++i) { // to an eighth of the angle
        ratio /= 1 + std::sqrt(1 + ratio * ratio);
    }
    const double s = ratio * ratio;
    return 8 * ratio * (1 - s * (1.0 / 3 - s * (1.0 / 5 - s * (1.0 / 7 - s / 9))));
}

// Degrees between two points, less than 45, seen from the eye.
inline double angleBetween(const Point &a, const Point &b) {
    const double x = (a.y - b.y) * kDistance;
    const double y = (b.x - a.x) * kDistance;
    const double z = a.x * b.y - a.y * b.x;
    const double product = a.x * b.x + a.y * b.y + kDistance * kDistance;
    return arcTangent(std::sqrt(x * x + y * y + z * z) / product) * kDegreesPerRadian;
}

// The point a share of the way along the great circle from one point to another, `degrees` apart.
inline Point between(const Point &from, const Point &to, double degrees, double share) {
    if (degrees == 0) {
        return from;
    }
    const double turns = degrees / 360.0;
    const double a =
        sine((1 - share) * turns) / std::sqrt(from.x * from.x + from.y * from.y + kDistance * kDistance);
    const double b = sine(share * turns) / std::sqrt(to.x * to.x + to.y * to.y + kDistance * kDistance);
    return {(a * from.x + b * to.x) / (a + b), (a * from.y + b * to.y) / (a + b)};
}

inline Point gazeAt(const Point &point) { return {kCentre.x + point.x, kCentre.y + point.y}; }

inline Point hrefAt(const Point &point) {
    constexpr double kScale = kHrefDistance / kDistance;
    return {point.x * kScale, point.y * kScale};
}

// Pixels per degree, which grow towards the edges of a flat display.
inline Point resolutionAt(const Point &point) {
    constexpr double kSquare = kDistance * kDistance;
    const double square = point.x * point.x + point.y * point.y + kSquare;
    return {square / std::sqrt(point.y * point.y + kSquare) / kDegreesPerRadian,
            square / std::sqrt(point.x * point.x + kSquare) / kDegreesPerRadian};
}

} // namespace trkwriter::display
