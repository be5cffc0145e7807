#include "salvage/survey.h"

#include "records/codes.h"
#include "records/event_fields.h"
#include "salvage/opening_judge.h"
#include "salvage/record_walk.h"
#include "salvage/time_judge.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <utility>

namespace trk {

namespace {

// Finds the events whose form or times are not what all others of their kind show.
class OddEvents {
  public:
    OddEvents(const RecordWalk &walk, const TimeJudge &times) : walk_(walk), times_(times) {
        for (const SeenEvent &event : walk.events) {
            ++forms_[{event.code, event.fields}];
            ++kinds_[event.code];
        }
        followStarts();
    }

    // Why an event cannot be; null for one that can.
    [[nodiscard]] const char *reason(std::size_t number) const {
        const SeenEvent &event = walk_.events[number];
        if (times_.isOff(event)) {
            return "an event whose time is not that of the samples around it";
        }
        const auto &starts = starts_[event.code];
        if (starts.pairs >= kEnough &&
            static_cast<double>(starts.agree) >= kShare * static_cast<double>(starts.pairs) &&
            std::ranges::binary_search(starts.odd, number)) {
            return "an end of an eye event whose start was at another time";
        }
        const auto form = forms_.find({event.code, event.fields});
        const std::size_t others = kinds_.at(event.code) - form->second;
        if (form->second == 1 && others >= kEnough && formsOf(event.code) == 2) {
            return "an event with fields that no other of its kind has";
        }
        return nullptr;
    }

  private:
    static constexpr std::size_t kEnough = 20;
    static constexpr double kShare = 0.97;

    struct Starts {
        std::size_t pairs = 0;
        std::size_t agree = 0;
        std::vector<std::size_t> odd; // ends that do not agree with their start
    };

    // An end of an eye event repeats the time of its start.
    void followStarts() {
        std::map<std::pair<unsigned, unsigned>, uint32_t> open; // by the code of the end, and eye
        for (std::size_t number = 0; number < walk_.events.size(); ++number) {
            const SeenEvent &event = walk_.events[number];
            if (kBlockStarts.contains(event.code)) {
                open.clear();
            } else if (kEyeEventStarts.contains(event.code)) {
                open[{event.code + 1U, event.eye}] = event.start;
            } else if (kEyeEventEnds.contains(event.code)) {
                const auto start = open.find({event.code, event.eye});
                if (start == open.end()) {
                    continue;
                }
                Starts &starts = starts_[event.code];
                ++starts.pairs;
                if (start->second == event.start) {
                    ++starts.agree;
                } else {
                    starts.odd.push_back(number);
                }
                open.erase(start);
            }
        }
    }

    [[nodiscard]] std::size_t formsOf(unsigned code) const {
        const auto first = forms_.lower_bound({code, 0});
        const auto last = forms_.upper_bound({code, 0xFFFFFFFF});
        return static_cast<std::size_t>(std::distance(first, last));
    }

    const RecordWalk &walk_;
    const TimeJudge &times_;
    std::map<std::pair<unsigned, uint32_t>, std::size_t> forms_;
    std::map<unsigned, std::size_t> kinds_;
    std::array<Starts, 64> starts_;
};

class SurveyMaker {
  public:
    SurveyMaker(RecordWalk &walk, const SurveyOptions &options)
        : walk_(walk), options_(options), openings_(walk), times_(confirmedTimes()),
          cuts_(walk.cuts), survey_{std::move(walk.damages), {}} {}

    Survey make() {
        judgeOpenings();
        judgeRuns();
        judgeEvents();
        std::ranges::stable_sort(survey_.damages, {}, &Damage::offset);
        keepTheRest();
        return std::move(survey_);
    }

  private:
    void report(DamageKind kind, int64_t begin, int64_t end, uint64_t key, const char *text) {
        survey_.damages.push_back({kind, begin, end - begin, TimeKey::time(key), text});
    }

