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
    out << " | rate " << state.sampleRate << " divisors " << state.gazeDivisor << ' ' << state.velocityDivisor
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
                                960,    0x8000, 0xFFFB, 540, 355, 0x8000, 900, 0xFFFF, 0x8001, 0xFFFF, 3}) +
                       "\x2F" + words + lists;
    const Bytes right =
        "\x5F\xFD\1" + words + wordsOf({9, 0x8000, 900, 0xFFFE, 0, 0}) + "\3" + wordsOf({1, 2, 3}) + lists;
    EXPECT_EQ(
        runAll(readerOf(both + right + "\x80\x01\xFF"), "sss"),
        (Texts{"1000 px=1 py=2 py=4 hx=5 hx=7 hy=6 ps=900 ps=-1 gx=96 gx=-0.5 gy=x gy=54 rx=35.5 e=1 e=2 e=3 e=4 "
               "e=5 e=6 e=7 e=8 flags=65533 in=65535 buttons=3 type=47 status=32769",
               "1001 px=1 py=2 hx=3 hy=4 ps=9 gx=0.5 gy=0.6 rx=0.7 ry=0.8 e=1 e=2 e=3 flags=24573",
               "1256 flags=32769"}));
}

} // namespace
