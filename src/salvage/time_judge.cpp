#include "salvage/time_judge.h"

#include "records/codes.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>

namespace trk {

namespace {

// A tie that is none holds for a small part of the events. One that is holds for all but those behind a damage.
constexpr double kReliableShare = 0.6;
constexpr std::size_t kReliableCount = 8;
constexpr std::size_t kReliableBoundaries = 3; // there are few of them
constexpr double kStrictShare = 0.97;
constexpr std::size_t kStrictCount = 20;

// Of the confirmations of a broken run, so many must agree, and so large a share.
constexpr int kLeastVotes = 2;
constexpr double kLeastShare = 0.75;

// Of events that agree on other times than those of the records before, so many are no accident.
constexpr std::size_t kVotesBehindBreak = 3;

// A run that was broken by lost bytes, but not of so many more than its records took.
constexpr int64_t kFewBytes = 8;

} // namespace

bool TimeJudge::Tie::isReliable() const { return share >= kReliableShare; }

// From the event's time to the sample behind it, for ends of blocks to the one before it.
int64_t TimeJudge::distanceOf(const SeenEvent &event) {
    return static_cast<int64_t>(event.sampleKey) - static_cast<int64_t>(TimeKey::of(event.time));
}

TimeJudge::TimeJudge(const RecordWalk &walk, const OpeningJudge &openings)
    : walk_(walk), openings_(openings), knownBefore_(walk.runs.size()), verdicts_(walk.runs.size()) {
    learn();
    std::vector<std::vector<Vote>> votes(walk.runs.size());
    for (const SeenEvent &event : walk.events) {
        const Tie &tie = ties_[kindOf(event)];
        if (event.run != SeenEvent::kNoRun && tie.isReliable()) {
            votes[event.run].push_back({distanceOf(event), &tie, event.offset});
        }
    }
    for (std::size_t number = 0; number < verdicts_.size(); ++number) {
        judgeRun(number, votes[number]);
    }
    countKept();
}

// How many events keep the ties, now that the times of the samples are known.
void TimeJudge::countKept() {
    std::array<std::size_t, kKinds> seen{};
    std::array<std::size_t, kKinds> kept{};
    for (const SeenEvent &event : walk_.events) {
        if (event.run != SeenEvent::kNoRun && verdicts_[event.run].known) {
            const std::size_t kind = kindOf(event);
            ++seen[kind];
            kept[kind] += ties_[kind].holds(distanceOf(event) + verdicts_[event.run].shift) ? 1 : 0;
        }
    }
    for (std::size_t kind = 0; kind < kKinds; ++kind) {
        const double share =
            static_cast<double>(kept[kind]) / static_cast<double>(std::max<std::size_t>(seen[kind], 1));
        ties_[kind].isStrict = share >= kStrictShare && kept[kind] >= kStrictCount;
    }
}

void TimeJudge::learn() {
    struct Seen {
        std::vector<int64_t> distances;
        double period = 0;
    };
    std::array<Seen, kKinds> seen;
    for (const SeenEvent &event : walk_.events) {
        if (event.run != SeenEvent::kNoRun && !walk_.runs[event.run].afterBreak) {
            Seen &kind = seen[kindOf(event)];
            kind.distances.push_back(distanceOf(event));
            kind.period = std::max(kind.period, walk_.runs[event.run].clock.period());
        }
    }
    for (std::size_t number = 0; number < kKinds; ++number) {
        auto &[distances, period] = seen[number];
        const bool boundary = kBlockBoundaries.contains(static_cast<unsigned>(number / 2));
        if (period <= 0 || distances.size() < (boundary ? kReliableBoundaries : kReliableCount)) {
            continue;
        }
        Tie &tie = ties_[number];
        tie.width = std::max(1.0, period * static_cast<double>(TimeKey::kPerMillisecond));
        std::ranges::sort(distances);
        std::size_t most = 0;
        std::size_t first = 0;
        for (std::size_t last = 0; last < distances.size(); ++last) {
            while (static_cast<double>(distances[last] - distances[first]) >= tie.width) {
                ++first;
            }
            if (last - first + 1 > most) {
                most = last - first + 1;
                tie.lowest = distances[first];
            }
        }
        tie.share = static_cast<double>(most) / static_cast<double>(distances.size());
    }
}

// Goes from one unknown run to what was the last known one before it, which may have become unknown since.
void TimeJudge::noteKnownBefore(std::size_t number) {
    const uint32_t block = walk_.runs[number].block;
    std::size_t before = number;
    while (before > 0 && walk_.runs[before - 1].block == block && !verdicts_[before - 1].known) {
        before = knownBefore_[before - 1];
    }
    knownBefore_[number] = before > 0 && walk_.runs[before - 1].block == block ? before : 0;
}

// The last known sample of the block; where none is, its start, if first samples are known to lie there.
std::optional<TimeJudge::Anchor> TimeJudge::anchorOf(std::size_t number) const {
    const SampleRun &run = walk_.runs[number];
    if (const std::size_t before = knownBefore_[number]) {
        const SampleRun &known = walk_.runs[before - 1];
        const int64_t shift = verdicts_[before - 1].shift;
        return Anchor{known.clock, static_cast<int64_t>(known.lastKey) + shift, shift, 1, before == number};
    }
    const std::optional<uint32_t> start = openings_.firstSampleAt(run.block);
    const double keys = run.clock.period() * static_cast<double>(TimeKey::kPerMillisecond);
    if (!start || keys <= 0 || keys != std::floor(keys)) {
        return std::nullopt;
    }
    Anchor anchor{.key = static_cast<int64_t>(TimeKey::of(*start)), .isNext = run.firstOfBlock};
    anchor.clock.start(run.clock.period(), *start);
    return anchor;
}

void TimeJudge::judgeRun(std::size_t number, const std::vector<Vote> &votes) {
    noteKnownBefore(number);
    Verdict &verdict = verdicts_[number];
    const SampleRun &run = walk_.runs[number];
    const bool hangsOnUnknown =
        number > 0 && !run.fullTime && walk_.runs[number - 1].block == run.block && !verdicts_[number - 1].known;
    if (run.isBroken || hangsOnUnknown) {
        judgeBroken(number, votes, verdict);
    } else {
        judgeWhole(number, votes, verdict);
    }
}

// Records are missing before the run: by how many samples it lies behind the last known one.
void TimeJudge::judgeBroken(std::size_t number, const std::vector<Vote> &votes, Verdict &verdict) {
    const SampleRun &run = walk_.runs[number];
    const std::optional<Anchor> anchor = anchorOf(number);
    const double period = run.clock.period();
    if (!anchor || period <= 0) {
        return;
    }
    const double keysPerSample = period * static_cast<double>(TimeKey::kPerMillisecond);
    std::map<int64_t, int> counts; // by the number of samples
    for (const auto &[distance, tie, offset] : votes) {
        // The smallest shift that the tie allows; the grid of samples has one place in its width.
        const int64_t shift = tie->lowest - distance;
        const int64_t firstKey = static_cast<int64_t>(run.firstKey) + (run.clock.startsLate() ? 1 : 0) + shift;
        const auto steps =
            static_cast<int64_t>(std::ceil(static_cast<double>(firstKey - anchor->key) / keysPerSample - 1e-6));
        ++counts[steps];
    }
    if (counts.empty()) {
        return;
    }
    const auto best = std::ranges::max_element(counts, {}, [](const auto &entry) { return entry.second; });
    int support = best->second;
    const int64_t size = std::max(run.sampleSize, 1U);
    const int64_t records = (run.lostBytes + size / 2) / size;
    if (anchor->isNext && std::abs(run.lostBytes - records * size) <= kFewBytes) {
        support += records + anchor->behind == best->first ? 1 : 0;
    }
    // More time than the lost bytes can have held: a block may have ended there, and another started, whose
    // samples are to be decoded in another way.
    if (walk_.blocksDiffer && best->first > records + anchor->behind) {
        return;
    }
    const bool agreed = support >= kLeastVotes && best->second >= kLeastShare * static_cast<double>(votes.size());
    if (!agreed || best->first < anchor->behind) {
        return;
    }
    const int64_t shiftedTime = static_cast<int64_t>(anchor->clock.timeAfter(best->first)) +
                                anchor->shift / static_cast<int64_t>(TimeKey::kPerMillisecond);
    verdict.known = true;
    verdict.confirmed = support;
    verdict.shift = 2 * shiftedTime - static_cast<int64_t>(TimeKey::of(TimeKey::time(run.firstKey)));
    // Of two samples in one millisecond, the second one alone would pass for the first.
    verdict.skipFirst = run.clock.startsLate();
}

// Records may be missing within a run where what is left happens to fit together: from some event on none confirms
// the times any more, and all agree on others.
bool TimeJudge::findHiddenBreak(const std::vector<Vote> &votes, Verdict &verdict) {
    const auto holds = [&](const Vote &vote) { return vote.tie->holds(vote.distance + verdict.shift); };
    const auto last = std::find_if(votes.rbegin(), votes.rend(), holds);
    const auto behind = static_cast<std::size_t>(last - votes.rbegin());
    if (last == votes.rend() || behind < kVotesBehindBreak) {
        return false;
    }
    auto lowest = static_cast<double>(votes.back().tie->lowest - votes.back().distance);
    double highest = lowest + votes.back().tie->width;
    bool oneKind = true;
    for (auto vote = votes.rbegin(); vote != last; ++vote) {
        const auto shift = static_cast<double>(vote->tie->lowest - vote->distance);
        lowest = std::max(lowest, shift);
        highest = std::min(highest, shift + vote->tie->width);
        oneKind = oneKind && vote->tie == votes.back().tie;
    }
    if (lowest >= highest || oneKind) {
        return false;
    }
    verdict.known = false;
    verdict.trustedUntil = last->offset;
    return true;
}

// Nothing is missing before the run: unless most of what confirms its times says otherwise, they are as read.
void TimeJudge::judgeWhole(std::size_t number, const std::vector<Vote> &votes, Verdict &verdict) {
    const SampleRun &run = walk_.runs[number];
    const bool chained = !run.fullTime && number > 0 && walk_.runs[number - 1].block == run.block;
    verdict.known = !chained || verdicts_[number - 1].known;
    verdict.shift = chained ? verdicts_[number - 1].shift : 0;
    if (findHiddenBreak(votes, verdict)) {
        return;
    }
    std::map<int64_t, int> others;
    for (const auto &[distance, tie, offset] : votes) {
        if (tie->holds(distance + verdict.shift)) {
            ++verdict.confirmed;
        } else {
            ++others[tie->lowest - distance];
        }
    }
    if (others.empty()) {
        return;
    }
    const auto best = std::ranges::max_element(others, {}, [](const auto &entry) { return entry.second; });
    if (best->second < kLeastVotes || best->second <= 2 * verdict.confirmed) {
        return;
    }
    doubtBefore(number);
    verdict.wrong = true;
    verdict.confirmed = best->second;
    verdict.known = best->second >= kLeastShare * static_cast<double>(votes.size()) &&
                    votes.front().tie->width <= static_cast<double>(TimeKey::kPerMillisecond);
    verdict.shift = best->first;
    if (!verdict.known) {
        // The events leave more than one place; the samples before leave one of these.
        noteKnownBefore(number);
        judgeBroken(number, votes, verdict);
    }
}

// What made the times of a run wrong may lie before other runs, which nothing confirms.
void TimeJudge::doubtBefore(std::size_t number) {
    while (number > 0 && !walk_.runs[number].fullTime && verdicts_[number - 1].confirmed == 0 &&
           verdicts_[number - 1].known && walk_.runs[number - 1].block == walk_.runs[number].block) {
        verdicts_[--number].known = false;
    }
}

bool TimeJudge::isOff(const SeenEvent &event) const {
    const Tie &tie = ties_[kindOf(event)];
    if (event.run == SeenEvent::kNoRun || !tie.isStrict) {
        return false;
    }
    const Verdict &verdict = verdicts_[event.run];
    return verdict.known && !tie.holds(distanceOf(event) + verdict.shift);
}

} // namespace trk
