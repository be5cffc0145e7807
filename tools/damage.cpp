#include "damage.h"

#include "tables/text_output.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

namespace tool {

namespace {

constexpr int kFirstRepair = TRK_REPAIR_DROPPED_SAMPLES;
constexpr double kMillisecondsPerSecond = 1000.0;

constexpr std::array<std::pair<int, std::string_view>, 12> kNames{{
    {TRK_DAMAGE_CUT, "cut"},
    {TRK_DAMAGE_UNREADABLE, "unreadable"},
    {TRK_DAMAGE_IMPLAUSIBLE, "implausible"},
    {TRK_DAMAGE_EARLY_END, "early_end"},
    {TRK_DAMAGE_COMPRESSED_DATA, "compressed_data"},
    {TRK_DAMAGE_CHECKSUM, "checksum"},
    {TRK_DAMAGE_BLOCK_END_MISSING, "block_end_missing"},
    {TRK_DAMAGE_BEHIND_END, "behind_end"},
    {TRK_REPAIR_DROPPED_SAMPLES, "dropped_samples"},
    {TRK_REPAIR_MOVED_EVENTS, "moved_events"},
    {TRK_REPAIR_JOINED_BLINKS, "joined_blinks"},
    {TRK_REPAIR_FILLED_GAPS, "filled_gaps"},
}};

uint64_t filledSamples(const std::vector<TRK_DAMAGE> &repairs) {
    uint64_t filled = 0;
    for (const TRK_DAMAGE &repair : repairs) {
        if (repair.kind == TRK_REPAIR_FILLED_GAPS) {
            filled += static_cast<uint64_t>(repair.count * repair.length);
        }
    }
    return filled;
}

std::vector<TRK_DAMAGE> listOf(const Recording &recording) {
    std::vector<TRK_DAMAGE> list;
    TRK_DAMAGE entry;
    while (trk_get_damage(recording.handle(), static_cast<int>(list.size()), &entry) == 0) {
        list.push_back(entry);
    }
    // Want of memory ends the list as well: what was not looked at must not pass for sound.
    if (recording.log().toldOutOfMemory()) {
        throw CannotRead("not enough memory to look for damages of " + recording.name(), kFailed);
    }
    return list;
}

// Looks for what is lost at damages, in a recording whose gaps were left as they are.
class LossMeter {
  public:
    explicit LossMeter(const Recording &recording)
        : recording_(recording), handle_(recording.handle()), items_(trk_get_element_count(handle_)) {}

    Loss measure() {
        Loss loss;
        std::optional<unsigned> lastGap;
        for (const TRK_DAMAGE &damage : listOf(recording_)) {
            if (damage.kind >= kFirstRepair) {
                break;
            }
            // Lost items take as many bytes each as those before.
            const double itemsPerByte =
                damage.offset > 0 ? static_cast<double>(damage.item) / static_cast<double>(damage.offset) : 0;
            loss.bytes += damage.length;
            if (damage.kind == TRK_DAMAGE_BEHIND_END) {
                continue; // those bytes are no items
            }
            constexpr unsigned kFew = 16; // items; fewer tell nothing of others
            loss.isEstimated = loss.isEstimated && (damage.item >= kFew || damage.length == 0);
            double items = static_cast<double>(damage.length) * itemsPerByte;
            const Gap gap = gapAt(damage.item);
            if (!gap.isKnown) {
                loss.seconds += items * gap.distance / kMillisecondsPerSecond;
            } else if (lastGap != damage.item) {
                loss.seconds += gap.samples * gap.distance / kMillisecondsPerSecond;
                items = std::max(items, gap.samples);
                lastGap = damage.item;
            }
            loss.items += items;
        }
        return loss;
    }

  private:
    struct Gap {
        double distance = 0; // of samples, ms
        double samples = 0;
        bool isKnown = false;
    };

    // What is missing between the samples before an item and the next one: known when all lie in one recording
    // block.
    Gap gapAt(unsigned item) {
        constexpr std::size_t kBefore = 16; // samples to tell their distance by
        constexpr unsigned kFarthest = 64;  // items to look at
        std::vector<double> before;         // times, the latest first
        bool isOneBlock = true;
        for (unsigned back = 1; before.size() < kBefore && back <= std::min(item, kFarthest); ++back) {
            if (!look(item - back, before)) {
                if (before.size() >= 2) {
                    break;
                }
                before.clear(); // a block that has just begun: the one before tells the distance
                isOneBlock = false;
            }
        }
        std::vector<double> behind;
        for (unsigned i = item; isOneBlock && behind.empty() && i < std::min(items_, item + kFarthest); ++i) {
            isOneBlock = look(i, behind);
        }
        if (before.size() < 2 || before.front() <= before.back()) {
            return {};
        }
        const double distance = (before.front() - before.back()) / static_cast<double>(before.size() - 1);
        if (behind.empty()) {
            return {distance};
        }
        return {distance, std::max((behind.front() - before.front()) / distance - 1, 0.0), true};
    }

