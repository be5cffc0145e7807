// Stepping, fetching and what is put right on the way.
#include "delivery/delivery.h"
#include "index/consistency.h"
#include "index/prescan.h"
#include "io/file_input_stream.h"
#include "support/walk.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

namespace {

using namespace trk_test;
using Times = std::vector<uint32_t>;

constexpr int kStrict = TRK_OPEN_CHECK_AND_FILL;

// The parts of an open recording, within reach.
struct Parts {
    trk::RecordReader reader;
    trk::ItemIndex index;
    trk::SampleQueue queue{index};
    trk::BatchReader batches;
    trk::VelocityComputer velocity{queue, 3};
    trk::ItemReader items;
    trk::Delivery delivery;

    explicit Parts(const RecordingWriter &writer, bool strict = false)
        : batches(reader, index, queue, strict), items(reader, index, queue, batches, velocity, nullptr),
          delivery(items, index, strict) {
        trk::FilePointer file(std::tmpfile());
        std::fwrite(writer.records().data(), 1, writer.records().size(), file.get());
        reader.setStream(std::make_unique<trk::FileInputStream>(std::move(file)));
        reader.setPreambleFacts(true, 5);
        trk::Prescan(reader, index, {.fillGaps = strict}).run();
        trk::checkConsistency(index, strict);
    }
    // The index's place of the n-th item of a kind.
    std::size_t find(int code, std::size_t number = 0) const {
        std::size_t place = 0;
        while (index[place].code() != static_cast<unsigned>(code) || number-- > 0) {
            ++place;
        }
        return place;
    }
};

RecordingWriter twoBlocks(int samples) {
    RecordingWriter writer;
    for (const int block : {0, 1}) {
        const uint32_t start = 1000 + 10000 * static_cast<uint32_t>(block);
        writer.startBlock({.time = start, .gazeDivisor = block == 0 ? 10 : 1});
        for (int i = 0; i < samples; ++i) {
            writer.sample(start + static_cast<uint32_t>(i), {(i * i + block) % 997, i});
        }
        writer.endBlock(start + static_cast<uint32_t>(samples));
    }
    return writer.end();
}

TEST(Delivery, StepsAndFetches) {
    Recording recording =
        openBytes(RecordingWriter().message(990, "a").startBlock({.time = 1000}).sample(1000).end().plain());
    _TRKFILE *const handle = recording.handle();
    EXPECT_EQ(trk_get_float_data(handle), nullptr);
    const struct {
        int code;
        ALLF_DATA *(*getter)(_TRKFILE *);
    } cases[] = {{REC_MESSAGE, trk_get_event_data},
                 {REC_RECORDING, trk_get_recording_data},
                 {REC_STARTSAMPLES, trk_get_event_data},
                 {REC_STARTEVENTS, trk_get_event_data},
                 {REC_SAMPLE, trk_get_sample_data}};
    for (const auto &[code, ownGetter] : cases) {
        EXPECT_EQ(recording.step(), code);
        for (const auto getter : {trk_get_event_data, trk_get_sample_data, trk_get_recording_data}) {
            EXPECT_EQ(getter(handle), getter == ownGetter ? trk_get_float_data(handle) : nullptr);
        }
    }
    EXPECT_EQ(recording.step(), 0);
    EXPECT_EQ(recording.fetch(REC_SAMPLE).time(), 1000U); // stays at the last one
}

TEST(Delivery, SaysWhatCannotBeRead) {
    RecordingWriter writer = twoBlocks(3);
    const auto end = static_cast<int64_t>(writer.records().size());
    const struct {
        int code, newCode;
        LogLines log;
    } cases[] = {
        {REC_STARTEVENTS,
         REC_STARTEVENTS,
         {"error reading trk file 11\n", "error reading trk file 4   -1 " + std::to_string(end) + "\n",
          "Error Error reading event - type(readItem) \n"}},
        {REC_SAMPLE,
         REC_SAMPLE,
         {"error reading trk file 9\n", "error reading trk file 5\n", "Error Error reading Sample - type \n"}},
        {REC_STARTEVENTS, 40, {"Read error \n"}},
    };
    for (const auto &[code, newCode, lines] : cases) {
        Parts parts(writer);
        const std::size_t place = parts.find(code);
        parts.index.items()[place].item_type = static_cast<uint16_t>(newCode);
        parts.index.items()[place].file_position = end;
        LogCapture log;
        EXPECT_EQ(parts.delivery.read(place), nullptr);
        EXPECT_EQ(log.take(), lines);
        EXPECT_NE(parts.delivery.read(parts.find(REC_SAMPLE, 1)), nullptr); // what follows can be read
    }
}

TEST(Delivery, FlagsKeysThatAreNotTwiceTheTime) {
    RecordingWriter writer;
    writer.startBlock({.time = 1000}).sample(1000).sample(1000).sample(0x7FFFFFFF).sample(0x80000000);
    Recording recording = openBytes(writer.end().plain(), {.flags = TRK_OPEN_KEEP_TIMES});
    std::vector<unsigned> flagged;
    for (const Item &item : recording.walk()) {
        if (item.code == REC_SAMPLE) {
            flagged.push_back(item.sample().flags & TRK_SAMPLE_DUPLICATE_TIME);
        }
    }
    EXPECT_EQ(flagged, (std::vector<unsigned>{0, 2, 0, 2}));
}

TEST(Delivery, HidesBlinksAndFillsGapsWithPlaceholders) {
    RecordingWriter writer;
    writer.startBlock({.time = 1000, .rate = 500, .eyes = BothEyes});
    for (const uint32_t time : {1000U, 1002U, 1004U, 1008U, 1010U}) {
        writer.sample({.time = time,
                       .eyes = BothEyes,
                       .gaze = EyePositions{{1, 2}, {3, 4}},
                       .pupilSize = EyeWords{900, 910},
                       .status = 5,
                       .buttons = 6});
    }
    writer.event(EventRecord(REC_SBLINK, LeftEye).startTime(1009))
        .event(EventRecord(REC_EBLINK, LeftEye).times(1009, 1011));
    Parts parts(writer.endBlock(1011).end(), true);
    while (parts.delivery.currentRecording() == nullptr) {
        parts.delivery.step();
    }
    parts.delivery.read(parts.find(REC_SAMPLE));
    const FSAMPLE_REC dummy = parts.delivery.read(parts.find(REC_SAMPLE, 3))->sample;
    FSAMPLE_REC expected{.time = 1006, .flags = TRK_SAMPLE_LEFT | TRK_SAMPLE_RIGHT, .sort_key = 2012};
    std::fill_n(reinterpret_cast<float *>(&expected) + 1, 40, MISSING_DATA);
    expected.pupil_size[0] = 900;
    expected.pupil_size[1] = 910;
    EXPECT_EQ((Item{REC_SAMPLE, true, {dummy}}), (Item{REC_SAMPLE, true, {expected}}));
    const FSAMPLE_REC before = parts.delivery.read(parts.find(REC_SAMPLE, 4))->sample;
    EXPECT_EQ((std::array{before.gaze_x[0], before.gaze_y[0], before.gaze_x[1]}), (std::array{1.0F, 2.0F, 3.0F}));
    const FSAMPLE_REC inside = parts.delivery.read(parts.find(REC_SAMPLE, 5))->sample;
    EXPECT_EQ((std::array{inside.gaze_x[0], inside.gaze_y[0], inside.gaze_x[1]}),
              (std::array{MISSING_DATA, MISSING_DATA, 3.0F}));
}

// The index has the second sample half a key later than the file.
TEST(Delivery, ReplacesMistimedSamplesWhenStrict) {
    for (const bool strict : {false, true}) {
        Parts parts(twoBlocks(3), strict);
        const std::size_t place = parts.find(REC_SAMPLE, 1);
        parts.index.items()[place].sort_key = 2 * 1001 + 2 + 1;
        LogCapture log;
        parts.delivery.read(place - 1);
        const FSAMPLE_REC sample = parts.delivery.read(place)->sample;
        EXPECT_EQ(sample.time, strict ? 1002U : 1001U);
        EXPECT_EQ(sample.flags & ~TRK_SAMPLE_FULL_TIME, strict ? 0xC002U : 0x8503U);
        EXPECT_EQ(sample.gaze_x[0], strict ? MISSING_DATA : 1.0F);
    }
}

TEST(Batches, EndWithTheirBlock) {
    const std::vector<std::vector<std::size_t>> dummies{{}, {0}, {2, 4}, {4}, {0, 1, 2, 3, 4}};
    for (const std::vector<std::size_t> &numbers : dummies) {
        Parts parts(twoBlocks(5));
        for (const std::size_t number : numbers) {
            parts.index.items()[parts.find(REC_SAMPLE, number)].file_position = trk::kNoFilePosition;
        }
        parts.batches.batchReadSample(parts.find(REC_SAMPLE, 1));
        EXPECT_EQ(parts.queue.count(), 4);
        parts.queue.clear();
        parts.batches.batchReadSample(parts.find(REC_SAMPLE));
        EXPECT_EQ(parts.queue.count(), 5);
        EXPECT_EQ(parts.queue.key(4), 2 * 1004U);
    }
}

// Fetching the start of a block changes how the samples of another one read.
TEST(Batches, TakeTheDivisorsOfTheLastStartFetched) {
    Parts parts(twoBlocks(3));
    const auto gaze = [&parts](std::size_t number) {
        LogCapture log;
        return parts.delivery.read(parts.find(REC_SAMPLE, number))->sample.gaze_x[0];
    };
    EXPECT_EQ(gaze(2), 4.0F); // the scan has read the second block last
    parts.delivery.read(parts.find(REC_STARTSAMPLES));
    EXPECT_EQ(gaze(5), 0.5F);
    EXPECT_EQ(gaze(1), 0.1F);
}

TEST(Batches, DeliverTheSameInAnyOrder) {
    constexpr std::size_t kSamples = 3000;
    const RecordingWriter writer = twoBlocks(kSamples);
    Parts inOrder(writer);
    Parts atRandom(writer);
    for (Parts *const parts : {&inOrder, &atRandom}) {
        parts->delivery.step();
        parts->delivery.read(parts->find(REC_STARTSAMPLES));
    }
    const std::size_t first = inOrder.find(REC_SAMPLE);
    const auto fetched = [](Parts &parts, std::size_t place) {
        return Item{REC_SAMPLE, true, *parts.delivery.read(place)};
    };
    std::vector<Item> expected;
    for (std::size_t i = 0; i < kSamples; ++i) {
        expected.push_back(fetched(inOrder, first + i));
    }
    std::mt19937 random(1);
    for (int jump = 0; jump < 100; ++jump) {
        const std::size_t place = random() % (kSamples - 600);
        EXPECT_EQ(fetched(atRandom, first + place).sample().gaze_x[0], expected[place].sample().gaze_x[0]);
        for (const std::size_t i :
             {place + 10, place + 511 + random() % 80}) { // with the neighbours that they need
            EXPECT_EQ(fetched(atRandom, first + i - 9).time(), expected[i - 9].time());
            EXPECT_EQ(fetched(atRandom, first + i), expected[i]) << place << ' ' << i;
        }
    }
}

TEST(Delivery, OfSamplesOutsideOfBlocksLacksVelocities) {
    RecordingWriter writer;
    for (uint32_t time = 990; time < 1000; ++time) {
        writer.sample(time, {static_cast<int>(time), 0});
    }
    Recording recording = openBytes(writer.end().plain());
    LogCapture log;
    const Item item = recording.fetch(recording.step());
    EXPECT_EQ(item.sample().gaze_x[0], 990);
    EXPECT_EQ(log.take(),
              (LogLines{"WARNING: TRK FILE MAY BE CORRUPTED. Samples 990 found without start recording \n"}));
    EXPECT_TRUE(std::ranges::all_of(
        recording.walk(), [](const Item &each) { return each.sample().gaze_fvel_x[0] == MISSING_DATA; }));
}

// ---- Events and their starts ----

TEST(EventPairing, StartsEndsAtTheirOwnStarts) {
    constexpr uint32_t kUnset = 0xFFFFFFFF;
    const auto at = [](int code, uint32_t time, Eyes eye = LeftEye) {
        return EventRecord(code, eye).startTime(time);
    };
    const auto span = [](int code, uint32_t start, uint32_t end, Eyes eye = LeftEye) {
        return EventRecord(code, eye).times(start, end);
    };
    const struct {
        std::vector<EventRecord> events;
        Times starts, ownStarts; // of the ends
    } cases[] = {
        {{at(5, 1010), span(6, 1012, 1020)}, {1012}, {1012}},
        {{at(5, 1010), at(3, 1012), span(4, 1012, 1014), span(6, 1015, 1020)}, {1012, 1010}, {1012, 1015}},
        {{at(5, 1010), at(3, 1012, RightEye), span(4, 1012, 1014, RightEye), span(6, 1015, 1020)},
         {1012, 1015},
         {1012, 1015}},
        {{at(7, 1010), span(8, 1012, 1020), span(8, 1013, 1021)}, {1010, 1010}, {1012, 1013}},
        {{span(8, 1012, 1020)}, {kUnset}, {1012}},
        // An end of fixation makes the saccade forgotten.
        {{at(5, 1010), at(3, 1012), span(4, 1012, 1014), at(7, 1015), span(8, 1015, 1016), span(6, 1017, 1020)},
         {1012, 1015, kUnset},
         {1012, 1015, 1017}},
        // Joined blinks.
        {{at(5, 1010), at(3, 1012), span(4, 1012, 1014), at(3, 1016), span(4, 1016, 1018), span(6, 1019, 1020)},
         {1012, 1010},
         {1012, 1016, 1019}},
    };
    for (const auto &[events, starts, ownStarts] : cases) {
        RecordingWriter writer;
        writer.startBlock({.time = 1000});
        std::ranges::for_each(events, [&writer](const EventRecord &event) { writer.event(event); });
        writer.endBlock(1090).end();
        for (const int flags : {int{TRK_OPEN_CHECK}, kStrict}) {
            Recording recording = openBytes(writer.plain(), {.flags = flags});
            Times found;
            while (const int code = recording.step()) {
                if (code == REC_EBLINK || code == REC_ESACC ||
                    code == REC_EFIX) { // starts are seen without a fetch
                    found.push_back(recording.fetch(code).time());
                }
            }
            EXPECT_EQ(found, flags == kStrict ? starts : ownStarts);
        }
    }
}

// An event of each kind between the start and the end of a blink, and the mark on the end.
TEST(EventPairing, FollowsTheMarksOfTheIndex) {
    const struct {
        int code;
        Eyes eye;
        uint16_t mark;
        uint32_t start;
    } cases[] = {{REC_SFIX, LeftEye, 0, 1012},
                 {REC_SFIX, LeftEye, trk::kItemMoved, 1020},
                 {REC_SFIX, LeftEye, trk::kItemBlinkRepaired, 1012},
                 {REC_SFIX, RightEye, trk::kItemBlinkRepaired, 1010},
                 {REC_ENDEVENTS, LeftEye, trk::kItemBlinkRepaired, 1012},
                 {REC_STARTEVENTS, LeftEye, trk::kItemBlinkRepaired, 1010},
                 {REC_INPUT, LeftEye, trk::kItemBlinkRepaired, 1010}};
    for (const auto &[code, eye, mark, start] : cases) {
        RecordingWriter writer;
        writer.event(EventRecord(REC_SBLINK, LeftEye).startTime(1010))
            .event(EventRecord(code, eye).startTime(1011));
        Parts parts(writer.event(EventRecord(REC_EBLINK, LeftEye).times(1012, 1020)).end(), true);
        const std::size_t end = parts.find(REC_EBLINK);
        parts.index.items()[end].item_type |= mark;
        EXPECT_EQ(parts.delivery.read(end)->event.start_time, start) << code;
        const std::size_t blink = parts.find(REC_SBLINK);
        parts.index.items()[blink].sort_key -= 10;
        parts.index.items()[blink].item_type |= mark;
        EXPECT_EQ(parts.delivery.read(blink)->event.start_time, mark == trk::kItemMoved ? 1005U : 1010U);
    }
}

// ---- Late recordings ----

// The first record delivered sets the origin of the blocks, the first record of the file that of all else.
TEST(TimeAdjustment, MovesLateRecordings) {
    const struct {
        uint32_t last;
        int flags, skipped;
        Times times; // of what is fetched, less `base`
        uint32_t base;
        LogLines log;
    } cases[] = {
        {399999999, 0, 0, {0, 10, 10, 10, 12, 20, 20, 20, 20}, 399999979, {}},
        {400000000, TRK_OPEN_KEEP_TIMES, 0, {0, 10, 10, 10, 12, 20, 20, 20, 20}, 399999980, {}},
        {400000000, 0, 0, {0, 10, 10, 10, 12, 20, 20, 20, 20}, 0, {"Enabling time offset fixup \n"}},
        {400000000, 0, 1, {0, 10, 10, 12, 20, 20, 20, 10}, 0, {"Enabling time offset fixup\n"}},
        {400000000, 0, 4, {12, 20, 20, 20, 8}, 0, {"Enabling time offset fixup\n"}},
    };
    for (const auto &[last, flags, skipped, times, base, lines] : cases) {
        RecordingWriter writer;
        writer.message(last - 20, "a")
            .startBlock({.time = last - 10})
            .sample(last - 8)
            .sample(last)
            .endBlock(last);
        LogCapture log;
        Recording recording = openBytes(writer.end().plain(), {.flags = flags});
        for (int i = 0; i < skipped; ++i) {
            recording.step();
        }
        Times found;
        for (const Item &item : recording.walk()) {
            found.push_back(item.time() - base);
        }
        EXPECT_EQ(found, times) << last;
        EXPECT_EQ(log.take(), lines);
    }
}

} // namespace
