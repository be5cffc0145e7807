// The item index: what enters it, gaps, recording blocks, the order and the repairs.
#include "index/item_order.h"
#include "index/repair.h"
#include "support/walk.h"

#include <gtest/gtest.h>

namespace {

using namespace trk_test;
using trk::Item;
using trk::ItemIndex;

std::string skipped(int time) {
    return "WARNING: TRK FILE MAY BE CORRUPTED. Sample at " + std::to_string(time) +
           " found without start recording. Skipping this sample \n";
}

// A tolerant scan passes over one end mark.
TEST(Prescan, IndexesWhatIsAskedFor) {
    RecordingWriter writer;
    writer.startBlock({.time = 1000}).sample(1000);
    for (const int code : {0, 1, 2, 3, 4, 9, 25, 28, 30, 40}) {
        writer.event(EventRecord(code, LeftEye).times(1001, 1002));
    }
    for (const int code : {1, 5, 6}) {
        writer.event(EventRecord(code)); // without a time
    }
    const Bytes bytes = writer.endBlock(1003).end().message(1004, "behind the end").plain();
    const std::string untimed = "Unexpected time stamp 0. Skipping event \n",
                      tolerated = "Unexpected event type tag 0. Skipping event \n" + untimed + untimed +
                                  "error reading trk file 7a r = 0 \nError reading items End of file Exception \n";
    const std::tuple<OpenOptions, std::string, std::string> cases[] = {
        {{}, " 5 6 30 15 17 200 3 9 25 28 40 4 16 18 30", ""},
        {{TRK_OPEN_TOLERANT}, " 6 30 15 17 200 3 9 25 28 40 4 16 18 30 24", tolerated},
        {{.loadEvents = 0}, " 30 15 200 16 30", ""},
        {{.loadSamples = 0}, " 5 6 30 17 3 9 25 28 40 4 18 30", ""},
        {{.loadEvents = 0, .loadSamples = 0}, "", ""},
    };
    for (const auto &[options, codes, lines] : cases) {
        const LogCapture log;
        const Recording recording = openBytes(bytes, options);
        EXPECT_EQ(LogCapture::take(), lines);
        EXPECT_EQ(recording.told([](int code) { return ' ' + std::to_string(code); }), codes);
    }
}

// Times of samples behind the rate of their block, "!" first for strict checks; their keys; what is logged.
TEST(Gaps, AreFilledWhereThePeriodIsKnown) {
    const auto missing = [](const std::string &count, const std::string &span) {
        return "Missing " + count + " samples. Inserting dummy samples \nMissing (" + span +
               ") samples. Calculating speriod \n";
    };
    const std::string tooMany = "Missing samples are over 10000, skip it without addimg missing samples\n ";
    const std::string mismatch = "Intersample period does not match with the sample rate given by the start "
                                 "recording event! Using start recording sample rate. ";
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"!500: 96 98 100 110", "192 196 200 204 208 212 216 220 ", missing("5", "100-110")},
        {"500: 96 98 100 110", "192 196 200 220 ", ""},
        {"!500: 96 98 100 99", "192 196 198 200 ", missing("-1", "100-99")},
        {"!500: 96 98 100 103", "192 196 200 206 ", missing("1", "100-103")},
        {"!500: 96 98 100 20102", "192 196 200 40204 ", missing("10001", "100-20102") + tooMany},
        {"!500: 98 100 110 112 116", "196 200 220 224 228 232 ", missing("2", "112-116")},
        {"!500: 0 2 6", "0 4 12 ", ""},
        {"!250: 88 92 96 108", "176 184 192 200 208 216 ", missing("3", "96-108")},
        {"!60: 900 933 966 1000 1100", "1800 1866 1932 2000 2200 ", ""},
        {"!60: 96 98 100 104", "192 196 200 204 208 ", missing("2", "100-104")},
        {"!2000: 50 50 51 51 53", "100 101 102 103 104 105 106 106 ", missing("4", "51-53")},
        {"!500: 100 101 102 106", "200 202 204 208 212 ", mismatch + "4 2 202 204 \n" + missing("2", "102-106")},
        {"!1001: 100 101 102", "200 202 203 204 ", mismatch + "1 2 202 204 \n" + missing("2", "101-102")},
        {"!1000: 100 101 102 250: 200 204 208", "200 202 204 400 408 416 ", ""},
        {"!96 100 104", "", skipped(96) + skipped(100) + skipped(104)},
    };
    for (const auto &[text, keys, log] : cases) {
        RecordingWriter writer;
        std::istringstream tokens(text.substr(text[0] == '!' ? 1 : 0));
        for (std::string token, rate; tokens >> token;) {
            const auto time = static_cast<uint32_t>(std::stoul(token));
            if (token.back() == ':') {
                rate = token;
                continue;
            }
            if (!rate.empty()) {
                writer.startBlock({.time = time, .rate = std::stod(std::exchange(rate, ""))});
            }
            writer.sample(time);
        }
        const LogCapture capture;
        const Recording recording = openBytes(writer.endBlock(30000).end().plain(),
                                              {text[0] == '!' ? TRK_OPEN_CHECK_AND_FILL : TRK_OPEN_CHECK});
        EXPECT_EQ(LogCapture::take(), log) << text;
        const auto key = [&recording](int code) {
            return code == REC_SAMPLE ? std::to_string(recording.fetch(code).sample().sort_key) + ' ' : "";
        };
        EXPECT_EQ(recording.told(key), keys) << text;
    }
}

