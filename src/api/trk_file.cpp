#include "api/trk_file.h"

#include "navigation/time_search.h"
#include "records/codes.h"

#include <algorithm>
#include <utility>

namespace trk {

namespace {

constexpr int kFailed = -1;

// Whether an item has a code; 0 stands for all events.
bool isOfKind(const Item &item, int code) {
    return code == 0 ? kEvents.contains(item.code()) : item.code() == static_cast<unsigned>(code);
}

} // namespace

TRKFile::TRKFile(RecordingParts &&parts, const DeliveryOptions &options)
    : parts_(std::move(parts)),
      options_(options), source_{*parts_.stream,
                                 index_,
                                 parts_.decodingState,
                                 options_.config != nullptr ? options_.config : &options_.ownConfig,
                                 parts_.preamble.revision,
                                 parts_.preamble.trackerModel,
                                 options.strict,
                                 options.cutMessageOffsets,
                                 {options.keepTimes, parts_.facts.firstTime, parts_.facts.lastTime}},
      walk_(source_), merge_(delivery_, index_, parts_.messageLog), trials_(index_, *this) {}

ALLF_DATA *TRKFile::fetch() {
    ALLF_DATA *const record = merge_.fetch();
    // Before the first step nothing was decoded, and there is nothing to adjust.
    if (record != nullptr && !delivery_.isUndecoded(record)) {
        times_.adjust(delivery_.currentItem(), *record);
    }
    return record;
}

std::size_t TRKFile::elementCount() const { return index_.size() + parts_.messageLog.messages().size(); }

ItemNumber TRKFile::findTime(uint32_t time) const {
    const uint64_t key = TimeKey::of(time) + TimeKey::of(times_.offset());
    const auto found = std::ranges::partition_point(
        index_.items(), [this, key](const Item &item) { return index_.effectiveKey(item) < key; });
    return static_cast<ItemNumber>(found - index_.items().begin());
}

const Trial *TRKFile::trial(int number) {
    const std::vector<Trial> &all = trials_.trials();
    return number >= 0 && static_cast<std::size_t>(number) < all.size() ? &all[static_cast<std::size_t>(number)]
                                                                        : nullptr;
}

BulkReader &TRKFile::bulk() {
    if (!bulk_) {
        const bool indexIsComplete =
            parts_.everythingIsIndexed && parts_.repairs.droppedSamples == 0 && !parts_.facts.passedEndMark;
        bulk_ = std::make_unique<BulkReader>(source_, indexIsComplete);
    }
    return *bulk_;
}

int64_t TRKFile::countItems(ItemNumber first, ItemNumber end, int code) const {
    int64_t count = 0;
    for (ItemNumber number = first; number < std::min(end, index_.size()); ++number) {
        count += isOfKind(index_[number], code) ? 1 : 0;
    }
    return count;
}

int64_t TRKFile::listItems(ItemNumber first, ItemNumber end, int code, ItemNumber *numbers, int64_t room) const {
    int64_t count = 0;
    for (ItemNumber number = first; number < std::min(end, index_.size()) && count < room; ++number) {
        if (isOfKind(index_[number], code)) {
            numbers[count++] = number;
        }
    }
    return count;
}

const std::vector<TRK_DAMAGE> &TRKFile::damages() {
    if (!damages_) {
        if (!parts_.survey) {
            parts_.survey = surveyRecording(*parts_.stream, parts_.recordsBegin, parts_.preamble.revision,
                                            parts_.inflationIfAny());
        }
        damages_ = listDamages(*parts_.survey, parts_.repairs, parts_.facts.filledGaps, index_, parts_.spliced);
    }
    return *damages_;
}

int TRKFile::goTo(std::optional<ItemNumber> itemsPassed) {
    if (!itemsPassed) {
        return kFailed;
    }
    delivery_.goTo(*itemsPassed);
    return 0;
}

int TRKFile::goToItem(ItemNumber number) {
    if (number >= index_.size()) {
        return kFailed;
    }
    trials_.arrivedAt(number);
    return goTo(number);
}

int TRKFile::copyTrialHeader(TRIAL *header) {
    const Trial *const trial = header != nullptr ? trials_.currentTrial() : nullptr;
    if (trial == nullptr) {
        return kFailed;
    }
    *header = {trial->recording, trial->duration, trial->startTime, trial->endTime};
    return 0;
}

int TRKFile::setBookmark(BOOKMARK *bookmark) {
    const ItemNumber position = delivery_.itemsPassed();
    if (bookmark == nullptr || position >= index_.size()) {
        return kFailed;
    }
    if (bookmarks_.set(position)) {
        bookmark->item_position = position;
    }
    return 0;
}

int TRKFile::removeBookmark(const BOOKMARK *bookmark) {
    return bookmark != nullptr && bookmarks_.remove(bookmark->item_position) ? 0 : kFailed;
}

int TRKFile::goToBookmark(const BOOKMARK *bookmark) {
    return bookmark != nullptr ? goTo(bookmarks_.go(bookmark->item_position)) : kFailed;
}

ALLF_DATA *TRKFile::fetchSampleAt(uint64_t key) {
    // The very first item counts as not found: a sound recording begins with a block, not with a sample.
    const std::optional<ItemNumber> found = findSample(index_, key);
    ALLF_DATA *const record = found.value_or(0) > 0 ? delivery_.read(*found) : nullptr;
    if (record != nullptr) {
        times_.adjust(delivery_.currentItem(), *record);
    }
    return record;
}

} // namespace trk
