#include "delivery/delivery.h"

#include "base/exception.h"
#include "base/log.h"
#include "records/codes.h"

namespace trk {

namespace {

// Events whose pairing must see them even when the caller does not fetch them.
constexpr CodeSet kNeededByPairing = kEyeEventStarts | CodeSet{REC_EBLINK};

void finishSample(const Item &item, FSAMPLE_REC &sample) {
    for (std::size_t eye = 0; eye < kEyes; ++eye) {
        if (hidesGaze(item.type, eye)) {
            sample.gaze_x[eye] = sample.gaze_y[eye] = MISSING_DATA;
        }
    }
    sample.flags = deliveredFlags(item.key, sample.flags, sample.time);
}

} // namespace

int Delivery::step() {
    if (itemsPassed_ >= index_.size()) {
        return 0;
    }
    const Item &item = index_[itemsPassed_];
    if (item.isRecordingBlock()) {
        const FRECORDING &recording = index_.recordingOf(item);
        currentRecording_ = recording.state == TRK_BLOCK_START ? &recording : nullptr;
    }
    ++itemsPassed_;
    walkStarted_ = true;
    if (strict_ && kNeededByPairing.contains(item.code())) {
        fetch();
    }
    return static_cast<int>(item.code());
}

ALLF_DATA *Delivery::fetch() {
    if (currentItem() == nullptr) {
        return nullptr;
    }
    return walkStarted_ ? read(itemsPassed_ - 1) : &buffer_;
}

ALLF_DATA *Delivery::peek(ItemNumber number) {
    try {
        if (!reader_.readItem(number, currentRecording_, buffer_)) {
            logLine("Read error \n");
            return nullptr;
        }
    } catch (const TRKException &error) {
        logLine("Error %s \n", error.text());
        return nullptr;
    }
    return &buffer_;
}

ALLF_DATA *Delivery::read(ItemNumber number) {
    ALLF_DATA *const record = peek(number);
    if (record == nullptr) {
        return nullptr;
    }
    const Item &item = index_[number];
    if (strict_ && kEvents.contains(item.code())) {
        pairing_.pair(item, number, record->event);
    } else if (item.isSample()) {
        finishSample(item, record->sample);
    }
    return record;
}

} // namespace trk