TEST(RecordingBlocks, AreJoinedOfSamplesAndEvents) {
    const auto samples = startSamples({.time = 1000, .rate = 500, .gazeDivisor = 10, .modeWord = 0x0031}).bytes();
    const auto events = [](uint32_t time, unsigned parseFlags, Eyes eyes = LeftEye) {
        return startEvents({.time = time, .rate = 500, .eyes = eyes, .pupilMode = 2, .parseFlags = parseFlags})
            .bytes();
    };
    const Bytes withdrawn =
        startSamples({.time = 7, .eyes = RightEye, .content = 0x0510}).bytes() +
        RecordingWriter().sample({.time = 9, .extension = ExtensionBlock{0xF2, {1, 2}}}).records();
    const std::pair<Bytes, std::string> cases[] = {
        {samples + events(1002, 2) + endEvents(1900).bytes() + endSamples(1901).bytes(),
         "+1000@500 312003 8500 0 /10;-1901@500 310111 0 0 /0;"},
        {events(1002, 4) + samples + endSamples(1900).bytes(),
         "+1000@500 314111 0 1fff /0;-1900@500 110103 0 0 /0;"},
        {samples + events(1500, 0), "+1000@500 310003 8500 0 /10;"},
        {events(1500, 0) + samples, "+1000@500 310111 0 1fff /0;"},
        {samples + events(1501, 2, BothEyes) + endEvents(1600).bytes(),
         "+1000@500 110003 8500 0 /10;+1501@500 232111 0 1fff /0;-1600@500 230111 0 0 /0;"},
        {events(1000, 0, RightEye), "+1000@500 220111 0 1fff /0;"},
        {withdrawn + endSamples(1001).bytes(), "+7@1000 120011 4500 0 /1;-1001@1000 120111 0 0 /0;"},
    };
    for (const auto &[records, blocks] : cases) {
        const Recording recording = openBytes(RecordingWriter().raw(records).end().plain());
        EXPECT_EQ(recording.told(
                      [&](int code) { return code == REC_RECORDING ? textOf(recording.fetch(code)) + ';' : ""; }),
                  blocks);
    }
}

// ---- Order and repairs, on items in one line ----

// An item is a letter, the eye of eye events, ":" and its key, then its marks: ^ for bit 12, ~ for bit 13. File
// positions ascend; "=" repeats the one before. [ and ] are starts and ends of recording blocks, s samples, x an
// unknown code; B b blinks, A a saccades, F f fixations, ( ) samples blocks, m messages, u buttons.
constexpr std::string_view kLetters = "[]sxBbAaFf()mu";
constexpr uint16_t kCodes[] = {30, 30, 200, 40, 3, 4, 5, 6, 7, 8, 15, 16, 24, 25};

