// Tag words, samples and events, one record at a time, compared as texts.
#include "base/exception.h"
#include "io/file_input_stream.h"
#include "records/record_reader.h"
#include "support/walk.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>

namespace {

using namespace trk_test;
using namespace std::string_literals;
// A reader of records in a file, in the middle of a block with divisors 10 and 4.
struct Reader {
    explicit Reader(const Bytes &records, uint16_t revision = 5, size_t window = 64)
        : stream(fileWith(records).c_str(), window), reader(stream, revision, true) {
        set([](trk::DecodingState &state) { state.gazeDivisor = 10, state.velocityDivisor = 4; });
    }
    template <class Change> void set(Change change) {
        trk::DecodingState state = reader.state();
        change(state);
        reader.setState(state);
    }

    // What the next records read, each with ";".
    std::string read(int count, uint32_t expectedTime = 0) {
        std::string texts;
        while (count-- > 0) {
            texts += next(expectedTime) + ';';
        }
        return texts;
    }

  private:
    static std::string fileWith(const Bytes &records) {
        static const TemporaryDirectory directory;
        return directory.save("r", records);
    }
    std::string next(uint32_t expectedTime) try {
        const trk::RecordHead record = reader.next();
        if (record.kind == trk::RecordKind::EndMark) {
            return "end";
        }
        trk::Sample sample;
        FEVENT event;
        std::memset(static_cast<void *>(&sample), 0x55, sizeof(sample)); // must not shine through
        std::memset(static_cast<void *>(&event), 0x55, sizeof(event));
        const bool isSample = record.kind == trk::RecordKind::SampleRecord;
        const bool read =
            isSample ? reader.readSample(record.tag, sample, expectedTime) : reader.readEvent(record.tag, event);
        return !read ? "unreadable" : isSample ? textOf(sample) : textOf(event);
    } catch (const trk::TRKException &error) {
        return error.text();
    }

