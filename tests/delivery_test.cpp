// What is put right on the way from the index to the caller.
#include "api/open_recording.h"
#include "support/walk.h"

#include <gtest/gtest.h>
#include <random>

namespace {

using namespace trk_test;

std::vector<FSAMPLE_REC> samplesOf(const Bytes &bytes, const OpenOptions &options = {TRK_OPEN_KEEP_TIMES}) {
    std::vector<FSAMPLE_REC> samples;
    for (const Item &item : openBytes(bytes, options).walk()) {
        if (item.code == REC_SAMPLE) {
            samples.push_back(item.sample());
        }
    }
    return samples;
}

// Two blocks at 1000 and 11000 ms, 2000 samples a second, gaze divisors 10 and 1.
Bytes twoBlocks(int samples) {
    RecordingWriter writer;
    for (const uint32_t start : {1000U, 11000U}) {
        writer.startBlock({.time = start, .rate = 2000, .gazeDivisor = start == 1000 ? 10 : 1});
        for (int i = 0; i < samples; ++i) {
            const uint32_t time = start + static_cast<uint32_t>(i / 2);
            if (i == samples / 2) {
                writer.message(start - 1, "between the samples of the file");
            }
            writer.sample({.time = time,
                           .gaze = EyePositions{{i % 500 * 7 % 997, i % 100}, {}},
                           .resolution = Position{9, 9}});
        }
        writer.endBlock(start + static_cast<uint32_t>(samples / 2));
    }
    return writer.end().plain();
}

TEST(Delivery, SaysWhatCannotBeRead) {
    const TemporaryDirectory directory;
    const std::string path = directory.save("long.trk", twoBlocks(19000)); // longer than the read window
    const LogCapture log;
    Recording recording(path);
    std::filesystem::resize_file(path, 0);
    for (int code = 0; code != REC_SAMPLE;) {
        code = recording.step();
        EXPECT_EQ(recording.fetch(code).fetched, code == REC_RECORDING);
        const std::string lines = LogCapture::take();
        if (code == REC_SAMPLE) {
            EXPECT_EQ(lines, "error reading trk file 9\nerror reading trk file 5\n"
                             "Error Error reading Sample - type \n");
        } else if (code == REC_STARTSAMPLES) {
            const std::string position = std::to_string(RecordingWriter().plain().size() + 2);
            EXPECT_EQ(lines, "error reading trk file 11\nerror reading trk file 4   -1 " + position +
                                 "\nError Error reading event - type(readItem) \n");
        }
    }
}

TEST(Delivery, FlagsKeysThatAreNotTwiceTheTime) {
    RecordingWriter writer;
    const auto samples = samplesOf(
        writer.startBlock({.time = 1}).sample(9).sample(9).sample(0x7FFFFFFF).sample(0x80000000).end().plain());
    for (const std::size_t number : {0U, 1U, 2U, 3U}) {
        EXPECT_EQ(samples[number].flags & TRK_SAMPLE_DUPLICATE_TIME, number % 2 * 2);
    }
}

// A placeholder has velocities where a fixed resolution stands in for its own.
TEST(Delivery, HidesBlinksAndFillsGapsWithPlaceholders) {
    RecordingWriter writer(preamble(5, "V2"));
    writer.startBlock({.time = 1000, .rate = 500}).event(EventRecord(REC_SBLINK, LeftEye).startTime(1009));
    for (const int x : {0, 2, 4, 8, 10}) {
        writer.sample({.time = 1000 + static_cast<uint32_t>(x),
                       .eyes = BothEyes,
                       .gaze = EyePositions{{x, 2}, {3, 4}},
                       .pupilSize = EyeWords{900, 910},
                       .buttons = 7});
    }
    CONFIG fixed{.velocity_param_1 = 10, .velocity_param_2 = 10};
    FSAMPLE_REC dummy{.time = 1006, .flags = TRK_SAMPLE_LEFT | TRK_SAMPLE_RIGHT, .sort_key = 2012};
    std::fill_n(dummy.pupil_x, 40, MISSING_DATA);
    std::ranges::copy(std::array{900, 910}, dummy.pupil_size);
    for (CONFIG *const config : {static_cast<CONFIG *>(nullptr), &fixed}) {
        if (config != nullptr) {
            std::ranges::copy(std::array{100, 0, 0, 0}, dummy.gaze_vel_x);
            std::ranges::copy(std::array{100, 0, 0, 0}, dummy.gaze_fvel_x);
        }
        const LogCapture log;
        const auto samples = samplesOf(writer.end().plain(), {.flags = TRK_OPEN_CHECK_AND_FILL, .config = config});
        ASSERT_EQ(samples.size(), 6U);
        EXPECT_EQ((Item{REC_SAMPLE, true, {samples[3]}}), (Item{REC_SAMPLE, true, {dummy}}));
        EXPECT_EQ(samples[4].gaze_x[0], 8); // before and in the blink
        EXPECT_EQ(std::pair(samples[5].gaze_x[0], samples[5].gaze_y[0]), std::pair(MISSING_DATA, MISSING_DATA));
        EXPECT_EQ(std::pair(samples[5].gaze_x[1], samples[5].gaze_y[1]), std::pair(3.0F, 4.0F));
    }
}

// Samples of an eye that does not move, one each millisecond.
void addResting(RecordingWriter &writer, uint32_t from, uint32_t to) {
    for (uint32_t time = from; time < to; ++time) {
        writer.sample({.time = time, .gaze = EyePositions{}, .resolution = Position{9, 9}});
    }
}

// The second and third samples stand in the file the other way round. Strict reading believes the index.
TEST(Batches, ReadOnInTheOrderOfTheFile) {
    RecordingWriter writer;
    writer.startBlock({.time = 1000, .rate = 60}).sample(1000).sample(1002).sample(1001).sample(1003).end();
    for (const int flags : {int{TRK_OPEN_CHECK}, int{TRK_OPEN_CHECK_AND_FILL}}) {
        std::ostringstream found;
        for (const FSAMPLE_REC &sample : samplesOf(writer.plain(), {flags})) {
            found << sample.time << ':' << std::hex << sample.flags << std::dec << ' ';
        }
        EXPECT_EQ(found.str(), flags == TRK_OPEN_CHECK ? "1000:a501 1002:8503 1001:a503 1003:8501 "
                                                       : "1000:a501 1001:c000 1002:c000 1003:8501 ");
    }
}

// When the sample at 1448 is delivered, the queue is refilled from there. All up to 1511 is in it and refused, as
// are thousands that repeat the last two times; then come the samples that the velocity at 1505 needs.
TEST(Batches, PassOverSamplesThatGoBack) {
    for (const uint32_t refused : {4095U, 4096U}) {
        RecordingWriter writer;
        writer.startBlock({.time = 1000});
        addResting(writer, 1000, 1512);
        for (uint32_t i = 1512 - 1448; i < refused; ++i) {
            addResting(writer, 1510 + i % 2, 1511 + i % 2);
        }
        addResting(writer, 1512, 1514); // repeated below: what was refused before does not count
        addResting(writer, 1512, 1550);
        EXPECT_EQ(samplesOf(writer.end().plain())[505].gaze_fvel_x[0], refused < 4096 ? 0 : MISSING_DATA);
    }
}

TEST(Batches, LackVelocitiesOutsideOfBlocks) {
    RecordingWriter writer;
    addResting(writer, 1000, 1050);
    const LogCapture log;
    for (const FSAMPLE_REC &sample : samplesOf(writer.end().plain())) {
        EXPECT_EQ(std::pair(sample.gaze_x[0], sample.gaze_fvel_x[0]), std::pair(0.0F, MISSING_DATA));
    }
    EXPECT_TRUE(LogCapture::take().ends_with(
        "WARNING: TRK FILE MAY BE CORRUPTED. Samples 1049 found without start recording \n"));
}

// A recording of two blocks, read in any order.
class AnyOrder : public testing::Test {
  protected:
    static constexpr std::size_t kSamples = 3000;
    static constexpr std::size_t kStart = 2; // of the first block, by item
    static constexpr std::size_t kFirst = 4; // first sample
    const Bytes bytes_ = twoBlocks(kSamples);
    TemporaryDirectory directory_;
    std::unique_ptr<trk::TRKFile> opened_ =
        trk::openRecording({directory_.save("blocks.trk", bytes_).c_str(), TRK_OPEN_CHECK, 1, 1, nullptr});
    trk::TRKFile &file_ = *opened_;

