// Pairs the starts and ends of eye events across deliveries.
#pragma once

#include "index/item_index.h"
#include "records/sample.h"

#include <array>
#include <cstdint>

namespace trk {

// Sees every delivered event of a strictly checked file and corrects the start times of ends: an end counts from
// the start that was delivered for its eye, and times that the index has moved count as moved. The memory is not
// reset by jumps, so that after a jump an end may get a stale start until the next one of its kind.
class EventPairing {
  public:
    explicit EventPairing(const ItemIndex &index) : index_(index) {}

    // `item` is the event's, at `number` in the index.
    void pair(const Item &item, ItemNumber number, FEVENT &event);

  private:
    static constexpr uint32_t kUnset = 0xFFFFFFFF;

    // Start times of the events last seen, ms.
    struct EyeTimes {
        uint32_t saccade = kUnset;
        uint32_t blink = kUnset;
        uint32_t endedBlink = kUnset;
        uint32_t fixation = kUnset;
    };

    [[nodiscard]] uint32_t startOfBlink(const Item &blinkEnd, ItemNumber number, uint32_t ownTime) const;
    static void pairSaccadeEnd(FEVENT &event, EyeTimes &eye);
    static void pairFixationEnd(FEVENT &event, EyeTimes &eye);

    const ItemIndex &index_;
    std::array<EyeTimes, kEyes> eyes_;
};

} // namespace trk
