#include "api/trk_file.h"

#include "navigation/time_search.h"

#include <utility>

namespace trk {

namespace {

constexpr int kFailed = -1;

} // namespace

TRKFile::TRKFile(RecordingParts &&parts, const DeliveryOptions &options)
    : messageLog_(std::move(parts.messageLog)), stream_(std::move(parts.stream)),
      preamble_(std::move(parts.preamble)), reader_(parts.reader), index_(std::move(parts.index)),
      facts_(parts.facts), batches_(reader_, index_, window_, options.strict),
      velocity_(window_, preamble_.trackerModel),
      itemReader_(reader_, index_, batches_, velocity_, options.config),
      delivery_(itemReader_, index_, options.strict), merge_(delivery_, index_, messageLog_),
      times_(options.keepTimes, facts_.firstTime, facts_.lastTime), trials_(index_, *this) {}

ALLF_DATA *TRKFile::fetch() {
    ALLF_DATA *const record = merge_.fetch();
    // Before the first step nothing was decoded, and there is nothing to adjust.
    if (record != nullptr && !delivery_.isUndecoded(record)) {
        times_.adjust(delivery_.currentItem(), *record);
    }
    return record;
}

std::size_t TRKFile::elementCount() const { return index_.size() + messageLog_.messages().size(); }

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
