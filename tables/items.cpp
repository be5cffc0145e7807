#include "items.h"

#include <algorithm>
#include <array>
#include <utility>

namespace tables {

namespace {

constexpr std::array<std::pair<int, std::string_view>, 17> kEventNames{{
    {REC_EVENT1, "event1"},
    {REC_EVENT2, "event2"},
    {REC_SBLINK, "blink_start"},
    {REC_EBLINK, "blink_end"},
    {REC_SSACC, "saccade_start"},
    {REC_ESACC, "saccade_end"},
    {REC_SFIX, "fixation_start"},
    {REC_EFIX, "fixation_end"},
    {REC_EVENT9, "event9"},
    {REC_EVENT10, "event10"},
    {REC_STARTSAMPLES, "samples_start"},
    {REC_ENDSAMPLES, "samples_end"},
    {REC_STARTEVENTS, "events_start"},
    {REC_ENDEVENTS, "events_end"},
    {REC_MESSAGE, "message"},
    {REC_BUTTON, "button"},
    {REC_INPUT, "input"},
}};

constexpr std::array<std::pair<int, std::string_view>, 9> kContentNames{{
    {TRK_SAMPLE_GAZE, "gaze"},
    {TRK_SAMPLE_HREF, "HREF"},
    {TRK_SAMPLE_PUPIL_POSITION, "raw pupil"},
    {TRK_SAMPLE_PUPIL_SIZE, "pupil size"},
    {TRK_SAMPLE_RESOLUTION, "resolution"},
    {TRK_SAMPLE_STATUS, "status"},
    {TRK_SAMPLE_INPUT, "input"},
    {TRK_SAMPLE_BUTTONS, "buttons"},
    {TRK_SAMPLE_EXTENSION, "extension"},
}};

} // namespace

std::string_view nameOf(const Item &item) {
    if (item.code == REC_SAMPLE) {
        return item.isDummySample() ? "dummy" : "sample";
    }
    if (item.recording() != nullptr) {
        return item.recording()->state == TRK_BLOCK_START ? "recording_start" : "recording_end";
    }
    for (const auto &[known, name] : kEventNames) {
        if (known == item.code) {
            return name;
        }
    }
    return "unknown";
}

std::string_view wholeEyeEvent(const Item &item) {
    switch (item.code) {
    case REC_EFIX:
        return "fixation";
    case REC_ESACC:
        return "saccade";
    case REC_EBLINK:
        return "blink";
    default:
        return {};
    }
}

std::string_view eyeName(int eyes) {
    switch (eyes) {
    case TRK_EYE_LEFT:
        return "left";
    case TRK_EYE_RIGHT:
        return "right";
    case TRK_EYE_BOTH:
        return "both";
    default:
        return "none";
    }
}

std::string_view recordTypeName(int type) {
    switch (type) {
    case TRK_BLOCK_SAMPLES:
        return "samples";
    case TRK_BLOCK_EVENTS:
        return "events";
    default:
        return "samples+events";
    }
}

int eyesOf(uint16_t flags) {
    return ((flags & TRK_SAMPLE_LEFT) != 0 ? TRK_EYE_LEFT : 0) |
           ((flags & TRK_SAMPLE_RIGHT) != 0 ? TRK_EYE_RIGHT : 0);
}

std::string contentNames(uint16_t flags) {
    std::string names;
    for (const auto &[flag, name] : kContentNames) {
        if ((flags & flag) != 0) {
            names.append(names.empty() ? "" : ", ").append(name);
        }
    }
    return names;
}

} // namespace tables
