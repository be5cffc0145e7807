// Trials, bookmarks and search by time.
#include "api/internal_calls.h"
#include "api/open_recording.h"
#include "navigation/time_search.h"
#include "support/walk.h"

#include <gtest/gtest.h>

namespace {

using namespace trk_test;

// Items, a letter each and 10 ms apart; "=" before one puts it at the time of the one before, ">" 200 ms later,
// "<" 100 ms earlier. [ and ] start and end recording blocks, "." is a sample, digits are inputs. All others are
// messages with their letter in the text: V with "S", "E" and "!V", "-" without a text, "?" one that cannot be
// decoded.
struct Line final : public trk::ItemSource {
    trk::ItemIndex index;
    std::string kinds;
    std::ptrdiff_t decoded = 0;
    TRK_MESSAGE text{};
    ALLF_DATA record{};

    explicit Line(const std::string &line) {
        FRECORDING block{};
        for (const char kind : line) {
            if (kind == '=' || kind == '<' || kind == '>') {
                block.time += kind == '=' ? -10U : kind == '<' ? -100U : 200U;
                continue;
            }
            kinds += kind;
            block.sort_key = trk::TimeKey::of(block.time);
            block.state = kind == '[' ? TRK_BLOCK_START : TRK_BLOCK_END;
            const int code = kind == '.' ? REC_SAMPLE : std::isdigit(kind) != 0 ? REC_INPUT : REC_MESSAGE;
            if (kind == '[' || kind == ']') {
                index.appendRecordingBlock(block);
            } else {
                index.append({1, static_cast<uint16_t>(code), 0, block.sort_key});
            }
            block.time += 10;
        }
    }
    ALLF_DATA *itemAt(trk::ItemNumber item) override {
        ++decoded;
        text = kinds[item] == 'V' ? TRK_MESSAGE{4, "SE!V"} : TRK_MESSAGE{3, {'x', kinds[item], 'x'}};
        record.event.message = kinds[item] == '-' ? nullptr : &text;
        record.event.aux_word1 = static_cast<uint16_t>(kinds[item] - '0');
        return kinds[item] == '?' ? nullptr : &record;
    }
};

// A trial as "first..end start-end+duration@block", by item, by time and by the time of the block's start.
std::string print(const trk::Trial &trial) {
    std::ostringstream out;
    out << trial.firstItem << ".." << trial.endItem << ' ' << trial.startTime << '-' << trial.endTime << '+'
        << trial.duration << '@' << (trial.recording ? static_cast<int>(trial.recording->time) : -1) << ' ';
    return out.str();
}

TEST(Trials, FollowTheWalk) {
    const std::tuple<std::string, std::string, std::string, std::string> cases[] = {
        {"", "", "", ""},
        {"", "", ".[S.]E[.]", "1..5 10-40+30@10 6..9 60-80+20@60 "},
        {"", "", ".][.[.][.", "2..7 20-60+40@40 "},
        {"S", "E", "S[.]ES[.]E", "0..5 0-40+40@10 5..10 50-90+40@60 "},
        {"S", "E", "E[S.E]S", "1..2 10-20+10@10 2..5 20-40+20@10 "}, // the block opened the first
        {"S", "E", "[S.E]", "0..1 0-10+10@0 "},                      // a block at item 0 is not looked up
        {"S", "E", "[S][.]", "0..1 0-10+10@0 1..6 10-50+0@30 "},
        {"S", "E", "SS[.S.]", "0..4 0-40+40@20 4..7 40-60+0@20 "}, // nothing yet that could end the first
        {"S", "E", "S[V-?E]", "0..6 0-50+50@10 "},
        {"S", "E", "S[.][.]E", "0..4 0-30+0@10 4..8 40-70+30@40 "}, // the second block ends one and opens one
        {"S", "E", "S[7E][.]", "0..4 0-30+30@10 5..8 50-70+0@50 "},
        {"S", "E", ".[S=][.]", "1..2 10-20+10@10 2..7 20-50+0@30 "}, // the first ] is not behind S
        {"S", "E", "[[SS", "0..2 0-20+20@10 2..3 20-30+10@10 "},     // the block is in force again
        {"S", "S", "S[S.]", "0..2 0-20+20@10 2..5 20-40+0@10 "},
        {"", "E", ".[.E.][.E]", "1..4 10-30+20@10 6..9 60-80+20@60 "},
        {"S", "", "S[.]S[.]", "0..4 0-40+40@10 4..8 40-70+0@50 "},
        {"inPut_type_7", "8", "7[.8S7]", "0..4 0-30+30@10 5..7 50-60+0@10 "},
        {"inPut_type_7", "7", "7[.7]", "0..3 0-30+30@10 3..5 30-40+0@10 "},
        {"inPut_type_1234", "", "10[1]", "1..5 10-40+0@20 "}, // too long for a number: 0
    };
    for (auto [start, end, items, expected] : cases) {
        Line line(items);
        trk::TrialList list(line.index, line);
        list.setMarkers(start.empty() ? nullptr : start.data(), end.empty() ? nullptr : end.data());
        std::string found;
        std::ranges::for_each(list.trials(), [&found](const trk::Trial &trial) { found += print(trial); });
        EXPECT_EQ(found, expected) << items;
        const unsigned wanted = start.size() > 1 ? REC_INPUT : (start + end).empty() ? 0 : REC_MESSAGE;
        EXPECT_EQ(line.decoded, std::ranges::count(line.index.items(), wanted, &trk::Item::code)) << items;
    }
}

// Once chosen, trials by input values stay; without texts both numbers are 0. A trial without a block bars others.
TEST(Trials, PrintHowTheyAreDelimited) {
    Line line("0][.]0");
    trk::TrialList list(line.index, line);
    char number[] = "inPut_type_12", misplaced[] = "1inPut_type_2", end[] = "13", negative[] = "-1";
    testing::internal::CaptureStdout();
    list.setMarkers(number, end);
    list.setMarkers(misplaced, negative);
    list.setMarkers(nullptr, nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "setTrial End:  13\nInput Split option found :inPut_type_12  12\n!!!!!!!!!!!!!!!!!!!B\n"
              "!!!!!!!!!!!!!!!!!!!!!!A\n Start Input: 12\n End Input: 13\n"
              "setTrial End:  -1\nInput Split option found :1inPut_type_2  _2\n!!!!!!!!!!!!!!!!!!!B\n"
              "!!!!!!!!!!!!!!!!!!!!!!A\n Start Input: 0\n End Input: 65535\nremoved last trial\n"
              "Set TrialEndMesage Empty\n Start Input: 0\n End Input: 0\n");
    EXPECT_EQ(std::to_string(list.trials().size()) + ": " + print(list.trials()[0]), "1: 0..2 0-10+10@-1 ");
    EXPECT_EQ(list.blockAt(5), nullptr);
    Line backwards(">[.]<[.]<[.]");
    EXPECT_EQ(trk::TrialList(backwards.index, backwards).blockAt(70), &backwards.index.recordings()[4]);
}

// Blocks from 1000 to 1020 and, too close behind, from 1022 to 1030. Texts are decoded before the walk begins.
TEST(Trials, AreGoneToAndAskedByTime) {
    RecordingWriter writer;
    writer.message(990, "S").startBlock({.time = 1000, .gazeDivisor = 10}).sample(1001).endBlock(1020);
    writer.message(1021, "S").startBlock({.time = 1022, .gazeDivisor = 20}).sample(1024).endBlock(1030).end();
    Recording recording = openBytes(writer.plain(), {.flags = TRK_OPEN_CHECK});
    _TRKFILE *const handle = recording.handle();
    auto &file = reinterpret_cast<trk::TRKFile &>(*handle);
    const auto after = [handle](int result) {
        TRIAL at{};
        trk_get_trial_header(handle, &at);
        return std::to_string(result) + print({at.recording, at.duration, at.start_time, at.end_time}).substr(4);
    };
    file.goToItem(1); // no trials yet to arrive at
    EXPECT_EQ(after(trk_goto_previous_trial(handle)), "-1 0-0+0@-1 ");
    std::ostringstream found;
    for (const uint32_t time : {999U, 1000U, 1020U, 1021U, 1022U, 1023U, 1030U, 1031U}) {
        const FRECORDING *const block = file.blocks().blockAt(time);
        found << (block != nullptr ? block->gaze_prescaler : 0) << ' ';
    }
    EXPECT_EQ(found.str(), "0 10 10 0 0 20 20 0 ");
    EXPECT_EQ(after(trk_goto_trial_with_end_time(handle, 1030)), "0 1023-1030+7@1022 ");
    char start[] = "S", end[] = "E";
    EXPECT_EQ(after(trk_set_trial_identifier(handle, start, end)), "0 1021-1030+0@1022 ");
    EXPECT_TRUE(trk_get_start_trial_identifier(handle) == start && trk_get_end_trial_identifier(handle) == end);
    EXPECT_EQ(file.blocks().blockAt(1021)->gaze_prescaler, 20); // of two trials the later one
    EXPECT_EQ(after(trk_goto_next_trial(handle)), "-1 1021-1030+0@1022 ");
    EXPECT_EQ(trk_get_element_index(handle), 11);
    EXPECT_EQ(after(trk_goto_previous_trial(handle)), "0 990-1021+31@1000 ");
    for (const int trial : {-1, trk_get_trial_count(handle)}) {
        EXPECT_EQ(after(trk_jump_to_trial(handle, trial)), "-1 990-1021+31@1000 ");
    }
    EXPECT_EQ(after(trk_goto_trial_with_start_time(handle, 991)), "-1 990-1021+31@1000 ");
    EXPECT_EQ(recording.fetch(recording.step()).message, "S");
    EXPECT_EQ(after(trk_goto_trial_with_start_time(handle, 1021)), "0 1021-1030+0@1022 ");
    std::ranges::for_each(std::array{0U, 9U, 99U}, [&file](unsigned item) { file.goToItem(item); });
    EXPECT_EQ(after(trk_get_element_index(handle)), "9 990-1021+31@1000 ");
    EXPECT_EQ(trk_get_trial_header(handle, nullptr), -1);
}

// Sets (s), goes to (g) and frees (f) bookmarks by the number of their record, 0 for null; goes to the next (>)
// and the previous (<) one; reads on (.), which gives a message.
TEST(Bookmarks, AreSteppedThroughInTheirOrder) {
    RecordingWriter writer;
    Recording recording = openBytes(writer.message(1, "a").message(2, "b").message(3, "c").end().plain());
    _TRKFILE *const file = recording.handle();
    BOOKMARK marks[] = {{77}, {77}, {77}, {77}, {77}, {77}};
    std::string results;
    std::istringstream script("s0 g1 f1 g0 f0 <0 >0 s1 s2 .0 .0 s3 " // the second of one place is none
                              ">0 .0 >0 s4 <0 <0 .0 "                // none behind the last item
                              "s5 g5 f3 >0 <0 .0 "     // freed before the current one, which moves up
                              "f1 >0 .0 f5 >0 <0 g5"); // freed at 0: wraps
    std::size_t number = 0;
    for (char kind = 0; script >> kind >> number;) {
        const auto call = kind == 's' ? trk_set_bookmark : kind == 'g' ? trk_goto_bookmark : trk_free_bookmark;
        const auto step = kind == '.' ? trk_get_next_data : trk_goto_previous_bookmark;
        const auto go = kind == '>' ? trk_goto_next_bookmark : step;
        const int result = std::isalpha(kind) != 0 ? call(file, number != 0 ? &marks[number] : nullptr) : go(file);
        results += kind == '.' ? recording.fetch(result).message : result == 0 ? "0" : "-";
    }
    EXPECT_EQ(results, "-------00ab00c--0-a000-0a00b0---");
    EXPECT_EQ(std::pair(marks[1].item_position, marks[2].item_position), std::pair(0U, 77U)); // 2 is not filled in
}

// Keys of the items: 0, 20 five times, 40, 60, 80. Of those that share one, the sample is found by chance.
TEST(TimeSearch, FindsExactKeysOnly) {
    const Line line(".S=.=.=S=S.[.");
    for (const auto &[key, found] :
         {std::pair(0U, 0), {20, -1}, {30, -1}, {40, 6}, {60, -1}, {80, 8}, {100, -1}}) {
        EXPECT_EQ(static_cast<int>(trk::findSample(line.index, key).value_or(-1)), found) << key;
    }
    EXPECT_FALSE(trk::findSample(Line("").index, 0));
}

// Times move by the item on which the walk stands.
TEST(TimeSearch, LeavesTheReadPosition) {
    constexpr uint32_t kLate = 400000000;
    RecordingWriter writer;
    writer.sample(kLate).sample(kLate + 2).message(kLate + 4, "a").sample(kLate + 6).end();
    LogCapture log;
    Recording recording = openBytes(writer.plain());
    EXPECT_EQ(trk_get_sample_close_to_time(recording.handle(), kLate + 2)->sample.time, kLate + 2);
    EXPECT_TRUE(log.take().ends_with("Unknown type 0\n"));
    EXPECT_EQ(recording.step(), REC_SAMPLE);
    for (const uint32_t offset : {0U, 1U, 2U, 4U, 6U, 7U, 0x80000002U}) { // the last doubled wraps
        const ALLF_DATA *const record = trk_get_sample_close_to_time(recording.handle(), kLate + offset);
        EXPECT_EQ(record != nullptr ? record->sample.time : 99, offset % 4 == 2 ? offset % 8 : 99) << offset;
    }
    EXPECT_EQ(recording.fetch(recording.step()).time(), 2U);
}

} // namespace
