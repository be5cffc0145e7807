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

    // `item` is the place of the event in the index.
    void pair(std::size_t item, FEVENT &event);

  private:
    static constexpr uint32_t kUnset = 0xFFFFFFFF;

    struct EyeTimes {
        uint32_t ssacc_time = kUnset;
        uint32_t esacc_time = kUnset;
        uint32_t sblink_time = kUnset;
        uint32_t eblink_time = kUnset;
        uint32_t sfix_time = kUnset;
        uint32_t efix_time = kUnset;
    };

    int initEventPairArray(int eye);
    int initFixationPairArray(int eye);
    void pairBlinkEnd(std::size_t item, FEVENT &event, EyeTimes &eye) const;
    void pairSaccadeEnd(FEVENT &event, int eye);
    void pairFixationEnd(FEVENT &event, int eye);

    const ItemIndex &index_;
    std::array<EyeTimes, kEyes> eyes_;
};

} // namespace trk
