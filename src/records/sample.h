// A decoded sample.
#pragma once

#include "trkapi/trkapi.h"

namespace trk {

inline constexpr int kEyes = 2;
inline constexpr uint16_t kEyePresent[kEyes] = {TRK_SAMPLE_LEFT, TRK_SAMPLE_RIGHT};

using Sample = FSAMPLE_REC;

// A pupil smaller than this is that of an eye that was lost, whatever else the sample says of it.
inline constexpr float kSmallestPupil = 15.0F;

// Whether the sample holds data of this eye that can be relied on.
[[nodiscard]] inline bool tracksEye(const Sample &sample, int eye) {
    const bool sized = (sample.flags & TRK_SAMPLE_PUPIL_SIZE) != 0;
    return (sample.flags & kEyePresent[eye]) != 0 && !(sized && sample.pupil_size[eye] < kSmallestPupil);
}

// Puts a marker into all positions, and MISSING_DATA into resolution and velocities.
constexpr void fillEyeData(Sample &sample, float noPosition, float noPupilSize) {
    for (int eye = 0; eye < kEyes; ++eye) {
        sample.pupil_x[eye] = sample.pupil_y[eye] = noPosition;
        sample.href_x[eye] = sample.href_y[eye] = noPosition;
        sample.gaze_x[eye] = sample.gaze_y[eye] = noPosition;
        sample.pupil_size[eye] = noPupilSize;
        sample.gaze_vel_x[eye] = sample.gaze_vel_y[eye] = MISSING_DATA;
        sample.href_vel_x[eye] = sample.href_vel_y[eye] = MISSING_DATA;
        sample.pupil_vel_x[eye] = sample.pupil_vel_y[eye] = MISSING_DATA;
        sample.gaze_fvel_x[eye] = sample.gaze_fvel_y[eye] = MISSING_DATA;
        sample.href_fvel_x[eye] = sample.href_fvel_y[eye] = MISSING_DATA;
        sample.pupil_fvel_x[eye] = sample.pupil_fvel_y[eye] = MISSING_DATA;
    }
    sample.res_x = sample.res_y = MISSING_DATA;
}

} // namespace trk
