// Velocities of the eyes, from the samples around one sample.
#pragma once

#include "measures/sample_queue.h"

#include <array>
#include <cstdint>

namespace trk {

// Fixed resolution in position units per degree, used in place of each sample's own; MISSING_DATA in x: none.
struct FixedResolution {
    float x = MISSING_DATA;
    float y = MISSING_DATA;
};

class VelocityComputer {
  public:
    // High-speed trackers, the models from 3 on, have a way of their own to compute velocities.
    VelocityComputer(const SampleQueue &queue, int trackerModel);

    // Fills the velocities of the sample's present eyes from its neighbours in the queue. `rate` is in samples
    // per second.
    void setVelocity(Sample &sample, FixedResolution fixed, int rate);

  private:
    static constexpr int kLargestHalfSpan = 19;

    void setRate(int rate);

    const SampleQueue &queue_;
    bool highSpeed_;
    int rate_ = 0;
    int halfSpan_ = 0;                                         // neighbours needed on either side
    std::array<uint64_t, kLargestHalfSpan + 1> keyOffsets_{}; // of the neighbours, by their distance
};

} // namespace trk
