// Opening, closing, and the calls about a recording as a whole.
#include "api/internal_calls.h"
#include "support/walk.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using namespace trk_test;
using namespace std::string_literals;

void expectFailure(const std::string &path, const LogLines &lines) {
    const LogCapture log;
    testing::internal::CaptureStdout();
    const Recording recording(path, {.loadEvents = 0x1A});
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "loadEvents = 1a\n");
    EXPECT_FALSE(recording);
    EXPECT_EQ(recording.error(), -1);
    EXPECT_EQ(log.take(), lines) << path;
}

TEST(Opening, FailuresAreLogged) {
    const TemporaryDirectory directory;
    const auto file = [&directory](const Bytes &bytes) { return directory.save("f", bytes); };
    const Bytes plain = RecordingWriter().head(kMagicPlain), zip = RecordingWriter().head(kMagicCompressed);
    const std::string missing = directory.path("missing"), eof = "End of file Exception";
    const LogLines notOpened{"The file " + missing + " could not be opened\n", "File Could not be opened!\n"};
    const LogLines badMagic{"Bad magic.  Corrupt trk file. \n\n"};
    const LogLines noText{"error reading trk file 6\n", eof + "\n"};
    expectFailure(missing, notOpened);
    expectFailure(directory.path(""), badMagic);
    expectFailure("/dev/null", badMagic);
    expectFailure("/dev/zero", noText);
    expectFailure(file(""), badMagic);
    expectFailure(file("\0QM"s), noText);
    expectFailure(file(Bytes(kMagicPlain)), noText);
    expectFailure(file(plain + "\x80"), {"error reading trk file 7a r = 1 \n", eof + "\n"});
    expectFailure(file(zip + "?"), {"error reading trk file 7a r = 0 \n", eof + "\n"});
    expectFailure(file(plain + "\x80\1"), {"error reading trk file 11\n", "Error " + eof + " \n",
                                           "error reading trk file 2\n", "Error reading Sample - type\n"});
    expectFailure(file(plain + "\x18\2!"),
                  {"error reading trk file 9\n", "Error " + eof + " \n", "error reading trk file 1\n",
                   "Error reading event - type(preScan)\n"});
    expectFailure(file(plain + "\x18\2^\1\xF3"), // a message of 499 bytes
                  {"error reading trk file 1\n", "Error reading event - type(preScan)\n"});
    testing::internal::CaptureStdout();
    EXPECT_EQ(trk_open_file(missing.c_str(), 0, 1, 1, nullptr), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "loadEvents = 1\n" + notOpened[0] + notOpened[1]);
    // A file that its reader may not read; root may, so becomes somebody else.
    const std::string locked = file("");
    std::filesystem::permissions(locked, std::filesystem::perms::none);
    const auto openUnprivileged = [&locked] {
        const LogCapture log;
        const bool privileged = geteuid() == 0 && setuid(65534) != 0;
        const bool failed = !Recording(locked) && log.take()[0] == "The file " + locked + " could not be opened\n";
        _exit(failed && !privileged ? 0 : 1);
    };
    EXPECT_EXIT(openUnprivileged(), testing::ExitedWithCode(0), "");
}

TEST(Opening, HandlesAreClosedOnce) {
    const TemporaryDirectory directory;
    const std::string path = directory.save("a", RecordingWriter().end().plain());
    int error = 1;
    _TRKFILE *const handle = trk_open_file(path.c_str(), 0, 1, 1, &error);
    EXPECT_NE(handle, nullptr);
    EXPECT_EQ(error, 0);
    for (_TRKFILE *const closed :
         {handle, handle, static_cast<_TRKFILE *>(nullptr), reinterpret_cast<_TRKFILE *>(&error)}) {
        EXPECT_EQ(trk_close_file(closed), 0);
    }
}

