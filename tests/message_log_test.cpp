// The extra message log: what it reads as, and how its messages go among the items of a recording.
#include "delivery/message_log.h"
#include "support/scenarios.h"
#include "support/walk.h"

#include <gtest/gtest.h>

namespace {

using namespace trk_test;
using namespace std::string_literals;

// A log's first line, so that the next one is not, one that pairs the clocks, and its last.
const std::string kHead = "0 head\n", kSync = "1 TRACKER_TIME 1 5\n", kEnd = "9 Quit logger\n";

// "+" for a log that can be merged, the messages with their times, what was printed.
TEST(MessageLog, ReadsAnyLines) {
    const std::string largest = "18446744073709551615", x(4093, 'x'), read = "5 TRACKER_TIME 1 5\n";
    const std::string bad = "TRACKER_TIME format not right \n",
                      example = "1000 TRACKER_TIME 1 250000.7\n1500.4 a\n";
    const std::pair<std::string, std::string> cases[] = {
        {kHead + example + kEnd + "1501 b\n", "+250001 TRACKER_TIME 1 250000.7\n250500 a\n"},
        {example + kEnd, "+250001 a\n250500 a\n"}, // with the text of the second line
        {"1 TRACKER_TIME 1 7", "7"},
        {"", ""},
        {kHead + kEnd, ""},
        {kHead + kSync + "2 a\n8 TRACKER_TIME 2 70\n9 b\n", read + "6 a\n70 TRACKER_TIME 2 70\n71 b\n"},
        {"7 TRACKER_TIME x 5\n7 a\n7 TRACKER_TIME 1\nTRACKER_TIME 1 5\n" + kEnd, bad + bad + bad},
        {kHead + "7 TRACKER_TIME 1.5 9\n7.5 a\n" + kEnd, "+1 TRACKER_TIME 1.5 9\n1 a\n"},
        {kHead + kSync + "a\n\n 12x y\n-\n", read + "16x y\n"},
        {kHead + "1 TRACKER_TIME 1 5\r\n2 a\r\n" + kEnd, "+5 TRACKER_TIME 1 5\r\n6 a\r\n"},
        {kHead + kSync + "2 a\0b\n3 \xFF\xFE"s, read + "6 a7 \xFF\xFE"},
        {kHead + kSync + "2 " + x + "20 b\n", read + "6 " + x + "224 b\n"}, // cut after 4095 characters
        {kHead + "1 TRACKER_TIME 1 1e300\n2 a\n", largest + " TRACKER_TIME 1 1e300\n" + largest + " a\n"},
        {kHead + "1 TRACKER_TIME 99999999999 nan\n2 b\n", "0 TRACKER_TIME 99999999999 nan\n0 b\n"},
        {kHead + "nan TRACKER_TIME 1 5\n2 d\n" + kSync + "-inf e\n1e99 f\n-50 g\n1e-99 h\n+3 i\n",
         read + "0 d\n" + read + "0 e\n" + largest + " f\n0 g\n4 h\n7 i\n"},
        {kHead + kSync + std::string(10 << 20, '\xB7'), read},
    };
    const TemporaryDirectory directory;
    for (const auto &[bytes, expected] : cases) {
        testing::internal::CaptureStdout();
        trk::MessageLog log(directory.save("log", bytes));
        std::string found = log.isMergeable() ? "+" : "";
        for (std::size_t i = 0; i < log.messages().size(); ++i) {
            found += log.textOf(i);
        }
        EXPECT_EQ(found + testing::internal::GetCapturedStdout(), expected);
    }
}

TEST(MessageLog, IsNamedByTheProcessOrTheRecording) {
    const TemporaryDirectory directory;
    const std::string path = directory.save("a.trk", RecordingWriter().message(1, "a").end().plain());
    const std::string beside = directory.save("xq_messages.log", kSync + "2 a\n"); // counted, not merged
    for (const char *const name : {"no.log", "xq_messages.log", "", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(trk_set_extra_message_file(name), 0);
        testing::internal::CaptureStdout();
        const Recording recording(path, {.loadEvents = TRK_EVENTS_MESSAGE_LOG});
        const std::string used = name != nullptr ? name : beside;
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  "loadEvents = 2\n" + (used.empty() ? "" : "Log file name " + used + " \n"));
        EXPECT_EQ(trk_get_element_count(recording.handle()), name != nullptr ? 1U : 3U);
        EXPECT_EQ(recording.walk().size(), 1U);
    }
    EXPECT_EQ(trk::extraMessageFileFor("a.trk"), "xq_messages.log");
}

Recording openWithLog(const Bytes &bytes, const std::string &log, int flags = TRK_OPEN_NO_CHECK) {
    static const TemporaryDirectory directory;
    trk_set_extra_message_file(directory.save("log", log).c_str());
    Recording recording = openBytes(bytes, {.flags = flags, .loadEvents = TRK_EVENTS_MESSAGE_LOG});
    trk_set_extra_message_file(nullptr);
    return recording;
}

// A recording in one line, with times: messages F, T with "TRACKER_TIME", buttons b, blocks r, unknown events u.
Bytes parsed(const std::string &line) {
    RecordingWriter writer;
    std::istringstream in(line);
    char kind = 0;
    for (uint32_t time = 0; in >> kind >> time;) {
        const int code = kind == 'b' ? REC_BUTTON : kind == 'r' ? REC_STARTEVENTS : kind == 'u' ? 20 : REC_MESSAGE;
        writer.event(EventRecord(code).startTime(time).message(kind == 'T' ? "TRACKER_TIME" : "F"));
    }
    return writer.end().plain();
}

// A log likewise: messages l, and lines t that pair the clocks, which tell the same time; first one of these at 1.
std::string parsedLog(const std::string &line) {
    std::string log = kHead, time;
    std::istringstream in("t1 " + line);
    for (char kind = 0; in >> kind >> time;) {
        log.append(time).append(kind == 't' ? " TRACKER_TIME 1 " + time : " a").append("\n");
    }
    return log + kEnd;
}

TEST(LogMerge, FollowsItsRules) {
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"F50 F100 F200", "l97 l103 l250", "F50 l97 F100 l103 F200 l250"},
        {"F50 F100 F200", "l98 l100 l100 l101 l102", "F50 l98 l100 l100 F100 l101 l102 F200"},
        {"F50 F100", "l97", "F50 l97 F100"},
        {"F50 F100", "l98", "F50 l98"}, // the last item is skipped
        {"F50 T100", "t102", "F50 t102"},
        {"F50 F100", "l103", "F50 F100 l103"},
        {"", "l52", "l52"},
        {"F50 r100 F200", "l90", "F50 l90 uF100 uF100 F200"}, // blocks go by their time
        {"F50 u100 F200", "l101", "F50 l101 F200"},           // an item that cannot be read is none
        {"F50 u100 F200", "l110", "F50 uF0 l110 F200"},
        {"F50 T100 T102 F200", "t102 t100 l150", "F50 l150 F200"}, // pairs are swallowed
        {"F50 T100 T200 F300", "t97 t203", "F50 t97 T100 T200 t203 F300"},
        {"F50 T100 F200", "l100", "F50 l100 T100 F200"},
        {"F50 T100 F200", "l101", "F50 l101 F200"}, // the recording's line is dropped
        {"F50 b100 F200", "t101", "F50 bF100 t101 F200"},
        {"F50 b100 F200", "t100 l150", "F50 bt100 l150 F200"}, // the log's line comes in place of the button
        {"F50 b100 F200", "t100 l100", "F50 l100 bF100 F200"},
    };
    const LogCapture unread;
    for (const auto &[items, messages, expected] : cases) {
        std::string walk;
        for (const Item &item : openWithLog(parsed(items), parsedLog(messages)).walk()) {
            const bool sync = item.message.find("TRACKER_TIME") != std::string::npos;
            walk += item.code == REC_BUTTON ? " b" : item.code != REC_MESSAGE ? " u" : " ";
            walk += std::isdigit(item.message[0]) != 0 ? sync ? 't' : 'l' : sync ? 'T' : 'F';
            walk += std::to_string(item.time());
        }
        EXPECT_EQ(walk, " t1 " + expected) << items << " / " << messages;
    }
}

