#include "trkwriter/session.h"

#include "display.h"
#include "random.h"
#include "simulated_eye.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace trkwriter {

namespace {

constexpr double kFirstMessage = 250000;
constexpr double kTimeGrid = 4; // blocks and trials begin on samples at every rate
constexpr double kUsualTrial = 10000;
constexpr double kShortestTrial = 1000;
constexpr double kMinute = 60000;
constexpr double kShortestSession = 0.02; // minutes

double onTimeGrid(double time) { return std::floor(time / kTimeGrid) * kTimeGrid; }

std::string numberText(double value) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.10g", value);
    return text.data();
}

std::string milliseconds(double time) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.3f", time);
    return text.data();
}

void requireRange(const char *what, double value, double lowest, double largest, const char *unit) {
    const bool fits = value >= lowest && value <= largest; // NaN does not
    if (!fits) {
        throw SessionError(std::string(what) + " is " + numberText(value) + ", and goes from " +
                           numberText(lowest) + " to " + numberText(largest) + " " + unit);
    }
}

// ---- The plan of a session ----

struct Trial {
    int number;            // from 1
    double begin;          // message "TRIALID n"
    double recordingStart; // of a trial that begins a recording block
    double stimulus;
    double response;
    double recordingEnd; // of one that ends a block
    double finish;       // message "TRIAL OK"
    int setSize;

    [[nodiscard]] double sync() const { return recordingStart + 12; }
};

class Plan {
  public:
    explicit Plan(const SessionOptions &options) : seed_(options.seed) {
        requireRange("the duration", options.minutes, kShortestSession, 10000, "minutes");
        constexpr std::array kRates{250.0, 500.0, 1000.0, 2000.0};
        if (std::ranges::find(kRates, options.rate) == kRates.end()) {
            throw SessionError("the rate is " + numberText(options.rate) +
                               ", and one of 250, 500, 1000 and 2000 samples per second");
        }
        if (options.eyes != LeftEye && options.eyes != RightEye && options.eyes != BothEyes) {
            throw SessionError("the eyes are neither the left, nor the right, nor both");
        }
        requireRange("noise", options.noise, 0, 5, "degrees");
        requireRange("dropout", options.dropout, 0, 20, "per cent");
        requireRange("the number of blinks", options.blinks, 0, 60, "a minute");
        requireRange("drift", options.drift, 0, 5, "degrees per second");
        const double duration = options.minutes * kMinute;
        trials_ = options.trials.value_or(std::max(1, static_cast<int>(duration / kUsualTrial)));
        if (trials_ < 1 || trials_ * kShortestTrial > duration) {
            throw SessionError(std::to_string(trials_) + " trials do not fit: from 1 to " +
                               std::to_string(static_cast<int>(duration / kShortestTrial)) + " do in " +
                               numberText(options.minutes) + " minutes");
        }
        blocks_ = options.blocks.value_or(trials_);
        if (blocks_ < 1 || blocks_ > trials_) {
            throw SessionError(std::to_string(blocks_) +
                               " recording blocks are not from 1 to the number of trials, " +
                               std::to_string(trials_));
        }
        length_ = onTimeGrid(duration / trials_);
    }

    [[nodiscard]] int trials() const { return trials_; }
    [[nodiscard]] int blocks() const { return blocks_; }
    // The first trial of a block, from 0; of the one behind the last, the number of trials.
    [[nodiscard]] int firstTrial(int block) const {
        return static_cast<int>(static_cast<int64_t>(trials_) * block / blocks_);
    }

    [[nodiscard]] Trial trial(int number) const {
        constexpr double kLead = 100;
        constexpr double kPause = 300;
        constexpr double kLongestMore = 400;
        Random random(seed_, 1000 + static_cast<uint64_t>(number));
        const double begin = kFirstMessage + number * length_;
        const double start = begin + kLead;
        const double more = std::min(kLongestMore, (length_ - kShortestTrial) / 4) * random.uniform();
        const double end = start + onTimeGrid(length_ - kLead - kPause - more);
        const double response = std::floor(start + (end - start) * random.uniform(0.5, 0.7));
        const int setSize = 4 << (random.bits() % 3);
        return {number + 1, begin, start, start + 200, response, end, end + 40, setSize};
    }

  private:
    uint64_t seed_;
    int trials_ = 0;
    int blocks_ = 0;
    double length_ = 0; // of a trial and the pause behind it, ms
};

