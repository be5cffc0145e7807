#include "experiment.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <functional>
#include <optional>
#include <random>
#include <vector>

namespace trk_example {

namespace {

using trkwriter::EyeEvent;
using trkwriter::Eyes;
using trkwriter::Point;
using trkwriter::Recorder;

constexpr uint32_t kFirstMessage = 250000;
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
constexpr Point kCentre{960, 540};
constexpr double kPixelsPerDegree = 40.0;
constexpr double kDegree = 57.2958;
constexpr double kViewingDistance = kPixelsPerDegree * kDegree;
constexpr double kHrefDistance = 15000.0;
constexpr int kPupilLost = 0x2000; // status word
constexpr double kMeanPupilSize = 1000.0;

// The standard fixes what std::mt19937 yields, but not what its distributions make of it.
class Random {
  public:
    uint32_t bits() { return static_cast<uint32_t>(generator_()); }
    double between(double low, double high) { return low + (high - low) * bits() / 4294967296.0; }

  private:
    std::mt19937 generator_{1};
};

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
        const uint32_t begin = kFirstMessage + i * length;
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

// ---- Gaze, in pixels from the centre of the display ----

// A fixation, or a saccade with perhaps a blink inside.
struct Movement {
    EyeEvent kind;
    uint32_t start;
    uint32_t end; // the next one starts here
    Point from;
    Point to;
    uint32_t blinkStart = 0;
    uint32_t blinkEnd = 0;

    double amplitude() const { return std::hypot(to.x - from.x, to.y - from.y) / kPixelsPerDegree; }
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
    Point position{0, 0};
    for (unsigned number = 0;; ++number) {
        const uint32_t fixationEnd = start + onGrid(random.between(180, 480));
        if (fixationEnd + kLongestSaccade >= end) {
            movements.push_back({EyeEvent::Fixation, start, end, position, position});
            return movements;
        }
        movements.push_back({EyeEvent::Fixation, start, fixationEnd, position, position});
        Movement saccade{EyeEvent::Saccade, fixationEnd, 0, position, nextTarget(random, position)};
        const bool withBlink = number % 8 == 1;
        saccade.end = fixationEnd + onGrid(withBlink ? random.between(200, 300) : 24 + 2.2 * saccade.amplitude());
        if (withBlink) {
            saccade.blinkStart = saccade.start + 7 * kTimeGrid;
            saccade.blinkEnd = saccade.end - 7 * kTimeGrid;
        }
        movements.push_back(saccade);
        position = saccade.to;
        start = saccade.end;
    }
}

// ---- What the tracker makes of it ----

Point gazeAt(Point point) { return {kCentre.x + point.x, kCentre.y + point.y}; }

Point hrefAt(Point point) {
    constexpr double kScale = kHrefDistance / kViewingDistance;
    return {point.x * kScale, point.y * kScale};
}

// Pixels per degree grow towards the edges of a flat display.
Point resolutionAt(Point point) {
    constexpr double kSquare = kViewingDistance * kViewingDistance;
    const double distance = point.x * point.x + point.y * point.y + kSquare;
    return {distance / std::sqrt(point.y * point.y + kSquare) / kDegree,
            distance / std::sqrt(point.x * point.x + kSquare) / kDegree};
}

// The sum of values, and their mean.
struct Mean {
    Point position{0, 0};
    double pupilSize = 0;
    int count = 0;

    void add(Point point, double size) {
        position = {position.x + point.x, position.y + point.y};
        pupilSize += size;
        ++count;
    }
    Point meanPosition() const { return {position.x / count, position.y / count}; }
};

// One eye over a recording block: its signal at rising times, and its events, written as they are recognised.
class Eye {
  public:
    Eye(Recorder &recorder, Eyes which, const std::vector<Movement> &movements, uint32_t lag)
        : recorder_(recorder), which_(which), movements_(movements), lag_(lag) {}

    void advance(Random &random, double time) {
        const double ownTime = time - lag_;
        while (current_ + 1 < movements_.size() && ownTime >= movements_[current_].end) {
            ++current_;
        }
        const Movement &movement = movements_[current_];
        const double progress = std::clamp((ownTime - movement.start) / (movement.end - movement.start), 0.0, 1.0);
        const double way = movement.kind == EyeEvent::Saccade ? minimumJerk(progress) : 0.0;
        const uint32_t noise = random.bits();
        const auto noiseByte = [noise](unsigned shift) { return ((noise >> shift) & 0xFF) / 127.5 - 1.0; };
        drift_.x = 0.998 * drift_.x + 0.05 * noiseByte(0);
        drift_.y = 0.998 * drift_.y + 0.05 * noiseByte(8);
        position_ = {movement.from.x + way * (movement.to.x - movement.from.x) + drift_.x + 0.5 * noiseByte(16),
                     movement.from.y + way * (movement.to.y - movement.from.y) + drift_.y + 0.5 * noiseByte(24)};
        pupilSize_ += 0.002 * (kMeanPupilSize - pupilSize_) + 2.0 * noiseByte(8);
        closed_ = ownTime >= movement.blinkStart && ownTime < movement.blinkEnd;
    }

