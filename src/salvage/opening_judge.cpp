#include "salvage/opening_judge.h"

#include "records/codes.h"
#include "records/event_fields.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace trk {

namespace {

std::string numbers(uint32_t one, uint32_t other) { return std::to_string(one) + " and " + std::to_string(other); }

std::string rateText(uint32_t rate) {
    constexpr double kRateUnit = 1.0 / 65536;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%g", rate * kRateUnit);
    return text.data();
}

// Of two values the one that others have too, when they have only one of them.
std::optional<uint32_t> supported(uint32_t one, uint32_t other, const std::map<uint32_t, std::size_t> &counts) {
    if (counts.contains(one) == counts.contains(other)) {
        return std::nullopt;
    }
    return counts.contains(one) ? one : other;
}

bool mayDivide(uint32_t divisor) { return divisor >= 1 && divisor <= 32767; }

} // namespace

const SeenStart *OpeningJudge::Opening::samples() const {
    return first->code == REC_STARTSAMPLES                         ? first
           : second != nullptr && second->code == REC_STARTSAMPLES ? second
                                                                   : nullptr;
}

OpeningJudge::OpeningJudge(const RecordWalk &walk)
    : walk_(walk), divisors_{{{EventField::StartPupilSize, &SeenStart::gazeDivisor, &Block::gazeInDoubt,
                               "gaze divisors"},
                              {EventField::EndPupilSize, &SeenStart::velocityDivisor, &Block::velocityInDoubt,
                               "velocity divisors"}}} {
    for (std::size_t i = 0; i < walk.starts.size(); ++i) {
        const SeenStart &start = walk.starts[i];
        Opening opening{.first = &start};
        if (i + 1 < walk.starts.size()) {
            const SeenStart &next = walk.starts[i + 1];
            if (next.offset == start.offset + start.length && next.code != start.code) {
                opening.second = &next;
                ++i;
            }
        }
        openings_.push_back(opening);
    }
    for (const SampleRun &run : walk.runs) {
        if (run.firstOfBlock) {
            firstRuns_[run.block] = &run;
        }
    }
    learn();
    for (const Opening &opening : openings_) {
        judge(opening);
    }
}

std::optional<uint32_t> OpeningJudge::firstSampleAt(uint32_t block) const {
    const Block *const found = find(block);
    const auto lead = leads_.find(0);
    const bool rightAtStart = lead != leads_.end() && lead->second > leads_.size(); // one damage may change one
    return found != nullptr && found->timeIsSure && rightAtStart ? std::optional(found->time) : std::nullopt;
}

std::optional<uint32_t> OpeningJudge::firstSampleTime(uint32_t block) const {
    const auto run = firstRuns_.find(block);
    return run != firstRuns_.end() && run->second->fullTime ? std::optional(TimeKey::time(run->second->firstKey))
                                                            : std::nullopt;
}

// What starts state that nothing contradicts.
void OpeningJudge::learn() {
    std::size_t equal = 0;
    std::size_t different = 0;
    for (const Opening &opening : openings_) {
        const SeenStart &one = *opening.first;
        const SeenStart &other = opening.second != nullptr ? *opening.second : one;
        for (Divisor &divisor : divisors_) {
            if (one.*divisor.value == other.*divisor.value) {
                ++divisor.counts[one.*divisor.value];
            }
        }
        if (one.rate == other.rate) {
            ++rates_[one.rate];
        }
        if (opening.second == nullptr) {
            continue;
        }
        ++(one.time == other.time ? equal : different);
        const SeenStart *const samples = opening.samples();
        const std::optional<uint32_t> first = firstSampleTime(samples->block);
        if (one.time == other.time && first) {
            ++leads_[int64_t{*first} - one.time];
        }
    }
    timesDiffer_ = different > std::max<std::size_t>(equal, 1);
}

void OpeningJudge::judge(const Opening &opening) {
    const SeenStart *const samples = opening.samples();
    if (samples != nullptr) {
        const SeenStart &last = opening.second != nullptr ? *opening.second : *samples;
        blocks_[samples->block] = {.start = samples,
                                   .begin = last.offset + last.length,
                                   .time = samples->time,
                                   .timeIsSure =
                                       opening.second != nullptr && opening.first->time == opening.second->time};
        judgeContent(*samples);
    }
    if (opening.second != nullptr) {
        judgeTime(opening);
        judgeRate(opening);
        for (const Divisor &divisor : divisors_) {
            judgeDivisor(opening, divisor);
        }
    } else if (samples != nullptr) {
        judgeTimeAlone(*samples);
    }
}

