// What is put right on the way from the index to the caller.
#include "delivery/delivery.h"
#include "index/consistency.h"
#include "index/prescan.h"
#include "io/file_input_stream.h"
#include "support/walk.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <sstream>

namespace {

using namespace trk_test;
using Times = std::vector<uint32_t>;

// The parts of an open recording, within reach, after the first step.
struct Parts {
    trk::RecordReader reader;
    trk::ItemIndex index;
    trk::SampleQueue queue{index};
    trk::BatchReader batches;
    trk::VelocityComputer velocity{queue, 3};
    trk::ItemReader items{reader, index, queue, batches, velocity, nullptr};
    trk::Delivery delivery;

    explicit Parts(const RecordingWriter &writer, bool strict = false)
        : batches(reader, index, queue, strict), delivery(items, index, strict) {
        trk::FilePointer file(std::tmpfile());
        std::fwrite(writer.records().data(), 1, writer.records().size(), file.get());
        reader.setStream(std::make_unique<trk::FileInputStream>(std::move(file)));
        reader.setPreambleFacts(true, 5);
        trk::Prescan(reader, index, {.fillGaps = strict}).run();
        trk::checkConsistency(index, strict);
        delivery.step();
    }
    // The n-th item of a kind.
    std::size_t find(int code, std::size_t number = 0) const {
        std::size_t place = 0;
        while (index[place].code() != static_cast<unsigned>(code) || number-- > 0) {
            ++place;
        }
        return place;
    }
    trk::TRKItem &item(int code, std::size_t number = 0) { return index.items()[find(code, number)]; }
    FSAMPLE_REC sample(std::size_t number) { return delivery.read(find(REC_SAMPLE, number))->sample; }
};

// Two blocks at 1000 and 11000 ms, 2000 samples a second, gaze divisors 10 and 1.
RecordingWriter twoBlocks(int samples) {
    RecordingWriter writer;
    for (const uint32_t start : {1000U, 11000U}) {
        writer.startBlock({.time = start, .rate = 2000, .gazeDivisor = start == 1000 ? 10 : 1});
        for (int i = 0; i < samples; ++i) {
            const uint32_t time = start + static_cast<uint32_t>(i / 2);
            writer.sample(
                {.time = time, .gaze = EyePositions{{i * i % 997, i}, {}}, .resolution = Position{50, 50}});
        }
        writer.endBlock(start + static_cast<uint32_t>(samples) + 9);
    }
    return writer.end();
}

TEST(Delivery, SaysWhatCannotBeRead) {
    const RecordingWriter writer = twoBlocks(3);
    const std::string end = std::to_string(writer.records().size());
    const std::pair<int, LogLines> cases[] = {
        {REC_STARTEVENTS,
         {"error reading trk file 11\n", "error reading trk file 4   -1 " + end + "\n",
          "Error Error reading event - type(readItem) \n"}},
        {REC_SAMPLE,
         {"error reading trk file 9\n", "error reading trk file 5\n", "Error Error reading Sample - type \n"}},
    };
    for (const auto &[code, lines] : cases) {
        Parts parts(writer);
        parts.item(code).file_position = std::stoi(end);
        const LogCapture log;
        EXPECT_EQ(parts.delivery.read(parts.find(code)), nullptr);
        EXPECT_EQ(log.take(), lines);
        EXPECT_EQ(parts.sample(1).time, 1000U); // the next one is not harmed
    }
}

TEST(Delivery, FlagsKeysThatAreNotTwiceTheTime) {
    RecordingWriter writer;
    Parts parts(writer.startBlock({.time = 1}).sample(9).sample(9).sample(0x7FFFFFFF).sample(0x80000000).end());
    for (const std::size_t number : {0U, 1U, 2U, 3U}) {
        EXPECT_EQ(parts.sample(number).flags & TRK_SAMPLE_DUPLICATE_TIME, number % 2 * 2);
    }
}

TEST(Delivery, HidesBlinksAndFillsGapsWithPlaceholders) {
    RecordingWriter writer;
    writer.startBlock({.time = 1000, .rate = 500}).event(EventRecord(REC_SBLINK, LeftEye).startTime(1009));
    for (const uint32_t time : {1000U, 1002U, 1004U, 1008U, 1010U}) {
        writer.sample({.time = time,
                       .eyes = BothEyes,
                       .gaze = EyePositions{{1, 2}, {3, 4}},
                       .pupilSize = EyeWords{900, 910},
                       .buttons = 7});
    }
    const LogCapture log;
    Parts parts(writer.end(), true);
    EXPECT_EQ(parts.sample(0).buttons, 7);
    FSAMPLE_REC dummy{.time = 1006, .flags = TRK_SAMPLE_LEFT | TRK_SAMPLE_RIGHT, .sort_key = 2012};
    std::fill_n(reinterpret_cast<float *>(&dummy) + 1, 40, MISSING_DATA);
    dummy.pupil_size[0] = 900;
    dummy.pupil_size[1] = 910;
    EXPECT_EQ((Item{REC_SAMPLE, true, {parts.sample(3)}}), (Item{REC_SAMPLE, true, {dummy}}));
    for (const std::size_t number : {4U, 5U}) { // before and in the blink
        const FSAMPLE_REC sample = parts.sample(number);
        EXPECT_EQ(sample.gaze_x[0], number == 4 ? 1 : MISSING_DATA);
        EXPECT_EQ(sample.gaze_y[0], number == 4 ? 2 : MISSING_DATA);
        EXPECT_EQ(sample.gaze_x[1], 3);
    }
}

TEST(Delivery, LacksVelocitiesOutsideOfBlocks) {
    Parts parts(twoBlocks(100));
    EXPECT_EQ(parts.sample(0).gaze_fvel_x[0], MISSING_DATA);
    EXPECT_NE(parts.sample(50).gaze_fvel_x[0], MISSING_DATA);
    while (parts.delivery.currentRecording() != nullptr) {
        parts.delivery.step();
    }
    const LogCapture log;
    EXPECT_EQ(parts.sample(50).gaze_fvel_x[0], MISSING_DATA);
    EXPECT_EQ(log.take()[0], "WARNING: TRK FILE MAY BE CORRUPTED. Samples 1025 found without start recording \n");
}

TEST(Batches, BelieveTheIndexWhenStrict) {
    for (const bool strict : {false, true}) {
        Parts parts(twoBlocks(3), strict);
        parts.item(REC_SAMPLE, 2).sort_key = 2005; // half a millisecond after 1002; the file has 1001
        EXPECT_EQ(parts.sample(0).time, 1000U);
        EXPECT_EQ(parts.sample(2).time, strict ? 1002U : 1001U);
        EXPECT_EQ(parts.sample(2).flags, strict ? 0xC002 : 0x8603);
    }
}

TEST(Batches, EndWithTheirBlock) {
    for (const auto &dummies : std::vector<std::vector<std::size_t>>{{}, {0}, {2, 4}, {0, 1, 2, 3, 4}}) {
        Parts parts(twoBlocks(5));
        std::ranges::for_each(dummies, [&](std::size_t i) { parts.item(REC_SAMPLE, i).file_position = -1; });
        for (const std::size_t first : {3U, 0U}) { // an earlier start empties the queue
            EXPECT_EQ(parts.batches.batchReadSample(parts.find(REC_SAMPLE, first)), 0);
            EXPECT_EQ(parts.queue.count(), 5 - static_cast<int>(first));
        }
    }
}

// Fetching the start of a block changes how the samples of another one read.
TEST(Batches, TakeTheDivisorsOfTheStartReadLast) {
    Parts parts(twoBlocks(4));
    EXPECT_EQ(parts.sample(3).gaze_x[0], 9); // the scan read the second block last
    parts.delivery.read(parts.find(REC_STARTSAMPLES));
    EXPECT_EQ(parts.sample(7).gaze_x[0], 0.9F);
}

// Velocities lack at the edges of the block only: the queue is refilled before its end is reached.
TEST(Batches, DeliverTheSameInAnyOrder) {
    constexpr std::size_t kSamples = 3000;
    Parts inOrder(twoBlocks(kSamples));
    Parts atRandom(twoBlocks(kSamples));
    std::vector<Item> expected;
    for (std::size_t i = 0; i < kSamples; ++i) {
        expected.push_back({REC_SAMPLE, true, {inOrder.sample(i)}});
        ASSERT_EQ(expected[i].sample().gaze_fvel_x[0] == MISSING_DATA, i < 19 || i + 19 >= kSamples) << i;
    }
    std::mt19937 random(1);
    for (int jump = 0; jump < 100; ++jump) {
        const std::size_t start = random() % (kSamples - 600);
        EXPECT_EQ(atRandom.sample(start).gaze_x[0], expected[start].sample().gaze_x[0]);
        const std::size_t place = start + 19 + random() % 45; // the neighbours that it needs are at hand
        EXPECT_EQ((Item{REC_SAMPLE, true, {atRandom.sample(place)}}), expected[place]) << start << ' ' << place;
    }
}

// Events: a letter, the start, "-" and the end, "r" for the right eye; "!" first for strict checks. B b are blinks,
// A a saccades, F f fixations, < > starts and ends of events blocks, m messages. Then the start times that the ends
// of eye events are delivered with.
TEST(EventPairing, StartsEndsAtTheirOwnStarts) {
    constexpr std::string_view kLetters = "...BbAaFf........<>.....m"; // by code
    for (const std::string text :
         {"!A10 a12-20: 12", "A10 B12 b12-14 a15-20: 12 15", "!A10 B12 b12-14 a15-20: 12 10",
          "!A10 B12r b12-14r a15-20: 12 15", "F10 f12-20: 12", "!F10 f12-20 f13-21: 10 10", "!f12-20: 4294967295",
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
        std::string starts;
        while (const int code = recording.step()) { // the other events are seen without a fetch
            if (code == REC_EBLINK || code == REC_ESACC || code == REC_EFIX) {
                starts += ' ' + std::to_string(recording.fetch(code).time());
            }
        }
        EXPECT_EQ(starts, text.substr(colon + 1)) << text;
    }
}

// The first record delivered sets the origin of the blocks, the first record of the file that of all else.
TEST(TimeAdjustment, MovesLateRecordings) {
    using Case = std::tuple<uint32_t, int, int, uint32_t, Times, LogLines>;
    for (const auto &[last, flags, skipped, origin, times, lines] :
         {Case{399999999, 0, 0, 399999979, {0, 10, 10, 10, 12, 20, 20, 20, 20}, {}},
          Case{400000000, TRK_OPEN_KEEP_TIMES, 0, 399999980, {0, 10, 10, 10, 12, 20, 20, 20, 20}, {}},
          Case{400000000, 0, 0, 0, {0, 10, 10, 10, 12, 20, 20, 20, 20}, {"Enabling time offset fixup \n"}},
          Case{400000000, 0, 1, 0, {0, 10, 10, 12, 20, 20, 20, 10}, {"Enabling time offset fixup\n"}},
          Case{400000000, 0, 4, 0, {12, 20, 20, 20, 8}, {"Enabling time offset fixup\n"}}}) {
        RecordingWriter writer;
        writer.message(last - 20, "a").startBlock({.time = last - 10}).sample(last - 8).sample(last);
        writer.endBlock(last);
        const LogCapture log;
        Recording recording = openBytes(writer.end().plain(), {.flags = flags});
        for (int i = 0; i < skipped; ++i) {
            recording.step();
        }
        Times found;
        for (const Item &item : recording.walk()) {
            found.push_back(item.time() - origin);
        }
        EXPECT_EQ(found, times) << last;
        EXPECT_EQ(log.take(), lines);
    }
}

} // namespace
