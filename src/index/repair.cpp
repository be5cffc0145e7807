#include "index/repair.h"

#include "base/log.h"
#include "index/eye_event_fixups.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>
#include <vector>

namespace trk {

namespace {

constexpr int64_t kClosePair = 3 * TimeKey::kPerMillisecond;

void markClosePairs(ItemIndex &index) {
    std::deque<FRECORDING> &recordings = index.recordings();
    for (std::size_t i = 1; i < recordings.size(); ++i) {
        const uint64_t distance =
            ItemIndex::effectiveKey(recordings[i]) - ItemIndex::effectiveKey(recordings[i - 1]);
        if (std::abs(int64_t{static_cast<int32_t>(distance)}) < kClosePair) {
            recordings[i - 1].close_pair = recordings[i].close_pair = 1;
            index.orderChanged();
        }
    }
}

// One pass over the sorted index that drops samples outside recording blocks, puts an end of block that was
// sorted behind the start of the same time before it, and pairs blinks.
class RepairWalk {
  public:
    RepairWalk(ItemIndex &index, bool strict) : index_(index), items_(index.items()), strict_(strict) {}

    void run() {
        for (const Item item : items_) {
            if (item.isSample() && outsideRecording_ && !moveEndBeforeStart()) {
                logLine("WARNING: TRK FILE MAY BE CORRUPTED. Sample at %d found without start recording. "
                        "Skipping this sample \n",
                        static_cast<int>(TimeKey::time(item.key)));
                ++dropped_;
                continue;
            }
            if (startsBlock(item)) {
                settleMovedEnds();
            }
            at(kept_) = item;
            if (!item.isSample()) {
                seeEvent(at(kept_));
            }
            ++kept_;
        }
        settleMovedEnds();
        if (kept_ != items_.size()) {
            items_.resize(kept_);
            index_.orderChanged();
        }
    }

    [[nodiscard]] uint32_t dropped() const { return dropped_; }
    [[nodiscard]] bool movedEndOfBlock() const { return movedEndOfBlock_; }

  private:
    static constexpr std::size_t kEyeValues = 16;

    void seeEvent(Item &item) {
        if (item.isRecordingBlock()) {
            seeBlock(item);
        } else if (item.code() == REC_EBLINK) {
            seeBlinkEnd(item);
        } else if (item.code() == REC_SBLINK) {
            seeBlinkStart(item);
        }
    }

    [[nodiscard]] bool startsBlock(const Item &item) const {
        return item.isRecordingBlock() && index_.recordingOf(item).state != TRK_BLOCK_END;
    }

    void seeBlock(const Item &block) {
        outsideRecording_ = !startsBlock(block);
        if (outsideRecording_) {
            lastEndBlock_ = kept_;
        } else {
            lastStartBlock_ = kept_;
        }
    }

    void seeBlinkEnd(const Item &item) {
        if (endSeen_[item.eye()]) {
            logLine("found EBLINK  with no SBLINK %u \n", TimeKey::time(item.key));
        }
        endSeen_[item.eye()] = true;
        pairBlink(item.eye());
    }

    void seeBlinkStart(Item &item) {
        const unsigned eye = item.eye();
        if (blinkOpen_[eye]) {
            logLine("No matching EBLINK found for SBLINK  %u \n", TimeKey::time(item.key));
        }
        blinkOpen_[eye] = true;
        if (strict_ && orphanEnd_ && endSeen_[eye]) {
            // The blink's end was sorted before its start: start it at its end.
            blinkOpen_[eye] = endSeen_[eye] = false;
            item.key = index_.effectiveKey(at(*orphanEnd_));
            item.mark(kItemMoved);
            index_.orderChanged();
        }
        pairBlink(eye);
    }

    void pairBlink(unsigned eye) {
        if (!endSeen_[eye]) {
            return;
        }
        if (blinkOpen_[eye]) {
            blinkOpen_[eye] = endSeen_[eye] = false;
        } else {
            orphanEnd_ = kept_;
        }
    }

    // Before a sample outside a recording: if the end of the last block was sorted behind a start of the same
    // time, the sample belongs to the block that starts there. Puts the end before the start.
    bool moveEndBeforeStart() {
        if (!lastStartBlock_ || lastEndBlock_.value_or(0) < 1 ||
            index_.effectiveKey(at(*lastStartBlock_)) != index_.effectiveKey(at(*lastEndBlock_))) {
            return false;
        }
        const auto end = items_.begin() + static_cast<std::ptrdiff_t>(*lastEndBlock_ - movedEnds_.size());
        const auto keptEnd = items_.begin() + static_cast<std::ptrdiff_t>(kept_ - movedEnds_.size());
        movedEnds_.push_back(*end);
        std::move(end + 1, keptEnd, end);
        index_.orderChanged();
        movedEndOfBlock_ = true;
        outsideRecording_ = false;
        return true;
    }

    // The item at a place, as if the moved ends stood before the start of block, the last one first. They are put
    // there when the walk is done with the block, so that many of them cost one move of the items behind.
    Item &at(std::size_t place) {
        const std::size_t moved = movedEnds_.size();
        if (moved == 0 || place < *lastStartBlock_) {
            return items_[place];
        }
        const std::size_t behindStart = place - *lastStartBlock_;
        return behindStart < moved ? movedEnds_[moved - 1 - behindStart] : items_[place - moved];
    }

    void settleMovedEnds() {
        if (movedEnds_.empty()) {
            return;
        }
        const auto start = items_.begin() + static_cast<std::ptrdiff_t>(*lastStartBlock_);
        const auto keptEnd = items_.begin() + static_cast<std::ptrdiff_t>(kept_);
        std::move_backward(start, keptEnd - static_cast<std::ptrdiff_t>(movedEnds_.size()), keptEnd);
        std::ranges::reverse_copy(movedEnds_, start);
        movedEnds_.clear();
    }

    ItemIndex &index_;
    std::vector<Item> &items_;
    bool strict_;
    uint32_t dropped_ = 0;
    std::size_t kept_ = 0; // number of items seen and kept
    bool outsideRecording_ = true;
    bool movedEndOfBlock_ = false;
    std::vector<Item> movedEnds_; // ends to stand before the last start of block, in the order of their moves
    std::optional<std::size_t> lastStartBlock_;
    std::optional<std::size_t> lastEndBlock_;
    std::optional<std::size_t> orphanEnd_; // the last unmatched end of a blink; one for all eyes, never forgotten
    std::array<bool, kEyeValues> blinkOpen_{};
    std::array<bool, kEyeValues> endSeen_{};
};

} // namespace

RepairCounts repairIndex(ItemIndex &index, bool strict) {
    RepairCounts counts;
    markClosePairs(index);
    index.sortItems();
    counts.movedEvents = moveEyeEventsOutsideBlocks(index);
    index.sortItems();
    RepairWalk walk(index, strict);
    walk.run();
    counts.droppedSamples = walk.dropped();
    if (!strict) {
        return counts;
    }
    if (!walk.movedEndOfBlock()) {
        index.sortItems();
    }
    counts.joinedBlinks = joinBlinksInsideSaccades(index);
    markSamplesInsideBlinks(index);
    return counts;
}

} // namespace trk
