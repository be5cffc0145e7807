#include "plain_velocity.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <memory>
#include <tuple>
#include <utility>

namespace trk_bench {

void PlainQueue::add(const FSAMPLE_REC &sample, uint64_t key) {
    if (!entries_.empty() && entries_.back().sort_key >= key) {
        return;
    }
    FSAMPLE_REC &entry = entries_.emplace_back(sample);
    entry.sort_key = key;
    const bool hasPupilSize = (sample.flags & TRK_SAMPLE_PUPIL_SIZE) != 0;
    std::copy_n(hasPupilSize ? sample.pupil_size : lastPupilSize_.data(), 2,
                hasPupilSize ? lastPupilSize_.data() : entry.pupil_size);
}

void PlainQueue::shift() {
    entries_.erase(entries_.begin(), entries_.begin() + std::min<std::ptrdiff_t>(128, std::ssize(entries_)));
}

void PlainQueue::clear() {
    entries_.clear();
    lastPupilSize_.fill(1000.0F);
}

const FSAMPLE_REC *PlainQueue::getOldSample(uint64_t key) const {
    if (entries_.empty()) {
        return nullptr;
    }
    const std::size_t end = entries_.size() - 1;
    const uint64_t first = entries_[0].sort_key;
    const uint64_t last = entries_[end].sort_key;
    if (key == first || key == last) {
        return &entries_[key == first ? 0 : end];
    }
    if (end < 2 || key < first || key > last) {
        return nullptr;
    }
    const uint64_t lastStep = last - entries_[end - 1].sort_key;
    const uint64_t step = entries_[1].sort_key - first < 9 ? entries_[1].sort_key - first : lastStep;
    if (step != 1 && step != 2 && step != 4 && step != 8) {
        return nullptr;
    }
    const auto holdsKey = [this, key](uint64_t i) { return i < entries_.size() && entries_[i].sort_key == key; };
    uint64_t i = (key - first) / step;
    if (!holdsKey(i)) {
        i = end - (last - key) / step;
    }
    if (!holdsKey(i)) {
        i = end - (last - key) / lastStep;
    }
    return holdsKey(i) ? &entries_[i] : nullptr;
}

namespace {

using EyeField = float (FSAMPLE_REC::*)[2];
using S = FSAMPLE_REC;

constexpr struct Velocity {
    bool fast;
    unsigned positionFlag;
    EyeField positionX, positionY, x, y;
} kVelocities[] = {
    {false, TRK_SAMPLE_GAZE, &S::gaze_x, &S::gaze_y, &S::gaze_vel_x, &S::gaze_vel_y},
    {false, TRK_SAMPLE_HREF, &S::href_x, &S::href_y, &S::href_vel_x, &S::href_vel_y},
    {false, TRK_SAMPLE_PUPIL_POSITION, &S::pupil_x, &S::pupil_y, &S::pupil_vel_x, &S::pupil_vel_y},
    {true, TRK_SAMPLE_GAZE, &S::gaze_x, &S::gaze_y, &S::gaze_fvel_x, &S::gaze_fvel_y},
    {true, TRK_SAMPLE_HREF, &S::href_x, &S::href_y, &S::href_fvel_x, &S::href_fvel_y},
    {true, TRK_SAMPLE_PUPIL_POSITION, &S::pupil_x, &S::pupil_y, &S::pupil_fvel_x, &S::pupil_fvel_y},
};
constexpr unsigned kEyeFlags[] = {TRK_SAMPLE_LEFT, TRK_SAMPLE_RIGHT};

std::pair<float, float> positionOf(const FSAMPLE_REC *sample, int eye, const Velocity &wanted) {
    if (sample == nullptr || (sample->flags & kEyeFlags[eye]) == 0 || (sample->flags & wanted.positionFlag) == 0 ||
        ((sample->flags & TRK_SAMPLE_PUPIL_SIZE) != 0 && sample->pupil_size[eye] < 15.0F)) {
        return {MISSING_DATA, MISSING_DATA};
    }
    return {(sample->*wanted.positionX)[eye], (sample->*wanted.positionY)[eye]};
}

// The models take the positions around p[0], 19 on either side.
float calcVelocity_pn7200(bool fast, const float *p, float resolution, float rate) {
    const int halfSpan = rate < 500 ? 2 : rate < 1000 ? 4 : rate < 2000 ? 9 : 19;
    if (std::count(p - halfSpan, p + halfSpan + 1, MISSING_DATA) > 0) {
        return MISSING_DATA;
    }
    const auto pair = [p](int i) { return (p[i] + p[i + 1]) * 0.5F; };
    const auto four = [p](int i) { return (p[i] + p[i + 1] + p[i + 2] + p[i + 3]) * 0.25F; };
    const auto pairs = [pair](int i) { return (pair(i) + pair(i + 2) + pair(i + 4) + pair(i + 6)) * 0.25F; };
    const auto velocity = [=](float a, float b, float c, float d, float scale) {
        return (250.0F / resolution) * (fast ? (c - b) * 0.5F : (-a - b + c + d) * 0.167F) * scale;
    };
    switch (halfSpan) {
    case 2:
        return velocity(p[-2], p[-1], p[1], p[2], 1.0F);
    case 4:
        return velocity(pair(-4), pair(-2), pair(1), pair(3), 1.2F);
    case 9:
        return velocity(four(-9), four(-5), four(2), four(6), 1.0909091F);
    default:
        return velocity(pairs(-19), pairs(-11), pairs(4), pairs(12), 1.0434783F);
    }
}

float calcVelocity_non_pn7200(bool fast, const float *p, float resolution, float rate) {
    const auto known = [p](int i) { return p[i] != MISSING_DATA; };
    if (!fast && known(-2) && known(-1) && known(1) && known(2)) {
        return (-p[-2] - p[-1] + p[1] + p[2]) * rate / 6.0F / resolution;
    }
    if (known(-1) && known(1)) {
        return (p[1] - p[-1]) * rate * 0.5F / resolution;
    }
    const int left = known(1) ? 0 : -1;
    return known(left) && known(left + 1) ? (p[left + 1] - p[left]) * rate / resolution : MISSING_DATA;
}

std::pair<float, float> resolutionOf(const FSAMPLE_REC &sample, int eye, const Velocity &wanted) {
    const auto [x, y] = positionOf(&sample, eye, wanted);
    float resolutionX = sample.res_x;
    float resolutionY = sample.res_y;
    if (wanted.positionFlag == TRK_SAMPLE_HREF && x != MISSING_DATA && y != MISSING_DATA) {
        const double xx = static_cast<double>(x) * static_cast<double>(x);
        const double yy = static_cast<double>(y) * static_cast<double>(y);
        resolutionX = static_cast<float>((xx + yy + 2.25e8) / std::sqrt(yy + 2.25e8) / 57.2958);
        resolutionY = static_cast<float>((xx + yy + 2.25e8) / std::sqrt(xx + 2.25e8) / 57.2958);
    }
    const auto plausible = [](float resolution) { return resolution > 0.01F && resolution < 10000.0F; };
    return plausible(resolutionX) && plausible(resolutionY) ? std::pair(resolutionX, resolutionY)
                                                            : std::pair(MISSING_DATA, MISSING_DATA);
}

} // namespace

void plainSetVelocity(const PlainQueue &queue, FSAMPLE_REC &sample, float resolutionX, float resolutionY, int rate,
                      int trackerModel) {
    constexpr std::size_t kCentre = 19;
    constexpr std::size_t kWindow = 2 * kCentre + 1;
    const float interval = 1000.0F / static_cast<float>(rate);
    const auto window = std::make_unique_for_overwrite<const FSAMPLE_REC *[]>(kWindow);
    window[kCentre] = &sample;
    for (std::size_t k = kCentre; k >= 1; --k) {
        const auto offset = static_cast<uint64_t>(2.0F * (interval * static_cast<float>(k)));
        window[kCentre - k] = queue.getOldSample(sample.sort_key - offset);
        window[kCentre + k] = queue.getOldSample(sample.sort_key + offset);
    }
    const auto getVelocity = [&](const Velocity &wanted, int eye) {
        const auto x = std::make_unique_for_overwrite<float[]>(kWindow);
        const auto y = std::make_unique_for_overwrite<float[]>(kWindow);
        for (std::size_t i = 0; i < kWindow; ++i) {
            std::tie(x[i], y[i]) = positionOf(window[i], eye, wanted);
        }
        const auto [perDegreeX, perDegreeY] =
            resolutionX != MISSING_DATA ? std::pair(resolutionX, resolutionY) : resolutionOf(sample, eye, wanted);
        const auto velocity = [&](const float *positions, float perDegree) {
            const auto model = trackerModel < 3 ? calcVelocity_non_pn7200 : calcVelocity_pn7200;
            const bool usable = perDegree != MISSING_DATA && perDegree > 0.01F;
            return usable ? model(wanted.fast, positions, perDegree, static_cast<float>(rate)) : MISSING_DATA;
        };
        (sample.*wanted.x)[eye] = velocity(&x[kCentre], perDegreeX);
        (sample.*wanted.y)[eye] = velocity(&y[kCentre], perDegreeY);
    };
    for (const int eye : {0, 1}) {
        for (const Velocity &wanted : kVelocities) {
            if ((sample.flags & kEyeFlags[eye]) != 0) {
                getVelocity(wanted, eye);
            }
        }
    }
}

} // namespace trk_bench