    // Adds the time of an item that is a sample; false for the border of a recording block.
    bool look(unsigned item, std::vector<double> &times) {
        if (trk_goto_item(handle_, item) != 0) {
            return false;
        }
        const int code = trk_get_next_data(handle_);
        const ALLF_DATA *const record = code == REC_SAMPLE ? trk_get_float_data(handle_) : nullptr;
        if (record != nullptr) {
            times.push_back(static_cast<double>(record->sample.sort_key) / 2);
        }
        return code != REC_RECORDING;
    }

    const Recording &recording_;
    _TRKFILE *handle_;
    unsigned items_;
};

std::string withPlural(int64_t count, std::string_view thing) {
    return std::to_string(count).append(" ").append(thing).append(count == 1 ? "" : "s");
}

} // namespace

DamageReport::DamageReport(const Recording &recording) {
    const bool isSalvaged = recording.options().salvage;
    for (const TRK_DAMAGE &entry : listOf(recording)) {
        (entry.kind < kFirstRepair ? damages_ : repairs_).push_back(entry);
    }
    if (!isDamaged()) {
        return;
    }
    const TRK_DAMAGE &last = damages_.back();
    breaksOff_ = last.kind == TRK_DAMAGE_CUT || (last.kind == TRK_DAMAGE_COMPRESSED_DATA &&
                                                 last.item >= trk_get_element_count(recording.handle()));
    OpenOptions unfilled = recording.options();
    unfilled.check = TRK_OPEN_CHECK;
    unfilled.salvage = true;
    unfilled.mergeLog = false;
    try {
        const Recording salvaged(recording.path(), unfilled, OnDamage::Refuse);
        loss_ = LossMeter(salvaged).measure();
        const uint64_t shown = trk_get_element_count(recording.handle()) - filledSamples(repairs_);
        const uint64_t all = trk_get_element_count(salvaged.handle());
        hasItemsBehind_ = !isSalvaged && damages_.front().item < all;
        itemsOnlySalvaged_ = !isSalvaged && all > shown ? all - shown : 0;
    } catch (const CannotRead &) {
        loss_.reset(); // such as for want of a second temporary file
    }
}

std::string DamageReport::text() const {
    const TRK_DAMAGE &first = damages_.front();
    std::string text = "in " + withPlural(static_cast<int64_t>(damages_.size()), "place") + ", from byte " +
                       std::to_string(first.offset) + " and " + std::to_string(first.time) + " ms on (" +
                       first.text + "): ";
    if (!loss_) {
        text += "how much is lost could not be found out";
    } else if (loss_->bytes > 0 || loss_->items > 0) {
        text += withPlural(loss_->bytes, "byte") + ", " +
                (loss_->isEstimated ? "about " + withPlural(std::llround(loss_->items), "item") + " or " +
                                          tables::fixedPoint(loss_->seconds, 3) + " s"
                                    : "an unknown number of items") +
                ", cannot be saved";
    } else if (!breaksOff_) {
        text += "nothing but what the damage itself took is lost";
    }
    if (breaksOff_) {
        text += text.ends_with(": ") ? "" : "; ";
        text += "the recording breaks off there, and how much should follow is not known";
    }
    if (std::ranges::find(damages_, int{TRK_DAMAGE_CHECKSUM}, &TRK_DAMAGE::kind) != damages_.end()) {
        text += "; values anywhere in it can be wrong";
    }
    if (itemsOnlySalvaged_ != 0) {
        text += "; " + withPlural(static_cast<int64_t>(itemsOnlySalvaged_), "item") +
                " that --salvage shows are missing here";
    } else if (hasItemsBehind_) {
        text += "; without --salvage, values and times behind it can be wrong";
    }
    return text;
}

std::string DamageReport::repairsText() const {
    std::string text;
    for (const TRK_DAMAGE &repair : repairs_) {
        text.append(text.empty() ? "" : "; ").append(repair.text);
    }
    return text;
}

std::string_view damageName(int kind) {
    const auto *const known = std::ranges::find(kNames, kind, &std::pair<int, std::string_view>::first);
    return known == kNames.end() ? "other" : known->second;
}

Status reportDamage(const Recording &recording, const DamageReport &report) {
    if (report.isDamaged()) {
        std::fprintf(stderr, "trk: %s is damaged %s\n", recording.name().c_str(), report.text().c_str());
    }
    return report.status();
}

} // namespace tool