TEST(Calls, TellWhatThePreambleSays) {
    const std::string text =
        "** DATE: Mon Jan  5 09:30:00 2026\n** VERSION: PUPILON V2 7\n** SOURCE: PUPILON V2\n";
    for (const std::string_view magic : {kMagicPlain, kMagicCompressed}) {
        const RecordingWriter writer = RecordingWriter(preamble(7, "V2")).end();
        const Recording recording =
            openBytes(magic == kMagicPlain ? writer.plain(magic) : writer.compressed(magic));
        ASSERT_TRUE(recording);
        EXPECT_EQ(trk_get_revision(recording.handle()), 7);
        EXPECT_EQ(trk_get_pupilon_revision(recording.handle()), 2);
        const auto size = static_cast<int>(text.size());
        EXPECT_EQ(trk_get_preamble_text_length(recording.handle()), size + 1);
        for (const int length : {1, 10, size, size + 1, size + 100}) {
            std::string buffer(200, '#');
            EXPECT_EQ(trk_get_preamble_text(recording.handle(), buffer.data(), length), 0);
            EXPECT_EQ(buffer.c_str(), text.substr(0, static_cast<size_t>(length) - 1));
        }
    }
    EXPECT_STREQ(trk_get_version(), "4.2.762.0 MacOS X   standalone Jul 20 2023");
}

TEST(Calls, GettersAnswerByTheCurrentItem) {
    constexpr int kUnknownCode = 11;
    RecordingWriter writer;
    writer.startBlock({.time = 1000})
        .sample(1001)
        .message(1005, "1 GO")
        .event(EventRecord(kUnknownCode).startTime(1006));
    const LogCapture log;
    Recording recording = openBytes(writer.end().plain());
    _TRKFILE *const handle = recording.handle();
    EXPECT_EQ(trk_get_element_count(handle), 6U);
    int index = 0;
    int code = -1; // no item yet
    do {
        EXPECT_EQ(trk_get_element_index(handle), index++);
        EXPECT_EQ(trk_get_sample_data(handle) != nullptr, code == REC_SAMPLE) << code;
        EXPECT_EQ(trk_get_recording_data(handle) != nullptr, code == REC_RECORDING) << code;
        EXPECT_EQ(trk_get_event_data(handle) != nullptr,
                  code > 0 && code != REC_SAMPLE && code != REC_RECORDING && code != kUnknownCode)
            << code;
        EXPECT_EQ(log.take(), LogLines{});
        EXPECT_EQ(trk_get_float_data(handle) != nullptr, code > 0 && code != kUnknownCode) << code;
        EXPECT_EQ(log.take(), code == kUnknownCode ? LogLines{"Read error \n"} : LogLines{});
        code = recording.step();
    } while (code != 0);
    EXPECT_EQ(index, 7);
    EXPECT_EQ(openBytes(writer.plain()).walk()[4].message, "1 GO");
    EXPECT_EQ(openBytes(writer.plain(), {.flags = TRK_OPEN_MESSAGE_OFFSETS}).walk()[4].message, " GO");
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

TEST(Calls, RatesAreThoseOfTheBlockInForce) {
    for (const auto &[rate, interval, exact] :
         {std::tuple(500., 2, 2.F), {2000., 0, .5F}, {3., 333, 1000.F / 3}}) {
        RecordingWriter writer;
        writer.startSamples({.time = 1000, .rate = rate, .modeWord = 0x0131}).sample(1001).endSamples(1002).end();
        Recording recording = openBytes(writer.plain());
        _TRKFILE *const handle = recording.handle();
        const auto rates = [handle] {
            return std::tuple(trk_get_sample_interval(handle), trk_get_sample_interval_ex(handle),
                              trk_get_sample_per_second(handle));
        };
        EXPECT_EQ(rates(), std::tuple(0, 0.F, 0.F));
        EXPECT_EQ(get_filter_level_for_sample(handle), 3);
        for (int code = 0; code != REC_SAMPLE; code = recording.step()) {
        }
        EXPECT_EQ(rates(), std::tuple(interval, exact, static_cast<float>(rate)));
        recording.walk();
        EXPECT_EQ(rates(), std::tuple(0, 0.F, 0.F));
    }
    for (const int available : {0, 1, 2, 3}) {
        RecordingWriter writer;
        writer.sample({.time = 1000, .input = (available & 2) != 0 ? 7 : kMissingWord})
            .event(EventRecord((available & 1) != 0 ? REC_INPUT : REC_BUTTON).startTime(1001))
            .end();
        EXPECT_EQ(trk_get_input_data_availibity(openBytes(writer.plain()).handle()), available);
    }
}

} // namespace
