#include "delivery/event_pairing.h"

#include <optional>

namespace trk {

namespace {

// The start of the blink that a repaired end of blink belongs to: the nearest paired event of its eye before it,
// when that is a start of blink.
std::optional<uint32_t> blinkStartBefore(const ItemIndex &index, std::size_t blinkEnd) {
    const unsigned eye = index[blinkEnd].eye();
    for (std::size_t i = blinkEnd; i-- > 0;) {
        const TRKItem &item = index[i];
        const unsigned code = item.code();
        const bool paired =
            (code >= REC_EVENT1 && code <= REC_EFIX) || (code >= REC_STARTSAMPLES && code <= REC_ENDEVENTS);
        const bool passedOver = code == REC_EVENT1 || code == REC_STARTSAMPLES || code == REC_STARTEVENTS;
        if (!paired || passedOver || item.eye() != eye) {
            continue;
        }
        return code == REC_SBLINK ? std::optional(timeOfKey(item.sort_key)) : std::nullopt;
    }
    return std::nullopt;
}

} // namespace

// Forgets saccade and blink.
void EventPairing::initEventPairArray(EyeTimes &eye) {
    initFixationPairArray(eye);
    eye.sblink_time = eye.eblink_time = kUnset;
}

// Forgets the saccade.
void EventPairing::initFixationPairArray(EyeTimes &eye) { eye.ssacc_time = eye.esacc_time = kUnset; }

void EventPairing::pair(std::size_t item, FEVENT &event) {
    const uint32_t indexTime = timeOfKey(index_[item].sort_key);
    const bool moved = (index_[item].item_type & kItemMoved) != 0;
    EyeTimes &eye = eyes_[event.eye != 0 ? 1 : 0];
    switch (event.type) {
    case REC_SBLINK:
    case REC_SSACC:
        if (moved) {
            event.start_time = indexTime;
        }
        (event.type == REC_SBLINK ? eye.sblink_time : eye.ssacc_time) = event.start_time;
        break;
    case REC_EBLINK:
        pairBlinkEnd(item, event, eye);
        break;
    case REC_ESACC:
        pairSaccadeEnd(event, eye);
        break;
    case REC_SFIX:
        eye.sfix_time = event.start_time;
        break;
    case REC_EFIX:
        pairFixationEnd(event, eye);
        break;
    default:
        break;
    }
}

void EventPairing::pairBlinkEnd(std::size_t item, FEVENT &event, EyeTimes &eye) const {
    const uint16_t marks = index_[item].item_type;
    if ((marks & kItemMoved) != 0) {
        event.start_time = timeOfKey(index_[item].sort_key);
    } else if ((marks & kItemBlinkRepaired) != 0) {
        event.start_time = blinkStartBefore(index_, item).value_or(event.start_time);
    }
    eye.eblink_time = event.start_time;
}

// A saccade that contains a blink is reported from its own start.
void EventPairing::pairSaccadeEnd(FEVENT &event, EyeTimes &eye) {
    eye.esacc_time = event.start_time;
    if (eye.sblink_time != kUnset && eye.eblink_time != kUnset && eye.ssacc_time != eye.esacc_time) {
        event.start_time = eye.ssacc_time;
    }
    initEventPairArray(eye);
}

void EventPairing::pairFixationEnd(FEVENT &event, EyeTimes &eye) {
    eye.efix_time = event.start_time;
    if (eye.sfix_time != eye.efix_time) {
        event.start_time = eye.sfix_time;
    }
    // The saccade is forgotten and the fixation is not, on purpose.
    initFixationPairArray(eye);
}

} // namespace trk
