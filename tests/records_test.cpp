// Tag words, samples and events, one record at a time, compared as texts.
#include "io/file_input_stream.h"
#include "records/record_reader.h"
#include "support/scenarios.h"
#include "support/walk.h"

#include <cstring>
#include <gtest/gtest.h>
#include <sstream>

namespace {

using namespace trk_test;
using namespace std::string_literals;
using trk::RecordReader;

// " name=value" of each number that does not read its default. Each name is followed by the default; "x" is a missing
// value, "-" an absent one.
template <class Number> std::string named(const void *numbers, const char *namesAndDefaults) {
    std::istringstream names(namesAndDefaults);
    std::ostringstream out;
    const auto *bytes = static_cast<const char *>(numbers);
    for (std::string name, ordinary; names >> name >> ordinary; bytes += sizeof(Number)) {
        Number number{};
        std::memcpy(&number, bytes, sizeof(number));
        const auto value = static_cast<float>(number);
        std::ostringstream text;
        text << value;
        const std::string shown = value == MISSING_DATA ? "x" : std::abs(value) == 32768 ? "-" : text.str();
        out << (shown != ordinary ? " " + name + "=" + shown : "");
    }
    return out.str();
}

std::string textOf(const FSAMPLE_REC &sample) {
    static const char *const kFloats =
        "pupil - right - y - right - href - right - y - right - size 0 right 0 gaze - right - y - right - res x y "
        "x "
        "v x v x v x v x v x v x v x v x v x v x v x v x v x v x v x v x v x v x v x v x v x v x v x v x";
    return std::to_string(sample.time) + named<float>(sample.pupil_x, kFloats) +
           named<uint16_t>(sample.ext_data,
                           "e 0 e 0 e 0 e 0 e 0 e 0 e 0 e 0 flags 0 in - buttons 0 type - status -");
}

// Positions by the initials of their names: sgx is start_gaze_x.
std::string textOf(const FEVENT &event) {
    static const char *const kFloats =
        "shx 0 shy 0 sgx 0 sgy 0 ssize 0 ehx 0 ehy 0 egx 0 egy 0 esize 0 ahx 0 ahy 0 agx 0 "
        "agy 0 asize 0 avel 0 peak 0 svel 0 evel 0 srx 0 erx 0 sry 0 ery 0";
    std::ostringstream out;
    out << event.type << ' ' << event.start_time << '-' << event.end_time << " has " << std::hex
        << event.read_flags << named<float>(&event.start_href_x, kFloats)
        << named<uint16_t>(&event.eye, "eye 0 spare 0 status 0 aux1 0 aux2 0 parse 0");
    if (event.message != nullptr) {
        out << " '" << Bytes(event.message->text, event.message->length) << "'";
    }
    return out.str();
}

std::string textOf(const trk::DecodingState &state) {
    std::ostringstream out;
    out << " | rate " << state.sampleRate << " divisors " << state.gazeDivisor << ' ' << state.velocityDivisor
        << " mode " << state.recordingModeWord << ' ' << state.filterLevel << ' ' << state.modeLowBits
        << " factors " << state.blockFactor1 << ' ' << state.blockFactor2 << " value " << state.sampleBlockValue
        << " content " << std::hex << state.sampleFlagsSeen << ' ' << state.eventBlockFlags << ' '
        << state.eventBlockStatus << std::dec << " times " << state.minDecodedTime << '-' << state.maxDecodedTime;
    return out.str();
}

struct Setup {
    uint16_t revision = 5;
    bool cutMessageOffsets = true;
    bool showState = false;
    float gazeDivisor = 10, sampleRate = 250;
    size_t window = trk::InputStream::kDefaultWindowSize;
};

RecordReader readerOf(const Bytes &records, const Setup &setup = {}) {
    static const TemporaryDirectory directory;
    RecordReader reader(setup.cutMessageOffsets);
    reader.setStream(std::make_unique<trk::FileInputStream>(directory.save("r", records).c_str(), setup.window));
    std::filesystem::remove(directory.path("r"));
    reader.setPreambleFacts(true, setup.revision);
    reader.state().gazeDivisor = setup.gazeDivisor;
    reader.state().velocityDivisor = 4;
    reader.state().sampleRate = setup.sampleRate;
    return reader;
}

std::string nextSample(RecordReader &reader, uint32_t expectedTime = 0) {
    trk::Sample sample;
    std::memset(static_cast<void *>(&sample), 0x55, sizeof(sample)); // must not shine through
    const int result = reader.read_combfile_sample(&sample, expectedTime, true);
    return result == 0 ? textOf(sample) : std::to_string(result);
}

std::string nextEvent(RecordReader &reader) {
    trk::EData event;
    const int result = reader.read_combfile_event(event, true);
    return result == 0 ? textOf(event) : std::to_string(result);
}

using Texts = std::vector<std::string>;

// All records up to the end mark, which this puts behind them.
Texts decoded(const Bytes &records, const Setup &setup = {}) {
    RecordReader reader = readerOf(records + "\0\0"s, setup);
    Texts texts;
    for (int kind = 0;
         (kind = reader.next_combfile_item(nullptr)) >= 0 && (texts.empty() || texts.back() != "-1");) {
        texts.push_back(kind == 1 ? nextSample(reader) : nextEvent(reader));
        texts.back() += setup.showState ? textOf(reader.state()) : "";
    }
    return texts;
}

TEST(Samples, CarryEveryGroupOrNone) {
    RecordingWriter writer;
    SampleRecord record{.time = 1000,
                        .eyes = BothEyes,
                        .pupil = EyePositions{{-1, 2}, {kMissingWord, -4}},
                        .href = EyePositions{{5, -6}, {7, kMissingWord}},
                        .gaze = EyePositions{{960, kMissingWord}, {-5, 540}},
                        .resolution = Position{355, kMissingWord},
                        .pupilSize = EyeWords{900, -1},
                        .status = 0x8001,
                        .input = 0xFFFF,
                        .buttons = 3,
                        .extension = ExtensionBlock{0x2F, {1, 2, 3, 4, 5, 6, 7, 0xFFF8}}, // says 15, holds 8
                        .skipList1 = SkipList{{7, "abc"}, {8, "d"}},
                        .skipList2 = SkipList{{0, Bytes(255, '\1')}}};
    writer.sample(record);
    record.eyes = RightEye;
    record.extension = ExtensionBlock{3, {9, 9, 9}};
    writer.sample(record).sample({.time = 1255});
    EXPECT_EQ(
        decoded(writer.records()),
        (Texts{"1000 pupil=-1 y=2 right=-4 href=5 right=7 y=-6 size=900 right=-1 gaze=96 right=-0.5 y=x right=54 "
               "res=35.5 e=1 e=2 e=3 e=4 e=5 e=6 e=7 e=65528 flags=65533 in=65535 buttons=3 type=47 status=32769",
               "1000 right=-4 right=7 size=- right=-1 right=-0.5 right=54 res=35.5 e=9 e=9 e=9 flags=24573 "
               "in=65535 buttons=3 type=3 status=32769",
               "1255 flags=32769"}));
    const Bytes gaze =
        RecordingWriter().sample({.time = 1, .gaze = EyePositions{{960, kMissingWord}, {}}}).records();
    for (const auto &[divisor, x] : {std::pair(4.F, "240"), {.1F, "960"}, {0.F, "960"}, {-4.F, "960"}}) {
        EXPECT_EQ(decoded(gaze, {.gazeDivisor = divisor}), Texts{"1 gaze="s + x + " y=x flags=41985"}) << divisor;
    }
}

TEST(Samples, TimesAreDeltasToTheSampleBefore) {
    RecordingWriter writer;
    Texts expected;
    for (const uint32_t time : {1000U, 1001U, 1002U, 1004U, 1259U, 900U, 1200U}) {
        writer.sample({.time = time, .resolution = Position{}});
        expected.push_back(std::to_string(time));
    }
    Texts times = decoded(writer.records());
    for (std::string &text : times) {
        text.resize(text.find(' '));
    }
    EXPECT_EQ(times, expected);
    // Time of the sample before, time that the index knows, delta, decoded time.
    for (const auto &[base, known, delta, time] :
         {std::array{4990U, 0U, 2U, 4992U}, {4990, 5000, 2, 5000}, {5000, 1, 2, 1}, {0xFFFFFFFF, 0, 3, 2}}) {
        RecordReader jumped = readerOf("\x80\x01"s + static_cast<char>(delta));
        jumped.state().sampleTimeBase = base;
        EXPECT_EQ(nextSample(jumped, known), std::to_string(time) + " flags=32769");
        EXPECT_EQ(jumped.state().sampleTimeBase, time);
    }
}

TEST(Events, EveryFieldHasItsPlace) {
    const EventRecord fix(REC_EFIX);
    const auto with = [](auto field, auto... values) { return EventRecord(REC_EFIX).set(field, values...); };
    const auto saying = [](const Bytes &text) { return EventRecord(REC_MESSAGE).startTime(1000).message(text); };
    const Bytes blanks(20, ' ');
    const std::pair<EventRecord, std::string> cases[] = {
        {EventRecord(REC_SFIX, RightEye, 0xFF), "7 0-0 has 0 eye=1 parse=254"},
        {EventRecord(REC_SFIX, BothEyes), "7 0-0 has 0"},
        {with(kStartTime, 1000U), "8 1000-0 has 1"},
        {with(kEndTime, 1200U), "8 1200-1200 has 40"},
        {with(kStartTime, 0xFFFFFFF0U).endTime(1200), "8 4294967280-1200 has 41"},
        {endSamples(1000), "16 1000-1000 has 1"},
        {endEvents(1000).endTime(1200), "18 1000-1200 has 41"},
        {with(kStartRaw, 5, kMissingWord), "8 0-0 has 408 shx=- sgx=5 sgy=-"},
        {with(kStartHref, -5, kMissingWord), "8 0-0 has 808 shx=-5 shy=x"},
        {with(kStartGaze, -5, kMissingWord), "8 0-0 has 1008 sgx=-0.5 sgy=x"},
        {with(kStartResolution, kMissingWord, 5), "8 0-0 has 201 srx=x sry=0.5"},
        {with(kStartPupilSize, kMissingWord), "8 0-0 has 81 ssize=-"},
        {with(kStartVelocity, 5), "8 0-0 has 101 svel=1.25"},
        {with(kEndRaw, 5, 6), "8 0-0 has 410 ehx=6 egx=5 egy=6"},
        {with(kEndHref, kMissingWord, 6), "8 0-0 has 810 ehx=x ehy=6"},
        {with(kEndGaze, 5, 6), "8 0-0 has 1010 egx=0.5 egy=0.6"},
        {with(kEndResolution, 5, 6), "8 0-0 has 202 erx=0.5 ery=0.6"},
        {with(kEndPupilSize, -5), "8 0-0 has 82 esize=-5"},
        {with(kEndVelocity, kMissingWord), "8 0-0 has 102 evel=x"},
        {with(kAverageRaw, 5, 6), "8 0-0 has 420 shx=6 ahx=5 agx=5 agy=6"},
        {with(kAverageHref, 5, kMissingWord), "8 0-0 has 820 ahx=5 ahy=x"},
        {with(kAverageGaze, 5, 6), "8 0-0 has 1020 agx=0.5 agy=0.6"},
        {with(kAveragePupilSize, 5), "8 0-0 has 84 asize=5"},
        {with(kAverageVelocity, 5), "8 0-0 has 104 avel=1.25"},
        {with(kPeakVelocity, 5), "8 0-0 has 104 peak=1.25"},
        {with(kAuxWord1, 0x8001).set(kAuxWord2, 2), "8 0-0 has 0 aux1=32769 aux2=2"},
        {with(kStatusWord, 0xFFFF), "8 0-0 has 2000 status=65535"},
        // The HREF x that a raw pair also fills belongs to whoever comes last.
        {with(kAverageRaw, 1, 2).set(kStartHref, 3, 4), "8 0-0 has c28 shx=3 shy=4 ahx=1 agx=1 agy=2"},
        {with(kStartHref, 3, 4).set(kAverageRaw, 1, 2), "8 0-0 has c28 shx=2 shy=4 ahx=1 agx=1 agy=2"},
        {EventRecord(fix).raw("\x01\xFFQ\1\2"), "8 0-0 has 82 esize=258"}, // unknown tags are skipped alone
        {saying("a\0b"s), "24 1000-0 has 1 'a\0b'"s},
        {saying(Bytes(498, 'm')), "24 1000-0 has 1 '" + Bytes(498, 'm') + "'"},
        {saying(Bytes(499, 'm')), "-1"},
        // Offsets are cut off. Blanks before them go as well, but still count in the length.
        {saying("12 GO"), "24 988-0 has 1 ' GO'"},
        {saying("+999 X"), "24 1-0 has 1 ' X'"},
        {saying("  -5 GO"), "24 1005-0 has 1 ' GO\0\0'"s},
        {saying("5GO now"), "24 995-0 has 1 ' now'"},
        {saying("00000012 X"), "24 999-0 has 1 '2 X'"},
        {saying(blanks + "7 x"), "24 993-0 has 1 ' x" + Bytes(20, '\0') + "'"},
        {saying(blanks + " 7 x"), "24 1000-0 has 1 '" + blanks + " 7 x'"},
        {saying("  12"), "24 988-0 has 1 '\0\0'"s},
        {saying("12 "), "24 1000-0 has 1 '12 '"},
        {saying("1000 X"), "24 1000-0 has 1 '1000 X'"},
        {saying("GO 5"), "24 1000-0 has 1 'GO 5'"},
        {saying(""), "24 1000-0 has 1 ''"},
    };
    for (const auto &[record, expected] : cases) {
        EXPECT_EQ(decoded(record.bytes()), Texts{expected});
    }
    EXPECT_EQ(decoded(saying("12 GO").bytes(), {.cutMessageOffsets = false}), Texts{"24 1000-0 has 1 '12 GO'"});
}

TEST(Events, BlocksSetTheDecodingState) {
    const LogCapture log;
    BlockStart block{
        .time = 1000, .rate = 500, .gazeDivisor = 5, .velocityDivisor = 2, .modeWord = 0x9234, .pupilMode = 2};
    const BlockStart bare{
        .time = 2000, .rate = {}, .gazeDivisor = {}, .velocityDivisor = {}, .modeWord = {}, .pupilMode = {}};
    RecordingWriter writer;
    writer.event(startSamples(block).set(kBlockFactor2, 3).set(kBlockValue, -1))
        .startEvents(block)
        .sample({.time = 1001});
    writer.endSamples(1002).endEvents(1004).startSamples(bare);
    EXPECT_EQ(
        decoded(writer.records(), {.showState = true}),
        (Texts{
            "15 1000-1000 has 23c7 ssize=5 esize=2 asize=-1 avel=500 erx=-28108 status=34048 aux2=2"
            " | rate 500 divisors 5 2 mode 146 3 4 factors 2 3 value 65535 content 8500 0 0 times 0-1000",
            "17 1000-1000 has 22c3 ssize=5 esize=2 avel=500 peak=1 erx=-28108 status=8191 aux1=16384 aux2=2"
            " | rate 500 divisors 5 2 mode 146 3 4 factors 2 1 value 65535 content 8500 4000 1fff times 0-1000",
            "1001 flags=40961"
            " | rate 500 divisors 5 2 mode 146 3 4 factors 2 1 value 65535 content a501 4000 1fff times 1001-1001",
            "16 1002-1002 has 1"
            " | rate 500 divisors 5 2 mode 146 3 4 factors 2 1 value 65535 content 0 4000 1fff times 1001-1001",
            "18 1004-1004 has 1"
            " | rate 500 divisors 5 2 mode 146 3 4 factors 2 1 value 65535 content 0 0 1fff times 1001-1004",
            "15 2000-2000 has 2001 peak=1 status=34048 aux2=1"
            " | rate 500 divisors 0 0 mode 0 0 0 factors 1 1 value 1 content 8500 0 1fff times 1001-2000"}));
    EXPECT_EQ(
        decoded(startEvents(block).bytes(), {.revision = 0, .showState = true}),
        Texts{"17 1000-1000 has 22c3 ssize=5 esize=2 avel=250 peak=1 erx=-28108 status=8191 aux1=16384 aux2=2"
              " | rate 250 divisors 5 2 mode 9 1 1 factors 2 1 value 1 content 0 4000 1fff times 0-1000"});
    EXPECT_EQ(log.take(), LogLines{});
    // Only a rate of 500 outlives the start of a block that states none, and only larger ones are reported.
    const std::tuple<float, std::optional<double>, float> rates[] = {{250.F, 65535.5, 65535.5F},
                                                                     {499.F, std::nullopt, 250.F},
                                                                     {1000.F, std::nullopt, 250.F},
                                                                     {1000.F, 0, 250.F}};
    for (const auto &[before, stated, rate] : rates) {
        block.rate = stated;
        RecordReader reader = readerOf(startSamples(block).bytes(), {.sampleRate = before});
        nextEvent(reader);
        EXPECT_EQ(reader.state().sampleRate, rate);
    }
    EXPECT_EQ(log.take(),
              LogLines(2, "Possible miss handle! sample per second is 1000.000000 resetting to 250 \n"));
}

TEST(Framing, TagWordsWaitForTheirDecoder) {
    RecordReader reader = readerOf("\xA0\x01\0\0\0\1\x4F\0\0\xCF\0\0\0\0\x80\1\1"s);
    uint16_t tag = 0;
    EXPECT_EQ(reader.next_combfile_item(&tag), 1);
    EXPECT_EQ(tag, 0xA001);
    EXPECT_EQ(nextEvent(reader), "-2");
    EXPECT_EQ(nextSample(reader), "1 flags=40961");
    EXPECT_EQ(reader.state().lastTagWord, 0);
    EXPECT_EQ(nextSample(reader), "-2");
    EXPECT_EQ(nextEvent(reader).substr(0, 3), "15 ");
    EXPECT_EQ(reader.next_combfile_item(&tag), 0);
    EXPECT_EQ(tag, 0xCF);
    EXPECT_EQ(reader.read_combfile_sample(nullptr, 0, true), -1);
    EXPECT_EQ(nextEvent(reader).substr(0, 3), "15 ");
    EXPECT_EQ(nextSample(reader), "-1") << "the end mark, whatever follows it";
    EXPECT_EQ(nextSample(reader), "2 flags=32769");
}

TEST(Framing, EndOfTheStream) {
    const LogCapture log;
    const auto expectNothing = [&](RecordReader &reader, int answer, const char *line) {
        EXPECT_EQ(reader.next_combfile_item(nullptr), answer);
        EXPECT_EQ(nextSample(reader), "-1");
        EXPECT_EQ(nextEvent(reader), "-1");
        EXPECT_EQ(log.take(), LogLines{line});
    };
    RecordReader cut = readerOf(EventRecord(REC_MESSAGE).message("abc", 4).unterminated().bytes());
    EXPECT_EQ(nextEvent(cut), "-1");
    EXPECT_EQ(log.take(), (LogLines{"error reading trk file 12\n", "Error End of file Exception \n"}));
    expectNothing(cut, 1, " bad status  1\n");
    RecordReader inPreamble = readerOf("\x80\x01");
    inPreamble.setPreambleFacts(false, 0);
    expectNothing(inPreamble, 2, " bad status  2\n");
    RecordReader closed;
    expectNothing(closed, -1, " bad status  -1\n");
}

TEST(Framing, WindowsMakeNoDifference) {
    const LogCapture log;
    const Bytes records = richRecording().records();
    const Texts texts = decoded(records);
    EXPECT_GE(texts.size(), 70U);
    for (const size_t window : {1U, 7U, 64U}) {
        EXPECT_EQ(decoded(records, {.window = window}), texts) << window;
    }
}

} // namespace
