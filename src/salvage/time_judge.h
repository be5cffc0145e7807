// Decides on the times of samples that follow a break, by what confirms them.
#pragma once

#include "salvage/opening_judge.h"
#include "salvage/record_walk.h"

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace trk {

// Most samples carry only the distance to the one before. Events carry their times in full, and a tracker writes
// each kind of event at a steady distance from the sample beside it: that tie, learned from the sound part of the
// recording, tells the time of the samples behind a break.
class TimeJudge {
  public:
    TimeJudge(const RecordWalk &walk, const OpeningJudge &openings);

    struct Verdict {
        bool known = false;       // the times of the run's samples are
        bool wrong = false;       // a reader who reads straight on has them wrong, although no record is missing
        int confirmed = 0;        // events that the times agree with
        int64_t shift = 0;        // to be added to the keys that such a reader has
        int64_t trustedUntil = 0; // of the unknown ones, those before this offset are as read
        bool skipFirst = false;   // the first sample shares its time with one that is lost
    };
    [[nodiscard]] const std::vector<Verdict> &runs() const { return verdicts_; }

    // Whether the time of an event disagrees with a tie that all others of its kind keep.
    [[nodiscard]] bool isOff(const SeenEvent &event) const;

  private:
    // The distance of the sample beside an event from the event's time lies in [lowest, lowest + width), in keys.
    struct Tie {
        int64_t lowest = 0;
        double width = 0;
        double share = 0;      // of the events that keep it
        bool isStrict = false; // one that does not keep it is wrong

        [[nodiscard]] bool isReliable() const;
        [[nodiscard]] bool holds(int64_t distance) const {
            return distance >= lowest && static_cast<double>(distance - lowest) < width;
        }
    };
    static constexpr std::size_t kKinds = 128; // code and eye

    struct Vote {
        int64_t distance; // as a reader has it who reads straight on
        const Tie *tie;
        int64_t offset; // of the event
    };

    [[nodiscard]] static std::size_t kindOf(const SeenEvent &event) { return event.code * 2U + event.eye; }
    [[nodiscard]] static int64_t distanceOf(const SeenEvent &event);
    void learn();
    void countKept();
    void judgeRun(std::size_t number, const std::vector<Vote> &votes);
    void judgeBroken(std::size_t number, const std::vector<Vote> &votes, Verdict &verdict);
    void judgeWhole(std::size_t number, const std::vector<Vote> &votes, Verdict &verdict);
    void doubtBefore(std::size_t number);
    static bool findHiddenBreak(const std::vector<Vote> &votes, Verdict &verdict);
    void noteKnownBefore(std::size_t number);

    // What the samples of a run are counted from.
    struct Anchor {
        SampleClock clock;  // at the sample before
        int64_t key = 0;    // of that sample
        int64_t shift = 0;  // of the run that it ends
        int64_t behind = 0; // by so many samples the run would follow if no bytes were lost
        bool isNext = true; // nothing but the lost bytes lies between
    };
    [[nodiscard]] std::optional<Anchor> anchorOf(std::size_t number) const;

    const RecordWalk &walk_;
    const OpeningJudge &openings_;
    std::vector<std::size_t> knownBefore_; // for each run, one more than the last known run before it in its block
    std::array<Tie, kKinds> ties_;
    std::vector<Verdict> verdicts_;
};

} // namespace trk
