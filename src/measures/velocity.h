// Velocities of the eyes, from the samples around one sample.
#pragma once

#include "measures/eye_positions.h"
#include "measures/run_velocity.h"
#include "measures/sample_window.h"
#include "measures/velocity_model.h"

#include <array>
#include <cstdint>

namespace trk {

// Smoothed and fast velocities of one sample, degrees per second.
struct Velocities {
    Lanes smoothed;
    Lanes fast;
};

class VelocityComputer {
  public:
    VelocityComputer(const SampleWindow &window, int trackerModel)
        : window_(window), trackerModel_(trackerModel), model_(trackerModel, 0) {}

    // Fills the velocities of the sample's present eyes from its neighbours in the window. The sample is a copy of
    // the window's entry with its key, where there is one. `rate` is in samples per second.
    void setVelocity(Sample &sample, FixedResolution fixed, int rate);

  private:
    static constexpr int kLargestHalfSpan = VelocityModel::kLargestHalfSpan;
    // Entries as far apart as this share a place in the cache; the span of a sample must fit.
    static constexpr std::size_t kCacheSize = 64;
    static_assert(kCacheSize > 2 * kLargestHalfSpan + 1);

    // What was already worked out for an entry of the window, by the entry's serial number.
    struct Cached {
        static constexpr uint64_t kNever = ~uint64_t{0};

        uint64_t positionSerial = kNever;
        uint64_t groupSerial = kNever;
        PositionLanes position;
        PositionLanes group; // mean of the group that begins with this entry
    };

    class Neighbourhood;

    void setRate(int rate);
    const PositionLanes &positionsAt(int position);
    const PositionLanes &groupAt(int position);
    bool findNeighbours(uint64_t key, Neighbourhood &neighbours);

    bool takeFromRun(Sample &sample, int place, FixedResolution fixed);
    void computeRun(int place, std::size_t count, FixedResolution fixed);

    Velocities highSpeedVelocities(uint64_t key, int place, const PositionLanes &centre, const Lanes &resolution);
    Velocities plainVelocities(uint64_t key, const PositionLanes &centre, const Lanes &resolution);

    const SampleWindow &window_;
    int trackerModel_;
    VelocityModel model_; // of the rate
    std::array<Cached, kCacheSize> cache_;

    // Whoever asks for one sample after the other gets velocities that were worked out for many at once.
    struct Run {
        uint64_t firstSerial = 0;
        std::size_t count = 0;
        uint64_t spacing = 0; // of the window's keys
        FixedResolution fixed;
        // Smoothed, then fast ones, as they stand in a sample.
        std::array<std::array<float, 2 * Lanes::kCount>, RunRows::kRows> velocities;
    };
    uint64_t nextSerial_ = 0; // of the sample behind the one asked for last
    Run run_;
    RunRows rows_{};
};

} // namespace trk