    // Where the start of a block is in doubt, so is a first sample that goes by it.
    TimeJudge confirmedTimes() {
        for (SampleRun &run : walk_.runs) {
            const OpeningJudge::Block *const block = openings_.find(run.block);
            if (run.firstOfBlock && block != nullptr && block->timeInDoubt) {
                run.isBroken = run.afterBreak = true;
            }
        }
        TimeJudge times(walk_, openings_);
        bool changed = false;
        for (std::size_t number = 0; number < walk_.runs.size(); ++number) {
            SampleRun &run = walk_.runs[number];
            const OpeningJudge::Block *const block = openings_.find(run.block);
            const bool inDoubt = run.firstOfBlock && block != nullptr && block->sampleInDoubt;
            if ((inDoubt || startsEarly(run, times.runs()[number])) && times.runs()[number].confirmed == 0) {
                run.isBroken = run.afterBreak = changed = true;
            }
        }
        return changed ? TimeJudge(walk_, openings_) : times;
    }

    // Whether the samples of a block begin before it.
    [[nodiscard]] bool startsEarly(const SampleRun &run, const TimeJudge::Verdict &verdict) const {
        const OpeningJudge::Block *const block = openings_.find(run.block);
        return run.firstOfBlock && block != nullptr &&
               static_cast<int64_t>(run.firstKey) + verdict.shift < static_cast<int64_t>(TimeKey::of(block->time));
    }

    void judgeOpenings() {
        for (const OpeningJudge::Mend &mend : openings_.mends()) {
            this->mend(mend);
        }
        std::ranges::copy(openings_.damages(), std::back_inserter(survey_.damages));
        for (const auto &[number, block] : openings_.blocks()) {
            if (block.gazeInDoubt || block.velocityInDoubt) {
                leaveOutScaled(number, block);
            }
        }
    }

    // Leaves out the eye events of a block, and its samples when they carry what is scaled by the divisor of gaze.
    void leaveOutScaled(uint32_t number, const OpeningJudge::Block &block) {
        constexpr uint16_t kScaled = TRK_SAMPLE_GAZE | TRK_SAMPLE_RESOLUTION;
        const bool samples = block.gazeInDoubt && (block.start->contentShown & kScaled) != 0;
        const auto next = openings_.blocks().upper_bound(number);
        const int64_t last = next != openings_.blocks().end() ? next->second.start->offset : walk_.end;
        int64_t from = block.begin; // of what is left out
        int64_t end = block.begin;  // of what is scaled
        const auto behind = std::ranges::upper_bound(walk_.runs, number, {}, &SampleRun::block);
        if (behind != walk_.runs.begin() && (behind - 1)->block == number) {
            end = (behind - 1)->end;
        }
        auto event = std::ranges::lower_bound(walk_.events, block.begin, {}, &SeenEvent::offset);
        for (; event != walk_.events.end() && event->offset < last; ++event) {
            const int64_t eventEnd = event->offset + event->length;
            if (kEyeEvents.contains(event->code)) {
                cuts_.push_back({event->offset, eventEnd});
                end = std::max(end, eventEnd);
            } else {
                if (samples) {
                    cuts_.push_back({from, event->offset});
                }
                from = eventEnd;
            }
        }
        if (samples && from < end) {
            cuts_.push_back({from, end});
        }
        report(DamageKind::Implausible, block.begin, end, TimeKey::of(block.time),
               samples ? "samples and eye events that are scaled by what is not known"
                       : "eye events that are scaled by what is not known");
    }

    void judgeRuns() {
        for (std::size_t number = 0; number < walk_.runs.size(); ++number) {
            const SampleRun &run = walk_.runs[number];
            const TimeJudge::Verdict &verdict = times_.runs()[number];
            if (!verdict.known) {
                leaveOut(run, verdict);
                continue;
            }
            if (startsEarly(run, verdict)) {
                judgeStart(run, verdict);
            }
            if (verdict.wrong) {
                report(DamageKind::Implausible, run.begin, run.begin, run.firstKey,
                       "a time that all that follows contradicts");
            }
            if (verdict.shift != 0 || run.isBroken) {
                restamp(run, verdict);
            }
        }
    }

    // All of a run, or what lies behind the last event that confirms its times.
    void leaveOut(const SampleRun &run, const TimeJudge::Verdict &verdict) {
        const int64_t begin = std::max(run.begin, verdict.trustedUntil);
        report(DamageKind::Implausible, begin, run.end, run.firstKey, "samples whose times nothing confirms");
        cuts_.push_back({begin, run.end});
        if (begin > run.begin && verdict.shift != 0) {
            restamp(run, verdict);
        }
    }

