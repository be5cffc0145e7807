// Writes the seeds of all fuzz targets into a folder: make_fuzz_seeds fuzz/corpus
#include "support/files.h"
#include "support/scenarios.h"
#include "trkapi/trkapi.h"

#include <cstdio>
#include <exception>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace raw = trkwriter::raw;
using raw::Bytes;
using raw::RecordingWriter;

using namespace std::string_literals;

namespace {

// Second byte of an input: events (2 bits), samples, fixed resolution, container (2 bits), source of the preamble.
enum Choices : unsigned { kEvents = 1, kSamples = 4, kResolution = 8, kRecords = 0x10, kCompress = 0x20 };
constexpr unsigned kModel2 = 0x40;
constexpr unsigned kAll = kEvents | kSamples;

Bytes head(unsigned flags, unsigned choices) {
    Bytes bytes;
    raw::putByte(bytes, flags);
    raw::putByte(bytes, choices);
    return bytes;
}

RecordingWriter shortBlock(double rate, uint32_t start) {
    RecordingWriter writer;
    writer.message(start - 1, "TRIALID 3").startBlock({.time = start, .rate = rate, .content = 0x0F00});
    for (uint32_t i = 0; i < 40; ++i) {
        const auto time = start + static_cast<uint32_t>(1000.0 * i / rate);
        const int x = static_cast<int>(i * i);
        writer.sample({.time = time,
                       .href = raw::EyePositions{{x, -x}, {}},
                       .gaze = raw::EyePositions{{900 + x, 500 - x}, {}},
                       .resolution = raw::Position{30, 31}});
    }
    return writer.endBlock(start + 200).message(start + 201, "TRIAL OK").end();
}

// Lines on the clock of the program that showed the stimuli, around those of the rich recording.
constexpr std::string_view kMessageLog =
    "10.0 started\n20.5 TRACKER_TIME 3 1000.25\n21.5 frame 1\n30 TRACKER_TIME 4 "
    "1010\n52.5 frame 2\nno time\n230 key 4 pressed\n240 Quit logger\n";

// Messages that mark the tracker's time: beside sync lines of the log, beside another line, alone.
RecordingWriter synchronised() {
    RecordingWriter writer;
    writer.startEvents({.time = 990});
    for (const uint32_t time : {995U, 1000U, 1001U, 1008U, 1011U, 1033U, 1034U, 1210U}) {
        writer.message(time, "TRACKER_TIME 3 1000").message(time + 2, "other");
    }
    return writer.endEvents(1300).end();
}

// Numbers the seeds of each target.
class Seeds {
  public:
    explicit Seeds(std::filesystem::path folder) : folder_(std::move(folder)) {}

    void save(const std::string &target, const Bytes &bytes) {
        std::filesystem::create_directories(folder_ / target);
        trk_test::save(folder_ / target / ("seed-" + std::to_string(++counts_[target])), bytes);
    }

