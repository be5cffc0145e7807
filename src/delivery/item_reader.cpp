#include "delivery/item_reader.h"

#include "base/exception.h"
#include "base/log.h"
#include "base/numeric.h"
#include "records/codes.h"

namespace trk {

namespace {

constexpr int kUnknownItem = -1;

// An event that no record of the file stands behind.
FEVENT libraryMadeEvent(const TRKItem &item) {
    FEVENT event{};
    event.type = REC_SBLINK;
    event.time = event.start_time = timeOfKey(item.sort_key);
    event.eye = static_cast<int16_t>(item.eye());
    return event;
}

} // namespace

int ItemReader::readItem(std::size_t index, const FRECORDING *block, ALLF_DATA &out) {
    const TRKItem &item = index_[index];
    if (isEventCode(item.code())) {
        readEvent(item, out.event);
        return 0;
    }
    if (item.isRecordingBlock()) {
        out.recording = index_.recordingOf(item);
        return 0;
    }
    if (item.isSample()) {
        return readSample(index, block, out.sample);
    }
    out = {};
    return kUnknownItem;
}

void ItemReader::readEvent(const TRKItem &item, FEVENT &out) {
    if (item.file_position == kNoFilePosition) {
        out = libraryMadeEvent(item);
        return;
    }
    resetPosition(reader_, item);
    const int result = readIndexedEvent(reader_, event_);
    if (result < 0) {
        print_log("error reading trk file 4   %d %ld\n", result, static_cast<long>(item.file_position));
        throwException("Error reading event - type(readItem)");
    }
    event_.process_event();
    out = event_;
}

int ItemReader::readSample(std::size_t index, const FRECORDING *block, FSAMPLE_REC &out) {
    const Sample *queued = queue_.getSample(index, refill_);
    if (queued != nullptr && queued->sort_key != index_[index].sort_key) {
        queued = queue_.getSample(index, refill_);
    }
    if (queued == nullptr) {
        return kUnknownItem;
    }
    out = *queued;
    if (block != nullptr) {
        const FixedResolution fixed = config_ == nullptr
                                          ? FixedResolution{}
                                          : FixedResolution{config_->velocity_param_1, config_->velocity_param_2};
        velocity_.setVelocity(out, fixed, truncateTo<int>(block->sample_rate));
    } else {
        print_log("WARNING: TRK FILE MAY BE CORRUPTED. Samples %ld found without start recording \n",
                  static_cast<long>(out.time));
    }
    return 0;
}

} // namespace trk
