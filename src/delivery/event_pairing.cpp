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

// Forgets the saccade and the blink of an eye; returns the eye.
int EventPairing::initEventPairArray(int eye) {
    EyeTimes &times = eyes_[static_cast<std::size_t>(initFixationPairArray(eye))];
    times.sblink_time = times.eblink_time = kUnset;
    return eye;
}

// Forgets the saccade of an eye; returns the eye.
int EventPairing::initFixationPairArray(int eye) {
    EyeTimes &times = eyes_[static_cast<std::size_t>(eye)];
    times.ssacc_time = times.esacc_time = kUnset;
    return eye;
}

void EventPairing::pair(std::size_t item, FEVENT &event) {
    const uint32_t indexTime = timeOfKey(index_[item].sort_key);
    const bool moved = (index_[item].item_type & kItemMoved) != 0;
    const int eyeNumber = event.eye != 0 ? 1 : 0;
    EyeTimes &eye = eyes_[static_cast<std::size_t>(eyeNumber)];
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
        pairSaccadeEnd(event, eyeNumber);
        break;
    case REC_SFIX:
        eye.sfix_time = event.start_time;
        break;
    case REC_EFIX:
        pairFixationEnd(event, eyeNumber);
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
void EventPairing::pairSaccadeEnd(FEVENT &event, int eye) {
    EyeTimes &times = eyes_[static_cast<std::size_t>(eye)];
    times.esacc_time = event.start_time;
    if (times.sblink_time != kUnset && times.eblink_time != kUnset && times.ssacc_time != times.esacc_time) {
        event.start_time = times.ssacc_time;
    }
    initEventPairArray(eye);
}

void EventPairing::pairFixationEnd(FEVENT &event, int eye) {
    EyeTimes &times = eyes_[static_cast<std::size_t>(eye)];
    times.efix_time = event.start_time;
    if (times.sfix_time != times.efix_time) {
        event.start_time = times.sfix_time;
    }
    // The saccade is forgotten and the fixation is not, on purpose.
    initFixationPairArray(eye);
}

} // namespace trk
