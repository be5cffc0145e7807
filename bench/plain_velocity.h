// Velocities by the plain algorithm, with nothing optimised: what the library's results must equal bit for bit,
// and the floor that its speed is measured against.
#pragma once

#include "trkapi/trkapi.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace trk_bench {

// Up to 512 copies of samples, oldest first.
class PlainQueue {
  public:
    std::size_t count() const { return entries_.size(); }
    const FSAMPLE_REC &operator[](std::size_t position) const { return entries_[position]; }

    // Adds a copy under this key; refuses a key that does not lie behind the last. A sample without pupil sizes
    // gets the last ones. The queue must not be full.
    void add(const FSAMPLE_REC &sample, uint64_t key);
    // Drops the 128 oldest samples, or all when there are fewer.
    void shift();
    void clear();
    // The sample with this key, looked for where the spacing of the keys says; null when it is not there.
    const FSAMPLE_REC *getOldSample(uint64_t key) const;

  private:
    std::vector<FSAMPLE_REC> entries_;
    std::array<float, 2> lastPupilSize_{1000.0F, 1000.0F};
};

// Fills the velocities of the sample's present eyes. `resolutionX` and `resolutionY`: a fixed resolution, or
// MISSING_DATA for none. `rate` is in samples per second, at least 1; models from 3 on are high-speed trackers.
void plainSetVelocity(const PlainQueue &queue, FSAMPLE_REC &sample, float resolutionX, float resolutionY, int rate,
                      int trackerModel);

} // namespace trk_bench
