// The worked example of docs/recording-format.md, read as it stands there.
#include "support/walk.h"

#include <fstream>
#include <gtest/gtest.h>
#include <regex>

namespace {

using namespace trk_test;

// The bytes of the table's rows "| 0x0044 | 8F 00 | meaning |", whose offsets must follow one another.
Bytes documentedRecording() {
    std::ifstream document(TRKAPI_SOURCE_DIR "/docs/recording-format.md");
    const std::regex row(R"(\| 0x([0-9A-F]{4}) \| ([0-9A-F]{2}(?: [0-9A-F]{2})*) \|.*)");
    Bytes bytes;
    std::smatch match;
    for (std::string line; std::getline(document, line);) {
        if (std::regex_match(line, match, row)) {
            EXPECT_EQ(std::stoul(match[1], nullptr, 16), bytes.size()) << line;
            std::istringstream hexadecimal(match[2]);
            for (unsigned byte = 0; hexadecimal >> std::hex >> byte;) {
                putByte(bytes, byte);
            }
        }
    }
    return bytes;
}

TEST(FormatExample, WalksAsDocumented) {
    const Recording recording = openBytes(documentedRecording(), {.flags = TRK_OPEN_CHECK});
    ASSERT_TRUE(recording);
    EXPECT_EQ(trk_get_revision(recording.handle()), 5);
    std::string walk;
    for (const Item &item : recording.walk()) {
        walk += textOf(item) + '\n';
    }
    EXPECT_EQ(walk, R"(+1000@500 110011 8500 0 /10
15L 1000-1000 22c3 sp=10 ep=10 av=500 pv=1 erx=273 status=34048 auxx=1
1000 ps=1000 ps=-32768 gx=960 gy=540 flags=42241
1002 ps=999 ps=-32768 gx=960.5 gy=539.5 flags=34049
24L 1003-0 1 'GO 1'
1004 ps=-32768 gx=1e+08 gy=1e+08 flags=34049
16L 1006-1006 1
-1006@500 110111 0 0 /0
)");
}

TEST(FormatExample, IsWhatTheWriterWrites) {
    RecordingWriter writer("VERSION: PUPILON V2 5\nSOURCE: PUPILON LX\nENDP:\n");
    writer.startSamples(
        {.time = 1000, .rate = 500, .gazeDivisor = 10, .velocityDivisor = 10, .pupilMode = {}, .content = 0x0500});
    writer.sample(1000, {9600, 5400}).sample(1002, {9605, 5395}, 999);
    writer.sample(1004, {kMissingWord, kMissingWord}, 0).message(1003, "GO 1").endSamples(1006).end();
    EXPECT_EQ(writer.plain(), documentedRecording());
}

} // namespace
