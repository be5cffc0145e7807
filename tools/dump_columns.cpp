#include "dump_columns.h"

#include <algorithm>
#include <array>

namespace tool {

namespace {

void missing(TextOutput &out) { out.text(kMissing); }

void measurement(TextOutput &out, float value) {
    if (value == MISSING_DATA || value == TRK_FIELD_ABSENT) {
        missing(out);
    } else {
        out.number(value);
    }
}

void kind(TextOutput &out, const Item &item) { out.text(item.name()); }

void time(TextOutput &out, const Item &item) { out.number(item.time()); }

void eye(TextOutput &out, const Item &item) {
    if (const FSAMPLE_REC *sample = item.sample()) {
        out.text(eyeName(eyesOf(sample->flags)));
    } else if (const FRECORDING *recording = item.recording()) {
        out.text(eyeName(recording->eye));
    } else if (item.isEyeEvent()) {
        out.text(item.event()->eye == 0 ? "left" : "right");
    } else {
        missing(out);
    }
}

// ---- Samples ----

template <auto Field, Eye Side> void ofEye(TextOutput &out, const Item &item) {
    const FSAMPLE_REC *sample = item.sample();
    measurement(out, sample == nullptr ? MISSING_DATA : (sample->*Field)[Side]);
}

// The library repeats the last pupil size in samples without one; here only what was measured counts.
template <Eye Side> void pupilSize(TextOutput &out, const Item &item) {
    const FSAMPLE_REC *sample = item.sample();
    const bool measured = sample != nullptr && (sample->flags & TRK_SAMPLE_PUPIL_SIZE) != 0;
    measurement(out, measured ? sample->pupil_size[Side] : MISSING_DATA);
}

template <auto Field> void ofSample(TextOutput &out, const Item &item) { measurement(out, item.sample()->*Field); }

template <auto Field, int Flag> void wordOfSample(TextOutput &out, const Item &item) {
    const FSAMPLE_REC *sample = item.sample();
    if (sample != nullptr && (sample->flags & Flag) != 0 && sample->*Field != TRK_WORD_ABSENT) {
        out.number(sample->*Field);
    } else {
        missing(out);
    }
}

void sampleFlags(TextOutput &out, const Item &item) { out.flagWord(item.sample()->flags); }

void extensionWords(TextOutput &out, const Item &item) {
    constexpr unsigned kCountMask = 0x0F;
    const FSAMPLE_REC &sample = *item.sample();
    const bool carried = (sample.flags & TRK_SAMPLE_EXTENSION) != 0;
    const std::size_t count = carried ? std::min<std::size_t>(sample.ext_type & kCountMask, 8) : 0;
    if (count == 0) {
        missing(out);
    }
    for (std::size_t i = 0; i < count; ++i) {
        out.text(i == 0 ? "" : ",");
        out.number(sample.ext_data[i]);
    }
}

// ---- Events ----

// The end of a blink, saccade or fixation whose start was never recorded can come with a start time past its end.
void startTime(TextOutput &out, const Item &item) {
    const FEVENT *event = item.event();
    if (event != nullptr && (event->end_time == 0 || event->start_time <= event->end_time)) {
        out.number(event->start_time);
    } else {
        missing(out);
    }
}

void endTime(TextOutput &out, const Item &item) {
    const FEVENT *event = item.event();
    if (event != nullptr && event->end_time != 0) {
        out.number(event->end_time);
    } else {
        missing(out);
    }
}

// A value that is there when the record carried this part of the event (start, end, average) and this quantity.
// The flags do not tell a start time from the start of a quantity, nor average from peak velocity; a zero in a
// field for which they stand was not recorded.
template <auto Field, int Part, int Quantity> void ofEvent(TextOutput &out, const Item &item) {
    constexpr bool kZeroIsMissing = (Part & (TRK_EVENT_AT_START | TRK_EVENT_AT_END | TRK_EVENT_AT_AVERAGE)) != 0;
    const FEVENT *event = item.event();
    const bool carried = event != nullptr && !item.isBlockMark() && (event->read_flags & Part) != 0 &&
                         (event->read_flags & Quantity) != 0;
    if (carried && !(kZeroIsMissing && event->*Field == 0)) {
        measurement(out, event->*Field);
    } else {
        missing(out);
    }
}

template <auto Field> void wordOfEvent(TextOutput &out, const Item &item) { out.number(item.event()->*Field); }

template <auto Field> void flagsOfEvent(TextOutput &out, const Item &item) { out.flagWord(item.event()->*Field); }

void messageLength(TextOutput &out, const Item &item) {
    const TRK_MESSAGE *message = item.event()->message;
    out.number(message == nullptr ? 0 : message->length);
}

void messageText(TextOutput &out, const Item &item) {
    const TRK_MESSAGE *message = item.event() == nullptr ? nullptr : item.event()->message;
    if (message == nullptr) {
        missing(out);
        return;
    }
    const std::string_view text(message->text, std::min<std::size_t>(message->length, sizeof message->text));
    // A text that looks like the mark of a missing one.
    out.text(text == kMissing ? "\\x2e" : escaped(text));
}

// ---- Recording blocks ----

template <auto Field> void ofRecording(TextOutput &out, const Item &item) { out.number(item.recording()->*Field); }

template <auto Field> void flagsOfRecording(TextOutput &out, const Item &item) {
    out.flagWord(item.recording()->*Field);
}

template <auto Field> void byteOfRecording(TextOutput &out, const Item &item) {
    out.number(static_cast<unsigned>(item.recording()->*Field));
}

void recordType(TextOutput &out, const Item &item) { out.text(recordTypeName(item.recording()->record_type)); }

void gazeDivisor(TextOutput &out, const Item &item) {
    const float divisor = item.recording()->gaze_prescaler;
    measurement(out, divisor == 0 ? MISSING_DATA : divisor);
}

// ---- Several kinds ----

void input(TextOutput &out, const Item &item) {
    if (item.code == REC_INPUT) {
        out.number(item.event()->aux_word1);
    } else {
        wordOfSample<&FSAMPLE_REC::input, TRK_SAMPLE_INPUT>(out, item);
    }
}

void sampleRate(TextOutput &out, const Item &item) {
    if (const FRECORDING *recording = item.recording()) {
        out.number(recording->sample_rate);
    } else if (item.code == REC_STARTSAMPLES || item.code == REC_STARTEVENTS) {
        out.number(item.event()->avg_velocity);
    } else {
        missing(out);
    }
}

constexpr int kGazeOrRaw = TRK_EVENT_GAZE | TRK_EVENT_RAW;

constexpr auto kSeveralKinds = std::to_array<Column>({
    {"kind", kind},
    {"time", time},
    {"start", startTime},
    {"end", endTime},
    {"eye", eye},
    {"gaze_x_left", ofEye<&FSAMPLE_REC::gaze_x, kLeft>},
    {"gaze_y_left", ofEye<&FSAMPLE_REC::gaze_y, kLeft>},
    {"pupil_size_left", pupilSize<kLeft>},
    {"gaze_x_right", ofEye<&FSAMPLE_REC::gaze_x, kRight>},
    {"gaze_y_right", ofEye<&FSAMPLE_REC::gaze_y, kRight>},
    {"pupil_size_right", pupilSize<kRight>},
    {"start_gaze_x", ofEvent<&FEVENT::start_gaze_x, TRK_EVENT_START_POSITION, kGazeOrRaw>},
    {"start_gaze_y", ofEvent<&FEVENT::start_gaze_y, TRK_EVENT_START_POSITION, kGazeOrRaw>},
    {"end_gaze_x", ofEvent<&FEVENT::end_gaze_x, TRK_EVENT_END_POSITION, kGazeOrRaw>},
    {"end_gaze_y", ofEvent<&FEVENT::end_gaze_y, TRK_EVENT_END_POSITION, kGazeOrRaw>},
    {"avg_gaze_x", ofEvent<&FEVENT::avg_gaze_x, TRK_EVENT_AVERAGE_POSITION, kGazeOrRaw>},
    {"avg_gaze_y", ofEvent<&FEVENT::avg_gaze_y, TRK_EVENT_AVERAGE_POSITION, kGazeOrRaw>},
    {"avg_pupil_size", ofEvent<&FEVENT::avg_pupil_size, TRK_EVENT_AT_AVERAGE, TRK_EVENT_PUPIL_SIZE>},
    {"peak_velocity", ofEvent<&FEVENT::peak_velocity, TRK_EVENT_AT_AVERAGE, TRK_EVENT_VELOCITY>},
    {"input", input},
    {"buttons", wordOfSample<&FSAMPLE_REC::buttons, TRK_SAMPLE_BUTTONS>},
    {"sample_rate", sampleRate},
    {"text", messageText},
});

constexpr auto kSampleColumns = std::to_array<Column>({
    {"kind", kind},
    {"time", time},
    {"eye", eye},
    {"flags", sampleFlags},
    {"gaze_x_left", ofEye<&FSAMPLE_REC::gaze_x, kLeft>},
    {"gaze_y_left", ofEye<&FSAMPLE_REC::gaze_y, kLeft>},
    {"gaze_x_right", ofEye<&FSAMPLE_REC::gaze_x, kRight>},
    {"gaze_y_right", ofEye<&FSAMPLE_REC::gaze_y, kRight>},
    {"pupil_size_left", pupilSize<kLeft>},
    {"pupil_size_right", pupilSize<kRight>},
    {"href_x_left", ofEye<&FSAMPLE_REC::href_x, kLeft>},
    {"href_y_left", ofEye<&FSAMPLE_REC::href_y, kLeft>},
    {"href_x_right", ofEye<&FSAMPLE_REC::href_x, kRight>},
    {"href_y_right", ofEye<&FSAMPLE_REC::href_y, kRight>},
    {"pupil_x_left", ofEye<&FSAMPLE_REC::pupil_x, kLeft>},
    {"pupil_y_left", ofEye<&FSAMPLE_REC::pupil_y, kLeft>},
    {"pupil_x_right", ofEye<&FSAMPLE_REC::pupil_x, kRight>},
    {"pupil_y_right", ofEye<&FSAMPLE_REC::pupil_y, kRight>},
    {"res_x", ofSample<&FSAMPLE_REC::res_x>},
    {"res_y", ofSample<&FSAMPLE_REC::res_y>},
    {"gaze_vel_x_left", ofEye<&FSAMPLE_REC::gaze_vel_x, kLeft>},
    {"gaze_vel_y_left", ofEye<&FSAMPLE_REC::gaze_vel_y, kLeft>},
    {"gaze_vel_x_right", ofEye<&FSAMPLE_REC::gaze_vel_x, kRight>},
    {"gaze_vel_y_right", ofEye<&FSAMPLE_REC::gaze_vel_y, kRight>},
    {"href_vel_x_left", ofEye<&FSAMPLE_REC::href_vel_x, kLeft>},
    {"href_vel_y_left", ofEye<&FSAMPLE_REC::href_vel_y, kLeft>},
    {"href_vel_x_right", ofEye<&FSAMPLE_REC::href_vel_x, kRight>},
    {"href_vel_y_right", ofEye<&FSAMPLE_REC::href_vel_y, kRight>},
    {"pupil_vel_x_left", ofEye<&FSAMPLE_REC::pupil_vel_x, kLeft>},
    {"pupil_vel_y_left", ofEye<&FSAMPLE_REC::pupil_vel_y, kLeft>},
    {"pupil_vel_x_right", ofEye<&FSAMPLE_REC::pupil_vel_x, kRight>},
    {"pupil_vel_y_right", ofEye<&FSAMPLE_REC::pupil_vel_y, kRight>},
    {"gaze_fvel_x_left", ofEye<&FSAMPLE_REC::gaze_fvel_x, kLeft>},
    {"gaze_fvel_y_left", ofEye<&FSAMPLE_REC::gaze_fvel_y, kLeft>},
    {"gaze_fvel_x_right", ofEye<&FSAMPLE_REC::gaze_fvel_x, kRight>},
    {"gaze_fvel_y_right", ofEye<&FSAMPLE_REC::gaze_fvel_y, kRight>},
    {"href_fvel_x_left", ofEye<&FSAMPLE_REC::href_fvel_x, kLeft>},
    {"href_fvel_y_left", ofEye<&FSAMPLE_REC::href_fvel_y, kLeft>},
    {"href_fvel_x_right", ofEye<&FSAMPLE_REC::href_fvel_x, kRight>},
    {"href_fvel_y_right", ofEye<&FSAMPLE_REC::href_fvel_y, kRight>},
    {"pupil_fvel_x_left", ofEye<&FSAMPLE_REC::pupil_fvel_x, kLeft>},
    {"pupil_fvel_y_left", ofEye<&FSAMPLE_REC::pupil_fvel_y, kLeft>},
    {"pupil_fvel_x_right", ofEye<&FSAMPLE_REC::pupil_fvel_x, kRight>},
    {"pupil_fvel_y_right", ofEye<&FSAMPLE_REC::pupil_fvel_y, kRight>},
    {"input", input},
    {"buttons", wordOfSample<&FSAMPLE_REC::buttons, TRK_SAMPLE_BUTTONS>},
    {"status", wordOfSample<&FSAMPLE_REC::status, TRK_SAMPLE_STATUS>},
    {"ext_type", wordOfSample<&FSAMPLE_REC::ext_type, TRK_SAMPLE_EXTENSION>},
    {"ext_data", extensionWords},
});

constexpr auto kEventColumns = std::to_array<Column>({
    {"kind", kind},
    {"time", time},
    {"start", startTime},
    {"end", endTime},
    {"eye", eye},
    {"start_gaze_x", ofEvent<&FEVENT::start_gaze_x, TRK_EVENT_START_POSITION, kGazeOrRaw>},
    {"start_gaze_y", ofEvent<&FEVENT::start_gaze_y, TRK_EVENT_START_POSITION, kGazeOrRaw>},
    {"end_gaze_x", ofEvent<&FEVENT::end_gaze_x, TRK_EVENT_END_POSITION, kGazeOrRaw>},
    {"end_gaze_y", ofEvent<&FEVENT::end_gaze_y, TRK_EVENT_END_POSITION, kGazeOrRaw>},
    {"avg_gaze_x", ofEvent<&FEVENT::avg_gaze_x, TRK_EVENT_AVERAGE_POSITION, kGazeOrRaw>},
    {"avg_gaze_y", ofEvent<&FEVENT::avg_gaze_y, TRK_EVENT_AVERAGE_POSITION, kGazeOrRaw>},
    {"start_href_x", ofEvent<&FEVENT::start_href_x, TRK_EVENT_START_POSITION, TRK_EVENT_HREF>},
    {"start_href_y", ofEvent<&FEVENT::start_href_y, TRK_EVENT_START_POSITION, TRK_EVENT_HREF>},
    {"end_href_x", ofEvent<&FEVENT::end_href_x, TRK_EVENT_END_POSITION, TRK_EVENT_HREF>},
    {"end_href_y", ofEvent<&FEVENT::end_href_y, TRK_EVENT_END_POSITION, TRK_EVENT_HREF>},
    {"avg_href_x", ofEvent<&FEVENT::avg_href_x, TRK_EVENT_AVERAGE_POSITION, TRK_EVENT_HREF>},
    {"avg_href_y", ofEvent<&FEVENT::avg_href_y, TRK_EVENT_AVERAGE_POSITION, TRK_EVENT_HREF>},
    {"start_pupil_size", ofEvent<&FEVENT::start_pupil_size, TRK_EVENT_AT_START, TRK_EVENT_PUPIL_SIZE>},
    {"end_pupil_size", ofEvent<&FEVENT::end_pupil_size, TRK_EVENT_AT_END, TRK_EVENT_PUPIL_SIZE>},
    {"avg_pupil_size", ofEvent<&FEVENT::avg_pupil_size, TRK_EVENT_AT_AVERAGE, TRK_EVENT_PUPIL_SIZE>},
    {"start_velocity", ofEvent<&FEVENT::start_velocity, TRK_EVENT_AT_START, TRK_EVENT_VELOCITY>},
    {"end_velocity", ofEvent<&FEVENT::end_velocity, TRK_EVENT_AT_END, TRK_EVENT_VELOCITY>},
    {"avg_velocity", ofEvent<&FEVENT::avg_velocity, TRK_EVENT_AT_AVERAGE, TRK_EVENT_VELOCITY>},
    {"peak_velocity", ofEvent<&FEVENT::peak_velocity, TRK_EVENT_AT_AVERAGE, TRK_EVENT_VELOCITY>},
    {"start_res_x", ofEvent<&FEVENT::start_res_x, TRK_EVENT_AT_START, TRK_EVENT_RESOLUTION>},
    {"start_res_y", ofEvent<&FEVENT::start_res_y, TRK_EVENT_AT_START, TRK_EVENT_RESOLUTION>},
    {"end_res_x", ofEvent<&FEVENT::end_res_x, TRK_EVENT_AT_END, TRK_EVENT_RESOLUTION>},
    {"end_res_y", ofEvent<&FEVENT::end_res_y, TRK_EVENT_AT_END, TRK_EVENT_RESOLUTION>},
    {"status", wordOfEvent<&FEVENT::status_word>},
    {"aux_word1", wordOfEvent<&FEVENT::aux_word1>},
    {"aux_word2", wordOfEvent<&FEVENT::aux_word2>},
    {"read_flags", flagsOfEvent<&FEVENT::read_flags>},
    {"parse_flags", flagsOfEvent<&FEVENT::parse_flags>},
});

constexpr auto kMessageColumns = std::to_array<Column>({
    {"kind", kind},
    {"time", time},
    {"length", messageLength},
    {"text", messageText},
});

constexpr auto kRecordingColumns = std::to_array<Column>({
    {"kind", kind},
    {"time", time},
    {"eye", eye},
    {"sample_rate", sampleRate},
    {"record_type", recordType},
    {"sample_content_flags", flagsOfRecording<&FRECORDING::sample_content_flags>},
    {"event_content_flags", flagsOfRecording<&FRECORDING::event_content_flags>},
    {"gaze_divisor", gazeDivisor},
    {"pupil_mode", byteOfRecording<&FRECORDING::pupil_mode>},
    {"recording_mode", byteOfRecording<&FRECORDING::recording_mode>},
    {"filter_level", byteOfRecording<&FRECORDING::filter_level>},
    {"parse_flags", byteOfRecording<&FRECORDING::pos_type>},
    {"window_width", ofRecording<&FRECORDING::window_size1>},
    {"window_height", ofRecording<&FRECORDING::window_size2>},
    {"close_pair", byteOfRecording<&FRECORDING::close_pair>},
});

} // namespace

std::span<const Column> columnsFor(ItemKinds kinds) {
    switch (kinds) {
    case kSamples:
        return kSampleColumns;
    case kEvents:
        return kEventColumns;
    case kMessages:
        return kMessageColumns;
    case kRecordings:
        return kRecordingColumns;
    default:
        return kSeveralKinds;
    }
}

} // namespace tool