// Offsets of pupil and corneal reflection from the camera window's centre in 1/250 pixel, areas and dimensions.
Extension cameraDataOf(const SimulatedEye &eye) {
    constexpr unsigned kEightWords = 0x88;
    constexpr unsigned kFiveWords = 0x85; // the reflection is behind the lid, too
    const auto word = [](double value) { return static_cast<uint16_t>(static_cast<int>(std::floor(value))); };
    const Point &point = eye.position();
    Extension extension{eye.isSeen() ? kEightWords : kFiveWords,
                        {word(point.x * 7), word(point.y * 7), word(point.x * 3 + 500), word(point.y * 3 + 900),
                         eye.isSeen() ? word(eye.sample().pupilSize) : uint16_t{0}}};
    if (eye.isSeen()) {
        constexpr uint16_t kReflectionArea = 120;
        std::ranges::copy(std::array<uint16_t, 3>{kReflectionArea, 0x2423, 0x0C0D}, &extension.words[5]);
    }
    return extension;
}

class Session {
  public:
    Session(Recorder &recorder, const SessionOptions &options, SessionListener listener)
        : recorder_(recorder), options_(options), listener_(std::move(listener)), plan_(options_) {
        const double grid = std::max(1.0, 1000 / options.rate);
        for (const Eyes eye : {LeftEye, RightEye}) {
            if ((options.eyes & eye) != 0) {
                eyes_.emplace_back(recorder, options_, listener_, eye, grid);
            }
        }
    }

    uint64_t write() {
        logLine("12.500 Logger started");
        for (int block = 0; block < plan_.blocks(); ++block) {
            writeBlock(plan_.firstTrial(block), plan_.firstTrial(block + 1));
        }
        const double end = plan_.trial(plan_.trials() - 1).finish;
        log(end + 200, "results saved");
        log(end + 300, "Quit logger");
        return samples_;
    }

  private:
    struct Note {
        enum class Kind { Message, Input, Press, Release };
        double time;
        Kind kind;
        std::string text{};
        int value = 0;
    };

    // What is neither sample nor eye event of a trial inside of its block, in the order of times.
    [[nodiscard]] static std::vector<Note> notesOf(const Trial &trial, bool isFirst, bool isLast) {
        using enum Note::Kind;
        constexpr double kInputLength = 50;
        constexpr double kButtonLength = 120;
        const std::string number = std::to_string(trial.number);
        const double release = trial.response + kButtonLength;
        std::vector<Note> notes{
            {trial.sync(), Message, "TRACKER_TIME " + number + " " + milliseconds(trial.sync())},
            {trial.stimulus, Message, "STIMULUS ON " + number},
            {trial.stimulus, Input, "", trial.number & 0xFF},
            {trial.stimulus + kInputLength, Input},
            {trial.response, Press},
            {release, Release},
            {release, Message, "VAR trial " + number},
            {release, Message, "VAR set_size " + std::to_string(trial.setSize)},
            {release, Message, "VAR response_ms " + numberText(trial.response - trial.stimulus)}};
        if (!isFirst) {
            notes.insert(notes.begin(), {trial.begin, Message, "TRIALID " + number});
        }
        if (!isLast) {
            notes.push_back({trial.finish, Message, "TRIAL OK"});
        }
        return notes;
    }

    void write(const Note &note) {
        switch (note.kind) {
        case Note::Kind::Message:
            recorder_.message(note.time, note.text);
            break;
        case Note::Kind::Input:
            recorder_.input(note.time, note.value);
            break;
        default:
            recorder_.button(note.time, 1, note.kind == Note::Kind::Press);
            break;
        }
    }

    // The notes of a block up to a time. Those of one trial are held at a time.
    void writeNotes(double time) {
        while (true) {
            if (nextNote_ == notes_.size()) {
                if (nextTrial_ == endTrial_) {
                    return;
                }
                const Trial trial = plan_.trial(nextTrial_);
                notes_ = notesOf(trial, nextTrial_ == firstTrial_, nextTrial_ + 1 == endTrial_);
                nextNote_ = 0;
                ++nextTrial_;
                logTrial(trial);
            }
            if (notes_[nextNote_].time > time) {
                return;
            }
            write(notes_[nextNote_++]);
        }
    }

