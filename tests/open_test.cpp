// Opening, closing, and the calls about a recording as a whole.
#include "api/internal_calls.h"
#include "support/walk.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using namespace trk_test;
using namespace std::string_literals;

TEST(Opening, FailuresAreLogged) {
    const TemporaryDirectory directory;
    const Bytes plain = RecordingWriter().head(kMagicPlain), zip = RecordingWriter().head(kMagicCompressed);
    const std::string missing = directory.path("missing"), eof = "End of file Exception",
                      notOpened = "The file " + missing + " could not be opened\nFile Could not be opened!\n",
                      badMagic = "Bad magic.  Corrupt trk file. \n\n",
                      noText = "error reading trk file 6\n" + eof + "\n",
                      noSample = "error reading trk file 11\nError " + eof +
                                 " \nerror reading trk file 2\nError reading Sample - type\n",
                      noEvent = "error reading trk file 1\nError reading event - type(preScan)\n";
    // A path, or the bytes of a file.
    const std::tuple<std::string, Bytes, std::string> cases[] = {
        {missing, "", notOpened},
        {directory.path(""), "", badMagic},
        {"/dev/null", "", badMagic},
        {"/dev/zero", "", noText},
        {"", "", badMagic},
        {"", "\0QM"s, noText},
        {"", Bytes(kMagicPlain), noText},
        {"", plain + "\x80", "error reading trk file 7a r = 1 \n" + eof + "\n"},
        {"", zip + "?", "error reading trk file 7a r = 0 \n" + eof + "\n"},
        {"", plain + "\x80\1", noSample},
        {"", plain + "\x18\2!", "error reading trk file 9\nError " + eof + " \n" + noEvent},
        {"", plain + "\x18\2^\1\xF3", noEvent}, // a message of 499 bytes
    };
    for (const auto &[path, bytes, lines] : cases) {
        const LogCapture log;
        testing::internal::CaptureStdout();
        const Recording recording(path.empty() ? directory.save("f", bytes) : path, {.loadEvents = 0x19});
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "loadEvents = 19\n");
        EXPECT_FALSE(recording);
        EXPECT_EQ(recording.error(), -1);
        EXPECT_EQ(log.take(), lines) << path;
    }
    testing::internal::CaptureStdout();
    EXPECT_EQ(trk_open_file(missing.c_str(), 0, 1, 1, nullptr), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "loadEvents = 1\n" + notOpened);
    // A file that its reader may not read; root may, so becomes somebody else.
    const std::string locked = directory.save("locked", "");
    std::filesystem::permissions(locked, std::filesystem::perms::none);
    const auto openUnprivileged = [&locked] {
        const LogCapture log;
        const bool privileged = geteuid() == 0 && setuid(65534) != 0;
        const bool failed =
            !Recording(locked) && LogCapture::take().starts_with("The file " + locked + " could not be opened\n");
        _exit(failed && !privileged ? 0 : 1);
    };
    EXPECT_EXIT(openUnprivileged(), testing::ExitedWithCode(0), "");
}

TEST(Opening, HandlesAreClosedOnce) {
    const TemporaryDirectory directory;
    int error = 1;
    auto *const handle =
        trk_open_file(directory.save("a", RecordingWriter().end().plain()).c_str(), 0, 1, 1, &error);
    EXPECT_TRUE(handle != nullptr && error == 0);
    for (_TRKFILE *const closed :
         {handle, handle, static_cast<_TRKFILE *>(nullptr), reinterpret_cast<_TRKFILE *>(&error)}) {
        EXPECT_EQ(trk_close_file(closed), 0);
    }
}

