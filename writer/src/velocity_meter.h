// Velocities of a saccade, as readers compute them from the samples of a recent tracker.
#pragma once

#include "trkwriter/recorder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace trkwriter {

// Takes the samples of one eye in turn. The velocity at a sample is known when those behind it are there: two
// groups of samples on either side are compared, the nearer one on the right `near` samples away.
class VelocityMeter {
  public:
    explicit VelocityMeter(double rate)
        : band_(*std::ranges::find_if(kBands, [rate](const Band &band) { return rate <= band.rate; })) {}

    // Forgets the saccade before.
    void startSaccade() {
        sum_ = peak_ = 0;
        count_ = 0;
    }

    // Gaze and resolution in pixels, missing where the eye was not seen or no sample was recorded.
    void add(const Point &gaze, const Point &resolution, bool inSaccade) {
        samples_[newest_++ % samples_.size()] = {gaze, resolution, inSaccade};
        if (at(0).inSaccade) {
            measure();
        }
    }

    // Of the saccade that started last, up to the samples that have neighbours; 0 when none has.
    [[nodiscard]] double mean() const { return count_ == 0 ? 0 : sum_ / count_; }
    [[nodiscard]] double peak() const { return peak_; }

  private:
    struct Entry {
        Point gaze{};
        Point resolution{};
        bool inSaccade = false;
    };

    struct Band {
        double rate; // samples per second
        int near;
        int group;
        double scale;
    };
    static constexpr std::array kBands{
        Band{250, 1, 1, 1.0},
        Band{500, 1, 2, 1.2},
        Band{1000, 2, 4, 1.0909091},
        Band{2000, 4, 8, 1.0434783},
    };

    [[nodiscard]] int halfSpan() const { return band_.near + 2 * band_.group - 1; }
    // The sample so many places behind the one in the middle.
    [[nodiscard]] const Entry &at(int distance) const {
        const auto back = static_cast<uint64_t>(halfSpan() + 1) - static_cast<uint64_t>(distance);
        return samples_[(newest_ - back) % samples_.size()];
    }

    void measure() {
        Point difference{0, 0};
        for (int side = -1; side <= 1; side += 2) {
            for (int distance = 1; distance <= halfSpan(); ++distance) {
                const Point &gaze = at(side * distance).gaze;
                const int weight = distance < band_.near ? 0 : side; // between the groups it must be known only
                difference = {difference.x + weight * gaze.x, difference.y + weight * gaze.y};
            }
        }
        const Entry &middle = at(0);
        const double perUnit = 250 * 0.167 * band_.scale / band_.group;
        const double x = difference.x * perUnit / middle.resolution.x;
        const double y = difference.y * perUnit / middle.resolution.y;
        const double velocity = std::sqrt(x * x + y * y);
        if (!std::isnan(velocity) && !std::isnan(middle.gaze.x)) {
            sum_ += velocity;
            ++count_;
            peak_ = std::max(peak_, velocity);
        }
    }

    Band band_;
    std::array<Entry, 64> samples_{};
    uint64_t newest_ = samples_.size();
    double sum_ = 0;
    int count_ = 0;
    double peak_ = 0;
};

} // namespace trkwriter
