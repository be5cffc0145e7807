// The second door: quiet, typed errors, damages.
#include "support/scenarios.h"
#include "support/walk.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <vector>

namespace {

using namespace trk_test;

struct Opened {
    std::unique_ptr<_TRKFILE, int (*)(_TRKFILE *)> handle;
    TRK_ERROR error;
};

Opened open(const std::string &path, TRK_OPEN_OPTIONS options) {
    TRK_ERROR error{};
    error.code = -7;
    _TRKFILE *const handle = trk_open(path.c_str(), &options, &error);
    return {{handle, trk_close_file}, error};
}

TRK_OPEN_OPTIONS defaults(int flags = TRK_OPEN_CHECK) {
    TRK_OPEN_OPTIONS options;
    trk_default_options(&options);
    options.flags = flags;
    return options;
}

std::string damagesOf(_TRKFILE *handle) {
    std::string kinds;
    TRK_DAMAGE damage;
    for (int i = 0; trk_get_damage(handle, i, &damage) == 0; ++i) {
        kinds += std::to_string(damage.kind) + ' ';
    }
    return kinds;
}

// Everything that the old calls print goes to the recording's own log, in place of anywhere else.
TEST(Door, IsQuiet) {
    const TemporaryDirectory directory;
    const std::string path = directory.save("a.trk", richRecording().plain());
    directory.save("xq_messages.log", "1 TRACKER_TIME 1 1001\n2 TRACKER_TIME\n3 a\n4 Quit logger\n");
    LogCapture hook;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    std::string log;
    TRK_OPEN_OPTIONS options = defaults(TRK_OPEN_CHECK_AND_FILL);
    options.events = TRK_EVENTS_MESSAGE_LOG;
    options.log = [](void *user, const char *text) { *static_cast<std::string *>(user) += text; };
    options.user = &log;
    const Opened recording = open(path, options);
    _TRKFILE *const handle = recording.handle.get();
    ASSERT_NE(handle, nullptr);
    char start[] = "TRIALID", end[] = "no such end";
    EXPECT_EQ(trk_set_trial_identifier(handle, start, end), 0);
    while (trk_get_next_data(handle) != 0) {
        trk_get_float_data(handle);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(LogCapture::take(), "");
    for (const char *const line : {"Log file name ", "TRACKER_TIME format not right \n", "Missing 6 samples.",
                                   "setTrial End:  no such end\n", "Unexpected"}) {
        EXPECT_EQ(log.find(line) != std::string::npos, line != std::string("Unexpected")) << line << log;
    }
}

TEST(Door, ChecksArguments) {
    const TemporaryDirectory directory;
    const std::string path = directory.save("a.trk", RecordingWriter().end().plain());
    const auto codeOf = [&](auto change) {
        TRK_OPEN_OPTIONS options = defaults();
        change(options);
        const Opened recording = open(path, options);
        EXPECT_EQ(recording.handle == nullptr, recording.error.code != TRK_OK);
        EXPECT_EQ(recording.error.text[0] == '\0', recording.error.code == TRK_OK);
        return recording.error.code;
    };
    EXPECT_EQ(codeOf([](auto &) {}), TRK_OK);
    EXPECT_EQ(codeOf([](auto &o) { o.size = offsetof(TRK_OPEN_OPTIONS, log); }), TRK_OK); // an older caller
    for (const size_t size : {size_t{0}, size_t{8}, sizeof(TRK_OPEN_OPTIONS) - 4, size_t{5000}}) {
        EXPECT_EQ(codeOf([=](auto &o) { o.size = size; }), TRK_ERROR_ARGUMENT) << size;
    }
    for (const int flags : {32, -1, TRK_OPEN_CHECK | TRK_OPEN_CHECK_AND_FILL, TRK_OPEN_SALVAGE << 1}) {
        EXPECT_EQ(codeOf([=](auto &o) { o.flags = flags; }), TRK_ERROR_ARGUMENT) << flags;
    }
    EXPECT_EQ(codeOf([](auto &o) { o.events = 3; }), TRK_ERROR_ARGUMENT);
    EXPECT_EQ(trk_open(nullptr, nullptr, nullptr), nullptr);
    const std::unique_ptr<_TRKFILE, int (*)(_TRKFILE *)> plain(trk_open(path.c_str(), nullptr, nullptr),
                                                               trk_close_file);
    EXPECT_NE(plain, nullptr);
    // A newer caller: what this library does not know must be 0.
    struct Newer {
        TRK_OPEN_OPTIONS known;
        int64_t more; // no padding behind it, which would hold anything
    } newer{defaults(), 0};
    newer.known.size = sizeof(newer);
    for (newer.more = 0; newer.more < 2; ++newer.more) {
        const std::unique_ptr<_TRKFILE, int (*)(_TRKFILE *)> opened(trk_open(path.c_str(), &newer.known, nullptr),
                                                                    trk_close_file);
        EXPECT_EQ(opened != nullptr, newer.more == 0);
    }
}

// Needs a temporary file behind the second door.
constexpr size_t kBeyondMemory = (64U << 20U) + 1;

TEST(Door, SaysWhyARecordingDoesNotOpen) {
    const TemporaryDirectory directory;
    const Bytes rich = richRecording().plain();
    const Bytes large = richRecording().raw(Bytes(kBeyondMemory, '\0')).compressed();
    const auto failure = [](const std::string &path, auto change) {
        TRK_OPEN_OPTIONS options = defaults();
        change(options);
        const Opened recording = open(path, options);
        const TRK_ERROR &error = recording.error;
        return std::to_string(error.code) + ' ' + std::to_string(error.system_error) + ' ' +
               std::to_string(error.offset) + ' ' + error.text;
    };
    const auto asIs = [](TRK_OPEN_OPTIONS &) {};
    EXPECT_EQ(failure(directory.path("no.trk"), asIs), "1 2 -1 no.trk cannot be read: No such file or directory");
    EXPECT_EQ(failure(directory.path(""), asIs).substr(0, 8), "1 21 -1 ");
    EXPECT_EQ(mkfifo(directory.path("p.trk").c_str(), 0600), 0);
    EXPECT_EQ(failure(directory.path("p.trk"), asIs), "1 29 -1 p.trk is a pipe: a recording must be a file");
    EXPECT_EQ(failure(directory.save("e.trk", ""), asIs), "2 0 -1 e.trk is empty: it is no recording");
    EXPECT_EQ(failure(directory.save("z.trk", "PK\3\4\""), asIs),
              "2 0 -1 z.trk is not a recording: it begins with \"PK\\x03\\x04\\x22\"");
    EXPECT_EQ(failure(directory.save("0.trk", std::string(99, '\0')), asIs).substr(0, 34),
              "2 0 -1 0.trk is not a recording: i");
    const std::string cut = directory.save("c.trk", rich.substr(0, 1000));
    EXPECT_EQ(failure(cut, asIs), "3 0 1000 c.trk is damaged at byte 1000: open it tolerant for what lies before, "
                                  "or with salvage for all that can be saved");
    EXPECT_EQ(failure(directory.save("h.trk", rich.substr(0, 60)), asIs),
              "3 0 -1 h.trk is damaged: it breaks off before its records begin");
    const std::string compressed = directory.save("x.trk", large);
    EXPECT_EQ(
        failure(compressed, [](auto &o) { o.temporary_folder = "/no/such/folder"; }),
        "4 2 -1 x.trk cannot be inflated in the temporary folder /no/such/folder: No such file or directory");
    // A recording that takes little memory stays there.
    const std::string smaller = directory.save("s.trk", experiment({.durationMs = 3000, .compressed = true}).file);
    // A full disk is no damage, tolerant or not; nor are too few descriptors.
    auto *const previous = std::signal(SIGXFSZ, SIG_IGN);
    rlimit files{}, sizes{};
    getrlimit(RLIMIT_FSIZE, &sizes);
    getrlimit(RLIMIT_NOFILE, &files);
    const rlimit small{20000, sizes.rlim_max}, few{3, files.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    const std::string full = failure(compressed, [](auto &o) { o.flags = TRK_OPEN_TOLERANT; });
    const std::string inMemory = failure(smaller, [](auto &o) { o.temporary_folder = "/no/such/folder"; });
    setrlimit(RLIMIT_FSIZE, &sizes);
    std::signal(SIGXFSZ, previous);
    EXPECT_EQ(full.substr(0, 8), "4 27 -1 ") << full;
    EXPECT_NE(full.find("is full: about 67 MB are needed"), std::string::npos) << full;
    EXPECT_EQ(inMemory, "0 0 -1 ");
    setrlimit(RLIMIT_NOFILE, &few);
    const std::string none = failure(compressed, [](auto &o) { o.flags = TRK_OPEN_SALVAGE; });
    setrlimit(RLIMIT_NOFILE, &files);
    EXPECT_EQ(none, "1 24 -1 x.trk cannot be read: Too many open files: close other files, or raise the limit of "
                    "open files");
}

TEST(Door, FindsItemsByTimeTrialAndNumber) {
    constexpr uint32_t kLate = 400000000;
    const TemporaryDirectory directory;
    for (const uint32_t start : {1000U, kLate}) {
        RecordingWriter writer;
        writer.startSamples({.time = start, .rate = 500});
        for (uint32_t time = start; time < start + 20; time += 2) {
            writer.sample(time);
        }
        const std::string path = directory.save("a.trk", writer.endSamples(start + 20).end().compressed());
        const Opened recording = open(path, defaults(TRK_OPEN_NO_CHECK));
        _TRKFILE *const handle = recording.handle.get();
        EXPECT_EQ(trk_is_compressed(handle), 1);
        const uint32_t shown = start == kLate ? 0 : start; // times of late recordings are moved
        for (const auto &[time, item] : {std::pair(0U, 0U), {2U, 3U}, {3U, 4U}, {4U, 4U}, {21U, 14U}}) {
            EXPECT_EQ(trk_find_time(handle, shown + time), item) << start << ' ' << time;
        }
        EXPECT_EQ(trk_goto_item(handle, 4), 0);
        EXPECT_EQ(trk_get_next_data(handle), REC_SAMPLE);
        EXPECT_EQ(trk_get_float_data(handle)->sample.time, shown + 4);
        EXPECT_EQ(trk_get_position(handle), 5U);
        EXPECT_EQ(trk_goto_item(handle, 14), -1);
        unsigned first = 77, end = 77;
        EXPECT_EQ(trk_get_trial_range(handle, 0, &first, &end), 0);
        EXPECT_EQ(std::pair(first, end), std::pair(0U, 14U));
        EXPECT_EQ(trk_get_trial_range(handle, 1, nullptr, nullptr), -1);
        EXPECT_EQ(trk_get_position(handle), 5U);
    }
}

// Several items at a time, ends of eye events at their end, blocks that nothing lies in: what the walk shows first
// at or after a time is found, and trials of messages are gone to where their ranges begin.
TEST(Door, FindsWhatTheWalkShows) {
    const TemporaryDirectory directory;
    for (const uint32_t start : {1000U, 400000000U}) {
        RecordingWriter writer;
        writer.message(start, "S1").message(start, "S2").startBlock({.time = start + 10, .rate = 2000});
        for (uint32_t i = 0; i < 20; ++i) {
            writer.sample(start + 10 + i / 2);
        }
        writer.event(EventRecord(REC_SFIX, LeftEye).startTime(start + 12)).message(start + 13, "S3");
        writer.message(start + 15, "E3")
            .message(start + 16, "E2")
            .event(EventRecord(REC_BUTTON).startTime(start + 16));
        writer.event(EventRecord(REC_EFIX, LeftEye).times(start + 12, start + 18)).endBlock(start + 20);
        writer.startBlock({.time = start + 50}).message(start + 50, "S4").endBlock(start + 60);
        writer.message(start + 61, "E4");
        const std::string path = directory.save("a.trk", writer.end().plain());
        for (const int flags : {int{TRK_OPEN_CHECK}, TRK_OPEN_CHECK | TRK_OPEN_KEEP_TIMES}) {
            const Opened recording = open(path, defaults(flags));
            _TRKFILE *const handle = recording.handle.get();
            std::vector<uint32_t> times;
            std::vector<Item> items;
            while (const int code = trk_get_next_data(handle)) {
                items.push_back(itemOf(code, trk_get_float_data(handle)));
                times.push_back(code == REC_EFIX ? items.back().event().end_time : items.back().time());
            }
            ASSERT_TRUE(std::ranges::is_sorted(times));
            const uint32_t shown = times.front();
            EXPECT_EQ(shown, start == 1000 || (flags & TRK_OPEN_KEEP_TIMES) != 0 ? start : 0);
            for (uint32_t time = shown; time < shown + 70; ++time) {
                EXPECT_EQ(trk_find_time(handle, time), std::ranges::lower_bound(times, time) - times.begin())
                    << time;
            }
            const auto count = static_cast<unsigned>(times.size());
            EXPECT_EQ(trk_find_time(handle, 0xFFFFFFFF), count);
            EXPECT_EQ(trk_find_time(handle, 0), 0U);
            for (const unsigned item : {count, 0xFFFFFFFF}) {
                EXPECT_EQ(trk_goto_item(handle, count - 1), 0);
                EXPECT_EQ(trk_goto_item(handle, item), -1);
                EXPECT_EQ(trk_get_next_data(handle), REC_MESSAGE); // the position stays
                EXPECT_EQ(trk_get_next_data(handle), 0);
            }
            char begins[] = "S", ends[] = "E";
            trk_set_trial_identifier(handle, begins, ends);
            std::string found;
            unsigned first = 0, end = 0;
            for (int trial = 0; trk_get_trial_range(handle, trial, &first, &end) == 0; ++trial) {
                found += items.at(first).message + '-' + items.at(end - 1).message + ' ';
                EXPECT_EQ(trk_jump_to_trial(handle, trial), 0);
                const int code = trk_get_next_data(handle);
                EXPECT_EQ(itemOf(code, trk_get_float_data(handle)), items.at(first)) << trial;
            }
            EXPECT_EQ(found, "S1- S3-E3 - S4-E4 "); // the blocks start the first and the third
        }
    }
}

TEST(Door, ListsDamagesAndRepairs) {
    const TemporaryDirectory directory;
    RecordingWriter writer;
    writer.sample(990).startBlock({.time = 1000, .rate = 500});
    for (uint32_t time = 1000; time < 1100; time += time == 1050 ? 10 : 2) {
        writer.sample(time);
    }
    writer.endBlock(1100).end().raw("rest");
    const Bytes zip = experiment({.durationMs = 3000, .compressed = true}).file;
    Bytes checksum = zip;
    checksum.back() ^= 1;
    const std::pair<Bytes, std::string> cases[] = {
        {experiment({.durationMs = 20000, .sampleRate = 500}).file, "103 "}, // the samples that the tracker lost
        {zip, "103 "},
        {writer.plain(), "3 8 100 103 "},
        {zip.substr(0, zip.size() - 2000), "5 103 "},
        {checksum, "6 103 "},
        {zip + "x", "8 103 "},
        {zip.substr(0, zip.size() - 3), "6 103 "},
        {RecordingWriter().startBlock({.time = 5}).sample(5).sample(6).end().plain(), "7 "},
        {RecordingWriter().startBlock({.time = 5}).sample(5).sample(6).plain(), "1 "},
    };
    for (const auto &[bytes, kinds] : cases) {
        const Opened recording =
            open(directory.save("a.trk", bytes), defaults(TRK_OPEN_CHECK_AND_FILL | TRK_OPEN_TOLERANT));
        ASSERT_NE(recording.handle, nullptr);
        EXPECT_EQ(trk_get_next_data(recording.handle.get()) != 0, true);
        EXPECT_EQ(damagesOf(recording.handle.get()), kinds);
        TRK_DAMAGE damage;
        EXPECT_EQ(trk_get_damage(recording.handle.get(), 0, &damage), 0);
        EXPECT_EQ(damage.time == 0, damage.kind >= TRK_REPAIR_DROPPED_SAMPLES) << kinds;
        EXPECT_EQ(trk_get_position(recording.handle.get()), 1U);
    }
}

} // namespace
