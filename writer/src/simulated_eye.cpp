#include "simulated_eye.h"

#include "display.h"

#include <algorithm>
#include <cmath>

namespace trkwriter {

namespace {

constexpr double kParserDelay = 12; // ms from the end of an event to its record; velocities need less
constexpr double kMeanPupilSize = 1000;
constexpr double kPupilNoise = 1.5;
constexpr double kPeakOfLeastJerk = 1.875; // times the mean velocity
constexpr double kStepsPerPixel = 10;
constexpr double kLidGaze = 80; // pixels that gaze seems to sink before a blink hides the pupil

double leastJerk(double s) { return s * s * s * (10 + s * (6 * s - 15)); }

double rounded(double value) { return std::floor(value + 0.5); }

// A position as it stands in the file.
double stored(double centre, double offset) {
    return rounded((centre + offset) * kStepsPerPixel) / kStepsPerPixel - centre;
}

// How far the lids are closed, up to where the pupil cannot be seen: 0 to 1.
double closure(const Movement &movement, double time) {
    if (movement.kind != EyeEvent::Blink) {
        return 0;
    }
    const double share = time < movement.lostFrom ? (time - movement.start) / (movement.lostFrom - movement.start)
                                                  : (movement.end - time) / (movement.end - movement.lostUntil);
    const double s = std::clamp(share, 0.0, 1.0);
    return s * s * (3 - 2 * s);
}

Point truePositionAt(const Movement &movement, double time) {
    const double passed = time - movement.start;
    if (movement.kind == EyeEvent::Saccade) {
        return display::between(movement.from, movement.to, movement.amplitude,
                                leastJerk(std::min(passed / movement.duration, 1.0)));
    }
    const double share = passed / (movement.end - movement.start);
    return {movement.from.x + share * (movement.to.x - movement.from.x),
            movement.from.y + share * (movement.to.y - movement.from.y)};
}

// Slow waves of about 5 and 17 seconds.
double pupilSizeAt(double time, double rhythm) {
    return kMeanPupilSize *
           (1 + 0.06 * display::sine(time / 5100 + rhythm) + 0.04 * display::sine(time / 17300 + 3 * rhythm));
}

} // namespace

SimulatedEye::SimulatedEye(Recorder &recorder, const SessionOptions &options, const SessionListener &listener,
                           Eyes which, double grid)
    : recorder_(recorder), options_(options), listener_(listener), which_(which), plan_(options, which, grid),
      noise_(options.seed, which == RightEye ? 4 : 3), velocity_(options.rate) {
    Random random(options.seed, 5);
    rhythm_ = random.uniform() + (which == RightEye ? 0.01 : 0);
}

void SimulatedEye::startBlock(double start, double end) {
    plan_.startBlock(start, end);
    blockStart_ = start;
    blockEnd_ = end;
    movement_ = plan_.next();
    isNew_ = true;
    isReported_ = isBlinking_ = false;
}

void SimulatedEye::advance(double time) {
    while (time >= movement_.end && movement_.end < blockEnd_) {
        movement_ = plan_.next();
        isNew_ = true;
    }
    isSeen_ = time < movement_.lostFrom || time >= movement_.lostUntil;
    truePosition_ = truePositionAt(movement_, time);
    truePupil_ = pupilSizeAt(time, rhythm_);
    const double closed = closure(movement_, time);
    const Point resolution = display::resolutionAt(truePosition_);
    const double deviation = options_.noise / 2;
    // In two statements, each: the order of draws is part of the recording.
    const double noiseX = deviation * noise_.bell();
    const double noiseY = deviation * noise_.bell();
    position_ = {stored(display::kCentre.x, truePosition_.x + noiseX * resolution.x),
                 stored(display::kCentre.y, truePosition_.y + noiseY * resolution.y + closed * kLidGaze)};
    pupil_ = rounded(truePupil_ * (1 - 0.7 * closed) + kPupilNoise * noise_.bell());
}

EyeSample SimulatedEye::sample() const {
    if (!isSeen_) {
        return {};
    }
    return {.pupil = {position_.x * 3.0, position_.y * 3.0 - 400.0},
            .href = display::hrefAt(position_),
            .gaze = display::gazeAt(position_),
            .pupilSize = pupil_};
}

void SimulatedEye::writeEvents(double time) {
    const double whole = std::floor(time);
    writeEnds(whole);
    if (isNew_) {
        endMovement();
        isNew_ = false;
        isReported_ = true;
        reported_ = movement_;
        sums_ = {};
        const bool isFixation = movement_.kind == EyeEvent::Fixation;
        if (!isFixation) {
            velocity_.startSaccade();
        }
        recorder_.startEvent(isFixation ? EyeEvent::Fixation : EyeEvent::Saccade, which_, whole,
                             {.gaze = display::gazeAt(position_)});
    }
    const bool blinks = movement_.kind == EyeEvent::Blink && !isSeen_;
    if (blinks != isBlinking_) {
        isBlinking_ = blinks;
        if (blinks) {
            blinkStart_ = whole;
            recorder_.startEvent(EyeEvent::Blink, which_, whole);
        } else {
            ends_.push_back({EyeEvent::Blink, lastTime_, {}});
            tellTruth({.kind = EyeEvent::Blink, .eye = which_, .start = blinkStart_, .end = lastTime_});
        }
    }
    lastTime_ = whole;
}

void SimulatedEye::measured(const Point &resolution) {
    velocity_.add(isSeen_ ? position_ : Point{}, resolution, movement_.kind != EyeEvent::Fixation);
    if (!isSeen_) {
        sums_.isLost = true;
        return;
    }
    if (sums_.count == 0) {
        sums_.first = position_;
        sums_.firstResolution = resolution;
        sums_.firstPupil = pupil_;
        sums_.trueFirst = truePosition_;
    }
    sums_.last = position_;
    sums_.lastResolution = resolution;
    sums_.lastPupil = pupil_;
    sums_.trueLast = truePosition_;
    sums_.x += position_.x;
    sums_.y += position_.y;
    sums_.pupil += pupil_;
    sums_.trueX += truePosition_.x;
    sums_.trueY += truePosition_.y;
    sums_.truePupil += truePupil_;
    ++sums_.count;
}

// The movement that was reported last, if any, ended with the sample before.
void SimulatedEye::endMovement() {
    if (!isReported_) {
        return;
    }
    const bool isFixation = reported_.kind == EyeEvent::Fixation;
    ends_.push_back({isFixation ? EyeEvent::Fixation : EyeEvent::Saccade, lastTime_, sums_});
    if (reported_.kind == EyeEvent::Blink) {
        return; // the lids moved, not the eye
    }
    TrueEvent truth{.kind = reported_.kind,
                    .eye = which_,
                    .start = reported_.start,
                    .end = lastTime_,
                    .from = display::gazeAt(sums_.trueFirst),
                    .to = display::gazeAt(sums_.trueLast)};
    if (isFixation) {
        truth.mean = display::gazeAt({sums_.trueX / sums_.count, sums_.trueY / sums_.count});
        truth.pupilSize = sums_.truePupil / sums_.count;
    } else {
        truth.amplitude = reported_.amplitude;
        truth.peakVelocity = kPeakOfLeastJerk * 1000 * reported_.amplitude / reported_.duration;
    }
    tellTruth(truth);
}

void SimulatedEye::tellTruth(const TrueEvent &event) const {
    if (listener_.truth) {
        listener_.truth(event);
    }
}

void SimulatedEye::writeEnds(double time) {
    const auto waiting =
        std::ranges::find_if_not(ends_, [time](const End &end) { return end.time + kParserDelay <= time; });
    for (auto end = ends_.begin(); end != waiting; ++end) {
        recorder_.endEvent(end->kind, which_, end->time, summaryOf(*end));
    }
    ends_.erase(ends_.begin(), waiting);
}

// Saccades are summed up after the last sample that their velocities need, and before the next one starts.
EyeSummary SimulatedEye::summaryOf(const End &end) const {
    if (end.kind == EyeEvent::Blink) {
        return {};
    }
    const Sums &sums = end.sums;
    EyeSummary summary{.start = {.gaze = display::gazeAt(sums.first),
                                 .href = display::hrefAt(sums.first),
                                 .resolution = sums.firstResolution},
                       .end = {.gaze = display::gazeAt(sums.last),
                               .href = display::hrefAt(sums.last),
                               .resolution = sums.lastResolution},
                       .status = sums.isLost ? kPupilLost : 0};
    if (end.kind == EyeEvent::Fixation) {
        const Point mean{sums.x / sums.count, sums.y / sums.count};
        summary.start.pupilSize = sums.firstPupil;
        summary.end.pupilSize = sums.lastPupil;
        summary.average = {
            .gaze = display::gazeAt(mean), .href = display::hrefAt(mean), .pupilSize = sums.pupil / sums.count};
    } else {
        summary.average = {.velocity = velocity_.mean()};
        summary.peakVelocity = velocity_.peak();
    }
    return summary;
}

void SimulatedEye::endBlock() {
    endMovement();
    writeEnds(lastTime_ + kParserDelay);
}

} // namespace trkwriter
