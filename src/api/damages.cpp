#include "api/damages.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

namespace trk {

namespace {

constexpr int64_t kNoOffset = -1;
constexpr uint32_t kNoTime = 0; // of a damage: the items around it tell

int kindOf(DamageKind kind) {
    switch (kind) {
    case DamageKind::Cut:
        return TRK_DAMAGE_CUT;
    case DamageKind::UnreadableRecord:
        return TRK_DAMAGE_UNREADABLE;
    case DamageKind::Implausible:
        return TRK_DAMAGE_IMPLAUSIBLE;
    case DamageKind::EarlyEndMark:
        return TRK_DAMAGE_EARLY_END;
    case DamageKind::CompressedData:
        return TRK_DAMAGE_COMPRESSED_DATA;
    case DamageKind::Checksum:
        return TRK_DAMAGE_CHECKSUM;
    case DamageKind::BlockEndMissing:
        return TRK_DAMAGE_BLOCK_END_MISSING;
    case DamageKind::BehindEnd:
        return TRK_DAMAGE_BEHIND_END;
    }
    return 0;
}

TRK_DAMAGE repair(int kind, int64_t count, int64_t length, const char *what) {
    TRK_DAMAGE entry{};
    entry.kind = kind;
    entry.offset = kNoOffset;
    entry.length = length;
    entry.count = count;
    std::snprintf(entry.text, sizeof(entry.text), "%s: %lld", what, static_cast<long long>(count));
    return entry;
}

// For each of some rising offsets, the first item in the order of the walk whose record stands there or behind.
// Only samples stand in order; where there are none, events must do.
class ItemFinder {
  public:
    explicit ItemFinder(const ItemIndex &index)
        : index_(index), hasSamples_(std::ranges::any_of(index.items(), &Item::isSample)) {}

    ItemNumber firstFrom(int64_t offset) {
        while (place_ < index_.size() && !isFrom(index_[place_], offset)) {
            ++place_;
        }
        return place_;
    }

    // Of the last item before one; kNoTime when there is none.
    [[nodiscard]] uint32_t timeBefore(ItemNumber number) const {
        while (number > 0 && index_[number - 1].isRecordingBlock()) {
            --number;
        }
        return number > 0 ? TimeKey::time(index_[number - 1].key) : kNoTime;
    }

  private:
    [[nodiscard]] bool isFrom(const Item &item, int64_t offset) const {
        return (item.isSample() || !hasSamples_) && item.filePosition >= offset;
    }

