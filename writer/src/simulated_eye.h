// One eye of a session: what it does, what the tracker sees of it, and the events that the tracker makes of that.
#pragma once

#include "gaze_plan.h"
#include "random.h"
#include "trkwriter/session.h"
#include "velocity_meter.h"

#include <cstdint>
#include <vector>

namespace trkwriter {

// Of samples and events: the eye was not seen.
inline constexpr int kPupilLost = 0x2000;

class SimulatedEye {
  public:
    SimulatedEye(Recorder &recorder, const SessionOptions &options, const SessionListener &listener, Eyes which,
                 double grid);

    // In this order: the block starts; for each sample of it advance() of all eyes, writeEvents() of all, and
    // measured(); endBlock() before the block ends.
    void startBlock(double start, double end);
    void advance(double time);
    // Starts and ends of events at this sample, and those ends that have waited long enough.
    void writeEvents(double time);
    // The sample was recorded, or lost as such, at this resolution.
    void measured(const Point &resolution);
    void endBlock();

    [[nodiscard]] bool isSeen() const { return isSeen_; }
    // Whether samples are lost at this time.
    [[nodiscard]] bool isInGap() const { return !isSeen_ && movement_.isGap; }
    // What was measured, rounded as the file has it; where the eye looks when it is not seen. Pixels from the
    // display's centre.
    [[nodiscard]] const Point &position() const { return position_; }
    [[nodiscard]] EyeSample sample() const;

  private:
    // What the samples of a movement hold in which the eye was seen.
    struct Sums {
        Point first{}, last{}, firstResolution{}, lastResolution{}; // as measured
        Point trueFirst{}, trueLast{};
        double x = 0, y = 0, pupil = 0, trueX = 0, trueY = 0, truePupil = 0;
        double firstPupil = 0, lastPupil = 0;
        int count = 0;
        bool isLost = false; // the eye was not seen in all of them
    };
    struct End {
        EyeEvent kind;
        double time;
        Sums sums;
    };

    void endMovement();
    void writeEnds(double time);
    [[nodiscard]] EyeSummary summaryOf(const End &end) const;
    void tellTruth(const TrueEvent &event) const;

    Recorder &recorder_;
    const SessionOptions &options_;
    const SessionListener &listener_;
    Eyes which_;
    GazePlan plan_;
    Random noise_;
    VelocityMeter velocity_;
    double rhythm_ = 0; // where the pupil's rhythm begins, turns

    Movement movement_;
    double blockStart_ = 0;
    double blockEnd_ = 0;
    // At the sample at hand.
    bool isNew_ = false; // it is the first one of the movement
    bool isSeen_ = true;
    Point truePosition_{};
    Point position_{};
    double truePupil_ = 0;
    double pupil_ = 0; // whole

    bool isReported_ = false; // the start of a movement was written
    bool isBlinking_ = false; // the start of a blink was written
    double blinkStart_ = 0;
    Movement reported_;   // the one whose start was written last
    double lastTime_ = 0; // whole, of the sample before
    Sums sums_;
    std::vector<End> ends_; // not yet written
};

} // namespace trkwriter
