#include "bulk/event_columns.h"

#include "measures/href_plane.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <numbers>

namespace trk {

namespace {

constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();

constexpr int kGazeOrRaw = TRK_EVENT_GAZE | TRK_EVENT_RAW;

constexpr const char *kNotRecorded = "MISSING_DATA, TRK_FIELD_ABSENT or 0";
constexpr const char *kNotOfButtons = "not of a button event";

// ---- Times ----

bool isEnd(int code) { return code == REC_EBLINK || code == REC_ESACC || code == REC_EFIX; }

double time(const FEVENT &event, const EventColumn & /*column*/) {
    return isEnd(event.type) ? event.end_time : event.start_time;
}

// The end of a blink, saccade or fixation whose start was never recorded can come with a start time past its end.
bool hasStart(const FEVENT &event) { return event.end_time == 0 || event.start_time <= event.end_time; }

double start(const FEVENT &event, const EventColumn & /*column*/) {
    return hasStart(event) ? event.start_time : kMissing;
}

double end(const FEVENT &event, const EventColumn & /*column*/) {
    return event.end_time != 0 ? event.end_time : kMissing;
}

double duration(const FEVENT &event, const EventColumn &column) {
    return end(event, column) - start(event, column);
}

// ---- What eye events say ----

bool isBlockMark(int code) { return code >= REC_STARTSAMPLES && code <= REC_ENDEVENTS; }

// There when the record carried this part of the event and this quantity. The flags of the parts of what is no
// position also stand for times, and those of the average for peaks: there a zero was not recorded.
double carried(const FEVENT &event, float value, int part, int quantity) {
    constexpr int kAmbiguous = TRK_EVENT_AT_START | TRK_EVENT_AT_END | TRK_EVENT_AT_AVERAGE;
    const bool isThere = !isBlockMark(event.type) && (event.read_flags & part) != 0 &&
                         (event.read_flags & quantity) != 0 && value != MISSING_DATA &&
                         value != TRK_FIELD_ABSENT && ((part & kAmbiguous) == 0 || value != 0);
    return isThere ? static_cast<double>(value) : kMissing;
}

double quantity(const FEVENT &event, const EventColumn &column) {
    float value = 0;
    std::memcpy(&value, reinterpret_cast<const char *>(&event) + column.description.record_offset, sizeof value);
    return carried(event, value, column.part, column.quantity);
}

// The angle between the directions of two positions on the HREF plane, degrees.
double angleBetween(const std::array<double, 2> &a, const std::array<double, 2> &b) {
    constexpr double kDegrees = 180 / std::numbers::pi;
    const double cross = std::hypot(a[1] * kHrefDistance - b[1] * kHrefDistance,
                                    a[0] * kHrefDistance - b[0] * kHrefDistance, a[0] * b[1] - a[1] * b[0]);
    return std::atan2(cross, a[0] * b[0] + a[1] * b[1] + kHrefDistanceSquared) * kDegrees;
}

// No more of it than its column states.
double inSinglePrecision(double value) { return static_cast<double>(static_cast<float>(value)); }

// From gaze and resolution; where these are not there, from the positions on the HREF plane.
double amplitude(const FEVENT &event, const EventColumn & /*column*/) {
    const auto atStart = [&](float value, int what) {
        return carried(event, value, TRK_EVENT_START_POSITION, what);
    };
    const auto atEnd = [&](float value, int what) { return carried(event, value, TRK_EVENT_END_POSITION, what); };
    const auto pixelsPerDegree = [&](float before, float behind) {
        return (carried(event, before, TRK_EVENT_AT_START, TRK_EVENT_RESOLUTION) +
                carried(event, behind, TRK_EVENT_AT_END, TRK_EVENT_RESOLUTION)) /
               2;
    };
    const double across = atEnd(event.end_gaze_x, TRK_EVENT_GAZE) - atStart(event.start_gaze_x, TRK_EVENT_GAZE);
    const double down = atEnd(event.end_gaze_y, TRK_EVENT_GAZE) - atStart(event.start_gaze_y, TRK_EVENT_GAZE);
    const double degreesAcross = across / pixelsPerDegree(event.start_res_x, event.end_res_x);
    const double degreesDown = down / pixelsPerDegree(event.start_res_y, event.end_res_y);
    if (!std::isnan(degreesAcross) && !std::isnan(degreesDown)) {
        return inSinglePrecision(std::hypot(degreesAcross, degreesDown));
    }
    return inSinglePrecision(
        angleBetween({atStart(event.start_href_x, TRK_EVENT_HREF), atStart(event.start_href_y, TRK_EVENT_HREF)},
                     {atEnd(event.end_href_x, TRK_EVENT_HREF), atEnd(event.end_href_y, TRK_EVENT_HREF)}));
}

// ---- Words ----

double word(const FEVENT &event, const EventColumn &column) {
    uint16_t value = 0;
    std::memcpy(&value, reinterpret_cast<const char *>(&event) + column.description.record_offset, sizeof value);
    return value;
}

double input(const FEVENT &event, const EventColumn &column) {
    return event.type == REC_INPUT ? word(event, column) : kMissing;
}

// A button event's words: the state of all buttons behind it, a bit for each, and the number of the one.
double ofButton(const FEVENT &event, const EventColumn &column) {
    return event.type == REC_BUTTON ? word(event, column) : kMissing;
}

double buttonState(const FEVENT &event, const EventColumn & /*column*/) {
    constexpr unsigned kButtons = 16;
    const unsigned button = event.aux_word2;
    return event.type != REC_BUTTON || button < 1 || button > kButtons ? kMissing
                                                                       : event.aux_word1 >> (button - 1) & 1U;
}

constexpr auto kColumns = std::to_array<EventColumn>({
    {{TRK_EVENT_COLUMN_TIME, TRK_TYPE_UINT32, "time", "times", "ms",
      "when the event stands among the items, on the tracker's clock; ends of eye events at their end", "", -1, 0},
     time},
    {{TRK_EVENT_COLUMN_START, TRK_TYPE_UINT32, "start", "times", "ms",
      "start of the event; missing when it is not known", "later than the end", offsetof(FEVENT, start_time), 0},
     start},
    {{TRK_EVENT_COLUMN_END, TRK_TYPE_UINT32, "end", "times", "ms", "end of the event", "0",
      offsetof(FEVENT, end_time), 0},
     end},
    {{TRK_EVENT_COLUMN_DURATION, TRK_TYPE_UINT32, "duration", "times", "ms", "end minus start",
      "where one of them is", -1, 0},
     duration},
    {{TRK_EVENT_COLUMN_AMPLITUDE, TRK_TYPE_FLOAT, "amplitude", "amplitude", "degrees",
      "angle from the position at the start to that at the end", "where both gaze with resolution and HREF are",
      -1, 0},
     amplitude},
    {{TRK_EVENT_COLUMN_START_GAZE_X, TRK_TYPE_FLOAT, "start_gaze_x", "gaze", "display pixels",
      "gaze position, horizontal, at the start", kNotRecorded, offsetof(FEVENT, start_gaze_x), 0},
     quantity,
     TRK_EVENT_START_POSITION,
     kGazeOrRaw},
    {{TRK_EVENT_COLUMN_START_GAZE_Y, TRK_TYPE_FLOAT, "start_gaze_y", "gaze", "display pixels",
      "gaze position, vertical, at the start", kNotRecorded, offsetof(FEVENT, start_gaze_y), 0},
     quantity,
     TRK_EVENT_START_POSITION,
     kGazeOrRaw},
    {{TRK_EVENT_COLUMN_END_GAZE_X, TRK_TYPE_FLOAT, "end_gaze_x", "gaze", "display pixels",
      "gaze position, horizontal, at the end", kNotRecorded, offsetof(FEVENT, end_gaze_x), 0},
     quantity,
     TRK_EVENT_END_POSITION,
     kGazeOrRaw},
    {{TRK_EVENT_COLUMN_END_GAZE_Y, TRK_TYPE_FLOAT, "end_gaze_y", "gaze", "display pixels",
      "gaze position, vertical, at the end", kNotRecorded, offsetof(FEVENT, end_gaze_y), 0},
     quantity,
     TRK_EVENT_END_POSITION,
     kGazeOrRaw},
    {{TRK_EVENT_COLUMN_AVG_GAZE_X, TRK_TYPE_FLOAT, "avg_gaze_x", "gaze", "display pixels",
      "gaze position, horizontal, mean over the event", kNotRecorded, offsetof(FEVENT, avg_gaze_x), 0},
     quantity,
     TRK_EVENT_AVERAGE_POSITION,
     kGazeOrRaw},
    {{TRK_EVENT_COLUMN_AVG_GAZE_Y, TRK_TYPE_FLOAT, "avg_gaze_y", "gaze", "display pixels",
      "gaze position, vertical, mean over the event", kNotRecorded, offsetof(FEVENT, avg_gaze_y), 0},
     quantity,
     TRK_EVENT_AVERAGE_POSITION,
     kGazeOrRaw},
    {{TRK_EVENT_COLUMN_START_HREF_X, TRK_TYPE_FLOAT, "start_href_x", "href", "HREF units",
      "head-referenced position, horizontal, at the start", kNotRecorded, offsetof(FEVENT, start_href_x), 0},
     quantity,
     TRK_EVENT_START_POSITION,
     TRK_EVENT_HREF},
    {{TRK_EVENT_COLUMN_START_HREF_Y, TRK_TYPE_FLOAT, "start_href_y", "href", "HREF units",
      "head-referenced position, vertical, at the start", kNotRecorded, offsetof(FEVENT, start_href_y), 0},
     quantity,
     TRK_EVENT_START_POSITION,
     TRK_EVENT_HREF},
    {{TRK_EVENT_COLUMN_END_HREF_X, TRK_TYPE_FLOAT, "end_href_x", "href", "HREF units",
      "head-referenced position, horizontal, at the end", kNotRecorded, offsetof(FEVENT, end_href_x), 0},
     quantity,
     TRK_EVENT_END_POSITION,
     TRK_EVENT_HREF},
    {{TRK_EVENT_COLUMN_END_HREF_Y, TRK_TYPE_FLOAT, "end_href_y", "href", "HREF units",
      "head-referenced position, vertical, at the end", kNotRecorded, offsetof(FEVENT, end_href_y), 0},
     quantity,
     TRK_EVENT_END_POSITION,
     TRK_EVENT_HREF},
    {{TRK_EVENT_COLUMN_AVG_HREF_X, TRK_TYPE_FLOAT, "avg_href_x", "href", "HREF units",
      "head-referenced position, horizontal, mean over the event", kNotRecorded, offsetof(FEVENT, avg_href_x), 0},
     quantity,
     TRK_EVENT_AVERAGE_POSITION,
     TRK_EVENT_HREF},
    {{TRK_EVENT_COLUMN_AVG_HREF_Y, TRK_TYPE_FLOAT, "avg_href_y", "href", "HREF units",
      "head-referenced position, vertical, mean over the event", kNotRecorded, offsetof(FEVENT, avg_href_y), 0},
     quantity,
     TRK_EVENT_AVERAGE_POSITION,
     TRK_EVENT_HREF},
    {{TRK_EVENT_COLUMN_START_PUPIL_SIZE, TRK_TYPE_FLOAT, "start_pupil_size", "pupil_size", "tracker units",
      "pupil size, area or diameter, at the start", kNotRecorded, offsetof(FEVENT, start_pupil_size), 0},
     quantity,
     TRK_EVENT_AT_START,
     TRK_EVENT_PUPIL_SIZE},
    {{TRK_EVENT_COLUMN_END_PUPIL_SIZE, TRK_TYPE_FLOAT, "end_pupil_size", "pupil_size", "tracker units",
      "pupil size, area or diameter, at the end", kNotRecorded, offsetof(FEVENT, end_pupil_size), 0},
     quantity,
     TRK_EVENT_AT_END,
     TRK_EVENT_PUPIL_SIZE},
    {{TRK_EVENT_COLUMN_AVG_PUPIL_SIZE, TRK_TYPE_FLOAT, "avg_pupil_size", "pupil_size", "tracker units",
      "pupil size, area or diameter, mean over the event", kNotRecorded, offsetof(FEVENT, avg_pupil_size), 0},
     quantity,
     TRK_EVENT_AT_AVERAGE,
     TRK_EVENT_PUPIL_SIZE},
    {{TRK_EVENT_COLUMN_START_VELOCITY, TRK_TYPE_FLOAT, "start_velocity", "velocity", "degrees per second",
      "velocity, at the start", kNotRecorded, offsetof(FEVENT, start_velocity), 0},
     quantity,
     TRK_EVENT_AT_START,
     TRK_EVENT_VELOCITY},
    {{TRK_EVENT_COLUMN_END_VELOCITY, TRK_TYPE_FLOAT, "end_velocity", "velocity", "degrees per second",
      "velocity, at the end", kNotRecorded, offsetof(FEVENT, end_velocity), 0},
     quantity,
     TRK_EVENT_AT_END,
     TRK_EVENT_VELOCITY},
    {{TRK_EVENT_COLUMN_AVG_VELOCITY, TRK_TYPE_FLOAT, "avg_velocity", "velocity", "degrees per second",
      "velocity, mean over the event", kNotRecorded, offsetof(FEVENT, avg_velocity), 0},
     quantity,
     TRK_EVENT_AT_AVERAGE,
     TRK_EVENT_VELOCITY},
    {{TRK_EVENT_COLUMN_PEAK_VELOCITY, TRK_TYPE_FLOAT, "peak_velocity", "velocity", "degrees per second",
      "velocity, highest", kNotRecorded, offsetof(FEVENT, peak_velocity), 0},
     quantity,
     TRK_EVENT_AT_AVERAGE,
     TRK_EVENT_VELOCITY},
    {{TRK_EVENT_COLUMN_START_RES_X, TRK_TYPE_FLOAT, "start_res_x", "resolution", "pixels per degree",
      "resolution, horizontal, at the start", kNotRecorded, offsetof(FEVENT, start_res_x), 0},
     quantity,
     TRK_EVENT_AT_START,
     TRK_EVENT_RESOLUTION},
    {{TRK_EVENT_COLUMN_START_RES_Y, TRK_TYPE_FLOAT, "start_res_y", "resolution", "pixels per degree",
      "resolution, vertical, at the start", kNotRecorded, offsetof(FEVENT, start_res_y), 0},
     quantity,
     TRK_EVENT_AT_START,
     TRK_EVENT_RESOLUTION},
    {{TRK_EVENT_COLUMN_END_RES_X, TRK_TYPE_FLOAT, "end_res_x", "resolution", "pixels per degree",
      "resolution, horizontal, at the end", kNotRecorded, offsetof(FEVENT, end_res_x), 0},
     quantity,
     TRK_EVENT_AT_END,
     TRK_EVENT_RESOLUTION},
    {{TRK_EVENT_COLUMN_END_RES_Y, TRK_TYPE_FLOAT, "end_res_y", "resolution", "pixels per degree",
      "resolution, vertical, at the end", kNotRecorded, offsetof(FEVENT, end_res_y), 0},
     quantity,
     TRK_EVENT_AT_END,
     TRK_EVENT_RESOLUTION},
    {{TRK_EVENT_COLUMN_STATUS, TRK_TYPE_UINT16, "status", "words", "", "status bits of the tracker", "",
      offsetof(FEVENT, status_word), 0},
     word},
    {{TRK_EVENT_COLUMN_AUX_WORD1, TRK_TYPE_UINT16, "aux_word1", "words", "", "first word of the event", "",
      offsetof(FEVENT, aux_word1), 0},
     word},
    {{TRK_EVENT_COLUMN_AUX_WORD2, TRK_TYPE_UINT16, "aux_word2", "words", "", "second word of the event", "",
      offsetof(FEVENT, aux_word2), 0},
     word},
    {{TRK_EVENT_COLUMN_READ_FLAGS, TRK_TYPE_UINT16, "read_flags", "words", "", "TRK_EVENT_* bits", "",
      offsetof(FEVENT, read_flags), 0},
     word},
    {{TRK_EVENT_COLUMN_PARSE_FLAGS, TRK_TYPE_UINT16, "parse_flags", "words", "", "low byte of the record's tag",
      "", offsetof(FEVENT, parse_flags), 0},
     word},
    {{TRK_EVENT_COLUMN_INPUT, TRK_TYPE_UINT16, "input", "words", "", "value of the digital input port",
      "not of an input event", offsetof(FEVENT, aux_word1), 0},
     input},
    {{TRK_EVENT_COLUMN_BUTTON, TRK_TYPE_UINT16, "button", "words", "", "number of the button of a button event",
      kNotOfButtons, offsetof(FEVENT, aux_word2), 0},
     ofButton},
    {{TRK_EVENT_COLUMN_BUTTON_VALUE, TRK_TYPE_UINT16, "button_value", "words", "",
      "state of all buttons behind a button event, bit n - 1 for button n", kNotOfButtons,
      offsetof(FEVENT, aux_word1), 0},
     ofButton},
    {{TRK_EVENT_COLUMN_BUTTON_STATE, TRK_TYPE_UINT8, "button_state", "words", "",
      "1 when the button was pressed, 0 when it was let go", kNotOfButtons, -1, 0},
     buttonState},
});

} // namespace

const EventColumn *eventColumnOf(int id) {
    return id >= 1 && static_cast<std::size_t>(id) <= kColumns.size() ? &kColumns[static_cast<std::size_t>(id) - 1]
                                                                      : nullptr;
}

} // namespace trk
