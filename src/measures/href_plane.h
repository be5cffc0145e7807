// The head-referenced plane.
#pragma once

namespace trk {

inline constexpr double kHrefDistance = 15000.0; // of the plane from the eye, HREF units
inline constexpr double kHrefDistanceSquared = kHrefDistance * kHrefDistance;
inline constexpr double kDegreesPerRadian = 57.2958;

} // namespace trk