ItemIndex parsed(const std::string &text) {
    ItemIndex index;
    std::istringstream tokens(text);
    int64_t position = 0;
    for (std::string token; tokens >> token;) {
        const uint64_t key =
            token.find(':') != std::string::npos ? std::stoull(token.substr(token.find(':') + 1)) : 0;
        const int code = kCodes[kLetters.find(token[0])] | std::atoi(token.c_str() + 1) << 8;
        position += token.back() == '=' ? 0 : 10;
        if (code == REC_RECORDING) {
            FRECORDING block{};
            block.state = token[0] == '[' ? TRK_BLOCK_START : TRK_BLOCK_END;
            block.sort_key = key;
            index.appendRecordingBlock(block);
        } else {
            index.append({position, static_cast<uint16_t>(code), 0, key});
        }
    }
    return index;
}

std::string printed(const ItemIndex &index) {
    std::ostringstream text;
    for (trk::ItemNumber i = 0; i < index.size(); ++i) {
        const Item &item = index[i];
        const bool end = item.isRecordingBlock() && index.recordingOf(item).state == TRK_BLOCK_END;
        text << (i == 0 ? "" : " ")
             << kLetters[static_cast<std::size_t>(std::ranges::find(kCodes, item.code()) - kCodes) + (end ? 1 : 0)]
             << (item.eye() != 0 ? std::to_string(item.eye()) : "") << ':' << index.effectiveKey(item)
             << ((item.type & 0x1000) != 0 ? "^" : "") << ((item.type & 0x2000) != 0 ? "~" : "");
    }
    return text.str();
}

// Two items, then whether the first must stand before the second and the second before the first.
TEST(Order, OfTwoItemsFollowsTheRules) {
    for (const std::string text :
         {"s:1 m:0 01", "]:2 [:4 10", "[:4 s:3 01", "A1 s 10",  "a1 s 01",  "( s 10",   ") s 01",   "] [ 10",
          "[ [ 00",     "] ] 00",     "[ s 10",     "[ m 10",   "[ A1 10",  "[ a1 10",  "s ] 10",   "m ] 10",
          "x ] 10",     "a1 ] 10",    "A1 ] 00",    "A1 B1 10", "b1 a1 10", "B1 b1 10", "B1 b2 11", "A1 f1 10",
          "B1 a1 10",   "F1 b2 10",   "m s 10",     "m u 10",   "u s 10",   "s u 10",   "m a1 10",  "F1 m 10",
          "m u= 11",    "s u= 11",    "m F1= 11",   "s s 00",   "s x 00",   "x x 00",   "m x 00",   "A1 x 00",
          "A1 F1 00",   "a1 f1 00",   "A1 A2 10",   "m m= 11"}) {
        const ItemIndex index = parsed(text.substr(0, text.size() - 3));
        EXPECT_EQ(precedes(index, index[0], index[1]), text.end()[-2] == '1') << text;
        EXPECT_EQ(precedes(index, index[1], index[0]), text.end()[-1] == '1') << text;
    }
}

// Among so many items, the one that stands at `from` belongs to `to`. Items of equal keys stay in order.
TEST(Order, OfLargeIndexesIsMadeInChunks) {
    const std::array<trk::ItemNumber, 4> cases[] = {{20000, 19999, 0, 0},         {20001, 20000, 0, 10500},
                                                    {20001, 13499, 0, 0},         {20001, 13500, 10498, 10500},
                                                    {20001, 13500, 10502, 10502}, {40000, 39999, 31000, 31500}};
    for (const auto &[count, from, to, reached] : cases) {
        ItemIndex index;
        for (trk::ItemNumber i = 0; i < count; ++i) {
            index.append({i, REC_SAMPLE, 0, 10 + i / 2 * 4});
        }
        index.items()[from].key = 9 + to / 2 * 4;
        index.sortItems();
        EXPECT_EQ(index[reached].filePosition, static_cast<int64_t>(from)) << count << ' ' << from << ' ' << to;
        index.items().erase(index.items().begin() + static_cast<std::ptrdiff_t>(reached));
        EXPECT_TRUE(std::ranges::is_sorted(index.items(), {}, &trk::Item::filePosition));
    }
}

