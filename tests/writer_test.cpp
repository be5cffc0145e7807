// The upper layer of the recording writer: what it writes reads back, what it refuses leaves nothing.
#include "support/walk.h"
#include "trkwriter/recorder.h"

#include <csignal>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/resource.h>

namespace {

using namespace trk_test;
using trkwriter::EyeEvent, trkwriter::kMissing, trkwriter::Point, trkwriter::Recorder;

constexpr int kSamples = 4000;

// Two seconds at 2000 samples per second. Answers why the call before sample `at`, or the block (-1), was refused.
std::string record(Bytes &file, const trkwriter::Options &options, int at = kSamples,
                   void (*call)(Recorder &) = nullptr) {
    std::string refusal;
    Recorder to = Recorder::toMemory(file, options);
    to.startBlock({.time = 900});
    to.endBlock(997);
    for (int i = -1; i < kSamples; ++i) {
        try {
            i == at ? call(to) : void();
        } catch (const trkwriter::Error &error) {
            refusal = error.what();
        }
        if (i < 0) {
            to.startBlock({.time = 1000, .rate = 2000, .eyes = BothEyes, .content = {.href = true}});
            to.startEvent(EyeEvent::Saccade, RightEye, 1000, {.gaze = Point{-0.1, kMissing}});
            continue;
        }
        to.sample({.time = 1000 + i / 2.0,
                   .left = {.href = {-i * 8.0, 32767}, .gaze = {i / 10.0, i % 7 == 0 ? kMissing : -0.3}},
                   .right = {.gaze = {-i / 10.0, 3276.7}, .pupilSize = i - 0.4}});
    }
    to.button(2500, 3, true);
    to.endEvent(EyeEvent::Saccade, RightEye, 2999, {.average = {.velocity = 20.5}, .peakVelocity = 3276.7});
    to.endBlock(3000);
    to.finish();
    return refusal;
}

TEST(Recorder, WritesWhatIsRead) {
    Bytes plain, zip;
    record(plain, {.revision = 7, .source = "V2", .carriageReturn = true});
    record(zip, {.compressed = true, .flushEvery = 50000, .revision = 7, .source = "V2"});
    EXPECT_NE(zip.find(std::string_view("\0\0\xFF\xFF", 4)), Bytes::npos);
    const Recording recording = openBytes(plain, {.flags = TRK_OPEN_CHECK});
    const std::vector<Item> items = recording.walk();
    EXPECT_EQ(openBytes(zip, {.flags = TRK_OPEN_CHECK}).walk(), items);
    std::ostringstream others;
    others << trk_get_revision(recording.handle()) << ' ' << trk_get_pupilon_revision(recording.handle());
    int i = 0;
    for (const Item &item : items) {
        const FSAMPLE_REC &s = item.sample();
        const FEVENT &e = item.event();
        if (item.code == REC_SAMPLE) {
            const auto n = static_cast<float>(i);
            const float y = i % 7 == 0 ? MISSING_DATA : -0.3F;
            ASSERT_EQ((std::array{s.gaze_x[0], s.gaze_y[0], s.gaze_x[1], s.gaze_y[1], s.href_x[0], s.href_y[0]}),
                      (std::array{n / 10, y, -n / 10, 3276.7F, -8 * n, 32767.0F}));
            ASSERT_EQ(s.pupil_size[1], n);
            ASSERT_EQ(s.sort_key, 2000U + static_cast<unsigned>(i++));
        } else if (item.code < REC_STARTSAMPLES || item.code == REC_BUTTON) {
            others << " | " << item.code << ' ' << e.eye << ' ' << e.start_time << ' ' << e.end_time << ' '
                   << e.start_gaze_x << ' ' << e.start_gaze_y << ' ' << e.avg_velocity << ' ' << e.peak_velocity
                   << ' ' << e.aux_word1 << ' ' << e.aux_word2;
        }
    }
    EXPECT_EQ(i, kSamples);
    EXPECT_EQ(others.str(), "7 2 | 5 1 1000 0 -0.1 1e+08 0 0 0 0 | 25 0 2500 0 0 0 0 0 4 3 | "
                            "6 1 1000 2999 0 0 20.5 3276.7 0 0");
}

void addLeft(Recorder &to, double pupil, double href, double gaze) {
    to.sample({.time = 1500, .left = {.pupil = {.x = pupil}, .href = {.x = href}, .gaze = {.y = gaze}}});
}

TEST(Recorder, RefusesAndGoesOn) {
    const std::tuple<int, const char *, void (*)(Recorder &)> cases[] = {
        {-1, "no block is open", [](auto &to) { to.sample({.time = 999}); }},
        {-1, "no block is open", [](auto &to) { to.startEvent(EyeEvent::Blink, LeftEye, 999); }},
        {-1, "no block is open", [](auto &to) { to.endBlock(999); }},
        {-1, "the rate is", [](auto &to) { to.startBlock({.time = 1000, .rate = 0}); }},
        {-1, "not 3 ms behind the end", [](auto &to) { to.startBlock({.time = 999}); }},
        {1000, "recording: sample at 1499.5 ms: is not later", [](auto &to) { to.sample({.time = 1499.5}); }},
        {1000, "half a millisecond takes", [](auto &to) { to.sample({.time = 1500.5}); }},
        {1000, "second before a record", [](auto &to) { to.message(499, ""); }},
        {1000, "longer than 498", [](auto &to) { to.message(1500, Bytes(499, ' ')); }},
        {1000, "a block is open", [](auto &to) { to.startBlock({.time = 1600}); }},
        {1000, "a block is open", [](auto &to) { to.finish(); }},
        {1000, "not 3 ms behind the start", [](auto &to) { to.endBlock(1002); }},
        {1000, "saccade has no end", [](auto &to) { to.endBlock(1600); }},
        {1000, "not ended", [](auto &to) { to.startEvent(EyeEvent::Saccade, RightEye, 1501); }},
        {1000, "no start", [](auto &to) { to.endEvent(EyeEvent::Saccade, LeftEye, 1501); }},
        {1000, "raw pupil was not", [](auto &to) { addLeft(to, 1, kMissing, kMissing); }},
        {1000, "gaze is 3276.8,", [](auto &to) { addLeft(to, kMissing, kMissing, 3276.8); }},
        {1000, "HREF is -32768", [](auto &to) { addLeft(to, kMissing, -32768, kMissing); }},
    };
    Bytes whole, file;
    record(whole, {});
    for (const auto &[at, text, call] : cases) {
        const std::string refusal = record(file, {}, at, call);
        EXPECT_NE(refusal.find(text), std::string::npos) << text << ": " << refusal;
        EXPECT_EQ(file, whole) << text;
    }
    EXPECT_THROW(Recorder("/dev/null"), trkwriter::Error);
}

// The disk is full for a while; with what was lost then, a recording is not finished later either.
TEST(Recorder, LeavesTheWholeFileOrNone) {
    const TemporaryDirectory directory;
    auto *const previous = std::signal(SIGXFSZ, SIG_IGN);
    rlimit saved{};
    getrlimit(RLIMIT_FSIZE, &saved);
    for (const rlim_t room : {1000U, 400000U, 600000U}) {
        std::optional<Recorder> recorder(directory.path("a"));
        const rlimit limit{room, saved.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        int refused = 0;
        for (int i = 0; i <= 1000; ++i) {
            try {
                i < 1000 ? recorder->message(i, Bytes(498, 'x')) : recorder->finish();
            } catch (const trkwriter::Error &) {
                ++refused;
                setrlimit(RLIMIT_FSIZE, &saved);
            }
        }
        setrlimit(RLIMIT_FSIZE, &saved);
        recorder.reset();
        EXPECT_EQ(refused > 0, room < 509000);
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path("")), {}), refused > 0 ? 0 : 1);
    }
    std::signal(SIGXFSZ, previous);
}

} // namespace
