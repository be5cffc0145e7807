#include "support/scenarios.h"

#include "trkapi/trkapi.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <random>
#include <utility>
#include <vector>

namespace trk_test {

namespace {

// All planned times are multiples of this, so that they fall on samples at every rate.
constexpr uint32_t kTimeGrid = 4;
constexpr uint32_t kTrialLength = 10000;
constexpr uint32_t kSyncDelay = 12;   // from the start of the recording block
constexpr uint32_t kParserDelay = 8;  // from the end of an eye event to its record
constexpr uint32_t kRightEyeLag = 4;  // the eyes do not start their movements at one moment
constexpr uint32_t kInputLength = 50; // how long an input value stands
constexpr uint32_t kButtonLength = 120;
constexpr uint32_t kGapLength = 24;

// A display of 1920 x 1080 pixels, seen from where a degree at its centre is 40 pixels wide.
constexpr double kCentreX = 960.0;
constexpr double kCentreY = 540.0;
constexpr double kPixelsPerDegree = 40.0;
constexpr double kDegree = 57.2958;
constexpr double kViewingDistance = kPixelsPerDegree * kDegree;
constexpr double kHrefDistance = 15000.0;
constexpr int kGazeDivisor = 10;
constexpr int kVelocityDivisor = 10;
constexpr int kPupilLost = 0x2000; // status word
constexpr double kMeanPupilSize = 1000.0;

// The standard fixes what std::mt19937 yields, but not what its distributions make of it.
class Random {
  public:
    explicit Random(uint32_t seed) : generator_(seed) {}
    uint32_t bits() { return static_cast<uint32_t>(generator_()); }
    double between(double low, double high) { return low + (high - low) * bits() / 4294967296.0; }

  private:
    std::mt19937 generator_;
};

int rounded(double value) { return static_cast<int>(std::lround(value)); }

uint32_t onGrid(double time) { return static_cast<uint32_t>(time) / kTimeGrid * kTimeGrid; }

// ---- The plan of an experiment, shared with its message log ----

struct Trial {
    unsigned number;
    uint32_t begin; // message "TRIALID n"
    uint32_t recordingStart;
    uint32_t stimulus;
    uint32_t response;
    uint32_t recordingEnd;
    uint32_t finish; // message "TRIAL OK"
};

std::vector<Trial> planTrials(const ScenarioOptions &options) {
    const uint32_t count = std::max(2U, options.durationMs / kTrialLength);
    const uint32_t length = onGrid(static_cast<double>(options.durationMs) / count);
    std::vector<Trial> trials;
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t begin = options.startTime + i * length;
        const uint32_t start = begin + 100;
        const uint32_t end = begin + length - 300;
        const uint32_t response = start + onGrid((end - start) * 0.6) + i * 36 % 200;
        trials.push_back({i + 1, begin, start, start + 200, response, end, end + 40});
    }
    return trials;
}

std::string milliseconds(double time) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.3f", time);
    return text.data();
}

std::string syncText(const Trial &trial) {
    return "TRACKER_TIME " + std::to_string(trial.number) + " " + milliseconds(trial.recordingStart + kSyncDelay);
}

// ---- Gaze ----

// Pixels from the centre of the display.
struct Point {
    double x = 0;
    double y = 0;
};

// A fixation, or a saccade with perhaps a blink inside.
struct Movement {
    bool saccade;
    uint32_t start;
    uint32_t end; // the next one starts here
    Point from;
    Point to;
    uint32_t blinkStart = 0;
    uint32_t blinkEnd = 0;

    double amplitude() const {
        return std::sqrt((to.x - from.x) * (to.x - from.x) + (to.y - from.y) * (to.y - from.y)) / kPixelsPerDegree;
    }
};

Point nextTarget(Random &random, Point from) {
    Point to{std::clamp(from.x + random.between(-400, 400), -850.0, 850.0),
             std::clamp(from.y + random.between(-250, 250), -450.0, 450.0)};
    if (std::abs(to.x - from.x) < kPixelsPerDegree) {
        to.x = from.x > 0 ? from.x - kPixelsPerDegree : from.x + kPixelsPerDegree;
    }
    return to;
}

