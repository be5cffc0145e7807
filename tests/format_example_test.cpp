// The worked example of docs/recording-format.md, read as it stands there.
#include "support/walk.h"
#include "trkapi/trkapi.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <regex>
#include <string>

namespace {

using namespace trk_test;

// The bytes of the table's rows "| 0x0044 | 8F 00 | meaning |", whose offsets must follow one another.
Bytes documentedRecording() {
    std::ifstream document(TRKAPI_SOURCE_DIR "/docs/recording-format.md");
    const std::regex row(R"(\| 0x([0-9A-F]{4}) \| ([0-9A-F]{2}(?: [0-9A-F]{2})*) \|.*)");
    Bytes bytes;
    std::smatch match;
    for (std::string line; std::getline(document, line);) {
        if (!std::regex_match(line, match, row)) {
            continue;
        }
        EXPECT_EQ(std::stoul(match[1], nullptr, 16), bytes.size()) << line;
        const std::string hexadecimal = match[2];
        for (size_t i = 0; i < hexadecimal.size(); i += 3) {
            putByte(bytes, static_cast<unsigned>(std::stoul(hexadecimal.substr(i, 2), nullptr, 16)));
        }
    }
    return bytes;
}

class FormatExample : public testing::Test {
  protected:
    void SetUp() override {
        int error = 1;
        recording_ = trk_open_file(path_.c_str(), TRK_OPEN_CHECK, TRK_EVENTS_ALL, 1, &error);
        ASSERT_NE(recording_, nullptr);
        EXPECT_EQ(error, 0);
    }
    void TearDown() override { trk_close_file(recording_); }

    // The next item, which must be of this kind.
    ALLF_DATA next(int code) {
        EXPECT_EQ(trk_get_next_data(recording_), code);
        const ALLF_DATA *item = trk_get_float_data(recording_);
        EXPECT_NE(item, nullptr);
        return item != nullptr ? *item : ALLF_DATA{};
    }

    void expectSample(uint32_t time, float x, float y, float pupilSize, unsigned flags) {
        SCOPED_TRACE(time);
        const FSAMPLE_REC sample = next(REC_SAMPLE).sample;
        EXPECT_EQ(sample.time, time);
        EXPECT_EQ(sample.gaze_x[0], x);
        EXPECT_EQ(sample.gaze_y[0], y);
        EXPECT_EQ(sample.pupil_size[0], pupilSize);
        EXPECT_EQ(sample.flags, flags);
        EXPECT_EQ(sample.gaze_x[1], TRK_FIELD_ABSENT);
        EXPECT_EQ(sample.href_x[0], TRK_FIELD_ABSENT);
        EXPECT_EQ(sample.res_x, MISSING_DATA);
        EXPECT_EQ(sample.input, TRK_WORD_ABSENT);
    }

    void expectBlock(uint32_t time, unsigned state, float gazeDivisor, unsigned content) {
        SCOPED_TRACE(time);
        const FRECORDING block = next(REC_RECORDING).recording;
        EXPECT_EQ(block.time, time);
        EXPECT_EQ(block.state, state);
        EXPECT_EQ(block.record_type, TRK_BLOCK_SAMPLES);
        EXPECT_EQ(block.eye, TRK_EYE_LEFT);
        EXPECT_EQ(block.sample_rate, 500.0F);
        EXPECT_EQ(block.filter_level, 1);
        EXPECT_EQ(block.recording_mode, 1);
        EXPECT_EQ(block.gaze_prescaler, gazeDivisor);
        EXPECT_EQ(block.sample_content_flags, content);
    }

    const TemporaryDirectory directory_;
    const std::string path_ = directory_.save("example.trk", documentedRecording());
    _TRKFILE *recording_ = nullptr;
};

TEST_F(FormatExample, WalksAsDocumented) {
    EXPECT_EQ(trk_get_revision(recording_), 5);
    EXPECT_EQ(trk_get_pupilon_revision(recording_), 3);
    EXPECT_EQ(trk_get_element_count(recording_), 8U);

    expectBlock(1000, TRK_BLOCK_START, 10.0F, 0x8500);
    const FEVENT start = next(REC_STARTSAMPLES).event;
    EXPECT_EQ(start.start_time, 1000U);
    EXPECT_EQ(start.start_pupil_size, 10.0F);
    EXPECT_EQ(start.end_pupil_size, 10.0F);
    EXPECT_EQ(start.avg_velocity, 500.0F);
    EXPECT_EQ(start.status_word, 0x8500);
    expectSample(1000, 960.0F, 540.0F, 1000.0F, 0xA501);
    expectSample(1002, 960.5F, 539.5F, 999.0F, 0x8501);

    EXPECT_EQ(trk_get_next_data(recording_), REC_MESSAGE);
    const ALLF_DATA *message = trk_get_float_data(recording_);
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->event.start_time, 1003U);
    ASSERT_NE(message->event.message, nullptr);
    EXPECT_EQ(std::string(message->event.message->text, message->event.message->length), "GO 1");

    expectSample(1004, MISSING_DATA, MISSING_DATA, 0.0F, 0x8501);
    EXPECT_EQ(next(REC_ENDSAMPLES).event.start_time, 1006U);
    expectBlock(1006, TRK_BLOCK_END, 0.0F, 0);
    EXPECT_EQ(trk_get_next_data(recording_), 0);
}

TEST(FormatExampleBytes, AreWhatTheWriterWrites) {
    RecordingWriter writer("VERSION: PUPILON V2 5\nSOURCE: PUPILON LX\nENDP:\n");
    writer.startSamples(
        {.time = 1000, .rate = 500, .gazeDivisor = 10, .velocityDivisor = 10, .pupilMode = {}, .content = 0x0500});
    writer.sample(1000, {9600, 5400}).sample(1002, {9605, 5395}, 999);
    writer.sample(1004, {kMissingWord, kMissingWord}, 0).message(1003, "GO 1").endSamples(1006).end();
    EXPECT_EQ(writer.plain(), documentedRecording());
}

} // namespace
