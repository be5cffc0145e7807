#include "item_columns.h"

#include "sample_reader.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <numbers>

namespace tables {

namespace {

Cell measurement(float value) { return value == MISSING_DATA || value == TRK_FIELD_ABSENT ? Cell() : Cell(value); }

// ---- Of any item ----

Cell kind(const ItemRow &row, int /*detail*/) { return row.item.name(); }
Cell time(const ItemRow &row, int /*detail*/) { return row.item.time(); }
Cell number(const ItemRow &row, int /*detail*/) { return row.item.isLogMessage() ? Cell() : Cell(row.number); }
Cell file(const ItemRow &row, int /*detail*/) { return row.file; }

Cell numberOrMissing(uint32_t number) { return number == 0 ? Cell() : Cell(number); }
Cell block(const ItemRow &row, int /*detail*/) { return numberOrMissing(row.places.blockOf(row.number)); }
Cell trial(const ItemRow &row, int /*detail*/) { return numberOrMissing(row.places.trialOf(row.number)); }

Cell trialTime(const ItemRow &row, int /*detail*/) {
    const uint32_t trial = row.places.trialOf(row.number);
    if (trial == 0) {
        return {};
    }
    return int64_t{row.item.time()} - row.places.trials()[trial - 1].header.start_time;
}

Cell eye(const ItemRow &row, int /*detail*/) {
    if (const FSAMPLE_REC *sample = row.item.sample()) {
        return eyeName(eyesOf(sample->flags));
    }
    if (const FRECORDING *recording = row.item.recording()) {
        return eyeName(recording->eye);
    }
    return row.item.isEyeEvent() ? Cell(eyeName(row.item.eye() == kLeft ? TRK_EYE_LEFT : TRK_EYE_RIGHT)) : Cell();
}

// ---- Samples ----

// The flag that tells that a record carries a word, or 0 for what is always there.
int flagOfWord(int column) {
    switch (column) {
    case TRK_COLUMN_INPUT:
        return TRK_SAMPLE_INPUT;
    case TRK_COLUMN_BUTTONS:
        return TRK_SAMPLE_BUTTONS;
    case TRK_COLUMN_STATUS:
        return TRK_SAMPLE_STATUS;
    default:
        return column >= TRK_COLUMN_EXT_TYPE && column <= TRK_COLUMN_EXT_DATA_8 ? TRK_SAMPLE_EXTENSION : 0;
    }
}

Cell wordOf(const FSAMPLE_REC &sample, int column, uint16_t word) {
    const int flag = flagOfWord(column);
    const bool isExtensionWord = column >= TRK_COLUMN_EXT_DATA_1 && column <= TRK_COLUMN_EXT_DATA_8;
    constexpr int kCountMask = 0x0F;
    if ((flag != 0 && (sample.flags & flag) == 0) || (word == TRK_WORD_ABSENT && !isExtensionWord && flag != 0) ||
        (isExtensionWord && column - TRK_COLUMN_EXT_DATA_1 >= (sample.ext_type & kCountMask))) {
        return {};
    }
    return word;
}

template <class Number> Number fieldAt(const FSAMPLE_REC &sample, int offset) {
    Number value;
    std::memcpy(&value, reinterpret_cast<const char *>(&sample) + offset, sizeof value);
    return value;
}

// Columns of the library, from the fields of the record that hold them: floats by their offset.
Cell floatOfSample(const ItemRow &row, int offset) {
    const FSAMPLE_REC *const sample = row.item.sample();
    return sample == nullptr ? Cell() : measurement(fieldAt<float>(*sample, offset));
}

// The library repeats the last pupil size in samples without one, and 0 stands for a pupil that was not found.
Cell pupilSizeOfSample(const ItemRow &row, int offset) {
    const FSAMPLE_REC *const sample = row.item.sample();
    if (sample == nullptr || (sample->flags & TRK_SAMPLE_PUPIL_SIZE) == 0) {
        return {};
    }
    const auto size = fieldAt<float>(*sample, offset);
    return size == 0 ? Cell() : measurement(size);
}

Cell wordOfSample(const ItemRow &row, int column) {
    const FSAMPLE_REC *const sample = row.item.sample();
    TRK_COLUMN_DESCRIPTION description;
    if (sample == nullptr || trk_describe_column(column, &description) != 0) {
        return {};
    }
    return wordOf(*sample, column, fieldAt<uint16_t>(*sample, description.record_offset));
}

// ---- Events ----

// The end of a blink, saccade or fixation whose start was never recorded can come with a start time past its end.
Cell startTime(const ItemRow &row, int /*detail*/) {
    const FEVENT *const event = row.item.event();
    const bool isKnown = event != nullptr && (event->end_time == 0 || event->start_time <= event->end_time);
    return isKnown ? Cell(event->start_time) : Cell();
}

Cell endTime(const ItemRow &row, int /*detail*/) {
    const FEVENT *const event = row.item.event();
    return event != nullptr && event->end_time != 0 ? Cell(event->end_time) : Cell();
}

// A value that is there when the record carried this part of the event (start, end, average) and this quantity.
// The flags do not tell a start time from the start of a quantity, nor average from peak velocity; a zero in a
// field for which they stand was not recorded.
template <auto Field, int Part, int Quantity> Cell ofEvent(const ItemRow &row, int /*detail*/) {
    constexpr bool kZeroIsMissing = (Part & (TRK_EVENT_AT_START | TRK_EVENT_AT_END | TRK_EVENT_AT_AVERAGE)) != 0;
    const FEVENT *const event = row.item.event();
    const bool carried = event != nullptr && !row.item.isBlockMark() && (event->read_flags & Part) != 0 &&
                         (event->read_flags & Quantity) != 0;
    return carried && !(kZeroIsMissing && event->*Field == 0) ? measurement(event->*Field) : Cell();
}

template <auto Field> Cell wordOfEvent(const ItemRow &row, int /*detail*/) {
    return row.item.event() == nullptr ? Cell() : Cell(row.item.event()->*Field);
}

Cell messageLength(const ItemRow &row, int /*detail*/) {
    const TRK_MESSAGE *const message = row.item.event()->message;
    return message == nullptr ? 0 : message->length;
}

Cell messageText(const ItemRow &row, int /*detail*/) {
    if (row.item.event() == nullptr || row.item.event()->message == nullptr) {
        return {};
    }
    return row.rows.keep(row.decoder.decode(row.item.messageText()));
}

// A button event's words: the state of all buttons behind it, a bit for each, and the number of the one.
const FEVENT *buttonOf(const ItemRow &row) { return row.item.code == REC_BUTTON ? row.item.event() : nullptr; }

Cell button(const ItemRow &row, int /*detail*/) {
    const FEVENT *const event = buttonOf(row);
    return event == nullptr ? Cell() : Cell(event->aux_word2);
}

Cell buttonValue(const ItemRow &row, int /*detail*/) {
    const FEVENT *const event = buttonOf(row);
    return event == nullptr ? Cell() : Cell(event->aux_word1);
}

Cell buttonState(const ItemRow &row, int /*detail*/) {
    constexpr unsigned kButtons = 16;
    const FEVENT *const event = buttonOf(row);
    if (event == nullptr || event->aux_word2 < 1 || event->aux_word2 > kButtons) {
        return {};
    }
    return event->aux_word1 >> (event->aux_word2 - 1U) & 1U;
}

// ---- Events as a whole ----

Cell wholeKind(const ItemRow &row, int /*detail*/) {
    const std::string_view name = row.item.wholeEyeEvent();
    return name.empty() ? row.item.name() : name;
}

Cell wholeEnd(const ItemRow &row, int /*detail*/) {
    return row.item.isEyeEvent() ? endTime(row, 0) : startTime(row, 0);
}

Cell duration(const ItemRow &row, int /*detail*/) {
    const Cell start = startTime(row, 0);
    const Cell end = wholeEnd(row, 0);
    return start.isMissing() || end.isMissing() ? Cell() : Cell(end.integer() - start.integer());
}

Cell startInTrial(const ItemRow &row, int /*detail*/) {
    const uint32_t trial = row.places.trialOf(row.number);
    const Cell start = startTime(row, 0);
    return trial == 0 || start.isMissing()
               ? Cell()
               : Cell(start.integer() - row.places.trials()[trial - 1].header.start_time);
}

// The angle between the directions of two positions on the HREF plane, degrees.
double angleBetween(const std::array<double, 2> &a, const std::array<double, 2> &b) {
    constexpr double kDistance = 15000; // of the plane
    constexpr double kDegrees = 180 / std::numbers::pi;
    const double cross = std::hypot(a[1] * kDistance - b[1] * kDistance, a[0] * kDistance - b[0] * kDistance,
                                    a[0] * b[1] - a[1] * b[0]);
    return std::atan2(cross, a[0] * b[0] + a[1] * b[1] + kDistance * kDistance) * kDegrees;
}

// From gaze and resolution; where these are not there, from the positions on the HREF plane.
template <class... Parts> bool areThere(const Parts &...cells) { return (!cells.isMissing() && ...); }

Cell amplitude(const ItemRow &row, int /*detail*/) {
    const Cell startX = ofEvent<&FEVENT::start_gaze_x, TRK_EVENT_START_POSITION, TRK_EVENT_GAZE>(row, 0);
    const Cell startY = ofEvent<&FEVENT::start_gaze_y, TRK_EVENT_START_POSITION, TRK_EVENT_GAZE>(row, 0);
    const Cell endX = ofEvent<&FEVENT::end_gaze_x, TRK_EVENT_END_POSITION, TRK_EVENT_GAZE>(row, 0);
    const Cell endY = ofEvent<&FEVENT::end_gaze_y, TRK_EVENT_END_POSITION, TRK_EVENT_GAZE>(row, 0);
    const Cell startResX = ofEvent<&FEVENT::start_res_x, TRK_EVENT_AT_START, TRK_EVENT_RESOLUTION>(row, 0);
    const Cell startResY = ofEvent<&FEVENT::start_res_y, TRK_EVENT_AT_START, TRK_EVENT_RESOLUTION>(row, 0);
    const Cell endResX = ofEvent<&FEVENT::end_res_x, TRK_EVENT_AT_END, TRK_EVENT_RESOLUTION>(row, 0);
    const Cell endResY = ofEvent<&FEVENT::end_res_y, TRK_EVENT_AT_END, TRK_EVENT_RESOLUTION>(row, 0);
    if (areThere(startX, startY, endX, endY, startResX, startResY, endResX, endResY)) {
        const double x = (endX.number() - startX.number()) * 2 / (startResX.number() + endResX.number());
        const double y = (endY.number() - startY.number()) * 2 / (startResY.number() + endResY.number());
        return static_cast<float>(std::hypot(x, y));
    }
    const Cell fromX = ofEvent<&FEVENT::start_href_x, TRK_EVENT_START_POSITION, TRK_EVENT_HREF>(row, 0);
    const Cell fromY = ofEvent<&FEVENT::start_href_y, TRK_EVENT_START_POSITION, TRK_EVENT_HREF>(row, 0);
    const Cell toX = ofEvent<&FEVENT::end_href_x, TRK_EVENT_END_POSITION, TRK_EVENT_HREF>(row, 0);
    const Cell toY = ofEvent<&FEVENT::end_href_y, TRK_EVENT_END_POSITION, TRK_EVENT_HREF>(row, 0);
    if (areThere(fromX, fromY, toX, toY)) {
        return static_cast<float>(angleBetween({fromX.number(), fromY.number()}, {toX.number(), toY.number()}));
    }
    return {};
}

// ---- Recording blocks ----

template <auto Field> Cell ofRecording(const ItemRow &row, int /*detail*/) { return row.item.recording()->*Field; }

Cell recordType(const ItemRow &row, int /*detail*/) { return recordTypeName(row.item.recording()->record_type); }

Cell gazeDivisor(const ItemRow &row, int /*detail*/) {
    const float divisor = row.item.recording()->gaze_prescaler;
    return divisor == 0 ? Cell() : measurement(divisor);
}

// ---- Several kinds ----

Cell input(const ItemRow &row, int /*detail*/) {
    return row.item.code == REC_INPUT ? Cell(row.item.event()->aux_word1) : wordOfSample(row, TRK_COLUMN_INPUT);
}

Cell sampleRate(const ItemRow &row, int /*detail*/) {
    if (const FRECORDING *recording = row.item.recording()) {
        return recording->sample_rate;
    }
    const bool isStart = row.item.code == REC_STARTSAMPLES || row.item.code == REC_STARTEVENTS;
    return isStart ? Cell(row.item.event()->avg_velocity) : Cell();
}

// ---- Descriptions ----

ItemColumn librarysColumn(int id) {
    TRK_COLUMN_DESCRIPTION description;
    trk_describe_column(id, &description);
    const Column column{description.name, description.unit, description.description, typeOf(description)};
    if (description.type == TRK_TYPE_UINT16) {
        return {column, wordOfSample, id};
    }
    const bool isPupilSize = id == TRK_COLUMN_PUPIL_SIZE_LEFT || id == TRK_COLUMN_PUPIL_SIZE_RIGHT;
    return {column, isPupilSize ? pupilSizeOfSample : floatOfSample, description.record_offset};
}

void append(std::vector<ItemColumn> &to, std::initializer_list<ItemColumn> columns) {
    to.insert(to.end(), columns.begin(), columns.end());
}

const ItemColumn kKind{{"kind", "", "what the item is", Type::Text}, kind};
const ItemColumn kTime{
    {"time", "ms", "when the item stands, on the tracker's clock; ends of eye events at their end", Type::Integer},
    time};
const ItemColumn kEye{{"eye", "", "left, right, both or none", Type::Text}, eye};
const ItemColumn kStart{{"start", "ms", "start of the event; missing when it is not known", Type::Integer},
                        startTime};
const ItemColumn kEnd{{"end", "ms", "end of the event", Type::Integer}, endTime};
const ItemColumn kText{{"text", "", "text of the message", Type::Text}, messageText};
const ItemColumn kRate{{"sample_rate", "Hz", "samples per second of the recording block", Type::Float},
                       sampleRate};
const ItemColumn kBlock{{"block", "", "number of the recording block, from 1", Type::Integer}, block};
const ItemColumn kTrial{{"trial", "", "number of the trial, from 1", Type::Integer}, trial};
const ItemColumn kTrialTime{{"trial_time", "ms", "time from the start of the trial", Type::Integer}, trialTime};
const ItemColumn kFile{{"file", "", "the recording", Type::Text}, file};
const ItemColumn kInput{{"input", "", "value of the digital input port", Type::Integer}, input};
const ItemColumn kStatus{{"status", "", "status bits of the tracker", Type::Integer},
                         wordOfEvent<&FEVENT::status_word>};

const ItemColumn kButton{{"button", "", "number of the button of a button event", Type::Integer}, button};
const ItemColumn kButtonValue{
    {"button_value", "", "state of all buttons behind a button event, bit n - 1 for button n", Type::Integer},
    buttonValue};
const ItemColumn kButtonState{
    {"button_state", "", "1 when the button was pressed, 0 when it was let go", Type::Integer}, buttonState};

constexpr int kGazeOrRaw = TRK_EVENT_GAZE | TRK_EVENT_RAW;

template <auto Field, int Part, int Quantity>
ItemColumn ofEventColumn(const char *name, const char *unit, const char *description) {
    return {{name, unit, description, Type::Float}, ofEvent<Field, Part, Quantity>};
}

// What an eye event says of itself.
std::vector<ItemColumn> eventValues() {
    return {
        ofEventColumn<&FEVENT::start_gaze_x, TRK_EVENT_START_POSITION, kGazeOrRaw>(
            "start_gaze_x", "display pixels", "gaze position, horizontal, at the start"),
        ofEventColumn<&FEVENT::start_gaze_y, TRK_EVENT_START_POSITION, kGazeOrRaw>(
            "start_gaze_y", "display pixels", "gaze position, vertical, at the start"),
        ofEventColumn<&FEVENT::end_gaze_x, TRK_EVENT_END_POSITION, kGazeOrRaw>(
            "end_gaze_x", "display pixels", "gaze position, horizontal, at the end"),
        ofEventColumn<&FEVENT::end_gaze_y, TRK_EVENT_END_POSITION, kGazeOrRaw>(
            "end_gaze_y", "display pixels", "gaze position, vertical, at the end"),
        ofEventColumn<&FEVENT::avg_gaze_x, TRK_EVENT_AVERAGE_POSITION, kGazeOrRaw>(
            "avg_gaze_x", "display pixels", "gaze position, horizontal, mean over the event"),
        ofEventColumn<&FEVENT::avg_gaze_y, TRK_EVENT_AVERAGE_POSITION, kGazeOrRaw>(
            "avg_gaze_y", "display pixels", "gaze position, vertical, mean over the event"),
        ofEventColumn<&FEVENT::start_href_x, TRK_EVENT_START_POSITION, TRK_EVENT_HREF>(
            "start_href_x", "HREF units", "head-referenced position, horizontal, at the start"),
        ofEventColumn<&FEVENT::start_href_y, TRK_EVENT_START_POSITION, TRK_EVENT_HREF>(
            "start_href_y", "HREF units", "head-referenced position, vertical, at the start"),
        ofEventColumn<&FEVENT::end_href_x, TRK_EVENT_END_POSITION, TRK_EVENT_HREF>(
            "end_href_x", "HREF units", "head-referenced position, horizontal, at the end"),
        ofEventColumn<&FEVENT::end_href_y, TRK_EVENT_END_POSITION, TRK_EVENT_HREF>(
            "end_href_y", "HREF units", "head-referenced position, vertical, at the end"),
        ofEventColumn<&FEVENT::avg_href_x, TRK_EVENT_AVERAGE_POSITION, TRK_EVENT_HREF>(
            "avg_href_x", "HREF units", "head-referenced position, horizontal, mean over the event"),
        ofEventColumn<&FEVENT::avg_href_y, TRK_EVENT_AVERAGE_POSITION, TRK_EVENT_HREF>(
            "avg_href_y", "HREF units", "head-referenced position, vertical, mean over the event"),
        ofEventColumn<&FEVENT::start_pupil_size, TRK_EVENT_AT_START, TRK_EVENT_PUPIL_SIZE>(
            "start_pupil_size", "tracker units", "pupil size, area or diameter, at the start"),
        ofEventColumn<&FEVENT::end_pupil_size, TRK_EVENT_AT_END, TRK_EVENT_PUPIL_SIZE>(
            "end_pupil_size", "tracker units", "pupil size, area or diameter, at the end"),
        ofEventColumn<&FEVENT::avg_pupil_size, TRK_EVENT_AT_AVERAGE, TRK_EVENT_PUPIL_SIZE>(
            "avg_pupil_size", "tracker units", "pupil size, area or diameter, mean over the event"),
        ofEventColumn<&FEVENT::start_velocity, TRK_EVENT_AT_START, TRK_EVENT_VELOCITY>(
            "start_velocity", "degrees per second", "velocity, at the start"),
        ofEventColumn<&FEVENT::end_velocity, TRK_EVENT_AT_END, TRK_EVENT_VELOCITY>(
            "end_velocity", "degrees per second", "velocity, at the end"),
        ofEventColumn<&FEVENT::avg_velocity, TRK_EVENT_AT_AVERAGE, TRK_EVENT_VELOCITY>(
            "avg_velocity", "degrees per second", "velocity, mean over the event"),
        ofEventColumn<&FEVENT::peak_velocity, TRK_EVENT_AT_AVERAGE, TRK_EVENT_VELOCITY>(
            "peak_velocity", "degrees per second", "velocity, highest"),
        ofEventColumn<&FEVENT::start_res_x, TRK_EVENT_AT_START, TRK_EVENT_RESOLUTION>(
            "start_res_x", "pixels per degree", "resolution, horizontal, at the start"),
        ofEventColumn<&FEVENT::start_res_y, TRK_EVENT_AT_START, TRK_EVENT_RESOLUTION>(
            "start_res_y", "pixels per degree", "resolution, vertical, at the start"),
        ofEventColumn<&FEVENT::end_res_x, TRK_EVENT_AT_END, TRK_EVENT_RESOLUTION>(
            "end_res_x", "pixels per degree", "resolution, horizontal, at the end"),
        ofEventColumn<&FEVENT::end_res_y, TRK_EVENT_AT_END, TRK_EVENT_RESOLUTION>(
            "end_res_y", "pixels per degree", "resolution, vertical, at the end"),
    };
}

const ItemColumn &named(const std::vector<ItemColumn> &columns, std::string_view name) {
    return *std::ranges::find(columns, name, [](const ItemColumn &column) { return column.column.name; });
}

std::vector<ItemColumn> severalKinds() {
    std::vector<ItemColumn> columns{kKind, kTime, kStart, kEnd, kEye};
    for (const int id : {TRK_COLUMN_GAZE_X_LEFT, TRK_COLUMN_GAZE_Y_LEFT, TRK_COLUMN_PUPIL_SIZE_LEFT,
                         TRK_COLUMN_GAZE_X_RIGHT, TRK_COLUMN_GAZE_Y_RIGHT, TRK_COLUMN_PUPIL_SIZE_RIGHT}) {
        columns.push_back(librarysColumn(id));
    }
    const std::vector<ItemColumn> values = eventValues();
    for (const char *name : {"start_gaze_x", "start_gaze_y", "end_gaze_x", "end_gaze_y", "avg_gaze_x",
                             "avg_gaze_y", "avg_pupil_size", "peak_velocity"}) {
        columns.push_back(named(values, name));
    }
    append(columns, {kInput, librarysColumn(TRK_COLUMN_BUTTONS), kRate, kText, kBlock, kTrial, kButton,
                     kButtonValue, kButtonState});
    return columns;
}

std::vector<ItemColumn> sampleColumns() {
    std::vector<ItemColumn> columns{kKind, kTime, kEye};
    TRK_COLUMN_DESCRIPTION description;
    for (int id = 1; trk_describe_column(id, &description) == 0; ++id) {
        if (description.record_offset >= 0 && id != TRK_COLUMN_TIME) {
            columns.push_back(librarysColumn(id));
        }
    }
    append(columns, {kBlock, kTrial});
    return columns;
}

std::vector<ItemColumn> eventColumns() {
    std::vector<ItemColumn> columns{kKind, kTime, kStart, kEnd, kEye};
    const std::vector<ItemColumn> values = eventValues();
    columns.insert(columns.end(), values.begin(), values.end());
    append(
        columns,
        {kStatus,
         {{"aux_word1", "", "first word of the event", Type::Integer}, wordOfEvent<&FEVENT::aux_word1>},
         {{"aux_word2", "", "second word of the event", Type::Integer}, wordOfEvent<&FEVENT::aux_word2>},
         {{"read_flags", "", "TRK_EVENT_* bits", Type::Integer}, wordOfEvent<&FEVENT::read_flags>},
         {{"parse_flags", "", "low byte of the record's tag", Type::Integer}, wordOfEvent<&FEVENT::parse_flags>},
         kBlock,
         kTrial,
         kInput,
         kButton,
         kButtonValue,
         kButtonState});
    return columns;
}

std::vector<ItemColumn> messageColumns() {
    return {kKind, kTime,  {{"length", "bytes", "length of the text", Type::Integer}, messageLength},
            kText, kBlock, kTrial};
}

std::vector<ItemColumn> recordingColumns() {
    return {
        kKind,
        kTime,
        kEye,
        kRate,
        {{"record_type", "", "what the block's records are", Type::Text}, recordType},
        {{"sample_content_flags", "", "TRK_SAMPLE_* bits of its samples", Type::Integer},
         ofRecording<&FRECORDING::sample_content_flags>},
        {{"event_content_flags", "", "content flags of its events", Type::Integer},
         ofRecording<&FRECORDING::event_content_flags>},
        {{"gaze_divisor", "", "divisor of stored gaze values", Type::Float}, gazeDivisor},
        {{"pupil_mode", "", "pupil sizes are 0 area, 1 diameter", Type::Integer},
         ofRecording<&FRECORDING::pupil_mode>},
        {{"recording_mode", "", "0 or 1", Type::Integer}, ofRecording<&FRECORDING::recording_mode>},
        {{"filter_level", "", "level of the tracker's filter", Type::Integer},
         ofRecording<&FRECORDING::filter_level>},
        {{"parse_flags", "", "low byte of the record's tag", Type::Integer}, ofRecording<&FRECORDING::pos_type>},
        {{"window_width", "camera pixels", "width of the camera window", Type::Integer},
         ofRecording<&FRECORDING::window_size1>},
        {{"window_height", "camera pixels", "height of the camera window", Type::Integer},
         ofRecording<&FRECORDING::window_size2>},
        {{"close_pair", "", "1 when less than 3 ms lie between this and another start or end", Type::Integer},
         ofRecording<&FRECORDING::close_pair>},
        kBlock,
        kTrial};
}

std::vector<ItemColumn> ofKinds(ItemKinds kinds) {
    switch (kinds) {
    case kSamples:
        return sampleColumns();
    case kEvents:
        return eventColumns();
    case kMessages:
        return messageColumns();
    case kRecordings:
        return recordingColumns();
    default:
        return severalKinds();
    }
}

} // namespace

ItemColumns::ItemColumns(const ColumnChoice &choice) : all(ofKinds(choice.kinds)) {
    const auto add = [this](const std::vector<ItemColumn> &more) {
        for (const ItemColumn &column : more) {
            const auto isSame = [&column](const ItemColumn &known) {
                return known.column.name == column.column.name;
            };
            if (std::ranges::none_of(all, isSame)) {
                all.push_back(column);
            }
        }
    };
    if (choice.file) {
        all.insert(all.begin(), kFile);
    }
    if (choice.raw) {
        add(rawColumns());
    }
    byDefault = all.size();
    add({{{"item", "", "number of the item, from 0", Type::Integer}, number}, kTrialTime, kFile});
    if (!std::has_single_bit(choice.kinds)) { // what any of them can say
        add(sampleColumns());
        add(eventValues());
    }
}

std::vector<ItemColumn> chooseColumns(const ColumnChoice &choice) {
    ItemColumns columns(choice);
    if (choice.text.empty()) {
        columns.all.resize(columns.byDefault);
        return columns.all;
    }
    std::vector<ItemColumn> chosen;
    for (const std::size_t place :
         selectColumns(columns.descriptions(), firstPlaces(columns.byDefault), choice.text)) {
        chosen.push_back(columns.all[place]);
    }
    return chosen;
}

std::vector<Column> ItemColumns::descriptions() const {
    std::vector<Column> list;
    for (const ItemColumn &column : all) {
        list.push_back(column.column);
    }
    return list;
}

void addRow(const std::vector<ItemColumn> &columns, const ItemRow &row) {
    for (std::size_t i = 0; Cell & cell : row.rows.add()) {
        const ItemColumn &column = columns[i++];
        cell = column.value(row, column.detail);
    }
}

bool isWholeEvent(const Item &item) {
    return !item.wholeEyeEvent().empty() || item.code == REC_BUTTON || item.code == REC_INPUT;
}

std::vector<ItemColumn> wholeEventColumns() {
    std::vector<ItemColumn> columns{
        {{"kind", "", "fixation, saccade, blink, button or input", Type::Text}, wholeKind},
        kEye,
        kBlock,
        {{"trial", "", "number of the trial, from 1, in which the event ends", Type::Integer}, trial},
        kStart,
        {{"end", "ms", "end of the event; its start for buttons and inputs", Type::Integer}, wholeEnd},
        {{"duration", "ms", "end minus start", Type::Integer}, duration},
        {{"amplitude", "degrees", "angle from the position at the start to that at the end", Type::Float},
         amplitude}};
    const std::vector<ItemColumn> values = eventValues();
    columns.insert(columns.end(), values.begin(), values.end());
    append(columns, {kInput,
                     kButton,
                     kButtonValue,
                     kButtonState,
                     {{"trial_time", "ms", "time from the start of the trial to that of the event", Type::Integer},
                      startInTrial}});
    return columns;
}

std::vector<ItemColumn> textColumns() { return {kTime, kBlock, kTrial, kTrialTime, kText}; }

} // namespace tables
