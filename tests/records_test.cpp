// Tag words, samples and events, one record at a time, compared as texts.
#include "io/file_input_stream.h"
#include "records/record_reader.h"
#include "support/scenarios.h"
#include "support/walk.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <sstream>

namespace {

using namespace trk_test;
using namespace std::string_literals;
using trk::RecordReader;

// " name=value" of each number that does not read its default, the last letter of its name. A missing value is "x", an
// absent one "-".
template <class Number> std::string named(const void *numbers, const std::string &names) {
    std::istringstream in(names);
    std::string result;
    const auto *bytes = static_cast<const char *>(numbers);
    for (std::string name; in >> name; bytes += sizeof(Number)) {
        Number number{};
        std::memcpy(&number, bytes, sizeof(number));
        std::ostringstream text;
        text << number;
        const bool missing = text.str() == "1e+08", absent = text.str() == "-32768" || text.str() == "32768";
        const std::string value = missing ? "x" : absent ? "-" : text.str();
        result += value == name.substr(name.size() - 1) ? "" : " " + name.substr(0, name.size() - 1) + "=" + value;
    }
    return result;
}

std::string textOf(const FSAMPLE_REC &sample) {
    std::string floats = "px- px- py- py- hx- hx- hy- hy- ps0 ps0 gx- gx- gy- gy- rxx ryx";
    for (int velocity = 0; velocity < 24; ++velocity) {
        floats += " vx";
    }
    return std::to_string(sample.time) + named<float>(sample.pupil_x, floats) +
           named<uint16_t>(sample.ext_data, "e0 e0 e0 e0 e0 e0 e0 e0 flags0 in- buttons0 type- status-");
}

// Code, eye, times, flags of the fields; sgx is start_gaze_x.
std::string textOf(const FEVENT &event) {
    const Bytes text =
        event.message != nullptr ? " '" + Bytes(event.message->text, event.message->length) + "'" : "";
    std::ostringstream out;
    out << event.type << (event.eye == 1 ? "R " : "L ") << event.start_time << '-' << event.end_time << std::hex
        << ' ';
    out << event.read_flags;
    return out.str() +
           named<float>(&event.start_href_x,
                        "shx0 shy0 sgx0 sgy0 sp0 ehx0 ehy0 egx0 egy0 ep0 ahx0 ahy0 agx0 agy0 ap0 "
                        "av0 pv0 sv0 ev0 srx0 erx0 sry0 ery0") +
           named<uint16_t>(&event.spare_word, "spare0 status0 aux0 auxx0 parse0") + text;
}

std::string textOf(const trk::DecodingState &state) {
    std::ostringstream out;
    out << "rate " << state.sampleRate << " divisors " << state.gazeDivisor << ' ' << state.velocityDivisor
        << " mode " << state.recordingModeWord << ' ' << state.filterLevel << ' ' << state.modeLowBits
        << " factors " << state.blockFactor1 << ' ' << state.blockFactor2 << " value " << state.sampleBlockValue
        << std::hex << " content " << state.sampleFlagsSeen << ' ' << state.eventBlockFlags << ' '
        << state.eventBlockStatus << std::dec << " times " << state.minDecodedTime << '-' << state.maxDecodedTime;
    return out.str();
}

RecordReader readerOf(const Bytes &records, uint16_t revision = 5, size_t window = 64) {
    static const TemporaryDirectory directory;
    RecordReader reader(true);
    reader.setStream(std::make_unique<trk::FileInputStream>(directory.save("r", records).c_str(), window));
    std::filesystem::remove(directory.path("r"));
    reader.setPreambleFacts(true, revision);
    reader.state().gazeDivisor = 10;
    reader.state().velocityDivisor = 4;
    return reader;
}

// The result of a call, or the record that it read: t (next_combfile_item), s (sample), e (event), r (what comes).
std::string run(RecordReader &reader, char call, uint32_t expectedTime = 0) {
    trk::Sample sample;
    std::memset(static_cast<void *>(&sample), 0x55, sizeof(sample)); // must not shine through
    trk::EData event;
    uint16_t tag = 0;
    const int kind = call == 't' || call == 'r' ? reader.next_combfile_item(&tag) : call == 's' ? 1 : 0;
    if (call == 't') {
        return std::to_string(kind) + ":" + std::to_string(tag);
    }
    const int result = kind == 1 ? reader.read_combfile_sample(&sample, expectedTime, true)
                                 : reader.read_combfile_event(event, true);
    return result != 0 ? std::to_string(result) : kind == 1 ? textOf(sample) : textOf(event);
}

using Texts = std::vector<std::string>;

Texts runAll(RecordReader reader, const std::string &calls) {
    Texts results;
    for (const char call : calls) {
        results.push_back(run(reader, call));
    }
    return results;
}

Bytes wordsOf(const std::vector<unsigned> &words) {
    Bytes bytes;
    for (const unsigned word : words) {
        putWord(bytes, word);
    }
    return bytes;
}

TEST(Samples, CarryEveryGroupOrNone) {
    const Bytes words = wordsOf({1, 2, 3, 4, 5, 6, 7, 8}), lists = "\3\7abc\1\7d\0\1\7a\0"s;
    const Bytes both = wordsOf({0xFFFD, 0,      1000,   1,   2,   0x8000, 4,   5,      6,      7,      0x8000,
                                960,    0x8000, 0xFFFB, 540, 355, 0x8000, 900, 0xFFFF, 0x8001, 0xFFFF, 3});
    const Bytes right = "\x5F\xFD\1" + words + wordsOf({0xFFFE, 5, 6, 0}) + "\3" + wordsOf({1, 2, 3});
    EXPECT_EQ(
        runAll(readerOf(both + "\x2F" + words + lists + right + lists + "\x80\x01\xFF"), "sss"), // 8 of 15 words
        (Texts{"1000 px=1 py=2 py=4 hx=5 hx=7 hy=6 ps=900 ps=-1 gx=96 gx=-0.5 gy=x gy=54 rx=35.5 e=1 e=2 e=3 e=4 "
               "e=5 e=6 e=7 e=8 flags=65533 in=65535 buttons=3 type=47 status=32769",
               "1001 px=1 py=2 hx=3 hy=4 ps=- ps=-2 gx=0.5 gy=0.6 rx=0.7 ry=0.8 e=1 e=2 e=3 flags=24573 in=6 "
               "type=3 status=5",
               "1256 flags=32769"}));
    for (const auto &[divisor, x] : {std::pair(4.F, "240"), {.1F, "960"}, {0.F, "960"}, {-4.F, "960"}}) {
        RecordReader reader = readerOf("\x84\1\1\3\xC0\x80\0"s);
        reader.state().gazeDivisor = divisor;
        EXPECT_EQ(run(reader, 's'), "1 gx="s + x + " gy=x flags=33793");
    }
}

TEST(Samples, TimesAreDeltasToTheSampleBefore) {
    EXPECT_EQ(runAll(readerOf("\xA0\1\0\0\3\xE8\x80\1\1\x80\1\1\x80\1\2\xA0\1\0\0\0\1\x80\1\xFF"s), "ssssss"),
              (Texts{"1000 flags=40961", "1001 flags=32769", "1002 flags=32769", "1004 flags=32769",
                     "1 flags=40961", "256 flags=32769"}));
    // Time of the sample before, time that the index knows, delta, decoded time.
    for (const auto &[base, known, delta, time] :
         {std::array{4990U, 0U, 2U, 4992U}, {4990, 5000, 2, 5000}, {5000, 1, 2, 1}, {0xFFFFFFFF, 0, 3, 2}}) {
        RecordReader reader = readerOf("\x80\x01"s + static_cast<char>(delta));
        reader.state().sampleTimeBase = base;
        EXPECT_EQ(run(reader, 's', known), std::to_string(time) + " flags=32769");
        EXPECT_EQ(reader.state().sampleTimeBase, time);
    }
}

TEST(Events, EveryFieldHasItsPlace) {
    const auto with = [](auto field, auto... values) { return EventRecord(REC_EFIX).set(field, values...); };
    const auto saying = [](const Bytes &text) { return EventRecord(REC_MESSAGE).startTime(1000).message(text); };
    const Bytes blanks(20, ' '), longest(498, 'm');
    const std::pair<EventRecord, std::string> cases[] = {
        {EventRecord(REC_SFIX, RightEye, 0xFF), "7R 0-0 0 parse=254"},
        {EventRecord(REC_SFIX, BothEyes), "7L 0-0 0"},
        {with(kStartTime, 1000U), "8L 1000-0 1"},
        {with(kEndTime, 1200U), "8L 1200-1200 40"},
        {with(kStartTime, 0xFFFFFFF0U).endTime(1200), "8L 4294967280-1200 41"},
        {endSamples(1000), "16L 1000-1000 1"},
        {endEvents(1000).endTime(1200), "18L 1000-1200 41"},
        {with(kStartRaw, 5, kMissingWord), "8L 0-0 408 shx=- sgx=5 sgy=-"},
        {with(kStartHref, -5, kMissingWord), "8L 0-0 808 shx=-5 shy=x"},
        {with(kStartGaze, -5, kMissingWord), "8L 0-0 1008 sgx=-0.5 sgy=x"},
        {with(kStartResolution, kMissingWord, 5), "8L 0-0 201 srx=x sry=0.5"},
        {with(kStartPupilSize, kMissingWord), "8L 0-0 81 sp=-"},
        {with(kStartVelocity, 5), "8L 0-0 101 sv=1.25"},
        {with(kEndRaw, 5, 6), "8L 0-0 410 ehx=6 egx=5 egy=6"},
        {with(kEndHref, kMissingWord, 6), "8L 0-0 810 ehx=x ehy=6"},
        {with(kEndGaze, 5, 6), "8L 0-0 1010 egx=0.5 egy=0.6"},
        {with(kEndResolution, 5, 6), "8L 0-0 202 erx=0.5 ery=0.6"},
        {with(kEndPupilSize, -5), "8L 0-0 82 ep=-5"},
        {with(kEndVelocity, kMissingWord), "8L 0-0 102 ev=x"},
        {with(kAverageRaw, 5, 6), "8L 0-0 420 shx=6 ahx=5 agx=5 agy=6"},
        {with(kAverageHref, 5, kMissingWord), "8L 0-0 820 ahx=5 ahy=x"},
        {with(kAverageGaze, 5, 6), "8L 0-0 1020 agx=0.5 agy=0.6"},
        {with(kAveragePupilSize, 5), "8L 0-0 84 ap=5"},
        {with(kAverageVelocity, 5), "8L 0-0 104 av=1.25"},
        {with(kPeakVelocity, 5), "8L 0-0 104 pv=1.25"},
        {with(kAuxWord1, 0x8001).set(kAuxWord2, 2), "8L 0-0 0 aux=32769 auxx=2"},
        {with(kStatusWord, 0xFFFF), "8L 0-0 2000 status=65535"},
        // The HREF x that a raw pair also fills belongs to whoever comes last.
        {with(kAverageRaw, 1, 2).set(kStartHref, 3, 4), "8L 0-0 c28 shx=3 shy=4 ahx=1 agx=1 agy=2"},
        {with(kStartHref, 3, 4).set(kAverageRaw, 1, 2), "8L 0-0 c28 shx=2 shy=4 ahx=1 agx=1 agy=2"},
        {EventRecord(REC_EFIX).raw("\x01\xFFQ\1\2"), "8L 0-0 82 ep=258"}, // unknown tags are skipped alone
        {saying("a\0b"s), "24L 1000-0 1 'a\0b'"s},
        {saying(longest), "24L 1000-0 1 '" + longest + "'"},
        {saying(longest + "m"), "-1"},
        // Offsets are cut off. Blanks before them go as well, but still count in the length.
        {saying("12 GO"), "24L 988-0 1 ' GO'"},
        {saying("+999 X"), "24L 1-0 1 ' X'"},
        {saying("  -5 GO"), "24L 1005-0 1 ' GO\0\0'"s},
        {saying("00000012 X"), "24L 999-0 1 '2 X'"},
        {saying(blanks + "7 x"), "24L 993-0 1 ' x" + Bytes(20, '\0') + "'"},
        {saying(blanks + " 7 x"), "24L 1000-0 1 '" + blanks + " 7 x'"},
        {saying("12 "), "24L 1000-0 1 '12 '"},
        {saying("1000 X"), "24L 1000-0 1 '1000 X'"},
    };
    for (const auto &[record, expected] : cases) {
        EXPECT_EQ(runAll(readerOf(record.bytes()), "e"), Texts{expected});
    }
}

TEST(Events, BlocksSetTheDecodingState) {
    const LogCapture log;
    BlockStart block{.time = 1000, .rate = 500, .gazeDivisor = 5, .velocityDivisor = 2, .modeWord = 0x9234};
    const BlockStart bare{2000, {}, LeftEye, {}, {}, {}, {}};
    RecordingWriter writer;
    writer.event(startSamples(block).set(kBlockFactor2, 3).set(kBlockValue, -1))
        .startEvents(block)
        .sample({.time = 1001});
    writer.endSamples(1002).endEvents(1004).startSamples(bare);
    RecordReader reader = readerOf(writer.records());
    for (const auto &[event, state] :
         {std::pair("15L 1000-1000 23c7 sp=5 ep=2 ap=-1 av=500 erx=-28108 status=34048 auxx=1",
                    "rate 500 divisors 5 2 mode 146 3 4 factors 1 3 value 65535 content 8500 0 0 times 0-1000"),
          {"17L 1000-1000 22c3 sp=5 ep=2 av=500 pv=1 erx=-28108 status=8191 aux=16384 auxx=1",
           "rate 500 divisors 5 2 mode 146 3 4 factors 1 1 value 65535 content 8500 4000 1fff times 0-1000"},
          {"1001 flags=40961",
           "rate 500 divisors 5 2 mode 146 3 4 factors 1 1 value 65535 content a501 4000 1fff times 1001-1001"},
          {"16L 1002-1002 1",
           "rate 500 divisors 5 2 mode 146 3 4 factors 1 1 value 65535 content 0 4000 1fff times 1001-1001"},
          {"18L 1004-1004 1",
           "rate 500 divisors 5 2 mode 146 3 4 factors 1 1 value 65535 content 0 0 1fff times 1001-1004"},
          {"15L 2000-2000 2001 pv=1 status=34048 auxx=1",
           "rate 500 divisors 0 0 mode 0 0 0 factors 1 1 value 1 content 8500 0 1fff times 1001-2000"}}) {
        EXPECT_EQ(run(reader, 'r'), event);
        EXPECT_EQ(textOf(reader.state()), state);
    }
    RecordReader oldRevision = readerOf(startEvents(block).set(kBlockFactor1, 7).bytes(), 0);
    EXPECT_EQ(run(oldRevision, 'e'),
              "17L 1000-1000 22c3 sp=5 ep=2 av=250 pv=1 erx=-28108 status=8191 aux=16384 auxx=7");
    EXPECT_EQ(textOf(oldRevision.state()),
              "rate 250 divisors 5 2 mode 9 1 1 factors 7 1 value 1 content 0 4000 1fff times 0-1000");
    EXPECT_EQ(log.take(), LogLines{});
    // Only a rate of 500 outlives the start of a block that states none, and only larger ones are reported.
    for (const auto &[before, stated, rate] :
         {std::array{250., 65535.5, 65535.5}, {499, 0, 250}, {1000, 0, 250}}) {
        block.rate = stated;
        RecordReader rated = readerOf(startSamples(block).bytes());
        rated.state().sampleRate = static_cast<float>(before);
        run(rated, 'e');
        EXPECT_EQ(rated.state().sampleRate, rate);
    }
    EXPECT_EQ(log.take(), LogLines{"Possible miss handle! sample per second is 1000.000000 resetting to 250 \n"});
}

TEST(Framing, TagWordsWaitForTheirDecoder) {
    const LogCapture log;
    EXPECT_EQ(runAll(readerOf("\xA0\1\0\0\0\1\x46\0\0\xC6\0\0\0\0\x80\1\1"s), "tessetesss"),
              (Texts{"1:40961", "-2", "1 flags=40961", "-2", "6R 0-0 0", "0:198", "6L 0-0 0", "-1",
                     "2 flags=32769", "-1"}));
    EXPECT_EQ(log.take(), (LogLines{"error reading trk file 7a r = 0 \n", "Error End of file Exception \n"}));
    EXPECT_EQ(runAll(readerOf(EventRecord(REC_MESSAGE).message("abc", 4).unterminated().bytes()), "etse"),
              (Texts{"-1", "1:0", "-1", "-1"}));
    EXPECT_EQ(log.take(),
              (LogLines{"error reading trk file 12\n", "Error End of file Exception \n", " bad status  1\n"}));
    RecordReader inPreamble = readerOf("\x80\x01");
    inPreamble.setPreambleFacts(false, 0);
    EXPECT_EQ(runAll(std::move(inPreamble), "tse"), (Texts{"2:0", "-1", "-1"}));
    EXPECT_EQ(runAll(RecordReader(), "tse"), (Texts{"-1:0", "-1", "-1"}));
    EXPECT_EQ(log.take(), (LogLines{" bad status  2\n", " bad status  -1\n"}));
}

TEST(Framing, WindowsMakeNoDifference) {
    const LogCapture log;
    const Bytes records = richRecording().records();
    const std::string calls(70, 'r'); // as many records as it holds
    const Texts texts = runAll(readerOf(records, 5, trk::InputStream::kDefaultWindowSize), calls);
    EXPECT_EQ(std::ranges::count(texts, "-1"), 0);
    for (const size_t window : {1U, 7U, 64U}) {
        EXPECT_EQ(runAll(readerOf(records, 5, window), calls), texts) << window;
    }
}

} // namespace
