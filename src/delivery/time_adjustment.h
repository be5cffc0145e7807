// Moves the times of recordings that start very late on the tracker's clock to a small origin.
#pragma once

#include "index/item.h"
#include "trkapi/trkapi.h"

#include <cstdint>

namespace trk {

class TimeAdjustment {
  public:
    // With the time of the first record of the file and the largest one.
    TimeAdjustment(bool disabled, uint32_t firstTime, uint32_t lastTime)
        : disabled_(disabled), firstTime_(firstTime), lastTime_(lastTime) {}

    // What samples and events are moved by, ms.
    [[nodiscard]] uint32_t offset() const { return disabled_ || lastTime_ < kFirstLateTime ? 0 : firstTime_; }

    // Changes the times of a delivered record. `item` is the item on which the walk stands, or null when it
    // stands on none.
    void adjust(const Item *item, ALLF_DATA &record);

  private:
    static constexpr uint32_t kFirstLateTime = 400000000; // ms

    bool begin(uint32_t time, const char *announcement);

    bool disabled_;
    uint32_t firstTime_;
    uint32_t lastTime_;
    uint32_t timeBase_ = 0; // time of the first record delivered, 0 before
    bool announced_ = false;
};

} // namespace trk