TEST(Calls, TellWhatThePreambleSays) {
    const std::string text =
        "** DATE: Mon Jan  5 09:30:00 2026\n** VERSION: PUPILON V2 7\n** SOURCE: PUPILON V2\n";
    const auto size = static_cast<int>(text.size());
    const Recording recording = openBytes(RecordingWriter(preamble(7, "V2")).end().compressed());
    ASSERT_TRUE(recording);
    EXPECT_EQ(trk_get_revision(recording.handle()), 7);
    EXPECT_EQ(trk_get_pupilon_revision(recording.handle()), 2);
    EXPECT_STREQ(trk_get_version(), "4.2.762.0 MacOS X   standalone Jul 20 2023");
    EXPECT_EQ(trk_get_preamble_text_length(recording.handle()), size + 1);
    for (const int length : {1, 10, size, size + 1, size + 100}) {
        std::string buffer(200, '#');
        EXPECT_EQ(trk_get_preamble_text(recording.handle(), buffer.data(), length), 0);
        EXPECT_EQ(buffer.c_str(), text.substr(0, static_cast<size_t>(length) - 1));
    }
}

// Before the first item and on each: its code, which views there are (sample, recording block, event, any), its
// number, "*" for the rate and the intervals of the block.
TEST(Calls, AnswerByTheCurrentItem) {
    for (const auto &[rate, intervals] :
         {std::pair<float, std::string>(500.F, "2 2 500"), {2000.F, "0 0.5 2000"}, {3.F, "333 333.333 3"}}) {
        RecordingWriter writer;
        writer.startBlock({.time = 1000, .rate = rate, .modeWord = 0x0131}).sample({.time = 1001, .input = 7});
        writer.message(1005, "1 GO").event(EventRecord(11).startTime(1006)).endBlock(1008);
        writer.event(EventRecord(REC_INPUT).startTime(1009)).end();
        EXPECT_EQ(openBytes(writer.plain()).walk()[4].message, "1 GO");
        EXPECT_EQ(openBytes(writer.plain(), {.flags = TRK_OPEN_MESSAGE_OFFSETS}).walk()[4].message, " GO");
        const LogCapture log;
        const Recording recording = openBytes(writer.plain());
        _TRKFILE *const handle = recording.handle();
        EXPECT_EQ(trk_get_element_count(handle), 10U);
        EXPECT_EQ(get_filter_level_for_sample(handle), 3);
        EXPECT_EQ(trk_get_input_data_availibity(handle), 3);
        const auto answers = [handle, block = intervals](int code) {
            std::ostringstream out, times;
            times << trk_get_sample_interval(handle) << ' ' << trk_get_sample_interval_ex(handle) << ' '
                  << trk_get_sample_per_second(handle);
            out << code << (trk_get_sample_data(handle) != nullptr ? " S" : " -")
                << (trk_get_recording_data(handle) != nullptr ? 'R' : '-')
                << (trk_get_event_data(handle) != nullptr ? 'E' : '-')
                << (trk_get_float_data(handle) != nullptr ? 'F' : '-') << trk_get_element_index(handle) << ' '
                << (times.str() == block ? "*" : times.str()) << "; ";
            return out.str();
        };
        const std::string before = answers(-1);
        EXPECT_EQ(before + recording.told(answers),
                  "-1 ----0 0 0 0; 30 -R-F1 *; 15 --EF2 *; 17 --EF3 *; 200 S--F4 *; 24 --EF5 *; 11 ----6 *; "
                  "16 --EF7 *; 18 --EF8 *; 30 -R-F9 0 0 0; 28 --EF10 0 0 0; ");
        EXPECT_EQ(log.take(), "Read error \n");
    }
}

TEST(Calls, ViewsGoByTheBitsInTheTypesPlace) {
    for (const int type : {0, int{REC_MESSAGE}, int{REC_RECORDING}, int{REC_SAMPLE}}) {
        ALLF_DATA record{};
        record.event.type = static_cast<int16_t>(type);
        record.event.read_flags = 0x1234;
        EXPECT_EQ(trk_get_event(&record) == &record.event, type != REC_RECORDING && type != REC_SAMPLE);
        EXPECT_EQ(trk_get_sample(&record) == &record.sample, type == REC_SAMPLE);
        EXPECT_EQ(trk_get_recording(&record) == &record.recording, type == REC_RECORDING);
    }
}

} // namespace
