// A decoded sample.
#pragma once

#include "trkapi/trkapi.h"

namespace trk {

// The coordinate systems in which a sample can hold an eye's position.
enum PositionKind : int { kRawPupil = 64, kHref = 128, kGaze = 192 };

inline constexpr int kEyes = 2;
inline constexpr uint16_t kEyePresent[kEyes] = {TRK_SAMPLE_LEFT, TRK_SAMPLE_RIGHT};

// An eye whose pupil is smaller than this counts as lost even though its data is present.
inline constexpr float kSmallestPupil = 15.0F;

struct Sample : FSAMPLE_REC {
    [[nodiscard]] bool hasEye(int eye) const { return (flags & kEyePresent[eye]) != 0; }

    // One eye's position; both MISSING_DATA when it cannot be had. Returns 1 if the eye is present, else 0.
    int getSampleData(float &x, float &y, int eye, int kind) const {
        const bool present = hasEye(eye);
        const bool lost = (flags & TRK_SAMPLE_PUPIL_SIZE) != 0 && pupil_size[eye] < kSmallestPupil;
        if (present && !lost) {
            if (kind == kGaze && (flags & TRK_SAMPLE_GAZE) != 0) {
                x = gaze_x[eye];
                y = gaze_y[eye];
                return 1;
            }
            if (kind == kHref && (flags & TRK_SAMPLE_HREF) != 0) {
                x = href_x[eye];
                y = href_y[eye];
                return 1;
            }
            if (kind == kRawPupil && (flags & TRK_SAMPLE_PUPIL_POSITION) != 0) {
                x = pupil_x[eye];
                y = pupil_y[eye];
                return 1;
            }
        }
        x = y = MISSING_DATA;
        return present ? 1 : 0;
    }
};

static_assert(sizeof(Sample) == sizeof(FSAMPLE_REC));

} // namespace trk
