#include "gaze_plan.h"

#include "display.h"

#include <algorithm>
#include <cmath>

namespace trkwriter {

namespace {

constexpr double kLongestMovement = 330; // ms, of a saccade or a blink, with the lag of an eye
constexpr double kLastFixation = 100;    // ms, at least
constexpr double kMinute = 60000;        // ms

} // namespace

GazePlan::GazePlan(const SessionOptions &options, Eyes eye, double grid)
    : options_(options), isRight_(eye == RightEye), grid_(grid), random_(options.seed, 1),
      dropouts_(options.seed, 2) {}

double GazePlan::onGrid(double ms) const { return std::floor(ms / grid_ + 0.5) * grid_; }

void GazePlan::startBlock(double start, double end) {
    nextBlink_ = start + (options_.blinks > 0 ? kMinute / options_.blinks * random_.uniform() : kMinute);
    time_ = start;
    lag_ = 0;
    blockEnd_ = end;
    position_ = {random_.uniform(-20, 20), random_.uniform(-20, 20)};
    isFixating_ = false;
    converge();
}

// The disparity of the eyes changes a little from one target to the next.
void GazePlan::converge() {
    const double disparity = 0.25 + 0.05 * random_.bell(); // degrees
    shift_ = (isRight_ ? -0.5 : 0.5) * disparity * display::kPixelsPerDegree;
}

Movement GazePlan::next() {
    isFixating_ = !isFixating_;
    if (isFixating_) {
        return fixation();
    }
    return options_.blinks > 0 && time_ >= nextBlink_ ? blink() : saccade();
}

Movement GazePlan::fixation() {
    Movement movement{.start = time_ + lag_, .from = ownPoint(position_)};
    double length = onGrid(160 + random_.uniform(0, 160) + random_.uniform(0, 160));
    const double direction = random_.uniform();
    const double lag = (std::floor(random_.uniform(0, 4)) - 1) * grid_;
    lag_ = isRight_ ? lag : 0;
    if (time_ + length + kLongestMovement + kLastFixation >= blockEnd_) {
        length = blockEnd_ - time_;
        lag_ = 0;
    }
    planDropout(movement, length);
    const Point resolution = display::resolutionAt(position_);
    const double drift = options_.drift * length / 1000;
    position_ = {
        std::clamp(position_.x + drift * resolution.x * display::sine(direction), -1000.0, 1000.0),
        std::clamp(position_.y + drift * resolution.y * display::sine(direction + 0.25), -1000.0, 1000.0)};
    time_ += length;
    movement.end = time_ + lag_;
    movement.to = ownPoint(position_);
    return movement;
}

// Some way from the borders of the fixation, so that velocities of saccades need nothing that is lost.
void GazePlan::planDropout(Movement &fixation, double length) {
    constexpr double kClear = 40; // ms
    const double share = dropouts_.uniform();
    const double place = dropouts_.uniform();
    const double room = length - 2 * kClear;
    for (double &owed : owed_) {
        owed += length * options_.dropout / 100;
    }
    if (room < kBurstStep || options_.dropout == 0) {
        return;
    }
    const double burst = std::floor(1 + share * (room / kBurstStep - 1)) * kBurstStep;
    const bool loses[4][2] = {{true, true}, {true, false}, {false, true}, {true, true}};
    const unsigned kind = bursts_ % 4;
    // A single eye takes every turn.
    const bool left = options_.eyes == LeftEye || (options_.eyes == BothEyes && loses[kind][0]);
    const bool right = options_.eyes == RightEye || (options_.eyes == BothEyes && loses[kind][1]);
    if ((left && owed_[0] < burst) || (right && owed_[1] < burst)) {
        return;
    }
    ++bursts_;
    owed_[0] -= left ? burst : 0;
    owed_[1] -= right ? burst : 0;
    if (isRight_ ? right : left) {
        fixation.lostFrom = onGrid(time_ + kClear + place * (room - burst));
        fixation.lostUntil = fixation.lostFrom + burst;
        fixation.isGap = kind == 0;
    }
}

// Most saccades are small, the largest take 16 degrees.
Point GazePlan::nextTarget() {
    const double u = random_.uniform();
    const double direction = random_.uniform();
    const Point resolution = display::resolutionAt(position_);
    const double amplitude = 1 + 15 * u * u;
    const auto reached = [](double from, double way, double reach) {
        const double to = std::abs(from + way) <= reach ? from + way : from - way;
        return std::clamp(to, -reach, reach);
    };
    return {reached(position_.x, amplitude * resolution.x * display::sine(direction), display::kReach.x),
            reached(position_.y, amplitude * resolution.y * display::sine(direction + 0.25), display::kReach.y)};
}

Movement GazePlan::saccade() {
    const Point target = nextTarget();
    Movement movement{.kind = EyeEvent::Saccade, .start = time_ + lag_, .from = ownPoint(position_)};
    converge();
    movement.to = ownPoint(target);
    movement.amplitude = display::angleBetween(movement.from, movement.to);
    movement.duration = (21 + 2.2 * display::angleBetween(position_, target)) * (1 + random_.uniform(-0.05, 0.05));
    time_ += std::ceil(movement.duration / grid_) * grid_;
    position_ = target;
    movement.end = time_ + lag_;
    return movement;
}

Movement GazePlan::blink() {
    nextBlink_ += kMinute / options_.blinks * random_.uniform(0.5, 1.5);
    Movement movement{
        .kind = EyeEvent::Blink, .start = time_ + lag_, .from = ownPoint(position_), .to = ownPoint(position_)};
    movement.lostFrom = movement.start + onGrid(random_.uniform(30, 50));
    movement.lostUntil = movement.lostFrom + onGrid(random_.uniform(80, 190));
    movement.end = movement.lostUntil + onGrid(random_.uniform(40, 70));
    time_ = movement.end - lag_;
    return movement;
}

} // namespace trkwriter
