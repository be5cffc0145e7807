// What an eye does in a session: fixations in turn with saccades and blinks.
#pragma once

#include "random.h"
#include "trkwriter/session.h"

#include <array>

namespace trkwriter {

// A fixation, a saccade, or the lids that close and open again. Points are pixels from the display's centre.
struct Movement {
    EyeEvent kind = EyeEvent::Fixation;
    double start = 0; // ms
    double end = 0;   // the next movement starts here
    Point from{};
    Point to{}; // where it comes to by its end
    // Of a saccade.
    double amplitude = 0; // degrees
    double duration = 0;  // ms; the end is the sample behind
    // When the eye is not seen, in a blink, or in a fixation by fault of the tracker.
    double lostFrom = 0;
    double lostUntil = 0;
    bool isGap = false; // then no samples are recorded, of either eye
};

// The movements of one eye. Plans for the two eyes of a session draw the same numbers and so go side by side.
class GazePlan {
  public:
    // `grid`: all times are multiples of so many ms, the distance of samples or 1.
    GazePlan(const SessionOptions &options, Eyes eye, double grid);

    // Movements from here on lie in a recording block, and end with it. The first one is a fixation of its centre.
    void startBlock(double start, double end);

    // Not to be called for more than there is in the block.
    Movement next();

  private:
    static constexpr double kBurstStep = 20; // ms; bursts of dropout are multiples of it

    [[nodiscard]] double onGrid(double ms) const;
    [[nodiscard]] Point ownPoint(const Point &point) const { return {point.x + shift_, point.y}; }
    void converge();
    Movement fixation();
    Movement saccade();
    Movement blink();
    void planDropout(Movement &fixation, double length);
    Point nextTarget();

    SessionOptions options_;
    bool isRight_;
    double grid_;
    Random random_;
    Random dropouts_;
    double blockEnd_ = 0;
    bool isFixating_ = false;
    double time_ = 0; // where the movement at hand ends, if not for the lag of the right eye
    double lag_ = 0;  // of that eye there
    Point position_{0, 0};
    double shift_ = 0; // of this eye from there, pixels
    double nextBlink_ = 0;
    std::array<double, 2> owed_{}; // ms of dropout that the eyes have not had yet
    unsigned bursts_ = 0;
};

} // namespace trkwriter
