#include "delivery/event_pairing.h"

#include "records/codes.h"

namespace trk {

void EventPairing::pair(const Item &item, ItemNumber number, FEVENT &event) {
    EyeTimes &eye = eyes_[event.eye != 0 ? 1 : 0];
    switch (event.type) {
    case REC_SBLINK:
    case REC_SSACC:
        if (item.has(kItemMoved)) {
            event.start_time = TimeKey::time(item.key);
        }
        (event.type == REC_SBLINK ? eye.blink : eye.saccade) = event.start_time;
        break;
    case REC_EBLINK:
        eye.endedBlink = event.start_time = startOfBlink(item, number, event.start_time);
        break;
    case REC_ESACC:
        pairSaccadeEnd(event, eye);
        break;
    case REC_SFIX:
        eye.fixation = event.start_time;
        break;
    case REC_EFIX:
        pairFixationEnd(event, eye);
        break;
    default:
        break;
    }
}

// That of a moved end is where it was moved to. That of a repaired one is the nearest start or end of something of
// its eye before it, when that is a start of blink.
uint32_t EventPairing::startOfBlink(const Item &blinkEnd, ItemNumber number, uint32_t ownTime) const {
    if (blinkEnd.has(kItemMoved)) {
        return TimeKey::time(blinkEnd.key);
    }
    if (!blinkEnd.has(kItemBlinkRepaired)) {
        return ownTime;
    }
    constexpr CodeSet kDecisive = kEnds | kEyeEventStarts;
    while (number-- > 0) {
        const Item &item = index_[number];
        if (kDecisive.contains(item.code()) && item.eye() == blinkEnd.eye()) {
            return item.code() == REC_SBLINK ? TimeKey::time(item.key) : ownTime;
        }
    }
    return ownTime;
}

// A saccade that contains a blink is reported from its own start.
void EventPairing::pairSaccadeEnd(FEVENT &event, EyeTimes &eye) {
    if (eye.blink != kUnset && eye.endedBlink != kUnset) {
        event.start_time = eye.saccade;
    }
    eye.saccade = eye.blink = eye.endedBlink = kUnset;
}

// Forgets the saccade but not the fixation: an end that comes twice is reported from the same start twice.
void EventPairing::pairFixationEnd(FEVENT &event, EyeTimes &eye) {
    event.start_time = eye.fixation;
    eye.saccade = kUnset;
}

} // namespace trk
