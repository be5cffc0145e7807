// The item index: what enters it, gaps, recording blocks, the order and the repairs.
#include "api/internal_calls.h"
#include "index/consistency.h"
#include "index/item_order.h"
#include "support/walk.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <sstream>

namespace {

using namespace trk_test;
using trk::ItemIndex;
using trk::TRKItem;

// ---- What is indexed ----

std::vector<int> codesOf(const std::vector<Item> &items) {
    std::vector<int> codes;
    std::ranges::transform(items, std::back_inserter(codes), &Item::code);
    return codes;
}

TEST(Prescan, IndexesWhatIsAskedFor) {
    RecordingWriter writer;
    writer.startBlock({.time = 1000}).sample({.time = 1000, .gaze = EyePositions{}, .input = 7});
    for (const int code : {0, 1, 2, 3, 4, 9, 25, 28, 30, 40}) {
        writer.event(EventRecord(code, LeftEye).times(1001, 1002));
    }
    for (const int code : {1, 5, 6}) {
        writer.event(EventRecord(code, RightEye));
    }
    const Bytes bytes = writer.endBlock(1003).end().end().plain();
    const LogLines untimed(2, "Unexpected time stamp 0. Skipping event \n");
    const struct {
        OpenOptions options;
        std::vector<int> codes;
        int inputs; // bit 0 input events, bit 1 samples with inputs
    } cases[] = {
        {{}, {5, 6, 30, 15, 17, 200, 3, 9, 25, 28, 40, 4, 16, 18, 30}, 3},
        {{TRK_OPEN_TOLERANT}, {6, 30, 15, 17, 200, 3, 9, 25, 28, 40, 4, 16, 18, 30}, 3},
        {{.loadEvents = 0}, {30, 15, 200, 16, 30}, 2},
        {{.loadSamples = 0}, {5, 6, 30, 17, 3, 9, 25, 28, 40, 4, 18, 30}, 1},
        {{.loadEvents = 0, .loadSamples = 0}, {}, 0},
    };
    for (const auto &[options, codes, inputs] : cases) {
        LogCapture log;
        Recording recording = openBytes(bytes, options);
        EXPECT_EQ(log.take(),
                  options.flags != TRK_OPEN_TOLERANT
                      ? LogLines{}
                      : (LogLines{"Unexpected event type tag 0. Skipping event \n", untimed[0], untimed[1]}));
        EXPECT_EQ(codesOf(recording.walk()), codes);
        EXPECT_EQ(trk_get_input_data_availibity(recording.handle()), inputs);
    }
}

// ---- Gaps ----

TEST(Gaps, AreFilledWhereThePeriodIsKnown) {
    using Keys = std::vector<uint64_t>;
    const auto missing = [](int count, int from, int to) {
        const auto text = [](int number) { return std::to_string(number); };
        return LogLines{"Missing " + text(count) + " samples. Inserting dummy samples \n",
                        "Missing (" + text(from) + "-" + text(to) + ") samples. Calculating speriod \n"};
    };
    LogLines tooMany = missing(10001, 1000, 21002);
    tooMany.push_back("Missing samples are over 10000, skip it without addimg missing samples\n ");
    const struct {
        double rate;
        std::vector<uint32_t> times;
        Keys keys;
        LogLines log;
        int flags = TRK_OPEN_CHECK_AND_FILL;
    } cases[] = {
        {500, {996, 998, 1000, 1010}, {1992, 1996, 2000, 2004, 2008, 2012, 2016, 2020}, missing(5, 1000, 1010)},
        {500, {996, 998, 1000, 1010}, {1992, 1996, 2000, 2020}, {}, TRK_OPEN_CHECK},
        {500, {996, 998, 1000, 999}, {1992, 1996, 1998, 2000}, missing(-1, 1000, 999)},
        {500, {996, 998, 1000, 1003}, {1992, 1996, 2000, 2006}, missing(1, 1000, 1003)},
        {500, {996, 998, 1000, 21002}, {1992, 1996, 2000, 42004}, tooMany},
        {500, {998, 1000, 1010, 1012, 1016}, {1996, 2000, 2020, 2024, 2028, 2032}, missing(2, 1012, 1016)},
        {500, {0, 2, 4, 14}, {0, 4, 8, 28}, {}},
        {60, {900, 933, 966, 1000, 1100}, {1800, 1866, 1932, 2000, 2200}, {}},
        {60, {996, 998, 1000, 1004}, {1992, 1996, 2000, 2004, 2008}, missing(2, 1000, 1004)},
        {2000,
         {1000, 1000, 1001, 1001, 1003},
         {2000, 2001, 2002, 2003, 2004, 2005, 2006, 2006},
         missing(4, 1001, 1003)},
        {500,
         {1000, 1001, 1002, 1006},
         {2000, 2002, 2004, 2008, 2012},
         {"Intersample period does not match with the sample rate given by the start recording event! Using start "
          "recording sample rate. 4 2 2002 2004 \n",
          missing(2, 1002, 1006)[0], missing(2, 1002, 1006)[1]}},
    };
    for (const auto &[rate, times, keys, lines, flags] : cases) {
        SCOPED_TRACE(testing::Message() << rate << testing::PrintToString(times));
        RecordingWriter writer;
        writer.startBlock({.time = times.front(), .rate = rate});
        std::ranges::for_each(times, [&writer](uint32_t time) { writer.sample(time); });
        LogCapture log;
        Recording recording = openBytes(writer.endBlock(30000).end().plain(), {.flags = flags});
        EXPECT_EQ(log.take(), lines);
        Keys found;
        for (const Item &item : recording.walk()) {
            if (item.code == REC_SAMPLE) {
                found.push_back(item.sample().sort_key);
            }
        }
        EXPECT_EQ(found, keys);
    }
}

// ---- Recording blocks ----

TEST(RecordingBlocks, AreJoinedOfSamplesAndEvents) {
    const BlockStart samples{.time = 1000, .rate = 500, .eyes = LeftEye, .gazeDivisor = 10};
    const auto eventsAt = [](uint32_t time, unsigned parseFlags, Eyes eyes = LeftEye) {
        return startEvents({.time = time, .rate = 500, .eyes = eyes, .gazeDivisor = 10, .parseFlags = parseFlags});
    };
    const SampleRecord withdrawing{.time = 1000, .extension = ExtensionBlock{0xF2, {1, 2}}};
    const Bytes withdrawingSample = RecordingWriter().sample(withdrawing).records();
    const struct {
        Bytes records;
        std::vector<std::string>
            blocks; // state, time, type, eye, pos_type, content of samples and events, prescaler
    } cases[] = {
        {startSamples(samples).bytes() + eventsAt(1002, 2).bytes() + endEvents(1900).bytes() +
             endSamples(1901).bytes(),
         {"1 1000 3 1 2 8500 0 10", "0 1901 3 1 0 0 0 0"}},
        {eventsAt(1002, 4).bytes() + startSamples(samples).bytes() + endSamples(1900).bytes(),
         {"1 1000 3 1 4 0 1fff 0", "0 1900 1 1 0 0 0 0"}},
        {startSamples(samples).bytes() + eventsAt(1500, 0).bytes(), {"1 1000 3 1 0 8500 0 10"}},
        {startSamples(samples).bytes() + eventsAt(1501, 2, BothEyes).bytes() + endEvents(1600).bytes(),
         {"1 1000 1 1 0 8500 0 10", "1 1501 2 3 2 0 1fff 0", "0 1600 2 3 0 0 0 0"}},
        {eventsAt(1000, 0, RightEye).bytes(), {"1 1000 2 2 0 0 1fff 0"}},
        {startSamples({.time = 7, .eyes = RightEye, .content = 0x0510}).bytes() + withdrawingSample +
             endSamples(1001).bytes(),
         {"1 7 1 2 0 4500 0 1", "0 1001 1 2 0 0 0 0"}},
    };
    for (const auto &[records, blocks] : cases) {
        std::vector<std::string> found;
        for (const Item &item : openBytes(RecordingWriter().raw(records).end().plain()).walk()) {
            if (item.code == REC_RECORDING) {
                const FRECORDING &block = item.recording();
                std::ostringstream line;
                line << +block.state << ' ' << block.time << ' ' << +block.record_type << ' ' << +block.eye << ' '
                     << +block.pos_type << ' ' << std::hex << block.sample_content_flags << ' '
                     << block.event_content_flags << ' ' << block.gaze_prescaler;
                found.push_back(line.str());
                EXPECT_EQ(block.sort_key, 2 * block.time);
            }
        }
        EXPECT_EQ(found, blocks);
    }
}

// ---- Order and repairs, on items in one line ----

// An item is a letter, the eye of eye events, ":" and its key, then its marks: ^ for bit 12, ~ for bit 13. File
// positions ascend; "=" repeats the one before. [ and ] are starts and ends of blocks, s samples, x an unknown
// code; B b blinks, A a saccades, F f fixations, ( ) samples blocks, m messages, u buttons.
constexpr std::string_view kLetters = "[]sxBbAaFf()mu";
constexpr uint16_t kCodes[] = {30, 30, 200, 40, 3, 4, 5, 6, 7, 8, 15, 16, 24, 25};

ItemIndex parsed(const std::string &text) {
    ItemIndex index;
    std::istringstream tokens(text);
    int64_t position = 0;
    for (std::string token; tokens >> token;) {
        const std::size_t colon = token.find(':');
        const uint64_t key = colon == token.npos ? 0 : std::stoull(token.substr(colon + 1));
        const int eye = std::atoi(token.c_str() + 1);
        const int code = kCodes[kLetters.find(token[0])];
        position += token.back() == '=' ? 0 : 10;
        if (code == REC_RECORDING) {
            index.appendRecordingBlock(
                {.time = static_cast<uint32_t>(key / 2), .state = token[0] == '[', .sort_key = key});
        } else {
            index.append({position, static_cast<uint16_t>(code | eye << 8), 0, key});
        }
    }
    return index;
}

std::string printed(const ItemIndex &index) {
    std::string text;
    for (std::size_t i = 0; i < index.size(); ++i) {
        const TRKItem &item = index[i];
        const bool end = item.isRecordingBlock() && index.recordingOf(item).state == 0;
        text += text.empty() ? "" : " ";
        text += end ? ']' : kLetters[static_cast<std::size_t>(std::ranges::find(kCodes, item.code()) - kCodes)];
        text += item.eye() != 0 ? std::to_string(item.eye()) : "";
        text += ':' + std::to_string(index.effectiveKey(item));
        text += (item.item_type & 0x1000) != 0 ? "^" : "";
        text += (item.item_type & 0x2000) != 0 ? "~" : "";
    }
    return text;
}

TEST(Order, OfTwoItemsFollowsTheRules) {
    const struct {
        const char *items;
        bool firstBefore, secondBefore;
    } cases[] = {
        {"s:1 m:0", false, true}, {"]:2 [:4", true, false}, {"[:4 s:3", false, true}, {"A1 s", true, false},
        {"a1 s", false, true},    {"( s", true, false},     {") s", false, true},     {"] [", true, false},
        {"[ [", false, false},    {"] ]", false, false},    {"[ s", true, false},     {"[ m", true, false},
        {"[ A1", true, false},    {"[ a1", true, false},    {"s ]", true, false},     {"m ]", true, false},
        {"x ]", true, false},     {"a1 ]", true, false},    {"A1 ]", false, false},   {"A1 B1", true, false},
        {"b1 a1", true, false},   {"B1 b1", true, false},   {"B1 b2", true, true},    {"A1 f1", true, false},
        {"B1 a1", true, false},   {"F1 b2", true, false},   {"m s", true, false},     {"m u", true, false},
        {"u s", true, false},     {"s u", true, false},     {"m a1", true, false},    {"F1 m", true, false},
        {"m u=", true, true},     {"s u=", true, true},     {"m F1=", true, true},    {"s s", false, false},
        {"s x", false, false},    {"x x", false, false},    {"m x", false, false},    {"A1 x", false, false},
        {"A1 F1", false, false},  {"a1 f1", false, false},  {"A1 A2", true, false},   {"m m=", true, true},
    };
    for (const auto &[items, firstBefore, secondBefore] : cases) {
        const ItemIndex index = parsed(items);
        EXPECT_EQ(sortByTime(index, index[0], index[1]), firstBefore) << items;
        EXPECT_EQ(sortByTime(index, index[1], index[0]), secondBefore) << items;
    }
}

// One item of `count` stands `from` places from the start and belongs `to` places from it.
TEST(Order, OfLargeIndexesIsMadeInChunks) {
    const struct {
        std::size_t count, from, to, reached;
    } cases[] = {
        {20000, 19999, 0, 0},         {20001, 20000, 0, 10500},     {20001, 13499, 0, 0},
        {20001, 13500, 10498, 10500}, {20001, 13500, 10502, 10502}, {40000, 39999, 31000, 31500},
    };
    for (const auto &[count, from, to, reached] : cases) {
        ItemIndex index;
        for (std::size_t i = 0; i < count; ++i) {
            index.append({static_cast<int64_t>(i), REC_SAMPLE, 0, 10 + i / 2 * 4});
        }
        index.items()[from].sort_key = 9 + to / 2 * 4;
        index.sortItems();
        const auto place = std::ranges::find(index.items(), static_cast<int64_t>(from), &TRKItem::file_position);
        EXPECT_EQ(place - index.items().begin(), static_cast<std::ptrdiff_t>(reached)) << count << ' ' << from;
        index.items().erase(place);
        EXPECT_TRUE(
            std::ranges::is_sorted(index.items(), {}, &TRKItem::file_position)); // equal keys stay in order
    }
}

TEST(Consistency, RepairsTheIndex) {
    const auto skipped = [](int time) {
        return "WARNING: TRK FILE MAY BE CORRUPTED. Sample at " + std::to_string(time) +
               " found without start recording. Skipping this sample \n";
    };
    constexpr bool kStrict = true;
    const struct {
        bool strict;
        std::string before, after;
        LogLines log = {};
    } cases[] = {
        // Blocks less than 3 ms apart; a block that is set apart may come close to the next.
        {false, "[:1000 ]:2000 [:2004 ]:3000", "[:1000 ]:2001 [:2007 ]:3000"},
        {false, "[:1000 ]:2000 [:2006 ]:3000", "[:1000 ]:2000 [:2006 ]:3000"},
        {false, "[:1000 ]:2000 [:2004 ]:2012", "[:1000 ]:2001 [:2007 ]:2013"},
        {false, "[:1000 [:2000 ]:2000 ]:3000", "[:1000 ]:2001 [:2003 ]:3000"},
        // Samples outside of blocks; an end that belongs before the start of its time.
        {false, "s:2 s:4 [:10 s:12 ]:20 s:22", "[:10 s:12 ]:20", {skipped(1), skipped(2), skipped(11)}},
        {kStrict, "[:4000 F1:4000 [:9000 ]:4000 s:4002 ]:9900", "]:4000 [:4000 F1:4000 s:4002 [:9000 ]:9900"},
        // Blinks that do not pair up.
        {false,
         "[:10 b1:22 b1:24 B1:26 B1:28 B1:30 ]:90",
         "[:10 b1:22 b1:24 B1:26 B1:28 B1:30 ]:90",
         {"found EBLINK  with no SBLINK 12 \n", "No matching EBLINK found for SBLINK  15 \n"}},
        {kStrict,
         "[:10 b1:22 b1:24 B1:26 B1:28 B1:30 ]:90",
         "[:10 b1:22 B1:24^ b1:24 B1:28 B1:30 ]:90",
         {"found EBLINK  with no SBLINK 12 \n", "No matching EBLINK found for SBLINK  15 \n"}},
        {kStrict, "[:10 b1:22 B2:24 b2:26 ]:90", "[:10 b1:22 B2:24 b2:26 ]:90"},
        {kStrict, "[:10 b1:22 b2:24 B1:26 ]:90", "[:10 b1:22 b2:24 B1:24^ ]:90"},
        // Eye events between blocks.
        {false, "[:10 ]:20 a1:28 b1:28 f2:20 [:30 ]:40", "[:10 f2:20 b1:20^ a1:20^ ]:20 [:30 ]:40"},
        {false, "[:10 ]:20 A1:22 B1:24 [:30 b2:32 b1:34 ]:40", "[:10 ]:20 [:30 A1:30^ B1:30^ b2:32~ b1:34 ]:40"},
        {false, "[:10 ]:20 B1:22 F2:23 b1:24", "[:10 b1:20^~ ]:20 B1:22 F2:23"},
        {false, "A1:5 [:10 a1:12 ]:20", "A1:5 [:10 a1:12 ]:20"},
        // Blinks within one saccade.
        {kStrict, "[:10 A1:11 B1:12 b1:13 B1:14 s:15 b1:16 B1:17 b1:18 a1:19 s:20 ]:90",
         "[:10 A1:11 B1:12 s:15^ b1:18~ a1:19 s:20 ]:90"},
        {kStrict, "[:10 A1:11 B1:12 b1:13 B2:14 b2:15 B2:16 b2:17 B1:18 b1:19 ]:90",
         "[:10 A1:11 B1:12 B2:14 b2:15 B2:16 b2:17 b1:19~ ]:90"},
        {kStrict, "[:10 A1:11 B1:12 b1:13 ]:20 [:30 B1:32 b1:33 ]:90",
         "[:10 A1:11 B1:12 b1:13 ]:20 [:30 B1:32 b1:33 ]:90"},
        {kStrict, "[:10 A1:11 a1:12 B1:13 b1:14 B1:15 b1:16 ]:90",
         "[:10 A1:11 a1:12 B1:13 b1:14 B1:15 b1:16 ]:90"},
        // Samples within blinks.
        {kStrict, "[:10 B2:11 s:12 B1:13 s:14 b2:15 s:16 ]:30 [:40 s:42 ]:50",
         "[:10 B2:11 s:12~ B1:13 s:14^~ b2:15 s:16^ ]:30 [:40 s:42 ]:50"},
        {false, "[:10 A1:11 B1:12 b1:13 B1:14 s:15 b1:16 ]:90", "[:10 A1:11 B1:12 b1:13 B1:14 s:15 b1:16 ]:90"},
    };
    for (const auto &[strict, before, after, lines] : cases) {
        LogCapture log;
        ItemIndex index = parsed(before);
        EXPECT_EQ(checkConsistency(index, strict), 0);
        EXPECT_EQ(printed(index), after) << before;
        EXPECT_EQ(log.take(), lines) << before;
    }
}

} // namespace
