#include "index/eye_event_fixups.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <vector>

namespace trk {

namespace {

bool isEyeEvent(unsigned code) { return code >= REC_SBLINK && code <= REC_EFIX; }

// The eyes of eye events; other values of the eye field are not expected there and are passed over.
constexpr unsigned kItemEyes = 2;
bool hasItemEye(const TRKItem &item) { return item.eye() >= 1 && item.eye() <= kItemEyes; }

// Moves eye events that lie outside recording blocks; sees all items in order.
class OutsideEventMover {
  public:
    explicit OutsideEventMover(ItemIndex &index) : index_(index) {}

    void see(TRKItem &item) {
        if (item.isRecordingBlock()) {
            seeBlock(item);
        } else if (isEyeEvent(item.code()) && startKey_ && endKey_) {
            seeEyeEvent(item);
        }
    }

  private:
    void seeBlock(const TRKItem &block) {
        inside_ = index_.recordingOf(block).state != TRK_BLOCK_END;
        (inside_ ? startKey_ : endKey_) = index_.effectiveKey(block);
        if (inside_) {
            for (TRKItem *const item : pendingStarts_) {
                move(*item, *startKey_);
            }
            pendingStarts_.clear();
        }
    }

    void seeEyeEvent(TRKItem &item) {
        const bool behindBlock = !inside_ && item.sort_key > *endKey_;
        switch (item.code()) {
        case REC_SBLINK:
            blinkStartMoved_ = blinkStartMoved_ || behindBlock;
            [[fallthrough]];
        case REC_SSACC:
        case REC_SFIX:
            if (behindBlock) {
                pendingStarts_.push_back(&item);
            }
            break;
        default:
            if (behindBlock) {
                move(item, *endKey_);
            }
            if (item.code() == REC_EBLINK && blinkStartMoved_) {
                item.mark(kItemBlinkRepaired);
                blinkStartMoved_ = false;
            }
        }
    }

    void move(TRKItem &item, uint64_t key) {
        item.sort_key = key;
        item.mark(kItemMoved);
        index_.orderChanged();
    }

    ItemIndex &index_;
    bool inside_ = false;
    bool blinkStartMoved_ = false;     // one flag for both eyes
    std::optional<uint64_t> startKey_; // of the last start of a block
    std::optional<uint64_t> endKey_;   // of the last end of a block
    std::vector<TRKItem *> pendingStarts_;
};

// Finds the blinks to be joined; sees all items in order.
class BlinkMerger {
  public:
    explicit BlinkMerger(std::vector<std::size_t> &removed) : removed_(removed) {}

    void see(TRKItem &item, std::size_t place) {
        if (item.isRecordingBlock()) {
            eyes_ = {};
            return;
        }
        if (!hasItemEye(item)) {
            return;
        }
        EyeState &eye = eyes_[item.eye() - 1];
        switch (item.code()) {
        case REC_SSACC:
            eye = {.inSaccade = true};
            break;
        case REC_ESACC:
            eye = {};
            break;
        case REC_EBLINK:
            if (eye.merged) {
                item.mark(kItemBlinkRepaired);
            }
            eye.lastBlinkEnd = place;
            break;
        case REC_SBLINK:
            seeBlinkStart(eye, place);
            break;
        default:
            break;
        }
    }

  private:
    struct EyeState {
        bool inSaccade = false;
        bool blinkSeen = false;
        bool merged = false;
        std::size_t lastBlinkEnd = 0; // 0: none; the index's first entry does not count
    };

    void seeBlinkStart(EyeState &eye, std::size_t place) {
        if (eye.blinkSeen && eye.inSaccade && eye.lastBlinkEnd != 0) {
            removed_.push_back(eye.lastBlinkEnd);
            removed_.push_back(place);
            eye.lastBlinkEnd = 0;
            eye.merged = true;
        }
        eye.blinkSeen = true;
    }

    std::array<EyeState, kItemEyes> eyes_;
    std::vector<std::size_t> &removed_;
};

// Takes out the items at the given places, in one pass.
void removeItems(std::vector<TRKItem> &items, std::vector<std::size_t> &places) {
    if (places.empty()) {
        return;
    }
    std::ranges::sort(places);
    std::size_t kept = places.front();
    auto nextRemoved = places.cbegin();
    for (std::size_t i = kept; i < items.size(); ++i) {
        if (nextRemoved != places.cend() && *nextRemoved == i) {
            ++nextRemoved;
        } else {
            items[kept++] = items[i];
        }
    }
    items.resize(kept);
}

} // namespace

void MergeEyeEventsOutsideOfTrials(ItemIndex &index) {
    OutsideEventMover mover(index);
    for (TRKItem &item : index.items()) {
        if (!item.isSample()) {
            mover.see(item);
        }
    }
}

void mergeBlinksInsideSaccade(ItemIndex &index) {
    std::vector<std::size_t> removed;
    BlinkMerger merger(removed);
    std::vector<TRKItem> &items = index.items();
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (!items[i].isSample()) {
            merger.see(items[i], i);
        }
    }
    removeItems(items, removed);
}

void markSamplesInsideBlink(ItemIndex &index) {
    uint16_t openBlinks = 0;
    for (TRKItem &item : index.items()) {
        if (item.isSample()) {
            if (openBlinks != 0) {
                item.mark(openBlinks);
            }
            continue;
        }
        const uint16_t eye = item.eye() == 1   ? kItemInLeftBlink
                             : item.eye() == 2 ? kItemInRightBlink
                                               : uint16_t{0};
        if (item.code() == REC_SBLINK) {
            openBlinks |= eye;
        } else if (item.code() == REC_EBLINK) {
            openBlinks &= static_cast<uint16_t>(~eye);
        } else if (item.isRecordingBlock()) {
            openBlinks = 0;
        }
    }
}

} // namespace trk
