#include "support/plain_velocity.h"

#include <algorithm>
#include <cmath>
#include <memory>

namespace trk_test {

void PlainQueue::add(const FSAMPLE_REC &sample, uint64_t key) {
    if (count_ > 0 && entries_[count_ - 1].sort_key >= key) {
        return;
    }
    FSAMPLE_REC &entry = entries_[count_++] = sample;
    entry.sort_key = key;
    const bool hasPupilSize = (sample.flags & TRK_SAMPLE_PUPIL_SIZE) != 0;
    std::copy_n(hasPupilSize ? sample.pupil_size : lastPupilSize_.data(), 2,
                hasPupilSize ? lastPupilSize_.data() : entry.pupil_size);
}

void PlainQueue::shift() {
    constexpr std::size_t kShift = 128;
    const std::size_t kept = count_ < kShift ? 0 : count_ - kShift;
    std::copy_n(entries_.begin() + kShift, kept, entries_.begin());
    std::fill(entries_.begin() + static_cast<std::ptrdiff_t>(kept), entries_.end(), FSAMPLE_REC{});
    count_ = kept;
}

void PlainQueue::clear() {
    count_ = 0;
    entries_.fill({});
    lastPupilSize_.fill(1000.0F);
}

const FSAMPLE_REC *PlainQueue::getOldSample(uint64_t key) const {
    if (count_ < 1) {
        return nullptr;
    }
    const std::size_t end = count_ - 1;
    const uint64_t first = entries_[0].sort_key;
    const uint64_t last = entries_[end].sort_key;
    if (key == first || key == last) {
        return &entries_[key == first ? 0 : end];
    }
    if (count_ < 3 || key <= first || key >= last) {
        return nullptr;
    }
    uint64_t step = entries_[1].sort_key - first;
    if (step >= 9) {
        step = last - entries_[end - 1].sort_key;
    }
    if (step != 1 && step != 2 && step != 4 && step != 8) {
        return nullptr;
    }
    const FSAMPLE_REC *found = entryWithKey((key - first) / step, key);
    if (found == nullptr) {
        found = entryWithKey(end - (last - key) / step, key);
    }
    return found != nullptr ? found : entryWithKey(end - (last - key) / (last - entries_[end - 1].sort_key), key);
}

namespace {

using EyeField = float (FSAMPLE_REC::*)[2];

struct PositionKind {
    unsigned flag;
    EyeField x, y;
};
constexpr PositionKind kGaze{TRK_SAMPLE_GAZE, &FSAMPLE_REC::gaze_x, &FSAMPLE_REC::gaze_y};
constexpr PositionKind kHref{TRK_SAMPLE_HREF, &FSAMPLE_REC::href_x, &FSAMPLE_REC::href_y};
constexpr PositionKind kRawPupil{TRK_SAMPLE_PUPIL_POSITION, &FSAMPLE_REC::pupil_x, &FSAMPLE_REC::pupil_y};
constexpr unsigned kEyeFlags[] = {TRK_SAMPLE_LEFT, TRK_SAMPLE_RIGHT};

void readPosition(const FSAMPLE_REC *sample, int eye, const PositionKind &kind, float &x, float &y) {
    const bool known = sample != nullptr && (sample->flags & kEyeFlags[eye]) != 0 &&
                       ((sample->flags & TRK_SAMPLE_PUPIL_SIZE) == 0 || !(sample->pupil_size[eye] < 15.0F)) &&
                       (sample->flags & kind.flag) != 0;
    x = known ? (sample->*kind.x)[eye] : MISSING_DATA;
    y = known ? (sample->*kind.y)[eye] : MISSING_DATA;
}

float calcVelocity_pn7200(bool fast, const float *p, int n, float resolution, float rate) {
    const int halfSpan = rate < 500 ? 2 : rate < 1000 ? 4 : rate < 2000 ? 9 : 19;
    if (n < 2 * halfSpan + 1) {
        return MISSING_DATA;
    }
    p += n / 2;
    if (std::find(p - halfSpan, p + halfSpan + 1, MISSING_DATA) != p + halfSpan + 1) {
        return MISSING_DATA;
    }
    const auto pair = [p](int i) { return (p[i] + p[i + 1]) * 0.5F; };
    const auto four = [p](int i) { return (p[i] + p[i + 1] + p[i + 2] + p[i + 3]) * 0.25F; };
    const auto pairs = [pair](int i) { return (pair(i) + pair(i + 2) + pair(i + 4) + pair(i + 6)) * 0.25F; };
    float a = 0, b = 0, c = 0, d = 0, scale = 0;
    if (rate < 500) {
        a = p[-2], b = p[-1], c = p[1], d = p[2], scale = 1.0F;
    } else if (rate < 1000) {
        a = pair(-4), b = pair(-2), c = pair(1), d = pair(3), scale = 1.2F;
    } else if (rate < 2000) {
        a = four(-9), b = four(-5), c = four(2), d = four(6), scale = 1.0909091F;
    } else {
        a = pairs(-19), b = pairs(-11), c = pairs(4), d = pairs(12), scale = 1.0434783F;
    }
    const float difference = fast ? (c - b) * 0.5F : (-a - b + c + d) * 0.167F;
    return (250.0F / resolution) * difference * scale;
}

float calcVelocity_non_pn7200(bool fast, const float *p, int n, float resolution, float rate) {
    p += n / 2;
    const auto known = [p](int i) { return p[i] != MISSING_DATA; };
    if (n >= 6 && !fast && known(-2) && known(-1) && known(1) && known(2)) {
        return (-p[-2] - p[-1] + p[1] + p[2]) * rate / 6.0F / resolution;
    }
    if (known(-1) && known(1)) {
        return (p[1] - p[-1]) * rate * 0.5F / resolution;
    }
    const int left = known(1) ? 0 : -1;
    return known(left) && known(left + 1) ? (p[left + 1] - p[left]) * rate / resolution : MISSING_DATA;
}

struct Velocities {
    bool fast;
    PositionKind kind;
    EyeField x, y;
};
constexpr Velocities kVelocities[] = {
    {false, kGaze, &FSAMPLE_REC::gaze_vel_x, &FSAMPLE_REC::gaze_vel_y},
    {false, kHref, &FSAMPLE_REC::href_vel_x, &FSAMPLE_REC::href_vel_y},
    {false, kRawPupil, &FSAMPLE_REC::pupil_vel_x, &FSAMPLE_REC::pupil_vel_y},
    {true, kGaze, &FSAMPLE_REC::gaze_fvel_x, &FSAMPLE_REC::gaze_fvel_y},
    {true, kHref, &FSAMPLE_REC::href_fvel_x, &FSAMPLE_REC::href_fvel_y},
    {true, kRawPupil, &FSAMPLE_REC::pupil_fvel_x, &FSAMPLE_REC::pupil_fvel_y},
};

void getVelocity(const Velocities &wanted, int rate, float resX, float resY, const FSAMPLE_REC *const *window,
                 std::size_t n, int eye, int trackerModel, FSAMPLE_REC &out) {
    const auto x = std::make_unique_for_overwrite<float[]>(n);
    const auto y = std::make_unique_for_overwrite<float[]>(n);
    for (std::size_t i = 0; i < n; ++i) {
        readPosition(window[i], eye, wanted.kind, x[i], y[i]);
    }
    const FSAMPLE_REC &sample = *window[n / 2];
    float centreX = 0;
    float centreY = 0;
    readPosition(&sample, eye, wanted.kind, centreX, centreY);
    if (resX == MISSING_DATA) {
        resX = sample.res_x;
        resY = sample.res_y;
        if (wanted.kind.flag == TRK_SAMPLE_HREF && centreX != MISSING_DATA && centreY != MISSING_DATA) {
            const double xx = static_cast<double>(centreX) * static_cast<double>(centreX);
            const double yy = static_cast<double>(centreY) * static_cast<double>(centreY);
            resX = static_cast<float>((xx + yy + 2.25e8) / std::sqrt(yy + 2.25e8) / 57.2958);
            resY = static_cast<float>((xx + yy + 2.25e8) / std::sqrt(xx + 2.25e8) / 57.2958);
        }
        if (!(resX > 0.01F && resX < 10000.0F && resY > 0.01F && resY < 10000.0F)) {
            resX = resY = MISSING_DATA;
        }
    }
    const auto velocity = [&](const float *positions, float res) {
        const auto model = trackerModel < 3 ? calcVelocity_non_pn7200 : calcVelocity_pn7200;
        const bool usable = res != MISSING_DATA && res > 0.01F;
        return usable ? model(wanted.fast, positions, static_cast<int>(n), res, static_cast<float>(rate))
                      : MISSING_DATA;
    };
    (out.*wanted.x)[eye] = velocity(x.get(), resX);
    (out.*wanted.y)[eye] = velocity(y.get(), resY);
}

} // namespace

void plainSetVelocity(const PlainQueue &queue, FSAMPLE_REC &sample, float resolutionX, float resolutionY, int rate,
                      int trackerModel) {
    constexpr std::size_t kWindow = 39;
    constexpr std::size_t kCentre = kWindow / 2;
    const float interval = 1000.0F / static_cast<float>(rate);
    const auto window = std::make_unique_for_overwrite<const FSAMPLE_REC *[]>(kWindow);
    window[kCentre] = &sample;
    for (std::size_t k = kCentre; k >= 1; --k) {
        const auto offset = static_cast<uint64_t>(2.0F * (interval * static_cast<float>(k)));
        window[kCentre - k] = queue.getOldSample(sample.sort_key - offset);
        window[kCentre + k] = queue.getOldSample(sample.sort_key + offset);
    }
    for (const int eye : {0, 1}) {
        for (const Velocities &wanted : kVelocities) {
            if ((sample.flags & kEyeFlags[eye]) != 0) {
                getVelocity(wanted, rate, resolutionX, resolutionY, window.get(), kWindow, eye, trackerModel,
                            sample);
            }
        }
    }
}

} // namespace trk_test
