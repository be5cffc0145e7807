// Made-up sessions: truth, samples and events say the same.
#include "support/walk.h"
#include "trkwriter/damage.h"
#include "trkwriter/session.h"

#include <array>
#include <bit>
#include <cmath>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <tuple>
#include <unistd.h>

namespace {

using namespace trk_test;
using trkwriter::EyeEvent, trkwriter::SessionOptions, trkwriter::TrueEvent;

struct Session {
    explicit Session(const SessionOptions &options) {
        auto recorder = trkwriter::Recorder::toMemory(file);
        samples = writeSession(recorder, options,
                               {.truth = [this](const TrueEvent &event) { truth.push_back(event); },
                                .logLine = [this](std::string_view line) { log += line; }});
        recorder.finish();
    }

    Bytes file;
    std::vector<TrueEvent> truth;
    std::string log;
    uint64_t samples = 0;
};

// Of the samples in a stretch of time in which the eye was seen.
struct Summary {
    int samples = 0, seen = 0, withVelocity = 0;
    double x = 0, y = 0, pupil = 0, velocity = 0, peak = 0;
    const FSAMPLE_REC *first = nullptr, *last = nullptr;
};

// Those that were recorded, in order.
using Samples = std::vector<FSAMPLE_REC>;

Summary summaryOf(const Samples &samples, const TrueEvent &event, size_t eye) {
    Summary sum;
    const auto first = std::ranges::lower_bound(samples, event.start, {}, &FSAMPLE_REC::time);
    for (auto sample = first; sample != samples.end() && sample->time <= event.end; ++sample) {
        const FSAMPLE_REC &s = *sample;
        ++sum.samples;
        if (s.gaze_x[eye] == MISSING_DATA) {
            EXPECT_EQ(s.pupil_size[eye], 0);
            continue;
        }
        ++sum.seen;
        sum.first = sum.first == nullptr ? &s : sum.first;
        sum.last = &s;
        sum.x += s.gaze_x[eye];
        sum.y += s.gaze_y[eye];
        sum.pupil += s.pupil_size[eye];
        if (s.gaze_vel_x[eye] != MISSING_DATA) {
            const double velocity = std::hypot(s.gaze_vel_x[eye], s.gaze_vel_y[eye]);
            ++sum.withVelocity;
            sum.velocity += velocity;
            sum.peak = std::max(sum.peak, velocity);
        }
    }
    return sum;
}

// Code, eye, start and end of an eye event.
using Key = std::tuple<int, int, unsigned, unsigned>;

void checkFixation(const FEVENT &e, const TrueEvent &truth, const Summary &sum, double noise) {
    ASSERT_GT(sum.seen, 0);
    EXPECT_NEAR(e.avg_gaze_x, sum.x / sum.seen, 0.051);
    EXPECT_NEAR(e.avg_gaze_y, sum.y / sum.seen, 0.051);
    EXPECT_NEAR(e.avg_pupil_size, sum.pupil / sum.seen, 0.51);
    const size_t eye = e.eye == 1 ? 1 : 0;
    EXPECT_EQ((std::array{e.start_gaze_x, e.start_gaze_y, e.end_gaze_x, e.end_gaze_y, e.end_pupil_size}),
              (std::array{sum.first->gaze_x[eye], sum.first->gaze_y[eye], sum.last->gaze_x[eye],
                          sum.last->gaze_y[eye], sum.last->pupil_size[eye]}));
    const double likely = 0.06 + 5 * noise / 2 * 50 / std::sqrt(sum.seen); // pixels
    EXPECT_NEAR(truth.mean.x, e.avg_gaze_x, likely);
    EXPECT_NEAR(truth.mean.y, e.avg_gaze_y, likely);
    EXPECT_NEAR(truth.pupilSize, e.avg_pupil_size, 1.5);
}

void checkSaccade(const FEVENT &e, const TrueEvent &truth, double noise) {
    const double degrees = std::hypot((e.end_gaze_x - e.start_gaze_x) * 2 / (e.start_res_x + e.end_res_x),
                                      (e.end_gaze_y - e.start_gaze_y) * 2 / (e.start_res_y + e.end_res_y));
    EXPECT_NEAR(degrees, truth.amplitude, 0.03 * truth.amplitude + 0.02 + 6 * noise);
    const double duration = truth.end - truth.start;
    EXPECT_NEAR(truth.peakVelocity, 1875 * truth.amplitude / (21 + 2.2 * truth.amplitude),
                0.06 * truth.peakVelocity);
    EXPECT_GT(duration, 17);
    // Samples smooth a velocity over 18 ms.
    EXPECT_NEAR(e.peak_velocity, truth.peakVelocity,
                (truth.amplitude < 6 ? 0.27 : 0.14) * truth.peakVelocity + 100 * noise);
}

// Every event of a session against its samples, each way.
void check(const SessionOptions &options) {
    const Session session(options);
    const LogCapture gaps;
    const std::vector<Item> items = openBytes(session.file, {.flags = TRK_OPEN_CHECK_AND_FILL}).walk();
    Samples samples;
    for (const Item &item : items) {
        if (item.code == REC_SAMPLE && (item.sample().flags & TRK_SAMPLE_RECORD) != 0) {
            samples.push_back(item.sample());
        }
    }
    std::map<Key, FEVENT> events;
    int lidSaccades = 0;
    for (const Item &item : items) {
        if (item.code == REC_EFIX || item.code == REC_ESACC || item.code == REC_EBLINK) {
            const FEVENT &e = item.event();
            events[{item.code, e.eye, e.start_time, e.end_time}] = e;
        }
        if (item.code == REC_ESACC) {
            const FEVENT &e = item.event();
            const TrueEvent span{.start = static_cast<double>(e.start_time),
                                 .end = static_cast<double>(e.end_time)};
            const Summary sum = summaryOf(samples, span, e.eye == 1 ? 1 : 0);
            ASSERT_GT(sum.withVelocity, 0);
            EXPECT_NEAR(e.avg_velocity, sum.velocity / sum.withVelocity, 0.06 + 1e-3 * e.avg_velocity);
            EXPECT_NEAR(e.peak_velocity, sum.peak, 0.06 + 1e-3 * sum.peak);
            lidSaccades += sum.seen < sum.samples ? 1 : 0;
        }
    }
    std::array<int, 3> count{};
    int missing = 0;
    for (const TrueEvent &truth : session.truth) {
        const size_t eye = truth.eye == LeftEye ? 0 : 1;
        const auto kind = static_cast<size_t>(truth.kind);
        ++count[kind];
        const int code = std::array{REC_EBLINK, REC_ESACC, REC_EFIX}[kind];
        const auto found = events.find(
            {code, static_cast<int>(eye), static_cast<unsigned>(truth.start), static_cast<unsigned>(truth.end)});
        ASSERT_NE(found, events.end()) << code << " at " << truth.start;
        const Summary sum = summaryOf(samples, truth, eye);
        if (truth.kind == EyeEvent::Fixation) {
            checkFixation(found->second, truth, sum, options.noise);
        } else if (truth.kind == EyeEvent::Saccade) {
            EXPECT_EQ(sum.seen, sum.samples);
            checkSaccade(found->second, truth, options.noise);
        } else {
            EXPECT_EQ(sum.seen, 0);
            missing += sum.samples;
        }
    }
    // Each blink has its saccade of the lids; else there are no other events.
    EXPECT_EQ(lidSaccades, count[0]);
    EXPECT_EQ(events.size(), session.truth.size() + static_cast<size_t>(count[0]));
    // What is missing is a blink or dropout, of which there is about as much as asked for.
    double lost = 0, all = 0;
    for (const Item &item : items) {
        const FSAMPLE_REC &s = item.sample();
        for (size_t eye = 0; item.code == REC_SAMPLE && eye < 2; ++eye) {
            const unsigned present = eye == 0 ? TRK_SAMPLE_LEFT : TRK_SAMPLE_RIGHT;
            const bool isOne = (options.eyes & present) != 0;
            all += isOne ? 1 : 0;
            lost += isOne && s.gaze_x[eye] == MISSING_DATA ? 1 : 0;
        }
    }
    EXPECT_NEAR(100 * (lost - missing) / all, options.dropout * 0.9,
                options.dropout > 0 ? 0.15 * options.dropout + 0.2 : 0);
    const double minutes = all / (options.eyes == BothEyes ? 2 : 1) / options.rate / 60;
    const double eyes = options.eyes == BothEyes ? 2 : 1;
    EXPECT_NEAR(count[0] / eyes / minutes, options.blinks, 0.3 * options.blinks);
    EXPECT_GT(count[1] / eyes / minutes, 90);
}

TEST(Session, TruthSamplesAndEventsAgree) {
    for (const double rate : {250, 500, 1000, 2000}) {
        check({.minutes = 1.5, .rate = rate, .seed = static_cast<uint64_t>(rate)});
    }
    check({.minutes = 1, .rate = 500, .eyes = LeftEye, .trials = 9, .blocks = 2, .noise = 0.4, .dropout = 15});
    check({.minutes = 1, .eyes = RightEye, .trials = 4, .blocks = 1, .noise = 0, .blinks = 40, .drift = 4});
    check({.minutes = 0.5, .rate = 2000, .noise = 0.1, .dropout = 0, .blinks = 0, .drift = 0, .seed = 9});
}

// The noise is what was asked for, and the positions and the resolution follow from one geometry.
TEST(Session, NoiseAndGeometry) {
    const Session session({.minutes = 0.5, .noise = 0.1, .dropout = 0, .blinks = 0, .drift = 0});
    const Recording recording = openBytes(session.file, {.flags = TRK_OPEN_CHECK});
    const std::vector<Item> items = recording.walk();
    double squares = 0;
    int steps = 0;
    bool fixates = false;
    const FSAMPLE_REC *before = nullptr;
    for (const Item &item : items) {
        if (item.code != REC_SAMPLE) {
            const bool isLeft = item.event().eye == 0;
            fixates = item.code == REC_SFIX && isLeft ? true : item.code == REC_SSACC && isLeft ? false : fixates;
            before = nullptr;
            continue;
        }
        const FSAMPLE_REC &s = item.sample();
        const double x = s.gaze_x[0] - 960.0, y = s.gaze_y[0] - 540.0, distance = 40 * 57.2958;
        EXPECT_NEAR(s.href_x[0], x / distance * 15000, 0.6);
        EXPECT_NEAR(s.href_y[0], y / distance * 15000, 0.6);
        const double square = distance * distance + x * x + y * y;
        EXPECT_NEAR(s.res_x, square / std::hypot(distance, y) / 57.2958, 0.3); // at the mean of both eyes
        if (fixates && before != nullptr) {
            const double dx = (s.gaze_x[0] - before->gaze_x[0]) / s.res_x;
            const double dy = (s.gaze_y[0] - before->gaze_y[0]) / s.res_y;
            squares += dx * dx + dy * dy;
            ++steps;
        }
        before = &s;
    }
    EXPECT_GT(steps, 10000);
    EXPECT_NEAR(std::sqrt(squares / steps), 0.1, 0.002);
}

// FNV-1a, to hold the bytes of every machine against those of the first.
uint64_t hashOf(const Bytes &bytes) {
    uint64_t hash = 0xCBF29CE484222325;
    for (const char byte : bytes) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
    }
    return hash;
}