// Fixations and saccades in turn from `start` to `end`, ending in a fixation.
std::vector<Movement> planMovements(Random &random, uint32_t start, uint32_t end) {
    constexpr uint32_t kLongestSaccade = 320;
    std::vector<Movement> movements;
    Point position;
    for (unsigned number = 0;; ++number) {
        const uint32_t fixationEnd = start + onGrid(random.between(180, 480));
        if (fixationEnd + kLongestSaccade >= end) {
            movements.push_back({false, start, end, position, position});
            return movements;
        }
        movements.push_back({false, start, fixationEnd, position, position});
        Movement saccade{true, fixationEnd, 0, position, nextTarget(random, position)};
        const bool withBlink = number % 8 == 1;
        const double duration = withBlink ? random.between(200, 300) : 24 + 2.2 * saccade.amplitude();
        saccade.end = fixationEnd + onGrid(duration);
        if (withBlink) {
            saccade.blinkStart = saccade.start + 7 * kTimeGrid;
            saccade.blinkEnd = saccade.end - 7 * kTimeGrid;
        }
        movements.push_back(saccade);
        position = saccade.to;
        start = saccade.end;
    }
}

// One eye's gaze and pupil over a recording block, asked for at rising times.
class EyeSignal {
  public:
    EyeSignal(const std::vector<Movement> &movements, uint32_t lag) : movements_(&movements), lag_(lag) {}

    void advance(Random &random, double time) {
        const double ownTime = time - lag_;
        while (current_ + 1 < movements_->size() && ownTime >= (*movements_)[current_].end) {
            ++current_;
        }
        const Movement &movement = (*movements_)[current_];
        const double progress = std::clamp((ownTime - movement.start) / (movement.end - movement.start), 0.0, 1.0);
        const double way = movement.saccade ? minimumJerk(progress) : 0.0;
        const uint32_t noise = random.bits();
        const auto noiseByte = [noise](unsigned shift) { return ((noise >> shift) & 0xFF) / 127.5 - 1.0; };
        drift_.x = 0.998 * drift_.x + 0.05 * noiseByte(0);
        drift_.y = 0.998 * drift_.y + 0.05 * noiseByte(8);
        position_ = {movement.from.x + way * (movement.to.x - movement.from.x) + drift_.x + 0.5 * noiseByte(16),
                     movement.from.y + way * (movement.to.y - movement.from.y) + drift_.y + 0.5 * noiseByte(24)};
        pupilSize_ += 0.002 * (kMeanPupilSize - pupilSize_) + 2.0 * noiseByte(8);
        closed_ = ownTime >= movement.blinkStart && ownTime < movement.blinkEnd;
    }

    bool closed() const { return closed_; }
    Point position() const { return position_; }
    int pupilSize() const { return closed_ ? 0 : rounded(pupilSize_); }

  private:
    static double minimumJerk(double s) { return s * s * s * (10.0 + s * (6.0 * s - 15.0)); }

    const std::vector<Movement> *movements_;
    uint32_t lag_;
    size_t current_ = 0;
    Point drift_;
    Point position_;
    double pupilSize_ = kMeanPupilSize;
    bool closed_ = false;
};

// ---- From pixels to the words of a record ----

Position gazeWords(Point point) {
    return {rounded((kCentreX + point.x) * kGazeDivisor), rounded((kCentreY + point.y) * kGazeDivisor)};
}

Position hrefWords(Point point) {
    constexpr double kScale = kHrefDistance / kViewingDistance;
    return {rounded(point.x * kScale), rounded(point.y * kScale)};
}

Position pupilWords(Point point) { return {rounded(point.x * 3.0), rounded(point.y * 3.0 - 400.0)}; }

// Pixels per degree grow towards the edges of a flat display.
Position resolutionWords(Point point) {
    constexpr double kSquare = kViewingDistance * kViewingDistance;
    const double distance = point.x * point.x + point.y * point.y + kSquare;
    return {rounded(distance / std::sqrt(point.y * point.y + kSquare) / kDegree * kGazeDivisor),
            rounded(distance / std::sqrt(point.x * point.x + kSquare) / kDegree * kGazeDivisor)};
}

constexpr int kWindowPosition = 30 << 9 | 40; // the camera window stands at (160, 240)