    const ItemIndex &index_;
    bool hasSamples_;
    ItemNumber place_ = 0;
};

} // namespace

namespace {

// What was inflated from damaged data without complaint is not to be trusted: from the last place that does not
// depend on what is before, unless that is far off, to the next one.
std::vector<LostRange> untrustworthy(const Survey &survey, const Inflation &inflation) {
    std::vector<LostRange> ranges;
    const auto add = [&](int64_t offset) {
        const auto next = std::ranges::upper_bound(inflation.fresh, offset);
        constexpr int64_t kFar = 65536; // twice as far as compressed data refer back
        const int64_t fresh = next == inflation.fresh.begin() ? 0 : *(next - 1);
        const int64_t begin = std::max(fresh, offset - kFar);
        const int64_t end = next == inflation.fresh.end() ? std::max(inflation.inflated, offset) : *next;
        if (ranges.empty() || ranges.back().end <= begin) {
            ranges.push_back({begin, end});
        }
    };
    std::vector<int64_t> offsets;
    for (const int64_t tear : inflation.tears) {
        offsets.push_back(tear - 1);
    }
    for (const Damage &damage : survey.damages) {
        offsets.push_back(damage.offset);
    }
    if (inflation.end == InflationEnd::Damaged) {
        offsets.push_back(inflation.inflated - 1);
    }
    std::ranges::sort(offsets);
    std::ranges::for_each(offsets, add);
    return ranges;
}

} // namespace

Survey surveyRecording(InputStream &stream, int64_t recordsBegin, uint16_t revision, const Inflation *inflation) {
    SurveyOptions options{.begin = recordsBegin, .fileRevision = revision};
    Survey survey = surveyRecords(stream, options);
    if (inflation == nullptr) {
        return survey;
    }
    std::vector<LostRange> lost;
    // Where the records are sound up to their end mark, all that is missing is what stands behind them.
    const bool complete = survey.damages.empty() && inflation->tears.empty();
    const bool broken = inflation->end == InflationEnd::Damaged && !complete;
    const bool wrong = inflation->end == InflationEnd::WrongChecksum;
    // What was inflated before a cut is what was compressed, unless its records tell otherwise.
    const bool onlyCut =
        inflation->cut && survey.damages.size() == 1 && survey.damages.front().kind == DamageKind::Cut;
    if (((broken && !onlyCut) || wrong || !inflation->tears.empty()) && inflation->resumes) {
        lost = untrustworthy(survey, *inflation);
        options.lost = lost;
        survey = surveyRecords(stream, options);
    }
    if ((broken || wrong) && !survey.damages.empty() && survey.damages.back().kind == DamageKind::Cut) {
        survey.damages.pop_back(); // what is cut there is what could not be inflated
    }
    const auto add = [&survey](DamageKind kind, int64_t offset, const char *text, int64_t length = 0) {
        survey.damages.push_back({kind, offset, length, kNoTime, text});
    };
    if (inflation->behind > 0) {
        add(DamageKind::BehindEnd, inflation->inflated, "bytes stand behind the compressed data",
            inflation->behind);
    }
    for (const int64_t tear : inflation->tears) {
        add(DamageKind::CompressedData, tear, "compressed data that cannot be inflated, up to a place to resume");
    }
    if (broken) {
        add(DamageKind::CompressedData, inflation->inflated,
            "the compressed data break off, or cannot be inflated from here on");
    } else if (wrong) {
        add(DamageKind::Checksum, inflation->inflated, "the checksum of the compressed data is wrong");
    } else if (inflation->end == InflationEnd::Damaged) {
        add(DamageKind::Checksum, inflation->inflated, "the compressed data end without their checksum");
    }
    std::ranges::stable_sort(survey.damages, {}, &Damage::offset);
    return survey;
}

std::vector<TRK_DAMAGE> listDamages(const Survey &survey, const RepairCounts &repairs, const FilledGaps &gaps,
                                    const ItemIndex &index, const SplicedStream *spliced) {
    std::vector<TRK_DAMAGE> list;
    ItemFinder items(index);
    for (const Damage &damage : survey.damages) {
        TRK_DAMAGE entry{};
        const int64_t end = damage.offset + damage.length;
        entry.kind = kindOf(damage.kind);
        entry.item = items.firstFrom(spliced != nullptr ? spliced->offsetOf(end) : end);
        entry.offset = damage.offset;
        entry.length = damage.length;
        entry.count = 1;
        entry.time = damage.time != kNoTime ? damage.time : items.timeBefore(entry.item);
        std::snprintf(entry.text, sizeof(entry.text), "%s", damage.text.c_str());
        list.push_back(entry);
    }
    if (repairs.droppedSamples > 0) {
        list.push_back(repair(TRK_REPAIR_DROPPED_SAMPLES, repairs.droppedSamples, 0,
                              "samples outside of recording blocks, dropped"));
    }
    if (repairs.movedEvents > 0) {
        list.push_back(repair(TRK_REPAIR_MOVED_EVENTS, repairs.movedEvents, 0,
                              "eye events outside of recording blocks, moved onto their boundaries"));
    }
    if (repairs.joinedBlinks > 0) {
        list.push_back(repair(TRK_REPAIR_JOINED_BLINKS, repairs.joinedBlinks, 0, "blinks joined with others"));
    }
    for (const auto &[length, count] : gaps) {
        const std::string what = "gaps of " + std::to_string(length) + " samples, filled";
        list.push_back(repair(TRK_REPAIR_FILLED_GAPS, count, length, what.c_str()));
    }
    return list;
}

} // namespace trk