TEST(Session, SameOptionsSameBytes) {
    const SessionOptions options{.minutes = 0.5, .rate = 500, .trials = 5, .blocks = 2};
    const Session session(options);
    EXPECT_EQ(hashOf(session.file.substr(session.file.find(kPreambleEnd))), 18006038490675279800U);
    SessionOptions other = options;
    other.noise = 0.3;
    other.dropout = 8;
    const auto spansOf = [](const Session &of) {
        std::vector<std::tuple<double, double, double>> spans;
        for (const TrueEvent &event : of.truth) {
            spans.emplace_back(event.start, event.end, event.to.x);
        }
        return spans;
    };
    const Session noisy(other);
    EXPECT_LT(noisy.samples, session.samples);
    EXPECT_EQ(noisy.truth.size(), session.truth.size());
    other.seed = 2;
    EXPECT_NE(spansOf(Session(other)), spansOf(noisy));

    const Recording recording = openBytes(session.file, {.flags = TRK_OPEN_CHECK});
    std::ostringstream told;
    for (const Item &item : recording.walk()) {
        if (item.code == REC_MESSAGE && item.time() < 263000) {
            told << item.message.substr(0, item.message.find(' ', 13)) << '|';
        } else if (item.code == REC_RECORDING) {
            told << item.recording().time << '|';
        }
    }
    EXPECT_EQ(told.str(),
              "TRIALID 1|250100|TRACKER_TIME 1|STIMULUS ON 1|VAR trial 1|VAR set_size 4|VAR response_ms|TRIAL OK|"
              "TRIALID 2|TRACKER_TIME 2|STIMULUS ON 2|VAR trial 2|VAR set_size 16|VAR response_ms|261484|TRIAL OK|"
              "TRIALID 3|262100|TRACKER_TIME 3|STIMULUS ON 3|279392|");
}