// Offsets of pupil and corneal reflection from the window's centre in 1/250 pixel, areas and dimensions.
void setCameraData(ExtensionBlock &extension, const EyeSignal &eye) {
    constexpr unsigned kEightWords = 0x88;
    constexpr int kReflectionArea = 120;
    const Point point = eye.position();
    const int pupilArea = eye.pupilSize();
    const bool seen = pupilArea != 0;
    extension.header = kEightWords;
    extension.words = {rounded(point.x * 7.0),
                       rounded(point.y * 7.0),
                       rounded(point.x * 3.0 + 500.0),
                       rounded(point.y * 3.0 + 900.0),
                       pupilArea,
                       seen ? kReflectionArea : 0,
                       seen ? 0x2423 : 0,
                       seen ? 0x0C0D : 0};
}

// ---- Eye events ----

// A record and the time at which the tracker writes it.
struct DueEvent {
    uint32_t due;
    int code;
    EventRecord record;
};

EventRecord endOfFixation(const Movement &fixation, Eyes eye, uint32_t start, uint32_t end) {
    const Position resolution = resolutionWords(fixation.from);
    const Position gaze = gazeWords(fixation.from);
    const Position href = hrefWords(fixation.from);
    return EventRecord(REC_EFIX, eye)
        .times(start, end)
        .set(kAverageHref, href.x, href.y)
        .set(kAverageGaze, gaze.x, gaze.y)
        .set(kAveragePupilSize, rounded(kMeanPupilSize))
        .set(kStartResolution, resolution.x, resolution.y)
        .set(kEndResolution, resolution.x, resolution.y);
}

EventRecord endOfSaccade(const Movement &saccade, Eyes eye, uint32_t start, uint32_t end) {
    constexpr double kPeakOfMinimumJerk = 1.875; // times the mean velocity
    const double meanVelocity = 1000.0 * saccade.amplitude() / (saccade.end - saccade.start);
    const Position startGaze = gazeWords(saccade.from);
    const Position endGaze = gazeWords(saccade.to);
    const Position startHref = hrefWords(saccade.from);
    const Position endHref = hrefWords(saccade.to);
    return EventRecord(REC_ESACC, eye)
        .times(start, end)
        .set(kStartHref, startHref.x, startHref.y)
        .set(kStartGaze, startGaze.x, startGaze.y)
        .set(kEndHref, endHref.x, endHref.y)
        .set(kEndGaze, endGaze.x, endGaze.y)
        .set(kAverageVelocity, rounded(meanVelocity * kVelocityDivisor))
        .set(kPeakVelocity, rounded(meanVelocity * kPeakOfMinimumJerk * kVelocityDivisor));
}

EventRecord startOfEyeEvent(int code, Eyes eye, uint32_t start, Point point) {
    const Position gaze = gazeWords(point);
    return EventRecord(code, eye).startTime(start).set(kStartGaze, gaze.x, gaze.y);
}

// ---- The experiment ----

class Experiment {
  public:
    explicit Experiment(const ScenarioOptions &options)
        : options_(options), random_(options.seed), writer_(preamble(5, "LX", "RECORDED BY QMVB1.6.0\n")),
          sampleInterval_(std::max(1U, 1000U / static_cast<unsigned>(options.sampleRate))) {
        constexpr size_t kLargestSample = 60;
        writer_.reserve(kLargestSample * static_cast<size_t>(options.sampleRate) *
                        (options.durationMs / 1000 + 1));
    }

    Scenario run() {
        const std::vector<Trial> trials = planTrials(options_);
        const uint32_t middle = (trials[1].recordingStart + trials[1].recordingEnd) / 2;
        scenario_.gapStart = middle / kTimeGrid * kTimeGrid;
        for (const Trial &trial : trials) {
            writeTrial(trial);
        }
        writer_.end();
        scenario_.trials = trials.size();
        scenario_.file = options_.compressed ? writer_.compressed() : writer_.plain();
        return std::move(scenario_);
    }

  private:
    void write(int code, const EventRecord &record) {
        writer_.event(record);
        ++scenario_.count[code];
    }

    void schedule(uint32_t due, int code, const EventRecord &record) { events_.push_back({due, code, record}); }

    void scheduleMessage(uint32_t time, const std::string &text) {
        schedule(time, REC_MESSAGE, EventRecord(REC_MESSAGE).startTime(time).message(text));
    }

