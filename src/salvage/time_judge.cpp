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

// A run that was broken by lost bytes, but not of so many more than its records took.
constexpr int64_t kFewBytes = 8;

} // namespace

bool TimeJudge::Tie::isReliable() const { return share >= kReliableShare; }

// From the event's time to the sample behind it, for ends of blocks to the one before it.
int64_t TimeJudge::distanceOf(const SeenEvent &event) {
    return static_cast<int64_t>(event.sampleKey) - static_cast<int64_t>(TimeKey::of(event.time));
}

TimeJudge::TimeJudge(const RecordWalk &walk) : walk_(walk), verdicts_(walk.runs.size()) {
    learn();
    std::vector<std::vector<Vote>> votes(walk.runs.size());
    for (const SeenEvent &event : walk.events) {
        const Tie &tie = ties_[kindOf(event)];
        if (event.run != SeenEvent::kNoRun && tie.isReliable()) {
            votes[event.run].push_back({distanceOf(event), &tie});
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

std::optional<std::size_t> TimeJudge::lastKnownBefore(std::size_t number) const {
    const uint32_t block = walk_.runs[number].block;
    while (number-- > 0 && walk_.runs[number].block == block) {
        if (verdicts_[number].known) {
            return number;
        }
    }
    return std::nullopt;
}

void TimeJudge::judgeRun(std::size_t number, const std::vector<Vote> &votes) {
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
    const std::optional<std::size_t> before = lastKnownBefore(number);
    const double period = run.clock.period();
    if (!before || period <= 0) {
        return;
    }
    const SampleRun &known = walk_.runs[*before];
    const int64_t knownShift = verdicts_[*before].shift;
    const double keysPerSample = period * static_cast<double>(TimeKey::kPerMillisecond);
    const int64_t origin = static_cast<int64_t>(known.lastKey) + knownShift;
    std::map<int64_t, int> counts; // by the number of samples
    for (const auto &[distance, tie] : votes) {
        // The smallest shift that the tie allows; the grid of samples has one place in its width.
        const int64_t shift = tie->lowest - distance;
        const int64_t firstKey = static_cast<int64_t>(run.firstKey) + shift;
        const auto steps =
            static_cast<int64_t>(std::ceil(static_cast<double>(firstKey - origin) / keysPerSample - 1e-6));
        ++counts[steps];
    }
    if (counts.empty()) {
        return;
    }
    const auto best = std::ranges::max_element(counts, {}, [](const auto &entry) { return entry.second; });
    int support = best->second;
    const int64_t size = std::max(run.sampleSize, 1U);
    const int64_t records = (run.lostBytes + size / 2) / size;
    if (*before + 1 == number && std::abs(run.lostBytes - records * size) <= kFewBytes) {
        support += records + 1 == best->first ? 1 : 0;
    }
    // More time than the lost bytes can have held: a block may have ended there, and another started, whose
    // samples are to be decoded in another way.
    if (walk_.blocksDiffer && best->first > records + 1) {
        return;
    }
    const bool agreed = support >= kLeastVotes && best->second >= kLeastShare * static_cast<double>(votes.size());
    if (!agreed || best->first < 1) {
        return;
    }
    const int64_t shiftedTime = static_cast<int64_t>(known.clock.timeAfter(best->first)) +
                                knownShift / static_cast<int64_t>(TimeKey::kPerMillisecond);
    verdict.known = true;
    verdict.confirmed = support;
    verdict.shift = 2 * shiftedTime - static_cast<int64_t>(TimeKey::of(TimeKey::time(run.firstKey)));
    // Of two samples in one millisecond, the second one alone would pass for the first.
    verdict.skipFirst = known.clock.timeAfter(best->first - 1) == known.clock.timeAfter(best->first);
}

// Nothing is missing before the run: unless most of what confirms its times says otherwise, they are as read.
void TimeJudge::judgeWhole(std::size_t number, const std::vector<Vote> &votes, Verdict &verdict) {
    const SampleRun &run = walk_.runs[number];
    const bool chained = !run.fullTime && number > 0 && walk_.runs[number - 1].block == run.block;
    verdict.known = !chained || verdicts_[number - 1].known;
    verdict.shift = chained ? verdicts_[number - 1].shift : 0;
    std::map<int64_t, int> others;
    for (const auto &[distance, tie] : votes) {
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
}

// What made the times of a run wrong may lie before other runs, which nothing confirms.
void TimeJudge::doubtBefore(std::size_t number) {
    while (number > 0 && !walk_.runs[number].fullTime && verdicts_[number - 1].confirmed == 0 &&
           walk_.runs[number - 1].block == walk_.runs[number].block) {
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