    void writeBlock(int firstTrial, int endTrial) {
        const Trial first = plan_.trial(firstTrial);
        const Trial last = plan_.trial(endTrial - 1);
        firstTrial_ = nextTrial_ = firstTrial;
        endTrial_ = endTrial;
        recorder_.message(first.begin, "TRIALID " + std::to_string(first.number));
        startBlock(first.recordingStart);
        for (SimulatedEye &eye : eyes_) {
            eye.startBlock(first.recordingStart, last.recordingEnd);
        }
        const auto count =
            static_cast<uint64_t>((last.recordingEnd - first.recordingStart) * options_.rate / 1000);
        for (uint64_t i = 0; i < count; ++i) {
            const double time = first.recordingStart + static_cast<double>(i) * 1000 / options_.rate;
            writeNotes(std::floor(time));
            writeSample(time);
        }
        writeNotes(last.recordingEnd);
        for (SimulatedEye &eye : eyes_) {
            eye.endBlock();
        }
        recorder_.endBlock(last.recordingEnd);
        recorder_.message(last.finish, "TRIAL OK");
    }

    void startBlock(double time) {
        recorder_.startBlock({.time = time,
                              .rate = options_.rate,
                              .eyes = options_.eyes,
                              .content = {.pupil = true,
                                          .href = true,
                                          .resolution = true,
                                          .status = true,
                                          .input = options_.cameraData,
                                          .buttons = true,
                                          .extension = options_.cameraData}});
    }

    // The mean of the eyes that are seen counts.
    [[nodiscard]] Point resolution() const {
        Point sum{0, 0};
        int seen = 0;
        for (const SimulatedEye &eye : eyes_) {
            if (eye.isSeen()) {
                sum = {sum.x + eye.position().x, sum.y + eye.position().y};
                ++seen;
            }
        }
        if (seen == 0) {
            return {};
        }
        const Point exact = display::resolutionAt({sum.x / seen, sum.y / seen});
        return {std::floor(exact.x * 10 + 0.5) / 10, std::floor(exact.y * 10 + 0.5) / 10}; // as it is stored
    }

    void writeSample(double time) {
        for (SimulatedEye &eye : eyes_) {
            eye.advance(time);
        }
        for (SimulatedEye &eye : eyes_) {
            eye.writeEvents(time);
        }
        const Point here = resolution();
        if (!eyes_.front().isInGap()) {
            Sample sample{.time = time, .resolution = here, .status = eyes_.front().isSeen() ? 0 : kPupilLost};
            if ((options_.eyes & LeftEye) != 0) {
                sample.left = eyes_.front().sample();
            }
            if ((options_.eyes & RightEye) != 0) {
                sample.right = eyes_.back().sample();
            }
            if (options_.cameraData) {
                constexpr int kWindowPosition = 30 << 9 | 40; // the camera window stands at (160, 240)
                sample.input = kWindowPosition;
                sample.extension = cameraDataOf(eyes_.front());
            }
            recorder_.sample(sample);
            ++samples_;
            if (listener_.sample) {
                listener_.sample();
            }
        }
        for (SimulatedEye &eye : eyes_) {
            eye.measured(here);
        }
    }

    // ---- The external message log ----

    void logLine(const std::string &text) const {
        if (listener_.logLine) {
            listener_.logLine(text + "\n");
        }
    }

    void log(double trackerTime, const std::string &text) const {
        constexpr double kLogStart = 1000.25;
        constexpr double kLogRate = 1.00002; // log milliseconds per tracker millisecond
        logLine(milliseconds(kLogStart + (trackerTime - kFirstMessage) * kLogRate) + " " + text);
    }

    void logTrial(const Trial &trial) const {
        const std::string number = std::to_string(trial.number);
        log(trial.sync(), "TRACKER_TIME " + number + " " + milliseconds(trial.sync()));
        log(trial.stimulus + 9, "frame " + number + " shown");
        log(trial.response + 15, "key " + number + " pressed");
    }

    Recorder &recorder_;
    SessionOptions options_;
    SessionListener listener_;
    Plan plan_;
    std::vector<SimulatedEye> eyes_;
    uint64_t samples_ = 0;
    int firstTrial_ = 0; // of the block
    int nextTrial_ = 0;
    int endTrial_ = 0;
    std::vector<Note> notes_; // of the trial before the next
    std::size_t nextNote_ = 0;
};

} // namespace

uint64_t writeSession(Recorder &recorder, const SessionOptions &options, const SessionListener &listener) {
    return Session(recorder, options, listener).write();
}

} // namespace trkwriter