    void writeTrial(const Trial &trial) {
        events_.clear();
        scheduleMessage(trial.begin, "TRIALID " + std::to_string(trial.number));
        scheduleTrialEvents(trial);
        const std::vector<Movement> movements = planMovements(random_, trial.recordingStart, trial.recordingEnd);
        if ((options_.eyes & LeftEye) != 0) {
            scheduleEyeEvents(movements, LeftEye, 0);
        }
        if ((options_.eyes & RightEye) != 0) {
            scheduleEyeEvents(movements, RightEye, kRightEyeLag);
        }
        scheduleMessage(trial.finish, "TRIAL OK");
        std::stable_sort(events_.begin(), events_.end(),
                         [](const DueEvent &a, const DueEvent &b) { return a.due < b.due; });
        nextEvent_ = 0;
        writeEventsUntil(trial.begin);
        writeBlock(trial, movements);
        writeEventsUntil(trial.finish);
    }

    void scheduleTrialEvents(const Trial &trial) {
        const auto scheduleWord = [this](int code, uint32_t time, unsigned value) {
            schedule(time, code, EventRecord(code).startTime(time).set(kAuxWord1, static_cast<int>(value)));
        };
        scheduleMessage(trial.recordingStart + kSyncDelay, syncText(trial));
        scheduleMessage(trial.stimulus, "STIMULUS ON " + std::to_string(trial.number));
        scheduleWord(REC_INPUT, trial.stimulus, trial.number & 0xFF);
        scheduleWord(REC_BUTTON, trial.response, 1);
        scheduleWord(REC_BUTTON, trial.response + kButtonLength, 0);
        scheduleMessage(trial.response + kButtonLength, "!V TRIAL_VAR number " + std::to_string(trial.number));
    }

    void scheduleEyeEvents(const std::vector<Movement> &movements, Eyes eye, uint32_t lag) {
        const uint32_t blockEnd = movements.back().end;
        for (const Movement &movement : movements) {
            const uint32_t start = movement.start + (&movement == &movements.front() ? 0 : lag);
            const uint32_t end = std::min(movement.end + lag, blockEnd) - sampleInterval_;
            const uint32_t written = std::min(end + kParserDelay, blockEnd);
            const int startCode = movement.saccade ? REC_SSACC : REC_SFIX;
            schedule(start, startCode, startOfEyeEvent(startCode, eye, start, movement.from));
            if (movement.blinkEnd != 0) {
                const uint32_t blinkStart = movement.blinkStart + lag;
                const uint32_t blinkEnd = movement.blinkEnd + lag - sampleInterval_;
                schedule(blinkStart, REC_SBLINK, EventRecord(REC_SBLINK, eye).startTime(blinkStart));
                schedule(blinkEnd + kParserDelay, REC_EBLINK,
                         EventRecord(REC_EBLINK, eye).times(blinkStart, blinkEnd));
            }
            if (movement.saccade) {
                schedule(written, REC_ESACC, endOfSaccade(movement, eye, start, end));
            } else {
                schedule(written, REC_EFIX, endOfFixation(movement, eye, start, end));
            }
        }
    }

    void writeEventsUntil(uint32_t time) {
        for (; nextEvent_ < events_.size() && events_[nextEvent_].due <= time; ++nextEvent_) {
            write(events_[nextEvent_].code, events_[nextEvent_].record);
        }
    }

    void writeBlock(const Trial &trial, const std::vector<Movement> &movements) {
        unsigned content = TRK_SAMPLE_PUPIL_POSITION | TRK_SAMPLE_HREF | TRK_SAMPLE_GAZE | TRK_SAMPLE_RESOLUTION |
                           TRK_SAMPLE_PUPIL_SIZE | TRK_SAMPLE_STATUS | TRK_SAMPLE_BUTTONS;
        if (options_.cameraData) {
            content |= TRK_SAMPLE_EXTENSION | TRK_SAMPLE_INPUT;
        }
        const BlockStart block{.time = trial.recordingStart,
                               .rate = options_.sampleRate,
                               .eyes = options_.eyes,
                               .gazeDivisor = kGazeDivisor,
                               .velocityDivisor = kVelocityDivisor,
                               .content = content};
        write(REC_STARTSAMPLES, startSamples(block));
        write(REC_STARTEVENTS, startEvents(block));
        std::array eyes{EyeSignal(movements, 0), EyeSignal(movements, kRightEyeLag)};
        const uint32_t count =
            (trial.recordingEnd - trial.recordingStart) * static_cast<uint32_t>(options_.sampleRate) / 1000;
        for (uint32_t i = 0; i < count; ++i) {
            writeSample(trial, eyes, trial.recordingStart + i * 1000.0 / options_.sampleRate);
        }
        writeEventsUntil(trial.recordingEnd);
        write(REC_ENDSAMPLES, endSamples(trial.recordingEnd, options_.eyes));
        write(REC_ENDEVENTS, endEvents(trial.recordingEnd, options_.eyes));
        scenario_.count[REC_RECORDING] += 2;
    }

