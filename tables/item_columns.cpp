#include "item_columns.h"

#include "library_columns.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <initializer_list>

namespace tables {

namespace {

Cell measurement(float value) { return value == MISSING_DATA || value == TRK_FIELD_ABSENT ? Cell() : Cell(value); }

// ---- Of any item ----

Cell kind(const ItemRow &row, int /*detail*/) { return nameOf(row.item); }
Cell time(const ItemRow &row, int /*detail*/) { return row.item.time(); }
Cell number(const ItemRow &row, int /*detail*/) {
    return row.item.isLogMessage() ? Cell() : Cell(row.item.number);
}
Cell file(const ItemRow &row, int /*detail*/) { return row.file; }

Cell numberOrMissing(uint32_t number) { return number == 0 ? Cell() : Cell(number); }
Cell block(const ItemRow &row, int /*detail*/) { return numberOrMissing(row.places.blockOf(row.item.number)); }
Cell trial(const ItemRow &row, int /*detail*/) { return numberOrMissing(row.places.trialOf(row.item.number)); }

Cell trialTime(const ItemRow &row, int /*detail*/) {
    const uint32_t trial = row.places.trialOf(row.item.number);
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
    return isEyeEvent(row.item) ? Cell(eyeName(eyeOf(row.item) == kLeft ? TRK_EYE_LEFT : TRK_EYE_RIGHT)) : Cell();
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

Cell ofEvent(const ItemRow &row, int column) {
    double value = 0;
    TRK_COLUMN_DESCRIPTION description;
    if (row.item.event() == nullptr || trk_get_event_column(row.item.event(), 1, column, &value) != 0 ||
        trk_describe_event_column(column, &description) != 0) {
        return {};
    }
    return cellOf(value, typeOf(description));
}

Cell messageLength(const ItemRow &row, int /*detail*/) {
    const TRK_MESSAGE *const message = row.item.event()->message;
    return message == nullptr ? 0 : message->length;
}

Cell messageText(const ItemRow &row, int /*detail*/) {
    if (row.item.event() == nullptr || row.item.event()->message == nullptr) {
        return {};
    }
    return row.rows.keep(row.decoder.decode(row.item.text()));
}

// ---- Events as a whole ----

Cell wholeKind(const ItemRow &row, int /*detail*/) {
    const std::string_view name = wholeEyeEvent(row.item);
    return name.empty() ? nameOf(row.item) : name;
}

Cell startOf(const ItemRow &row) { return ofEvent(row, TRK_EVENT_COLUMN_START); }

Cell wholeEnd(const ItemRow &row, int /*detail*/) {
    return isEyeEvent(row.item) ? ofEvent(row, TRK_EVENT_COLUMN_END) : startOf(row);
}

Cell duration(const ItemRow &row, int /*detail*/) {
    const Cell start = startOf(row);
    const Cell end = wholeEnd(row, 0);
    return start.isMissing() || end.isMissing() ? Cell() : Cell(end.integer() - start.integer());
}

Cell startInTrial(const ItemRow &row, int /*detail*/) {
    const uint32_t trial = row.places.trialOf(row.item.number);
    const Cell start = startOf(row);
    return trial == 0 || start.isMissing()
               ? Cell()
               : Cell(start.integer() - row.places.trials()[trial - 1].header.start_time);
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
    return row.item.code == REC_INPUT ? ofEvent(row, TRK_EVENT_COLUMN_INPUT) : wordOfSample(row, TRK_COLUMN_INPUT);
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

ItemColumn eventColumn(int id) {
    TRK_COLUMN_DESCRIPTION description;
    trk_describe_event_column(id, &description);
    return {{description.name, description.unit, description.description, typeOf(description)}, ofEvent, id};
}

void append(std::vector<ItemColumn> &to, std::initializer_list<ItemColumn> columns) {
    to.insert(to.end(), columns.begin(), columns.end());
}

const ItemColumn kKind{{"kind", "", "what the item is", Type::Text}, kind};
const ItemColumn kTime{
    {"time", "ms", "when the item stands, on the tracker's clock; ends of eye events at their end", Type::Integer},
    time};
const ItemColumn kEye{{"eye", "", "left, right, both or none", Type::Text}, eye};
const ItemColumn kStart = eventColumn(TRK_EVENT_COLUMN_START);
const ItemColumn kEnd = eventColumn(TRK_EVENT_COLUMN_END);
const ItemColumn kText{{"text", "", "text of the message", Type::Text}, messageText};
const ItemColumn kRate{{"sample_rate", "Hz", "samples per second of the recording block", Type::Float},
                       sampleRate};
const ItemColumn kBlock{{"block", "", "number of the recording block, from 1", Type::Integer}, block};
const ItemColumn kTrial{{"trial", "", "number of the trial, from 1", Type::Integer}, trial};
const ItemColumn kTrialTime{{"trial_time", "ms", "time from the start of the trial", Type::Integer}, trialTime};
const ItemColumn kFile{{"file", "", "the recording", Type::Text}, file};
const ItemColumn kInput{{"input", "", "value of the digital input port", Type::Integer}, input};
const ItemColumn kButton = eventColumn(TRK_EVENT_COLUMN_BUTTON);
const ItemColumn kButtonValue = eventColumn(TRK_EVENT_COLUMN_BUTTON_VALUE);
const ItemColumn kButtonState = eventColumn(TRK_EVENT_COLUMN_BUTTON_STATE);

// What an eye event says of itself.
std::vector<ItemColumn> eventValues() {
    std::vector<ItemColumn> columns;
    for (int id = TRK_EVENT_COLUMN_START_GAZE_X; id <= TRK_EVENT_COLUMN_END_RES_Y; ++id) {
        columns.push_back(eventColumn(id));
    }
    return columns;
}

std::vector<ItemColumn> severalKinds() {
    std::vector<ItemColumn> columns{kKind, kTime, kStart, kEnd, kEye};
    for (const int id : {TRK_COLUMN_GAZE_X_LEFT, TRK_COLUMN_GAZE_Y_LEFT, TRK_COLUMN_PUPIL_SIZE_LEFT,
                         TRK_COLUMN_GAZE_X_RIGHT, TRK_COLUMN_GAZE_Y_RIGHT, TRK_COLUMN_PUPIL_SIZE_RIGHT}) {
        columns.push_back(librarysColumn(id));
    }
    for (const int id : {TRK_EVENT_COLUMN_START_GAZE_X, TRK_EVENT_COLUMN_START_GAZE_Y, TRK_EVENT_COLUMN_END_GAZE_X,
                         TRK_EVENT_COLUMN_END_GAZE_Y, TRK_EVENT_COLUMN_AVG_GAZE_X, TRK_EVENT_COLUMN_AVG_GAZE_Y,
                         TRK_EVENT_COLUMN_AVG_PUPIL_SIZE, TRK_EVENT_COLUMN_PEAK_VELOCITY}) {
        columns.push_back(eventColumn(id));
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
    for (int id = TRK_EVENT_COLUMN_STATUS; id <= TRK_EVENT_COLUMN_PARSE_FLAGS; ++id) {
        columns.push_back(eventColumn(id));
    }
    append(columns, {kBlock, kTrial, kInput, kButton, kButtonValue, kButtonState});
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
    case kBlocks:
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
    return !wholeEyeEvent(item).empty() || item.code == REC_BUTTON || item.code == REC_INPUT;
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
        eventColumn(TRK_EVENT_COLUMN_AMPLITUDE)};
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