void OpeningJudge::contradict(const SeenStart &wrong, uint8_t field, uint32_t right, std::string text) {
    damages_.push_back({DamageKind::Implausible, wrong.offset, wrong.length, wrong.reference, std::move(text)});
    mends_.push_back({wrong.offset, wrong.length, field, right});
}

void OpeningJudge::doubt(const Opening &opening, std::string text) {
    const SeenStart &last = *opening.second;
    const int64_t end = last.offset + last.length;
    damages_.push_back({DamageKind::Implausible, opening.first->offset, end - opening.first->offset,
                        opening.first->reference, std::move(text) + ", and nothing tells which is right"});
}

void OpeningJudge::judgeTime(const Opening &opening) {
    const uint32_t one = opening.first->time;
    const uint32_t other = opening.second->time;
    const uint32_t block = opening.samples()->block;
    const std::optional<uint32_t> sample = firstSampleTime(block);
    const bool possible = !sample || std::max(one, other) <= *sample;
    if (one == other || (timesDiffer_ && possible)) {
        return;
    }
    const std::string text = "two starts of a block at different times, " + numbers(one, other) + " ms";
    if (!sample) {
        blocks_[block].timeInDoubt = true;
        doubt(opening, text);
        return;
    }
    const bool oneAsOthers = leads_.contains(int64_t{*sample} - one);
    const bool otherAsOthers = leads_.contains(int64_t{*sample} - other);
    // A start lies before the first sample of its block, and close to it.
    const bool later = (one <= *sample) == (other <= *sample) ? (one > other) == (one <= *sample) : one <= *sample;
    const bool first = oneAsOthers != otherAsOthers ? oneAsOthers : later;
    blocks_[block].time = first ? one : other;
    contradict(first ? *opening.second : *opening.first, EventField::StartTime, blocks_[block].time, text);
}

// What has no other start to go by must at least not lie in the block before, nor far from its first sample.
void OpeningJudge::judgeTimeAlone(const SeenStart &start) {
    const std::optional<uint32_t> sample = firstSampleTime(start.block);
    const auto run = firstRuns_.find(start.block);
    if (!sample) {
        return;
    }
    const uint32_t last = run->second != walk_.runs.data() ? TimeKey::time((run->second - 1)->lastKey) : 0;
    const bool within = start.time < last && last < *sample;
    if (within || StartReader::isFar(start.time, *sample)) {
        blocks_[start.block].time = *sample;
        blocks_[start.block].sampleInDoubt = !within;
        contradict(start, EventField::StartTime, *sample,
                   "a start of a block at a time that is not that of its samples");
    }
}

void OpeningJudge::judgeRate(const Opening &opening) {
    const SeenStart &one = *opening.first;
    const SeenStart &other = *opening.second;
    if (one.rate == other.rate || walk_.ratesAreFixed()) {
        return;
    }
    const std::string text = "two starts of a block with different sample rates, " + rateText(one.rate) + " and " +
                             rateText(other.rate);
    const std::optional<uint32_t> right =
        one.rateShown == other.rateShown ? one.rateShown : supported(one.rate, other.rate, rates_);
    if (right) {
        contradict(one.rate == *right ? other : one, EventField::EndTime, *right, text);
    } else {
        doubt(opening, text);
    }
}

void OpeningJudge::judgeDivisor(const Opening &opening, const Divisor &divisor) {
    const uint16_t one = opening.first->*divisor.value;
    const uint16_t other = opening.second->*divisor.value;
    if (one == other) {
        return;
    }
    const std::string text =
        std::string("two starts of a block with different ") + divisor.name + ", " + numbers(one, other);
    const std::optional<uint32_t> right = mayDivide(one) != mayDivide(other)
                                              ? std::optional<uint32_t>(mayDivide(one) ? one : other)
                                              : supported(one, other, divisor.counts);
    if (right) {
        contradict(one == *right ? *opening.second : *opening.first, divisor.field, *right, text);
    } else {
        blocks_[opening.samples()->block].*divisor.doubt = true;
        doubt(opening, text);
    }
}

void OpeningJudge::judgeContent(const SeenStart &start) {
    if (start.content != start.contentShown) {
        contradict(start, EventField::Status, start.contentShown,
                   "a start of samples that announces other samples than follow");
    }
}

} // namespace trk
