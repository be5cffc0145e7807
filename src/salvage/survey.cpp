#include "salvage/survey.h"

#include "records/codes.h"
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
        : walk_(walk), options_(options), times_(walk), cuts_(walk.cuts), survey_{std::move(walk.damages), {}} {}

    Survey make() {
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

    void judgeRuns() {
        for (std::size_t number = 0; number < walk_.runs.size(); ++number) {
            const SampleRun &run = walk_.runs[number];
            const TimeJudge::Verdict &verdict = times_.runs()[number];
            if (!verdict.known) {
                report(DamageKind::Implausible, run.begin, run.end, run.firstKey,
                       "samples whose times nothing confirms");
                cuts_.push_back({run.begin, run.end});
                continue;
            }
            if (verdict.wrong) {
                report(DamageKind::Implausible, run.begin, run.begin, run.firstKey,
                       "a time that all that follows contradicts");
            }
            if (verdict.shift != 0 || run.isBroken) {
                const auto key = static_cast<uint64_t>(static_cast<int64_t>(run.firstKey) + verdict.shift);
                restamps_.emplace_back(run.begin, TimeKey::time(key));
            }
        }
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
        std::ranges::sort(cuts_, {}, &RecordWalk::Cut::begin);
        int64_t begin = options_.begin;
        for (const auto &[cutBegin, cutEnd] : cuts_) {
            keep(begin, cutBegin);
            begin = std::max(begin, cutEnd);
        }
        keep(begin, walk_.end);
    }

    // Splits a stretch where samples get their time in full.
    void keep(int64_t begin, int64_t end) {
        while (nextRestamp_ < restamps_.size() && restamps_[nextRestamp_].first < end) {
            const auto [offset, time] = restamps_[nextRestamp_++];
            if (offset < begin) {
                continue;
            }
            if (offset > begin) {
                add({.begin = begin, .end = offset});
            }
            pending_ = time;
            begin = offset;
        }
        if (begin < end) {
            add({.begin = begin, .end = end});
        }
        pending_.reset();
    }

    void add(KeptPiece piece) {
        if (pending_) {
            piece.restamp = true;
            piece.time = *std::exchange(pending_, std::nullopt);
        }
        survey_.kept.push_back(piece);
    }

    RecordWalk &walk_;
    const SurveyOptions &options_;
    TimeJudge times_;
    std::vector<RecordWalk::Cut> cuts_;
    std::vector<std::pair<int64_t, uint32_t>> restamps_;
    std::size_t nextRestamp_ = 0;
    std::optional<uint32_t> pending_; // the time of the sample with which the next piece begins
    Survey survey_;
};

} // namespace

Survey surveyRecords(InputStream &stream, const SurveyOptions &options) {
    RecordWalk walk(stream, options);
    walk.run();
    return SurveyMaker(walk, options).make();
}

} // namespace trk