    AnyOrder() { file_.step(), file_.step(); } // onto the start of the block
    FSAMPLE_REC at(std::size_t item) {
        file_.goToItem(static_cast<trk::ItemNumber>(item));
        file_.step();
        return file_.fetch()->sample;
    }
};

// Velocities lack at the edges of a block only: the queue is refilled before its end is reached.
TEST_F(AnyOrder, GivesTheSameSamples) {
    const auto expected = samplesOf(bytes_);
    for (std::size_t i = 0; i < kSamples; ++i) {
        ASSERT_EQ(expected[i].gaze_fvel_x[0] == MISSING_DATA, i < 19 || i + 19 >= kSamples) << i;
    }
    at(kStart);
    std::mt19937 random(1);
    for (int jump = 0; jump < 100; ++jump) {
        const std::size_t start = random() % (kSamples - 70);
        EXPECT_EQ(at(kFirst + start).gaze_x[0], expected[start].gaze_x[0]);
        const std::size_t place = start + 19 + random() % 45; // the neighbours that it needs are at hand
        EXPECT_EQ((Item{REC_SAMPLE, true, {at(kFirst + place)}}), (Item{REC_SAMPLE, true, {expected[place]}}))
            << place;
    }
}

// Samples read by the start of a block that was decoded last, wherever they stand. A batch that went on into the
// next block would decode its start.
TEST_F(AnyOrder, TakesTheDivisorOfTheStartReadLast) {
    EXPECT_EQ(at(kFirst + 3).gaze_x[0], 21); // the scan ended in the second block
    at(kStart);
    EXPECT_EQ(at(kFirst + kSamples - 1).gaze_x[0], 50.2F);
    EXPECT_EQ(at(kFirst + 3).gaze_x[0], 2.1F);
}

// Events: a letter, the start, "-" and the end, "r" for the right eye; "!" first for strict checks. B b are
// blinks, A a saccades, F f fixations, < > starts and ends of events blocks, m messages. Then the start times that
// the ends of eye events are delivered with.
TEST(EventPairing, StartsEndsAtTheirOwnStarts) {
    constexpr std::string_view kLetters = "...BbAaFf........<>.....m"; // by code
    for (const std::string text :
         {"!A10 a12-20: 12", "A10 B12 b12-14 a15-20: 12 15", "!A10 B12 b12-14 a15-20: 12 10",
          "!A10 B11 a12-20: 12", "!A10 B12 b12-14 F15 a17-20: 12 10", "!<1 >5 B10 <20 b22-24r: 22",
          "!A10 B12r b12-14r a15-20: 12 15", "F10 f12-20: 12", "!F10 A11 a11-12 f12-20 f13-21: 11 10 10",
          "!f12-20: 4294967295",
          "!A10 B12 b12-14 F15 f15-16 a17-20: 12 15 4294967295", // the fixation made the saccade forgotten
          "!A10 B12 b12-14 B16 b16-18 a19-20: 12 10",            // joined blinks
          // Moved onto a block: starts to 20, ends to 5. The end of a moved blink looks for its start.
          "!<1 >5 A10 B12 <20 b22-24 a23-30: 20 20", "!<1 >5 b6-8 <20: 5", "!<1 >5 B10 <20 F21 b22-24: 22",
          "!<1 >5 B10 <20 F21r m21 b22-24: 20", "<1 >5 B10 <20 b22-24: 22"}) {
        const bool strict = text[0] == '!';
        const std::size_t colon = text.find(':');
        RecordingWriter writer;
        std::istringstream tokens(text.substr(strict ? 1 : 0, colon - (strict ? 1 : 0)));
        for (std::string token; tokens >> token;) {
            uint32_t start = 0;
            uint32_t end = 0;
            const bool hasEnd = std::sscanf(token.c_str(), "%*c%u-%u", &start, &end) == 2;
            EventRecord event(static_cast<int>(kLetters.find(token[0])), token.back() == 'r' ? RightEye : LeftEye);
            writer.event(hasEnd ? event.times(start, end) : event.startTime(start));
        }
        Recording recording = openBytes(writer.end().plain(), {strict ? TRK_OPEN_CHECK_AND_FILL : TRK_OPEN_CHECK});
        const auto start = [&recording](int code) { // the other events are seen without a fetch
            const bool end = code == REC_EBLINK || code == REC_ESACC || code == REC_EFIX;
            return end ? ' ' + std::to_string(recording.fetch(code).time()) : "";
        };
        EXPECT_EQ(recording.told(start), text.substr(colon + 1)) << text;
    }
}

// The first record delivered sets the origin of the blocks, the first record of the file that of all else.
TEST(TimeAdjustment, MovesLateRecordings) {
    const std::string offsets = "0 0 10 10 10 12 20 20 20 20 ",
                      fromNought = "0 0 0 400000000 400000000 400000002 400000010 400000010 400000010 10 ";
    const std::string byEvent = "Enabling time offset fixup \n", byBlockOrSample = "Enabling time offset fixup\n";
    const std::tuple<uint32_t, uint32_t, int, int, uint32_t, std::string, std::string> cases[] = {
        {399999979, 399999999, 0, 0, 399999979, offsets, ""},
        {399999980, 400000000, TRK_OPEN_KEEP_TIMES, 0, 399999980, offsets, ""},
        {399999980, 400000000, 0, 0, 0, offsets, byEvent},
        {399999980, 400000000, 0, 2, 0, "0 10 10 12 20 20 20 10 ", byBlockOrSample},
        {399999980, 400000000, 0, 5, 0, "12 20 20 20 8 ", byBlockOrSample},
        {0, 400000010, 0, 0, 0, fromNought, byEvent}, // the first records set none
    };
    for (const auto &[first, last, flags, skipped, origin, times, lines] : cases) {
        RecordingWriter writer;
        writer.message(first, "a").message(first, "b").startBlock({.time = last - 10});
        writer.sample(last - 8).sample(last).endBlock(last);
        const LogCapture log;
        const Recording recording = openBytes(writer.end().plain(), {.flags = flags});
        for (int i = 0; i < skipped; ++i) {
            recording.step();
        }
        const auto time = [&, start = origin](int code) {
            return std::to_string(recording.fetch(code).time() - start) + ' ';
        };
        EXPECT_EQ(recording.told(time), times) << last;
        EXPECT_EQ(LogCapture::take(), lines);
    }
}

} // namespace