    // Starts and ends of events at this sample, and those ends that have waited long enough.
    void writeEvents(uint32_t time) {
        writeEnds(time);
        if (reported_ != current_) {
            endMovement();
            reported_ = current_;
            first_ = position_;
            mean_ = {};
            last_ = {};
            recorder_.startEvent(movements_[current_].kind, which_, time, {.gaze = gazeAt(position_)});
        }
        if (closed_ != blinking_) {
            blinking_ = closed_;
            if (closed_) {
                recorder_.startEvent(EyeEvent::Blink, which_, time);
            } else {
                ends_.push_back({EyeEvent::Blink, lastTime_, {}});
            }
        }
        lastTime_ = time;
    }

    // The sample of this moment was recorded.
    void count() {
        if (!closed_) {
            last_ = position_;
            mean_.add(position_, pupilSize_);
        }
    }

    void writeLastEvents() {
        endMovement();
        writeEnds(lastTime_ + kParserDelay);
    }

    bool closed() const { return closed_; }
    Point position() const { return position_; }
    double pupilSize() const { return closed_ ? 0 : pupilSize_; }

    trkwriter::EyeSample sample() const {
        if (closed_) {
            return {};
        }
        return {.pupil = {position_.x * 3.0, position_.y * 3.0 - 400.0},
                .href = hrefAt(position_),
                .gaze = gazeAt(position_),
                .pupilSize = pupilSize_};
    }

  private:
    struct End {
        EyeEvent kind;
        uint32_t time;
        trkwriter::EyeSummary summary;
    };

    static double minimumJerk(double s) { return s * s * s * (10.0 + s * (6.0 * s - 15.0)); }

    void writeEnds(uint32_t time) {
        const auto due = [time](const End &end) { return end.time + kParserDelay <= time; };
        const auto waiting = std::find_if_not(ends_.begin(), ends_.end(), due);
        for (auto end = ends_.begin(); end != waiting; ++end) {
            recorder_.endEvent(end->kind, which_, end->time, end->summary);
        }
        ends_.erase(ends_.begin(), waiting);
    }

    // The movement that was reported last, if any, ended with the sample before.
    void endMovement() {
        if (!reported_) {
            return;
        }
        const Movement &movement = movements_[*reported_];
        if (movement.kind == EyeEvent::Fixation) {
            ends_.push_back({EyeEvent::Fixation, lastTime_, fixation()});
        } else {
            ends_.push_back({EyeEvent::Saccade, lastTime_, saccade(movement)});
        }
    }

    trkwriter::EyeSummary fixation() const {
        return {.start = {.resolution = resolutionAt(first_)},
                .end = {.resolution = resolutionAt(last_)},
                .average = {.gaze = gazeAt(mean_.meanPosition()),
                            .href = hrefAt(mean_.meanPosition()),
                            .pupilSize = mean_.pupilSize / mean_.count}};
    }

    trkwriter::EyeSummary saccade(const Movement &movement) const {
        constexpr double kPeakOfMinimumJerk = 1.875; // times the mean velocity
        const double meanVelocity = 1000.0 * movement.amplitude() / (movement.end - movement.start);
        return {.start = {.gaze = gazeAt(first_), .href = hrefAt(first_)},
                .end = {.gaze = gazeAt(last_), .href = hrefAt(last_)},
                .average = {.velocity = meanVelocity},
                .peakVelocity = meanVelocity * kPeakOfMinimumJerk};
    }

    Recorder &recorder_;
    Eyes which_;
    const std::vector<Movement> &movements_;
    uint32_t lag_;
    size_t current_ = 0;
    Point drift_{0, 0};
    Point position_{0, 0};
    double pupilSize_ = kMeanPupilSize;
    bool closed_ = false;

    std::optional<size_t> reported_; // the movement whose start was written last
    bool blinking_ = false;
    uint32_t lastTime_ = 0;
    Point first_; // of the movement, where the eye was open
    Point last_;
    Mean mean_;
    std::vector<End> ends_; // not yet written
};

// Offsets of pupil and corneal reflection from the camera window's centre in 1/250 pixel, areas and dimensions.
trkwriter::Extension cameraData(const Eye &eye) {
    constexpr unsigned kEightWords = 0x88;
    const auto word = [](double value) { return static_cast<uint16_t>(std::lround(value)); };
    const Point point = eye.position();
    trkwriter::Extension extension{kEightWords,
                                   {word(point.x * 7.0), word(point.y * 7.0), word(point.x * 3.0 + 500.0),
                                    word(point.y * 3.0 + 900.0), word(eye.pupilSize())}};
    if (!eye.closed()) {
        constexpr uint16_t kReflectionArea = 120;
        std::ranges::copy(std::array<uint16_t, 3>{kReflectionArea, 0x2423, 0x0C0D}, &extension.words[5]);
    }
    return extension;
}

// ---- The experiment ----

class Experiment {
  public:
    Experiment(Recorder &recorder, const ScenarioOptions &options) : recorder_(recorder), options_(options) {}

