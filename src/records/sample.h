// A decoded sample.
#pragma once

#include "trkapi/trkapi.h"

namespace trk {

inline constexpr int kEyes = 2;
inline constexpr uint16_t kEyePresent[kEyes] = {TRK_SAMPLE_LEFT, TRK_SAMPLE_RIGHT};

using Sample = FSAMPLE_REC;

} // namespace trk