    void writeSample(const Trial &trial, std::array<EyeSignal, 2> &eyes, double exactTime) {
        for (EyeSignal &eye : eyes) {
            eye.advance(random_, exactTime);
        }
        const auto time = static_cast<uint32_t>(exactTime);
        writeEventsUntil(time);
        if (time - scenario_.gapStart < kGapLength) {
            ++scenario_.lostSamples;
            return;
        }
        fillSample(trial, eyes, time);
        writer_.sample(sample_);
        ++samples();
    }

    size_t &samples() { return scenario_.count[REC_SAMPLE]; }

    // `sample_` keeps its storage from one sample to the next.
    void fillSample(const Trial &trial, const std::array<EyeSignal, 2> &eyes, uint32_t time) {
        constexpr Position kNoPosition{kMissingWord, kMissingWord};
        const EyeSignal &left = eyes[0];
        const EyeSignal &right = eyes[1];
        const auto ofBoth = [&](Position (*words)(Point)) {
            return EyePositions{left.closed() ? kNoPosition : words(left.position()),
                                right.closed() ? kNoPosition : words(right.position())};
        };
        const EyeSignal &measured = options_.eyes == RightEye ? right : left;
        sample_.time = time;
        sample_.eyes = options_.eyes;
        sample_.pupil = ofBoth(pupilWords);
        sample_.href = ofBoth(hrefWords);
        sample_.gaze = ofBoth(gazeWords);
        sample_.resolution = measured.closed() ? kNoPosition : resolutionWords(measured.position());
        sample_.pupilSize = EyeWords{left.pupilSize(), right.pupilSize()};
        sample_.status = measured.closed() ? kPupilLost : 0;
        sample_.buttons = time - trial.response < kButtonLength ? 1 : 0;
        sample_.input.reset();
        if (options_.cameraData) {
            sample_.input = kWindowPosition;
            if (!sample_.extension) {
                sample_.extension.emplace();
            }
            setCameraData(*sample_.extension, measured);
        } else if (time - trial.stimulus < kInputLength) {
            sample_.input = static_cast<int>(trial.number & 0xFF);
        }
    }

    ScenarioOptions options_;
    Random random_;
    RecordingWriter writer_;
    uint32_t sampleInterval_;
    Scenario scenario_;
    std::vector<DueEvent> events_; // of the trial being written, by the time they are written at
    size_t nextEvent_ = 0;
    SampleRecord sample_;
};

} // namespace

Scenario experiment(const ScenarioOptions &options) { return Experiment(options).run(); }

std::string messageLogFor(const ScenarioOptions &options) {
    constexpr double kLogStart = 1000.25;
    constexpr double kLogRate = 1.00002; // log milliseconds per tracker millisecond
    std::string log = "12.500 Logger started\n";
    const auto add = [&](uint32_t trackerTime, const std::string &text) {
        log += milliseconds(kLogStart + (trackerTime - options.startTime) * kLogRate) + " " + text + "\n";
    };
    const std::vector<Trial> trials = planTrials(options);
    for (const Trial &trial : trials) {
        add(trial.recordingStart + kSyncDelay, syncText(trial));
        add(trial.stimulus + 9, "frame " + std::to_string(trial.number) + " shown");
        add(trial.response + 15, "key " + std::to_string(trial.number) + " pressed");
    }
    add(trials.back().finish + 200, "results saved");
    add(trials.back().finish + 300, "Quit logger");
    return log;
}

} // namespace trk_test