TEST(Session, RefusesWhatCannotBe) {
    const std::pair<SessionOptions, const char *> cases[] = {
        {{.minutes = NAN}, "the duration is nan, and goes from 0.02 to 10000 minutes"},
        {{.rate = 300}, "the rate is 300, and one of 250, 500, 1000 and 2000 samples per second"},
        {{.eyes = NoEye}, "the eyes are neither"},
        {{.minutes = 1, .trials = 61}, "61 trials do not fit: from 1 to 60 do in 1 minutes"},
        {{.trials = 0}, "0 trials do not fit"},
        {{.trials = 3, .blocks = 4}, "4 recording blocks are not from 1 to the number of trials, 3"},
        {{.noise = -0.1}, "noise is -0.1, and goes from 0 to 5 degrees"},
        {{.dropout = 21}, "dropout is 21,"},
        {{.blinks = -INFINITY}, "blinks is -inf,"},
        {{.drift = NAN}, "drift is nan,"},
    };
    for (const auto &[options, text] : cases) {
        Bytes file;
        auto recorder = trkwriter::Recorder::toMemory(file);
        try {
            writeSession(recorder, options);
            ADD_FAILURE() << text;
        } catch (const trkwriter::SessionError &error) {
            EXPECT_NE(std::string(error.what()).find(text), std::string::npos) << error.what();
        }
        recorder.finish();
        EXPECT_LT(file.size(), 200U);
    }
}

TEST(Session, DamageStaysWithinItsPlace) {
    const TemporaryDirectory directory;
    const Session session({.minutes = 0.1});
    for (const std::string_view name : {"bit", "zero", "hole", "cut"}) {
        for (uint64_t seed = 0; seed < 20; ++seed) {
            const std::string path = directory.save("a.trk", session.file);
            const int descriptor = ::open(path.c_str(), O_RDWR);
            const auto place = damageFile(descriptor, trkwriter::damageNamed(name).value(), seed);
            Bytes bytes(session.file.size(), '\0');
            bytes.resize(static_cast<size_t>(::pread(descriptor, bytes.data(), bytes.size(), 0)));
            ::close(descriptor);
            Bytes expected = session.file;
            const Bytes lost = expected.substr(place.offset, place.length);
            if (name == "bit") {
                EXPECT_EQ(std::popcount(static_cast<unsigned char>(lost[0] ^ bytes[place.offset])), 1);
                expected[place.offset] = bytes[place.offset];
            } else {
                expected.replace(place.offset, place.length, name == "zero" ? Bytes(place.length, '\0') : "");
            }
            EXPECT_EQ(bytes, expected) << name << seed;
            EXPECT_EQ(lost.size(), place.length);
        }
    }
}

} // namespace
