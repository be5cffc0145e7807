// Moves the times of recordings that start very late on the tracker's clock to a small origin.
#pragma once

#include "index/item.h"
#include "trkapi/trkapi.h"

#include <cstdint>

namespace trk {

class TimeAdjustment {
  public:
    TimeAdjustment(bool disabled, uint32_t firstSampleTime, uint32_t lastSampleTime)
        : disabled_(disabled), firstSampleTime_(firstSampleTime), lastSampleTime_(lastSampleTime) {}

    // Changes the times of a delivered record. `item` is the item on which the walk stands, or null when it
    // stands on none.
    void adjustTimes(const TRKItem *item, ALLF_DATA &record);

  private:
    bool begin(uint32_t time, const char *announcement);

    bool disabled_;
    uint32_t firstSampleTime_;
    uint32_t lastSampleTime_;
    uint32_t timeBase_ = 0; // time of the first record delivered, 0 before
    bool announced_ = false;
};

} // namespace trk