  private:
    std::filesystem::path folder_;
    std::map<std::string, int> counts_;
};

void saveOpenings(Seeds &seeds, const std::string &target, const RecordingWriter &rich) {
    seeds.save(target, head(TRK_OPEN_NO_CHECK, kAll) + rich.plain());
    seeds.save(target, head(TRK_OPEN_CHECK, kAll) + rich.compressed());
    seeds.save(target, head(TRK_OPEN_CHECK, kEvents | kResolution) + rich.plain(raw::kMagicPlain));
    for (const unsigned flags : {0U, 1U, 2U, 18U}) {
        seeds.save(target, head(flags, kAll | kRecords) + rich.records());
    }
    const Bytes cut = rich.records().substr(0, rich.records().size() / 2);
    seeds.save(target, head(TRK_OPEN_CHECK_AND_FILL | TRK_OPEN_TOLERANT, kAll | kRecords) + cut);
    seeds.save(target, head(TRK_OPEN_TOLERANT, kAll | kCompress) + cut);
    seeds.save(target, head(2, kAll | kRecords | kCompress) + raw::deflated(rich.records()));
    for (const double rate : {250.0, 1000.0, 2000.0}) {
        seeds.save(target, head(2, kAll | kRecords | kModel2 | kResolution) + shortBlock(rate, 3000).records());
    }
    seeds.save(target, head(2, kAll | kRecords) + shortBlock(500, 450000000).records());
}

void saveScripts(Seeds &seeds, const RecordingWriter &rich) {
    using namespace std::string_view_literals;
    // Numbers of calls and what they take; see the target.
    for (const std::string_view script :
         {"\x01\xFF"sv, "\x02\x01\x04\x01\x05\x03\x01\x00\x05\x06\x01\x00"sv,
          "\x02\x02\x0D\x0F\x20\x04\x01\x06\x04\x01\x06\x0B\x00"sv,
          "\x01\x06\x07\x00\x01\x08\x07\x01\x08\x00\x00\x0A\x01\x0A\x00\x09\x00\x0A\x00"sv,
          "\x01\x0C\x0B\x02\x0C\x10\x0D\x01\x00\x00\xC8\x42\x01\x20\x0D\x80\x00\x00\x80\x44\x00\x00\x80\x3F"sv,
          "\x01\x40\x0E\x04\x00\x00\x00\x00\xC7\x0F\x20\x02\x13IDOK\x04\x00"sv}) {
        Bytes calls;
        raw::putByte(calls, static_cast<unsigned>(script.size()));
        calls += script;
        seeds.save("navigation", head(1, kAll | kRecords) + calls + rich.records());
        seeds.save("navigation", head(2, kAll | kRecords) + calls + shortBlock(1000, 990).records());
    }
}

void saveLogs(Seeds &seeds, const RecordingWriter &rich) {
    for (const unsigned flags : {0U, 1U, 2U, 18U}) {
        for (const auto length : {kMessageLog.size(), kMessageLog.size() / 2}) {
            const Bytes lengthWord{static_cast<char>(length & 0xFF), static_cast<char>(length >> 8)};
            const Bytes front = head(flags, kAll | kRecords) + lengthWord + Bytes(kMessageLog.substr(0, length));
            seeds.save("message_log", front + rich.records());
            seeds.save("message_log", front + synchronised().records());
        }
    }
}

void saveRecipes(Seeds &seeds, const RecordingWriter &rich) {
    seeds.save("differential", head(TRK_OPEN_NO_CHECK, kAll) + rich.plain());
    seeds.save("differential", head(TRK_OPEN_TOLERANT, kAll) + rich.compressed());
    seeds.save("differential", head(TRK_OPEN_CHECK, kAll | kRecords) + rich.records());
    seeds.save("differential", head(TRK_OPEN_CHECK_AND_FILL, kAll | kRecords) + rich.records());
    for (unsigned flags = 0; flags < 3; ++flags) {
        for (const unsigned source : {0x00U, 0x40U, 0x80U}) {
            Bytes recipe;
            for (unsigned i = 0; i < 48; ++i) {
                raw::putByte(recipe, i * i * 37 + source + flags * 71);
            }
            seeds.save("differential", head(flags, kAll | kCompress | source) + recipe);
            // One even block of 765 samples with everything, and jumps to samples 420, 436 ... of it, where the
            // walk has read ahead.
            Bytes longBlock("\x00\x22\xF0\x1F\xFF\x30\x09seed", 11);
            for (int sample = 420; sample < 516; sample += 16) {
                longBlock.append({0, static_cast<char>(sample & 0xFF), static_cast<char>(sample >> 8), 7});
            }
            seeds.save("differential", head(flags, kAll | kCompress | source) + longBlock);
        }
    }
}

// First the choices, see the target.
void saveStreams(Seeds &seeds, const RecordingWriter &rich) {
    using namespace std::string_view_literals;
    seeds.save("inflation", "\0"s + raw::deflated(rich.records()));
    seeds.save("inflation", "\0"s + raw::deflated(Bytes(60000, 'x')));
    for (const std::string_view damages :
         {"\x02\x00"sv, "\x03\x01\x90\x00\x04"sv, "\x07\x02\x30\x01\x80\x60\x02\x01"sv, "\x06\x01\x00\x02\x00"sv,
          "\x07\x01\x00\x02\x00"sv, "\x02\x01\xFF\xFF\x01"sv}) {
        seeds.save("inflation", Bytes(damages) + rich.records());
    }
}

} // namespace

int main(int argc, char **argv) {
    try {
        Seeds seeds(argc > 1 ? argv[1] : "fuzz/corpus");
        const RecordingWriter rich = trk_test::richRecording();
        saveOpenings(seeds, "open", rich);
        saveOpenings(seeds, "door", rich);
        saveOpenings(seeds, "bulk", rich);
        saveScripts(seeds, rich);
        saveLogs(seeds, rich);
        saveRecipes(seeds, rich);
        saveStreams(seeds, rich);
        return 0;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