  public:
    trk::FileInputStream stream;
    trk::RecordReader reader;
};

TEST(Samples, CarryEveryGroupOrNone) {
    const Bytes lists = "\3\7abc\1\7d\0\1\7a\0"s;
    const Bytes both =
        "\xFF\xFD\0\0\3\xE8\0\1\0\2\x80\0\0\4\0\5\0\6\0\7\x80\0\3\xC0\x80\0\xFF\xFB\2\x1C\1\x63\x80\0\3\x84"
        "\xFF\xFF\x80\1\xFF\xFF\0\3\x2F\0\1\0\2\0\3\0\4\0\5\0\6\0\7\0\x8"s; // says 15 words, holds 8
    const Bytes right = "\x5F\xFD\1\0\1\0\2\0\3\0\4\0\5\0\6\0\7\0\x8\xFF\xFE\0\5\0\6\0\0\3\0\1\0\2\0\3"s;
    const Bytes records = both + lists + right + lists + "\x80\1\xFF\x80\1\1";
    const std::string expected =
        "1000 px=1 py=2 py=4 hx=5 hx=7 hy=6 ps=900 ps=-1 gx=96 gx=-0.5 gy=1e+08 gy=54 rx=35.5 e=1 e=2 e=3 e=4 "
        "e=5 e=6 e=7 e=8 flags=65533 in=65535 buttons=3 type=47 status=32769;"
        "1001 px=1 py=2 hx=3 hy=4 ps=-32768 ps=-2 gx=0.5 gy=0.6 rx=0.7 ry=0.8 e=1 e=2 e=3 flags=24573 in=6 "
        "type=3 status=5;1256 flags=32769;1257 flags=32769;";
    for (const size_t window : {1U, 7U, 64U, 65536U}) {
        EXPECT_EQ(Reader(records, 5, window).read(4), expected);
    }
    // Time of the sample before, time that the index knows, delta, decoded time.
    for (const auto &[base, known, delta, time] :
         {std::array{4990U, 0U, 2U, 4992U}, {4990, 5000, 2, 5000}, {5000, 1, 2, 1}, {0xFFFFFFFF, 0, 3, 2}}) {
        Reader reader("\x80\x01"s + static_cast<char>(delta));
        reader.set([base = base](trk::DecodingState &state) { state.sampleTimeBase = base; });
        EXPECT_EQ(reader.read(1, known), std::to_string(time) + " flags=32769;");
        EXPECT_EQ(reader.reader.state().sampleTimeBase, time);
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
        {endSamples(1000), "16L 1000-1000 1"},
        {endEvents(1000).endTime(1200), "18L 1000-1200 41"},
        // A raw pair also fills an HREF x, which belongs to whoever comes last.
        {with(kStartRaw, 5, kMissingWord), "8L 0-0 408 shx=-32768 sgx=5 sgy=-32768"},
        {with(kEndRaw, 5, 6), "8L 0-0 410 ehx=6 egx=5 egy=6"},
        {with(kAverageRaw, 1, 2).set(kStartHref, 3, 4), "8L 0-0 c28 shx=3 shy=4 ahx=1 agx=1 agy=2"},
        {with(kStartHref, 3, 4).set(kAverageRaw, 1, 2), "8L 0-0 c28 shx=2 shy=4 ahx=1 agx=1 agy=2"},
        {with(kEndHref, kMissingWord, 6).set(kStartVelocity, 5), "8L 0-0 911 ehx=1e+08 ehy=6 sv=1.25"},
        {with(kStartGaze, -5, kMissingWord).set(kEndPupilSize, 7), "8L 0-0 108a sgx=-0.5 sgy=1e+08 ep=7"},
        {with(kEndGaze, 5, 6).set(kAverageVelocity, 5), "8L 0-0 1114 egx=0.5 egy=0.6 av=1.25"},
        {with(kAverageHref, 5, kMissingWord).set(kStartPupilSize, 7), "8L 0-0 8a1 sp=7 ahx=5 ahy=1e+08"},
        {with(kAverageGaze, 5, 6).set(kEndVelocity, kMissingWord), "8L 0-0 1122 agx=0.5 agy=0.6 ev=1e+08"},
        {with(kStartResolution, kMissingWord, 5).set(kPeakVelocity, 5), "8L 0-0 305 pv=1.25 srx=1e+08 sry=0.5"},
        {with(kEndResolution, 5, 6).set(kAveragePupilSize, -1), "8L 0-0 286 ap=-1 erx=0.5 ery=0.6"},
        {with(kAuxWord1, 0x8001).set(kAuxWord2, 2), "8L 0-0 0 aux=32769 auxx=2"},
        {with(kStatusWord, 0xFFFF).raw("\x01\xFF"), "8L 0-0 2000 status=65535"}, // unknown tags are skipped
        {saying("a\0b"s), "24L 1000-0 1 'a\0b'"s},
        {saying(longest), "24L 1000-0 1 '" + longest + "'"},
        {saying(longest + "m"), "unreadable"},
        // Offsets are cut off. Blanks before them go as well, but still count in the length.
        {saying("+999 X"), "24L 1-0 1 ' X'"},
        {saying("  -5 GO"), "24L 1005-0 1 ' GO\0\0'"s},
        {saying("00000012 X"), "24L 999-0 1 '2 X'"},
        {saying(blanks + "7 x"), "24L 993-0 1 ' x" + Bytes(20, '\0') + "'"},
        {saying(blanks + " 7 x"), "24L 1000-0 1 '" + blanks + " 7 x'"},
        {saying("12 "), "24L 1000-0 1 '12 '"},
        {saying("1000 X"), "24L 1000-0 1 '1000 X'"},
    };
    for (const auto &[record, expected] : cases) {
        EXPECT_EQ(Reader(record.bytes()).read(1), expected + ';');
    }
}

TEST(Events, BlocksSetTheDecodingState) {
    const LogCapture log;
    BlockStart block{.time = 1000, .rate = 500, .gazeDivisor = 5, .velocityDivisor = 2, .modeWord = 0x9234};
    RecordingWriter writer;
    writer.event(startSamples(block).set(kBlockFactor2, 3))
        .sample({.time = 1001, .gaze = EyePositions{{960, 1}, {}}});
    writer.startEvents(block)
        .endSamples(1002)
        .startSamples({2000, {}, LeftEye, {}, {}, {}, {}})
        .raw("\x84\1\1\3\xC0\0\1"s);
    EXPECT_EQ(Reader(writer.records()).read(6),
              "15L 1000-1000 23c7 sp=5 ep=2 av=500 erx=-28108 status=34048 auxx=1;1001 gx=192 gy=0.2 flags=41985;"
              "17L 1000-1000 22c3 sp=5 ep=2 av=500 pv=1 erx=-28108 status=8191 aux=16384 auxx=1;16L 1002-1002 1;"
              "15L 2000-2000 2001 pv=1 status=34048 auxx=1;1002 gx=960 gy=1 flags=33793;");
    // Rate before, rate stated, rate from there on. Only one of 500 outlives a block that states none, and only
    // larger ones are reported; revision 0 knows one rate.
    for (const auto &[before, stated, rate, revision] : {std::array{250., 65535.5, 65535.5, 1.},
                                                         {499, 0, 250, 1},
                                                         {500, 0, 500, 1},
                                                         {1000, 0, 250, 1},
                                                         {500, 500, 250, 0}}) {
        block.rate = stated;
        Reader rated(startSamples(block).bytes(), static_cast<uint16_t>(revision));
        rated.set([known = static_cast<float>(before)](trk::DecodingState &state) { state.sampleRate = known; });
        rated.read(1);
        EXPECT_EQ(rated.reader.state().sampleRate, rate);
        EXPECT_EQ(rated.reader.state().recordingMode, revision == 0 ? 9 : 0x92);
        EXPECT_EQ(rated.reader.state().filterLevel, revision == 0 ? 1 : 3);
    }
    EXPECT_EQ(log.take(), "Possible miss handle! sample per second is 1000.000000 resetting to 250 \n");
}

TEST(Framing, TagWordsTellTheKind) {
    const LogCapture log;
    EXPECT_EQ(Reader("\xA0\1\0\0\0\1\x46\0\0\xC6\0\0\0\0\x80\1\1"s).read(7),
              "1 flags=40961;6R 0-0 0;6L 0-0 0;end;2 flags=32769;End of file Exception;unreadable;");
    EXPECT_EQ(Reader("\x18\0^\0\4abc"s).read(1), "End of file Exception;");
    EXPECT_EQ(log.take(), "error reading trk file 7a r = 0 \nerror reading trk file 12\n");
}

} // namespace