// Times are late: they move by the item on which the walk stands.
TEST(LogMerge, BuildsMessagesWhenTheyAreFetched) {
    const LogCapture unknown;
    const std::string x(300, 'x');
    const Recording recording =
        openWithLog(parsed("F400000050 F400000100 F400000200"),
                    kHead + "1 TRACKER_TIME 0 400000000\n71 " + x + "\n71 b\n72 c\n" + kEnd);
    BOOKMARK start{};
    trk_set_bookmark(recording.handle(), &start);
    EXPECT_EQ(recording.fetch(recording.step()).time(), 400000000U);
    EXPECT_EQ(recording.fetch(recording.step()).message, "F");
    EXPECT_EQ(recording.step(), REC_MESSAGE);
    const ALLF_DATA *const record = trk_get_float_data(recording.handle());
    EXPECT_EQ(record->event.message->length, 9 + 1 + 300 + 1); // of the whole text
    EXPECT_EQ(record->event.message->text, "400000070 " + x.substr(0, 250));
    EXPECT_EQ(trk_get_float_data(recording.handle()), record);
    Item expected{REC_MESSAGE, true, {}, "400000070 b\n"};
    expected.record.event = {.time = -400000050U, .type = 24, .start_time = 20, .end_time = -400000050U};
    EXPECT_EQ(expected, recording.fetch(recording.step()));
    EXPECT_EQ(recording.step(), REC_MESSAGE); // not fetched: nothing later comes as this one
    EXPECT_EQ(recording.fetch(recording.step()).time(), 50U);
    EXPECT_EQ(recording.walk().size(), 1U);
    trk_goto_bookmark(recording.handle(), &start);
    EXPECT_EQ(recording.walk().size(), 3U); // the log does not go back
    EXPECT_EQ(trk_get_element_count(recording.handle()), 7U);
}

// A message at every millisecond costs the recording its lines that pair the clocks and its last item.
TEST(LogMerge, LeavesTheItemsAsTheyAre) {
    std::string messages;
    for (int time = 250000; time < 256500; ++time) {
        messages += " l" + std::to_string(time);
    }
    RecordingWriter blink;
    blink.event(EventRecord(REC_SSACC).startTime(250010)).event(EventRecord(REC_SBLINK).startTime(250012));
    blink.event(EventRecord(REC_EBLINK).times(250012, 250014)).event(EventRecord(REC_ESACC).times(250015, 250020));
    const LogCapture gap;
    for (const Bytes &bytes :
         {experiment({.durationMs = 6000, .sampleRate = 500}).file, blink.message(250030, "F").end().plain()}) {
        std::vector<Item> expected = openBytes(bytes, {.flags = TRK_OPEN_CHECK_AND_FILL}).walk();
        std::erase_if(expected, [](const Item &item) { return item.message.starts_with("TRACKER_TIME"); });
        expected.pop_back();
        std::vector<Item> found = openWithLog(bytes, parsedLog(messages), TRK_OPEN_CHECK_AND_FILL).walk();
        EXPECT_EQ(std::erase_if(found, [](const Item &item) { return item.message.ends_with(" a\n"); }), 6500U);
        found.erase(found.begin()); // the line that pairs the clocks
        EXPECT_EQ(found, expected);
    }
}

} // namespace