    size_t run() {
        for (const Trial &trial : planTrials(options_)) {
            recorder_.message(trial.begin, "TRIALID " + std::to_string(trial.number));
            writeBlock(trial);
            recorder_.message(trial.finish, "TRIAL OK");
        }
        return samples_;
    }

  private:
    struct Note {
        uint32_t time;
        std::function<void(uint32_t)> write;
    };

    // What is neither sample nor eye event, in the order of its times.
    std::vector<Note> notesOf(const Trial &trial) {
        const std::string number = std::to_string(trial.number);
        const auto message = [this](const std::string &text) {
            return [this, text](uint32_t time) { recorder_.message(time, text); };
        };
        const auto input = [this](int value) {
            return [this, value](uint32_t time) { recorder_.input(time, value); };
        };
        const auto button = [this](bool pressed) {
            return [this, pressed](uint32_t time) { recorder_.button(time, 1, pressed); };
        };
        return {{trial.recordingStart + kSyncDelay, message(syncText(trial))},
                {trial.stimulus, message("STIMULUS ON " + number)},
                {trial.stimulus, input(static_cast<int>(trial.number & 0xFF))},
                {trial.stimulus + kInputLength, input(0)},
                {trial.response, button(true)},
                {trial.response + kButtonLength, button(false)},
                {trial.response + kButtonLength, message("!V TRIAL_VAR number " + number)}};
    }

    void writeBlock(const Trial &trial) {
        recorder_.startBlock({.time = static_cast<double>(trial.recordingStart),
                              .rate = static_cast<double>(options_.sampleRate),
                              .eyes = trkwriter::BothEyes,
                              .content = {.pupil = true,
                                          .href = true,
                                          .resolution = true,
                                          .status = true,
                                          .input = options_.cameraData,
                                          .buttons = true,
                                          .extension = options_.cameraData}});
        const std::vector<Movement> movements = planMovements(random_, trial.recordingStart, trial.recordingEnd);
        std::array eyes{Eye(recorder_, trkwriter::LeftEye, movements, 0),
                        Eye(recorder_, trkwriter::RightEye, movements, kRightEyeLag)};
        const std::vector<Note> notes = notesOf(trial);
        auto nextNote = notes.begin();
        const uint32_t length = trial.recordingEnd - trial.recordingStart;
        const uint32_t gapStart = trial.number == 2 ? trial.recordingStart + onGrid(length / 2.0) : 0;
        for (uint32_t i = 0; i < length * static_cast<uint32_t>(options_.sampleRate) / 1000; ++i) {
            const double time = trial.recordingStart + i * 1000.0 / options_.sampleRate;
            const auto wholeTime = static_cast<uint32_t>(time);
            for (; nextNote != notes.end() && nextNote->time <= wholeTime; ++nextNote) {
                nextNote->write(nextNote->time);
            }
            for (Eye &eye : eyes) {
                eye.advance(random_, time);
                eye.writeEvents(wholeTime);
            }
            if (wholeTime - gapStart >= kGapLength) {
                writeSample(time, eyes);
            }
        }
        for (Eye &eye : eyes) {
            eye.writeLastEvents();
        }
        recorder_.endBlock(trial.recordingEnd);
    }

    void writeSample(double time, std::array<Eye, 2> &eyes) {
        const Eye &measured = eyes[0];
        trkwriter::Sample sample{.time = time,
                                 .left = eyes[0].sample(),
                                 .right = eyes[1].sample(),
                                 .resolution = measured.closed() ? Point{} : resolutionAt(measured.position()),
                                 .status = measured.closed() ? kPupilLost : 0};
        if (options_.cameraData) {
            constexpr int kWindowPosition = 30 << 9 | 40; // the camera window stands at (160, 240)
            sample.input = kWindowPosition;
            sample.extension = cameraData(measured);
        }
        recorder_.sample(sample);
        ++samples_;
        for (Eye &eye : eyes) {
            eye.count();
        }
    }

    Recorder &recorder_;
    ScenarioOptions options_;
    Random random_;
    size_t samples_ = 0;
};

} // namespace

size_t writeExperiment(Recorder &recorder, const ScenarioOptions &options) {
    return Experiment(recorder, options).run();
}

Scenario experiment(const ScenarioOptions &options) {
    Scenario scenario;
    Recorder recorder = Recorder::toMemory(scenario.file, {.compressed = options.compressed});
    scenario.samples = writeExperiment(recorder, options);
    recorder.finish();
    return scenario;
}

std::string messageLogFor(const ScenarioOptions &options) {
    constexpr double kLogStart = 1000.25;
    constexpr double kLogRate = 1.00002; // log milliseconds per tracker millisecond
    std::string log = "12.500 Logger started\n";
    const auto add = [&log](uint32_t trackerTime, const std::string &text) {
        log += milliseconds(kLogStart + (trackerTime - kFirstMessage) * kLogRate) + " " + text + "\n";
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

} // namespace trk_example
