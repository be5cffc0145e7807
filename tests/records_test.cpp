// Tag words, samples and events, one record at a time.
#include "io/file_input_stream.h"
#include "records/record_reader.h"
#include "support/scenarios.h"
#include "support/walk.h"

#include <bit>
#include <gtest/gtest.h>

namespace {

using namespace trk_test;
using namespace std::string_literals;
using trk::EData, trk::RecordReader, trk::Sample;

constexpr int kUnreadable = -1, kOtherKind = -2;

RecordReader readerOf(const Bytes &records, uint16_t revision = 5, bool cutMessageOffsets = false,
                      size_t window = trk::InputStream::kDefaultWindowSize) {
    static const TemporaryDirectory directory;
    RecordReader reader(cutMessageOffsets);
    reader.setStream(std::make_unique<trk::FileInputStream>(directory.save("records", records).c_str(), window));
    std::filesystem::remove(directory.path("records"));
    reader.setPreambleFacts(true, revision);
    return reader;
}

Sample nextSample(RecordReader &reader, uint32_t expectedTime = 0) {
    Sample sample;
    std::fill_n(reinterpret_cast<char *>(&sample), sizeof(sample), '\x55'); // must not shine through
    EXPECT_EQ(reader.read_combfile_sample(&sample, expectedTime, true), 0);
    return sample;
}

EData nextEvent(RecordReader &reader) {
    EData event;
    EXPECT_EQ(reader.read_combfile_event(event, true), 0);
    return event;
}

EData decoded(const EventRecord &record) {
    RecordReader reader = readerOf(record.bytes());
    return nextEvent(reader);
}

TEST(Samples, EveryGroupInBothEyes) {
    RecordingWriter writer;
    const SkipList skipped{{7, "abc"}, {8, "d"}};
    writer.sample({.time = 1000,
                   .eyes = BothEyes,
                   .pupil = EyePositions{{-1, 2}, {kMissingWord, -4}},
                   .href = EyePositions{{5, -6}, {7, kMissingWord}},
                   .gaze = EyePositions{{960, kMissingWord}, {-5, 540}},
                   .resolution = Position{355, kMissingWord},
                   .pupilSize = EyeWords{900, -1},
                   .status = 0x8001,
                   .input = 0xFFFF,
                   .buttons = 3,
                   .extension = ExtensionBlock{0x2F, {1, 2, 3, 4, 5, 6, 7, 0xFFF8}}, // names 15, holds 8
                   .skipList1 = skipped,
                   .skipList2 = SkipList{}});
    writer.sample({.time = 1001, .eyes = RightEye, .pupilSize = EyeWords{0, 800}});
    RecordReader reader = readerOf(writer.records());
    reader.state().gazeDivisor = 10;
    const Sample full = nextSample(reader);
    const FSAMPLE_REC expected{.time = 1000,
                               .pupil_x = {-1, -32768},
                               .pupil_y = {2, -4},
                               .href_x = {5, 7},
                               .href_y = {-6, -32768},
                               .pupil_size = {900, -1},
                               .gaze_x = {96, -0.5F},
                               .gaze_y = {MISSING_DATA, 54},
                               .res_x = 35.5F,
                               .res_y = MISSING_DATA,
                               .ext_data = {1, 2, 3, 4, 5, 6, 7, 0xFFF8},
                               .flags = 0xFFFD,
                               .input = 0xFFFF,
                               .buttons = 3,
                               .ext_type = 0x2F,
                               .status = 0x8001};
}

} // namespace
