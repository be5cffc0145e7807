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
    _TRKFILE *const handle =
        trk_open_file(directory.save("a", RecordingWriter().end().plain()).c_str(), 0, 1, 1, &error);
    EXPECT_NE(handle, nullptr);
    EXPECT_EQ(error, 0);
    _TRKFILE *const none = nullptr, *const noHandle = reinterpret_cast<_TRKFILE *>(&error);
    for (_TRKFILE *const closed : {handle, handle, none, noHandle}) {
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

TEST(Calls, AnswerByTheCurrentItem) {
    constexpr int kUnknownCode = 11;
    for (const auto &[rate, interval] : {std::pair(500.F, 2), {2000.F, 0}, {3.F, 333}}) {
        RecordingWriter writer;
        writer.startBlock({.time = 1000, .rate = rate, .modeWord = 0x0131}).sample({.time = 1001, .input = 7});
        writer.message(1005, "1 GO").event(EventRecord(kUnknownCode).startTime(1006)).endBlock(1008);
        writer.event(EventRecord(REC_INPUT).startTime(1009)).end();
        EXPECT_EQ(openBytes(writer.plain()).walk()[4].message, "1 GO");
        EXPECT_EQ(openBytes(writer.plain(), {.flags = TRK_OPEN_MESSAGE_OFFSETS}).walk()[4].message, " GO");
        const LogCapture log;
        const Recording recording = openBytes(writer.plain());
        _TRKFILE *const handle = recording.handle();
        EXPECT_EQ(trk_get_element_count(handle), 10U);
        EXPECT_EQ(get_filter_level_for_sample(handle), 3);
        EXPECT_EQ(trk_get_input_data_availibity(handle), 3);
        int index = 0;
        for (int code = -1; code != 0; code = recording.step()) { // -1: before the first item
            const bool known = code > 0 && code != kUnknownCode;
            const bool event = known && code != REC_SAMPLE && code != REC_RECORDING;
            EXPECT_EQ(trk_get_sample_data(handle) != nullptr, code == REC_SAMPLE) << code;
            EXPECT_EQ(trk_get_recording_data(handle) != nullptr, code == REC_RECORDING) << code;
            EXPECT_EQ(trk_get_event_data(handle) != nullptr, event) << code;
            EXPECT_EQ(trk_get_float_data(handle) != nullptr, known) << code;
            EXPECT_EQ(trk_get_element_index(handle), index++);
            const bool inBlock = index >= 4 && index <= 7; // the sample and what follows it
            if (inBlock || code == -1 || code == REC_INPUT) {
                EXPECT_EQ(trk_get_sample_interval(handle), inBlock ? interval : 0);
                EXPECT_EQ(trk_get_sample_interval_ex(handle), inBlock ? 1000 / rate : 0);
                EXPECT_EQ(trk_get_sample_per_second(handle), inBlock ? rate : 0);
            }
        }
        EXPECT_EQ(index, 11);
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
