// What holds for a recording block that states nothing else.
#pragma once

#include <cstdint>

namespace trk {

inline constexpr float kDefaultSampleRate = 250.0F; // samples per second

// Mode byte and filter level of files without a revision, which state neither.
inline constexpr int16_t kModeWithoutRevision = 9;
inline constexpr int16_t kFilterWithoutRevision = 1;

// Camera pixels. No file states them.
inline constexpr uint32_t kCameraWindowWidth = 176;
inline constexpr uint32_t kCameraWindowHeight = 190;

} // namespace trk