// Items before and after; "!" switches the strict repairs on, and no items after mean the same as before.
TEST(Consistency, RepairsTheIndex) {
    const std::string unpaired = "found EBLINK  with no SBLINK 12 \nNo matching EBLINK found for SBLINK  15 \n";
    const struct {
        std::string before, after, log = {};
    } cases[] = {
        // Blocks less than 3 ms apart; a block that is set apart may come close to the next.
        {"[:1000 ]:2000 [:2004 ]:3000", "[:1000 ]:2001 [:2007 ]:3000"},
        {"[:1000 ]:2000 [:2006 ]:3000", ""},
        {"[:1000 ]:2000 [:2004 ]:2012", "[:1000 ]:2001 [:2007 ]:2013"},
        {"[:1000 [:2000 ]:2000 ]:3000", "[:1000 ]:2001 [:2003 ]:3000"},
        // Samples outside of blocks; an end that belongs before the start of its time, and then no sorting.
        {"s:2 s:4 [:10 s:12 ]:20 s:22", "[:10 s:12 ]:20", skipped(1) + skipped(2) + skipped(11)},
        {"!m:2 [:40 F1:40 [:90 ]:40 s:42 b1:91 s:92 B1:94 ]:99",
         "m:2 ]:40 [:40 F1:40 s:42 [:90 b1:91 s:92 B1:91^ ]:99"},
        // Blinks that do not pair up.
        {"[:10 b1:22 b1:24 B1:26 B1:28 B1:30 ]:90", "", unpaired},
        {"![:10 b1:22 b1:24 B1:26 B1:28 B1:30 ]:90", "[:10 b1:22 B1:24^ b1:24 B1:28 B1:30 ]:90", unpaired},
        {"![:10 b1:22 B2:24 b2:26 ]:90", ""},
        {"![:10 b1:22 b2:24 B1:26 ]:90", "[:10 b1:22 b2:24 B1:24^ ]:90"},
        // Eye events between blocks.
        {"[:10 ]:20 a1:28 b1:28 f2:20 [:30 ]:40", "[:10 f2:20 b1:20^ a1:20^ ]:20 [:30 ]:40"},
        {"[:10 ]:20 F1:20 A1:22 B1:24 [:30 b2:32 b1:34 ]:40",
         "[:10 ]:20 F1:20 [:30 A1:30^ B1:30^ b2:32~ b1:34 ]:40"},
        {"[:10 ]:20 B1:22 F2:23 b1:24", "[:10 b1:20^~ ]:20 B1:22 F2:23"},
        {"[:10 ]:20 f2:23", "[:10 f2:20^ ]:20"},
        {"[:10 ]:20 F1:22 [:30 ]:40 [:50 ]:60", "[:10 ]:20 [:30 F1:30^ ]:40 [:50 ]:60"},
        {"A1:5 [:10 a1:12 ]:20", ""},
        // Several blinks within one saccade, and samples within blinks.
        {"![:10 A1:11 B1:12 b1:13 B1:14 s:15 b1:16 B1:17 b1:18 a1:19 s:20 ]:90",
         "[:10 A1:11 B1:12 s:15^ b1:18~ a1:19 s:20 ]:90"},
        {"![:10 A1:11 B1:12 b1:13 B2:14 b2:15 B2:16 b2:17 B1:18 b1:19 ]:90",
         "[:10 A1:11 B1:12 B2:14 b2:15 B2:16 b2:17 b1:19~ ]:90"},
        {"![:10 A1:11 B1:12 b1:13 ]:20 [:30 B1:32 b1:33 ]:90", ""},
        {"![:10 A1:11 a1:12 B1:13 b1:14 B1:15 b1:16 ]:90", ""},
        {"![:10 B2:11 s:12 B1:13 s:14 b2:15 s:16 ]:30 [:40 s:42 ]:50",
         "[:10 B2:11 s:12~ B1:13 s:14^~ b2:15 s:16^ ]:30 [:40 s:42 ]:50"},
        {"[:10 A1:11 B1:12 b1:13 B1:14 s:15 b1:16 ]:90", ""},
    };
    for (const auto &[before, after, lines] : cases) {
        LogCapture log;
        const bool strict = before[0] == '!';
        ItemIndex index = parsed(before.substr(strict ? 1 : 0));
        repairIndex(index, strict);
        EXPECT_EQ(printed(index), after.empty() ? before.substr(strict ? 1 : 0) : after) << before;
        EXPECT_EQ(LogCapture::take(), lines) << before;
    }
}

} // namespace