    void restamp(const SampleRun &run, const TimeJudge::Verdict &verdict) {
        const auto key = static_cast<uint64_t>(static_cast<int64_t>(run.firstKey) + verdict.shift);
        KeptPiece change{.begin = run.begin, .end = run.begin, .restamp = true, .time = TimeKey::time(key)};
        if (verdict.skipFirst) {
            const int64_t behind = run.begin + static_cast<int64_t>(walk_.recordAt(run.begin).length);
            int64_t second = behind;
            while (second < run.end && !walk_.recordAt(second).isSample()) {
                second += static_cast<int64_t>(walk_.recordAt(second).length);
            }
            if (second < run.end) {
                cuts_.push_back({run.begin, behind});
                change.begin = change.end = second;
                change.time += walk_.recordAt(second).time;
            }
        }
        changes_.push_back(std::move(change));
    }

    // A block whose samples begin before it, at times that events confirm.
    void judgeStart(const SampleRun &run, const TimeJudge::Verdict &verdict) {
        const SeenStart &start = *openings_.find(run.block)->start;
        report(DamageKind::Implausible, start.offset, start.offset + start.length, TimeKey::of(start.reference),
               "a block that starts behind its first sample");
        const auto key = static_cast<uint64_t>(static_cast<int64_t>(run.firstKey) + verdict.shift);
        mend({start.offset, start.length, EventField::StartTime, TimeKey::time(key)});
    }

    void mend(const OpeningJudge::Mend &mend) {
        KeptPiece &start = starts_[mend.offset];
        start.begin = mend.offset;
        start.end = mend.offset + mend.length;
        start.instead = withField(start.instead.empty() ? walk_.bytesAt(mend.offset, mend.length) : start.instead,
                                  mend.field, mend.value);
    }

    void judgeEvents() {
        const OddEvents odd(walk_, times_);
        for (std::size_t number = 0; number < walk_.events.size(); ++number) {
            const SeenEvent &event = walk_.events[number];
            if (const char *const reason = odd.reason(number)) {
                const int64_t end = event.offset + event.length;
                report(DamageKind::Implausible, event.offset, end, TimeKey::of(event.time), reason);
                // What all samples of a block go by stays, be its time what it may.
                if (!kBlockBoundaries.contains(event.code)) {
                    cuts_.push_back({event.offset, end});
                }
            }
        }
    }

    void keepTheRest() {
        for (auto &[offset, start] : starts_) {
            changes_.push_back(std::move(start));
        }
        std::ranges::sort(changes_, {}, &KeptPiece::begin);
        std::ranges::sort(cuts_, {}, &RecordWalk::Cut::begin);
        int64_t begin = options_.begin;
        for (const auto &[cutBegin, cutEnd] : cuts_) {
            keep(begin, cutBegin);
            begin = std::max(begin, cutEnd);
        }
        keep(begin, walk_.end);
    }

    // Splits a stretch where samples get their time in full, and where starts of blocks are mended.
    void keep(int64_t begin, int64_t end) {
        KeptPiece piece{.begin = begin, .end = end};
        for (; nextChange_ < changes_.size() && changes_[nextChange_].begin < end; ++nextChange_) {
            KeptPiece &change = changes_[nextChange_];
            if (change.begin < piece.begin) {
                continue; // in what is left out
            }
            add(piece, change.begin);
            piece = {.begin = change.begin, .end = end, .restamp = change.restamp, .time = change.time};
            if (!change.instead.empty()) {
                piece.begin = change.end;
                survey_.kept.push_back(std::move(change));
            }
        }
        add(piece, end);
    }

    void add(KeptPiece piece, int64_t end) {
        if (piece.begin < end) {
            piece.end = end;
            survey_.kept.push_back(std::move(piece));
        }
    }

    RecordWalk &walk_;
    const SurveyOptions &options_;
    OpeningJudge openings_;
    TimeJudge times_;
    std::vector<RecordWalk::Cut> cuts_;
    std::map<int64_t, KeptPiece> starts_; // that are mended, by offset
    std::vector<KeptPiece> changes_;      // those, and where a sample gets its time in full, whose ends are open
    std::size_t nextChange_ = 0;
    Survey survey_;
};

} // namespace

Survey surveyRecords(InputStream &stream, const SurveyOptions &options) {
    RecordWalk walk(stream, options);
    walk.run();
    return SurveyMaker(walk, options).make();
}

} // namespace trk
