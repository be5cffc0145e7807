#include "index/eye_event_fixups.h"

#include "records/codes.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <vector>

namespace trk {

namespace {

// The eyes of eye events; other values of the eye field are not expected there and are passed over.
constexpr unsigned kItemEyes = 2;
bool hasItemEye(const Item &item) { return item.eye() >= 1 && item.eye() <= kItemEyes; }

// Moves eye events that lie outside recording blocks; sees all items in order.
class OutsideEventMover {
  public:
    explicit OutsideEventMover(ItemIndex &index) : index_(index) {}

    void see(Item &item) {
        if (item.isRecordingBlock()) {
            seeBlock(item);
        } else if (startKey_ && endKey_ && kEyeEvents.contains(item.code())) {
            seeEyeEvent(item);
        }
    }

    [[nodiscard]] uint32_t moved() const { return moved_; }

  private:
    void seeBlock(const Item &block) {
        inside_ = index_.recordingOf(block).state != TRK_BLOCK_END;
        (inside_ ? startKey_ : endKey_) = index_.effectiveKey(block);
        if (inside_) {
            for (Item *const item : pendingStarts_) {
                move(*item, *startKey_);
            }
            pendingStarts_.clear();
        }
    }

    void seeEyeEvent(Item &item) {
        const bool behindBlock = !inside_ && item.key > *endKey_;
        if (behindBlock && kEyeEventStarts.contains(item.code())) {
            pendingStarts_.push_back(&item);
        } else if (behindBlock) {
            move(item, *endKey_);
        }
        if (item.code() == REC_SBLINK) {
            blinkStartMoved_ = blinkStartMoved_ || behindBlock;
        } else if (item.code() == REC_EBLINK && blinkStartMoved_) {
            item.mark(kItemBlinkRepaired);
            blinkStartMoved_ = false;
        }
    }

    void move(Item &item, uint64_t key) {
        item.key = key;
        item.mark(kItemMoved);
        ++moved_;
        index_.orderChanged();
    }

    ItemIndex &index_;
    uint32_t moved_ = 0;
    bool inside_ = false;
    bool blinkStartMoved_ = false;     // one flag for both eyes
    std::optional<uint64_t> startKey_; // of the last start of a block
    std::optional<uint64_t> endKey_;   // of the last end of a block
    std::vector<Item *> pendingStarts_;
};

// Finds the blinks to be joined; sees all items in order.
class BlinkJoiner {
  public:
    explicit BlinkJoiner(std::vector<std::size_t> &removed) : removed_(removed) {}

    void see(Item &item, std::size_t place) {
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
            if (eye.joined) {
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
        bool joined = false;
        std::size_t lastBlinkEnd = 0; // 0: none; the index's first entry does not count
    };

    void seeBlinkStart(EyeState &eye, std::size_t place) {
        if (eye.blinkSeen && eye.inSaccade && eye.lastBlinkEnd != 0) {
            removed_.push_back(eye.lastBlinkEnd);
            removed_.push_back(place);
            eye.lastBlinkEnd = 0;
            eye.joined = true;
        }
        eye.blinkSeen = true;
    }

    std::array<EyeState, kItemEyes> eyes_;
    std::vector<std::size_t> &removed_;
};

// Takes out the items at the given places, in one pass.
void removeItems(std::vector<Item> &items, std::vector<std::size_t> &places) {
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

uint32_t moveEyeEventsOutsideBlocks(ItemIndex &index) {
    OutsideEventMover mover(index);
    for (Item &item : index.items()) {
        if (!item.isSample()) {
            mover.see(item);
        }
    }
    return mover.moved();
}

uint32_t joinBlinksInsideSaccades(ItemIndex &index) {
    std::vector<std::size_t> removed;
    BlinkJoiner joiner(removed);
    std::vector<Item> &items = index.items();
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (!items[i].isSample()) {
            joiner.see(items[i], i);
        }
    }
    removeItems(items, removed);
    return static_cast<uint32_t>(removed.size() / 2);
}

void markSamplesInsideBlinks(ItemIndex &index) {
    uint16_t openBlinks = 0;
    for (Item &item : index.items()) {
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
