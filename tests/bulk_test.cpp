// Many samples or events a call: the values of a whole walk, whatever the stretch.
#include "support/bulk.h"
#include "support/scenarios.h"

#include <array>
#include <cctype>
#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <sstream>
#include <tuple>

namespace {

using namespace trk_test;

constexpr int kBoth = TRK_OPEN_CHECK_AND_FILL;

// Reads some stretches of a recording while a walk goes on, which must not notice.
void compareStretches(const Bytes &file, const OpenOptions &options, std::mt19937 &random, int stretches) {
    const Recording whole = openBytes(file, options);
    const Recording recording = openBytes(file, options);
    if (!whole) {
        return;
    }
    const std::vector<Item> items = whole.walk();
    const auto below = [&random](size_t limit) { return static_cast<unsigned>(random() % (limit + 1)); };
    std::vector<Item> walked;
    for (int i = 0; i < stretches; ++i) {
        const unsigned first = below(items.size());
        const unsigned end =
            first + below(i % 2 == 0 ? items.size() - first : std::min<size_t>(items.size() - first, 40));
        BulkComparison comparison(recording.handle(), items, below(2) != 0, 1 + below(i % 3 == 0 ? 9 : 2000));
        ASSERT_EQ(comparison.difference(first, end), "") << "of [" << first << ", " << end << ")";
        for (unsigned steps = below(300); steps > 0 && walked.size() < items.size(); --steps) {
            walked.push_back(recording.fetch(recording.step()));
            ASSERT_EQ(walked.back(), items[walked.size() - 1]) << "item " << walked.size() - 1;
        }
    }
}

// A block of some length, at times without an end, with samples that lack something. Returns when the next one is
// to start, at times close by.
uint32_t addBlock(RecordingWriter &writer, uint32_t start, unsigned rate, std::mt19937 &random) {
    const auto oneOf = [&random](std::initializer_list<unsigned> values) {
        return values.begin()[random() % values.size()];
    };
    const unsigned length = oneOf({1, 3, 40, 600, 700});
    const unsigned lost = oneOf({0, 211});
    const auto timeOf = [&](unsigned i) { return start + i * 1000 / rate; };
    writer.startBlock({.time = start, .rate = rate, .gazeDivisor = static_cast<int>(oneOf({10, 11, 12}))});
    for (unsigned i = 0; i < length; ++i) {
        const int noise = static_cast<int>(random() % 400);
        SampleRecord sample{.time = timeOf(i), .eyes = i % 97 == 3 ? LeftEye : BothEyes};
        sample.href = EyePositions{Position{noise, 2 * noise}, Position{-noise, noise}};
        sample.gaze =
            EyePositions{Position{i % 50 == 7 ? kMissingWord : 3 * noise, noise}, Position{noise, 5 * noise}};
        sample.resolution = Position{260 + noise, 270};
        if (i % 31 != 0) {
            sample.pupilSize = EyeWords{i % 41 == 0 ? 3 : 900 + noise, 1000};
        }
        if (lost == 0 || i % lost != 5) {
            writer.sample(sample);
        }
        if (i % 90 == 0) {
            writer.message(timeOf(i), "m" + std::to_string(i));
            writer.event(EventRecord(REC_SFIX, LeftEye).startTime(timeOf(i)));
        }
    }
    if (oneOf({0, 1, 1}) != 0) {
        writer.endBlock(timeOf(length));
    }
    return timeOf(length) + oneOf({0, 1, 2, 20, 1000});
}

TEST(Bulk, ReadsWhatAWholeWalkFetches) {
    std::mt19937 random(1);
    CONFIG fixed{30, 31};
    for (const int rate : {250, 500, 1000, 2000}) {
        for (const int flags : {int{TRK_OPEN_NO_CHECK}, int{TRK_OPEN_CHECK}, kBoth}) {
            const Bytes file =
                experiment({.durationMs = 8000, .sampleRate = rate, .cameraData = rate == 500}).file;
            compareStretches(file, {.flags = flags, .config = rate == 250 ? &fixed : nullptr}, random, 8);
        }
    }
    // Models that velocities are computed otherwise for, odd rates, blocks that lack something.
    const LogCapture quiet;
    for (const char *const model : {"I", "V2", "LX", "I", "LX", "LX"}) {
        for (const unsigned rate : {1000U, 600U, 2000U, 500U, 100U}) {
            RecordingWriter writer(preamble(5, model));
            uint32_t start = 1000;
            for (int block = 0; block < 9; ++block) {
                start = addBlock(writer, start, rate, random);
            }
            writer.end();
            for (const int flags : {int{TRK_OPEN_CHECK}, kBoth}) {
                compareStretches(writer.plain(), {.flags = flags, .config = rate == 600 ? &fixed : nullptr},
                                 random, 8);
            }
        }
    }
}

// Short recordings in which much is odd.
std::vector<std::pair<std::string, Bytes>> oddRecordings() {
    std::vector<std::pair<std::string, Bytes>> all{{"nothing", RecordingWriter().end().plain()}};
    for (const uint32_t start : {1000U, 400000000U}) { // times of the later one are moved
        RecordingWriter blocks;
        for (uint32_t i = 0; i < 3; ++i) {
            blocks.message(start + 100 * i - 1, i == 1 ? "" : "5 before").startBlock({.time = start + 100 * i});
            blocks.message(start + 100 * i + 9, {"\0a\0", 3}).endBlock(start + 100 * i + 10);
        }
        all.emplace_back("blocks alone", blocks.end().plain());
        RecordingWriter gaps;
        gaps.startBlock({.time = start});
        for (uint32_t i = 0; i < 60; ++i) {
            if (i < 3 || (i > 12 && i < 30) || i > 49) {
                gaps.sample({.time = start + i,
                             .eyes = BothEyes,
                             .gaze = EyePositions{{static_cast<int>(i * i), 2}, {3, static_cast<int>(i)}},
                             .resolution = Position{30, 31},
                             .pupilSize = i % 3 == 0 ? std::optional<EyeWords>({900, 0}) : std::nullopt});
            } else if (i % 9 == 4) { // in the gaps, which is at 13 where the second one begins
                gaps.message(start + i, "-20 GO").event(EventRecord(REC_SSACC, RightEye).startTime(start + i));
            }
        }
        gaps.event(EventRecord(REC_ESACC, RightEye).times(start + 31, start + 55));
        all.emplace_back("gaps", gaps.endBlock(start + 60).end().plain());
        RecordingWriter eyes(preamble(5, start == 1000 ? "V2" : "LX"));
        uint32_t time = start;
        for (const auto &[eye, rate] : {std::pair(LeftEye, 500U), {RightEye, 2000U}, {BothEyes, 250U}}) {
            eyes.startBlock(
                {.time = time, .rate = rate, .eyes = eye, .content = eye == LeftEye ? 0x0400 : 0x0500});
            for (uint32_t i = 0; i < 20; ++i) {
                eyes.sample({.time = time + i * 1000 / rate,
                             .eyes = eye,
                             .gaze = EyePositions{{static_cast<int>(i), 7}, {9, static_cast<int>(i)}},
                             .pupilSize = eye == LeftEye ? std::nullopt : std::optional<EyeWords>({8, 9}),
                             .extension = i % 7 != 3
                                              ? std::nullopt
                                              : std::optional<ExtensionBlock>({0x12, {70, static_cast<int>(i)}})});
            }
            time += 20 * 1000 / rate;
            eyes.message(time, "12 GO").endBlock(time);
            time += 40;
        }
        all.emplace_back("an eye and a rate a block", eyes.end().plain());
    }
    return all;
}

TEST(Bulk, ReadsEveryStretchOfOddRecordings) {
    const LogCapture quiet;
    for (const auto &[name, file] : oddRecordings()) {
        for (const int flags : {int{TRK_OPEN_NO_CHECK}, TRK_OPEN_CHECK | TRK_OPEN_MESSAGE_OFFSETS,
                                kBoth | TRK_OPEN_MESSAGE_OFFSETS, kBoth | TRK_OPEN_KEEP_TIMES, kBoth}) {
            // What is opened without events is walked over.
            const OpenOptions options{.flags = flags,
                                      .loadEvents = flags == kBoth ? TRK_EVENTS_BLOCKS_ONLY : TRK_EVENTS_ALL};
            const std::vector<Item> items = openBytes(file, options).walk();
            const Recording recording = openBytes(file, options);
            ASSERT_EQ(items.size(), trk_get_element_count(recording.handle()));
            std::vector<double> times(items.size() + 1); // of samples, with halves of milliseconds
            const TRK_COLUMN exact{TRK_COLUMN_TIME_EXACT, TRK_TYPE_DOUBLE, times.data(), 0};
            const auto room = static_cast<int64_t>(times.size());
            EXPECT_GE(trk_read_samples(recording.handle(), 0, 9999, &exact, 1, room, 0, nullptr), 0) << name;
            for (auto time = times.begin(); const Item &item : items) {
                EXPECT_TRUE(item.code != REC_SAMPLE || std::floor(*time++) == item.time()) << name << flags;
            }
            for (size_t first = 0; first <= items.size(); ++first) {
                BulkComparison comparison(recording.handle(), items, first % 2 == 0, 1 + first % 5 * 20);
                for (const size_t end : {first, first + 1, first + 13, items.size()}) {
                    ASSERT_EQ(comparison.difference(first, std::min(end, items.size())), "")
                        << name << ' ' << flags << " [" << first << ", " << end << ")";
                }
            }
        }
    }
}

TEST(Bulk, ReadsDamagedRecordingsAsAWalkDoes) {
    std::mt19937 random(2);
    const Bytes rich = richRecording().plain();
    const Bytes blocks = experiment({.durationMs = 3000, .sampleRate = 250}).file;
    const LogCapture quiet;
    for (int i = 0; i < 600; ++i) {
        Bytes file = i % 2 == 0 ? rich : blocks;
        for (unsigned damages = 1 + static_cast<unsigned>(random() % 4); damages > 0; --damages) {
            const size_t place = 150 + random() % (file.size() - 150);
            if (random() % 3 == 0) {
                file.erase(place, 1 + random() % 60);
            } else {
                file[place] = static_cast<char>(random());
            }
        }
        OpenOptions options{.flags = static_cast<int>(random() % 3) | TRK_OPEN_TOLERANT};
        options.loadEvents = random() % 5 == 0 ? 0 : TRK_EVENTS_ALL;
        compareStretches(file, options, random, 4);
        if (HasFatalFailure()) {
            FAIL() << "case " << i;
        }
    }
}

TEST(Bulk, ColumnsAreNamedAsTheirFields) {
    const auto offsetOf = [](int id) {
        TRK_COLUMN_DESCRIPTION column;
        return trk_describe_column(id, &column) == 0 ? std::pair(std::string(column.name), column.record_offset)
                                                     : std::pair(std::string(), -2);
    };
    const auto field = [](const char *name, size_t offset) { return std::pair(std::string(name), int(offset)); };
    EXPECT_EQ(offsetOf(TRK_COLUMN_ITEM), std::pair(std::string("item"), -1));
    EXPECT_EQ(offsetOf(TRK_COLUMN_GAZE_Y_LEFT), field("gaze_y_left", offsetof(FSAMPLE_REC, gaze_y)));
    EXPECT_EQ(offsetOf(TRK_COLUMN_PUPIL_X_RIGHT), field("pupil_x_right", offsetof(FSAMPLE_REC, pupil_x) + 4));
    EXPECT_EQ(offsetOf(TRK_COLUMN_HREF_FVEL_Y_LEFT),
              field("href_fvel_y_left", offsetof(FSAMPLE_REC, href_fvel_y)));
    EXPECT_EQ(offsetOf(TRK_COLUMN_EXT_DATA_8), field("ext_data_8", offsetof(FSAMPLE_REC, ext_data) + 14));
    EXPECT_EQ(offsetOf(TRK_COLUMN_EXT_DATA_8 + 1).second, -2);

    const auto namedAsInTheHeader = [](const std::string &prefix, const auto &describe) {
        std::ifstream header(TRKAPI_SOURCE_DIR "/include/trkapi/trkapi.h");
        std::string constant, equals;
        int count = 0;
        while (header >> constant) {
            if (constant.starts_with(prefix) && header >> equals && equals == "=") {
                std::string name = constant.substr(prefix.size());
                std::ranges::transform(name, name.begin(),
                                       [](unsigned char letter) { return std::tolower(letter); });
                TRK_COLUMN_DESCRIPTION column{};
                EXPECT_EQ(describe(++count, &column), 0);
                EXPECT_STREQ(column.name, name.c_str());
            }
        }
        return count;
    };
    EXPECT_EQ(namedAsInTheHeader("TRK_COLUMN_", trk_describe_column), TRK_COLUMN_EXT_DATA_8);
    EXPECT_EQ(namedAsInTheHeader("TRK_EVENT_COLUMN_", trk_describe_event_column), TRK_EVENT_COLUMN_BUTTON_STATE);
}

TEST(Bulk, EventColumnsHoldWhatWasRecorded) {
    FEVENT saccade{};
    saccade.type = REC_ESACC;
    saccade.start_time = 100;
    saccade.end_time = 140;
    saccade.start_gaze_x = 0; // a position, where a zero is one
    saccade.start_gaze_y = 10;
    saccade.end_gaze_x = 300;
    saccade.end_gaze_y = 410;
    saccade.avg_gaze_x = 5;
    saccade.start_res_x = saccade.start_res_y = 60;
    saccade.end_res_x = saccade.end_res_y = 40;
    saccade.end_href_x = 15000;
    saccade.peak_velocity = 0;
    saccade.avg_velocity = MISSING_DATA;
    saccade.read_flags = TRK_EVENT_AT_START | TRK_EVENT_AT_END | TRK_EVENT_AT_AVERAGE | TRK_EVENT_START_POSITION |
                         TRK_EVENT_END_POSITION | TRK_EVENT_VELOCITY | TRK_EVENT_RESOLUTION | TRK_EVENT_GAZE |
                         TRK_EVENT_HREF;
    const auto value = [](const FEVENT &event, int id) {
        double number = -1;
        EXPECT_EQ(trk_get_event_column(&event, 1, id, &number), 0) << id;
        return number;
    };
    EXPECT_EQ(value(saccade, TRK_EVENT_COLUMN_TIME), 140);
    EXPECT_EQ(value(saccade, TRK_EVENT_COLUMN_DURATION), 40);
    EXPECT_EQ(value(saccade, TRK_EVENT_COLUMN_START_GAZE_X), 0);
    EXPECT_EQ(value(saccade, TRK_EVENT_COLUMN_AMPLITUDE), 10);
    for (const int id :
         {TRK_EVENT_COLUMN_AVG_GAZE_X, TRK_EVENT_COLUMN_PEAK_VELOCITY, TRK_EVENT_COLUMN_AVG_VELOCITY,
          TRK_EVENT_COLUMN_END_PUPIL_SIZE, TRK_EVENT_COLUMN_INPUT, TRK_EVENT_COLUMN_BUTTON_STATE}) {
        EXPECT_TRUE(std::isnan(value(saccade, id))) << id;
    }
    saccade.end_res_y = 0; // so that the plane has to do: 45 degrees
    EXPECT_FLOAT_EQ(float(value(saccade, TRK_EVENT_COLUMN_AMPLITUDE)), 45);
    saccade.read_flags &= ~TRK_EVENT_HREF;
    EXPECT_TRUE(std::isnan(value(saccade, TRK_EVENT_COLUMN_AMPLITUDE)));
    saccade.start_time = 150; // never recorded
    EXPECT_TRUE(std::isnan(value(saccade, TRK_EVENT_COLUMN_START)));
    EXPECT_TRUE(std::isnan(value(saccade, TRK_EVENT_COLUMN_DURATION)));

    std::array<FEVENT, 2> events{};
    events[0].type = events[1].type = REC_BUTTON;
    events[0].aux_word1 = 0b1000;
    events[0].aux_word2 = 4;
    events[1].aux_word2 = 17; // there are 16
    std::array<double, 2> states{};
    EXPECT_EQ(trk_get_event_column(events.data(), 2, TRK_EVENT_COLUMN_BUTTON_STATE, states.data()), 0);
    EXPECT_EQ(states[0], 1);
    EXPECT_TRUE(std::isnan(states[1]));

    TRK_COLUMN_DESCRIPTION column;
    int count = 0;
    while (trk_describe_event_column(count + 1, &column) == 0) {
        EXPECT_EQ(column.id, ++count);
    }
    EXPECT_EQ(count, TRK_EVENT_COLUMN_BUTTON_STATE);
    EXPECT_EQ(trk_get_event_column(events.data(), 2, count + 1, states.data()), -1);
    EXPECT_EQ(trk_get_event_column(events.data(), -1, 1, states.data()), -1);
    EXPECT_EQ(trk_get_event_column(nullptr, 1, 1, states.data()), -1);
}

TEST(Bulk, TypesStridesAndMissingValues) {
    RecordingWriter writer;
    writer.startBlock({.time = 1000, .rate = 2000, .eyes = LeftEye});
    for (unsigned i = 0; i < 4; ++i) {
        SampleRecord sample{.time = 1000 + i / 2, .eyes = LeftEye};
        sample.gaze = EyePositions{Position{i == 1 ? kMissingWord : 100, 200}, {}};
        sample.pupilSize = EyeWords{i == 2 ? 0 : 900, 0};
        writer.sample(sample);
    }
    writer.endBlock(1004).end();
    const Recording recording = openBytes(writer.plain(), {.flags = TRK_OPEN_CHECK});
    struct Row {
        double time;
        float gaze;
        float pupil;
        uint8_t eyes;
        double input;
        int64_t block;
    };
    std::array<Row, 4> rows{};
    const auto at = [](int id, int type, void *data) { return TRK_COLUMN{id, type, data, sizeof(Row)}; };
    const std::array columns{at(TRK_COLUMN_TIME_EXACT, TRK_TYPE_DOUBLE, &rows[0].time),
                             at(TRK_COLUMN_GAZE_X_LEFT, TRK_TYPE_FLOAT, &rows[0].gaze),
                             at(TRK_COLUMN_PUPIL_SIZE_LEFT, TRK_TYPE_FLOAT, &rows[0].pupil),
                             at(TRK_COLUMN_EYES, TRK_TYPE_UINT8, &rows[0].eyes),
                             at(TRK_COLUMN_INPUT, TRK_TYPE_DOUBLE, &rows[0].input),
                             at(TRK_COLUMN_BLOCK, TRK_TYPE_INT64, &rows[0].block)};
    TRK_ERROR error{};
    const auto read = [&](int64_t room, int flags) {
        return trk_read_samples(recording.handle(), 0, 1000, columns.data(), columns.size(), room, flags, &error);
    };
    EXPECT_EQ(read(4, TRK_READ_NAN), 4);
    EXPECT_EQ(error.item, 1000);
    EXPECT_EQ(rows[3].time, 1001.5);
    EXPECT_TRUE(std::isnan(rows[1].gaze) && std::isnan(rows[2].pupil) && std::isnan(rows[0].input));
    EXPECT_EQ(rows[0].gaze, 100.0F);
    EXPECT_EQ(std::pair(rows[0].eyes, rows[0].block), std::pair(uint8_t{TRK_EYE_LEFT}, int64_t{1}));
    rows[2].gaze = -1;
    EXPECT_EQ(read(2, 0), 2);
    EXPECT_EQ(std::pair(rows[1].gaze, rows[2].gaze), std::pair(MISSING_DATA, -1.0F)); // no row too many
    EXPECT_EQ(rows[0].input, TRK_WORD_ABSENT);
    EXPECT_EQ(trk_count_items(recording.handle(), static_cast<unsigned>(error.item), 1000, REC_SAMPLE), 2);
    std::array<unsigned, 4> events{};
    EXPECT_EQ(trk_count_items(recording.handle(), 0, 1000, 0), 4); // starts and ends
    EXPECT_EQ(trk_list_items(recording.handle(), 0, 1000, 0, events.data(), 3), 3);
    EXPECT_EQ(events, (std::array<unsigned, 4>{1, 2, 7, 0}));

    const auto refuses = [&](TRK_COLUMN column, int flags) {
        const int64_t result = trk_read_samples(recording.handle(), 0, 9, &column, 1, 4, flags, &error);
        return result == -1 && error.code == TRK_ERROR_ARGUMENT && error.text[0] != '\0';
    };
    std::array<double, 4> out{-1, -1, -1, -1};
    EXPECT_TRUE(refuses({0, TRK_TYPE_DOUBLE, out.data(), 0}, 0));
    EXPECT_TRUE(refuses({TRK_COLUMN_EXT_DATA_8 + 1, TRK_TYPE_DOUBLE, out.data(), 0}, 0));
    EXPECT_TRUE(refuses({TRK_COLUMN_TIME, TRK_TYPE_FLOAT, out.data(), 0}, 0)); // too few digits
    EXPECT_TRUE(refuses({TRK_COLUMN_FLAGS, TRK_TYPE_UINT8, out.data(), 0}, 0));
    EXPECT_TRUE(refuses({TRK_COLUMN_GAZE_X_LEFT, TRK_TYPE_INT64, out.data(), 0}, 0));
    EXPECT_TRUE(refuses({TRK_COLUMN_TIME, TRK_TYPE_DOUBLE, nullptr, 0}, 0));
    EXPECT_TRUE(refuses({TRK_COLUMN_TIME, TRK_TYPE_DOUBLE, out.data(), 0}, 2));
    EXPECT_EQ(trk_read_samples(nullptr, 0, 9, columns.data(), 1, 4, 0, &error), -1);
    EXPECT_EQ(out, (std::array<double, 4>{-1, -1, -1, -1}));
}

// A text that finds no room ends the reading before its event, and nothing behind the room is written.
TEST(Bulk, EndsWhereATextFindsNoRoom) {
    const Bytes longest(498, 'x');
    const std::array<Bytes, 5> texts{"", {"a\0b", 3}, longest, "", "z"};
    RecordingWriter writer;
    for (uint32_t i = 0; i < texts.size(); ++i) {
        writer.message(10 + i, texts.at(i)).event(EventRecord(REC_BUTTON).startTime(10 + i));
    }
    const Recording recording = openBytes(writer.end().plain());
    for (const size_t room : {0U, 1U, 4U, 5U, 503U, 504U, 505U, 506U, 507U}) {
        std::string bytes(600, '#');
        std::array<int64_t, 11> offsets{};
        TRK_ERROR error{};
        const int64_t rows =
            trk_read_events(recording.handle(), 0, 99, nullptr, 10, bytes.data(), room, offsets.data(), &error);
        std::string expected;
        int64_t fitting = 0;
        for (; fitting < 10; ++fitting) {
            const auto i = static_cast<size_t>(fitting);
            EXPECT_EQ(offsets.at(i), std::ssize(expected)) << room;
            if (i % 2 == 0 && expected.size() + texts.at(i / 2).size() + 1 > room) {
                break;
            }
            expected += i % 2 == 0 ? texts.at(i / 2) + '\0' : "";
        }
        EXPECT_EQ(std::pair(rows, error.item), std::pair(fitting, fitting == 10 ? int64_t{99} : fitting)) << room;
        EXPECT_EQ(bytes, expected + std::string(600 - expected.size(), '#')) << room;
        EXPECT_EQ(error.code, TRK_OK);
    }
    TRK_ERROR error{};
    std::array<FEVENT, 2> events{};
    EXPECT_EQ(trk_read_events(recording.handle(), 4, 99, events.data(), 2, nullptr, 0, nullptr, &error), 2);
    EXPECT_EQ(std::tuple(events[0].type, events[1].start_time, error.item), std::tuple(REC_MESSAGE, 12U, 6));
    for (const unsigned first : {6U, 10U, 4000000000U}) { // nothing lies in between, or there
        EXPECT_EQ(trk_read_events(recording.handle(), first, 6, events.data(), 2, nullptr, 0, nullptr, &error), 0);
        EXPECT_EQ(std::pair(error.code, error.item), std::pair(int{TRK_OK}, int64_t{6})) << first;
        EXPECT_EQ(trk_read_samples(recording.handle(), first, 6, nullptr, 0, 2, 0, &error), 0);
        EXPECT_EQ(trk_count_items(recording.handle(), first, 6, REC_MESSAGE), 0);
    }
}

// Pupil sizes are repeated from the sample before, and words of an extension stay: where NaN is asked for, they
// are none of the sample's.
TEST(Bulk, TellsWhatASampleDidNotCarry) {
    RecordingWriter writer;
    writer.startBlock({.time = 1000, .eyes = BothEyes});
    const auto add = [&](uint32_t time, Eyes eyes, std::optional<EyeWords> sizes,
                         std::optional<ExtensionBlock> words) {
        writer.sample({.time = time,
                       .eyes = eyes,
                       .href = EyePositions{{-32768, 1}, {2, 3}},
                       .pupilSize = sizes,
                       .status = words ? std::optional(0x8000) : std::nullopt,
                       .extension = std::move(words)});
    };
    add(1000, BothEyes, std::nullopt, std::nullopt);
    add(1001, BothEyes, EyeWords{901, 902}, ExtensionBlock{0x13, {5, 0x8000, 7}});
    add(1002, BothEyes, std::nullopt, ExtensionBlock{0x11, {9}});
    add(1003, BothEyes, EyeWords{0, 903}, ExtensionBlock{0x10, {}});
    add(1004, LeftEye, EyeWords{904, 0}, std::nullopt);
    add(1005, RightEye, std::nullopt, std::nullopt);
    const Bytes file = writer.endBlock(1006).end().plain();
    const auto read = [&](int id, int flags, int loadEvents) {
        const Recording recording = openBytes(file, {.flags = TRK_OPEN_CHECK, .loadEvents = loadEvents});
        std::array<double, 6> values{};
        const TRK_COLUMN column{id, TRK_TYPE_DOUBLE, values.data(), 0};
        EXPECT_EQ(trk_read_samples(recording.handle(), 0, 99, &column, 1, 6, flags, nullptr), 6);
        std::ostringstream text;
        for (const double value : values) {
            text << value << ' ';
        }
        return text.str();
    };
    const std::tuple<int, std::string, std::string> cases[] = {
        {TRK_COLUMN_PUPIL_SIZE_LEFT, "1000 901 901 0 904 904 ", "nan 901 nan nan 904 nan "},
        {TRK_COLUMN_PUPIL_SIZE_RIGHT, "1000 902 902 903 -32768 -32768 ", "nan 902 nan 903 nan nan "},
        {TRK_COLUMN_EXT_TYPE, "", "nan 19 17 16 nan nan "},
        {TRK_COLUMN_EXT_DATA_1, "", "nan 5 9 nan nan nan "},
        {TRK_COLUMN_EXT_DATA_2, "", "nan 32768 nan nan nan nan "},
        {TRK_COLUMN_EXT_DATA_3, "", "nan 7 nan nan nan nan "},
        {TRK_COLUMN_EXT_DATA_4, "", "nan nan nan nan nan nan "},
        {TRK_COLUMN_HREF_X_LEFT, "-32768 -32768 -32768 -32768 -32768 -32768 ", "nan nan nan nan nan nan "},
        {TRK_COLUMN_HREF_X_RIGHT, "2 2 2 2 -32768 2 ", "2 2 2 2 nan 2 "},
        {TRK_COLUMN_EYES, "3 3 3 3 1 2 ", "3 3 3 3 1 2 "},
    };
    for (const auto &[id, plain, nan] : cases) {
        for (const int events : {TRK_EVENTS_ALL, TRK_EVENTS_BLOCKS_ONLY}) { // the latter are walked over
            EXPECT_EQ(read(id, TRK_READ_NAN, events), nan) << id << events;
            EXPECT_EQ(plain.empty() ? plain : read(id, 0, events), plain) << id << events;
        }
    }
}

} // namespace
