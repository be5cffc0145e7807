#include "delivery/delivery.h"

#include "base/exception.h"
#include "base/log.h"
#include "records/codes.h"

namespace trk {

namespace {

// Events whose pairing must see them even when the caller does not fetch them.
bool pairingNeeds(unsigned code) {
    return code == REC_SBLINK || code == REC_EBLINK || code == REC_SSACC || code == REC_SFIX;
}

void hideGaze(FSAMPLE_REC &sample, int eye) { sample.gaze_x[eye] = sample.gaze_y[eye] = MISSING_DATA; }

void finishSample(const TRKItem &item, FSAMPLE_REC &sample) {
    if ((item.item_type & kItemInLeftBlink) != 0) {
        hideGaze(sample, 0);
    }
    if ((item.item_type & kItemInRightBlink) != 0) {
        hideGaze(sample, 1);
    }
    // The doubling wraps at 32 bits, on purpose: late times always get the flag.
    const uint32_t doubled = 2 * sample.time;
    if (item.sort_key != doubled) {
        sample.flags |= TRK_SAMPLE_DUPLICATE_TIME;
    }
}

} // namespace

int Delivery::step() {
    if (currentIndex_ >= index_.size()) {
        return 0;
    }
    const TRKItem &item = index_[currentIndex_];
    if (item.isRecordingBlock()) {
        const FRECORDING &recording = index_.recordingOf(item);
        currentRecording_ = recording.state == TRK_BLOCK_START ? &recording : nullptr;
    }
    ++currentIndex_;
    walkStarted_ = true;
    if (strict_ && pairingNeeds(item.code())) {
        getFloatData();
    }
    return static_cast<int>(item.code());
}

ALLF_DATA *Delivery::getFloatData() {
    if (currentItem() == nullptr) {
        return nullptr;
    }
    return walkStarted_ ? read(currentIndex_ - 1) : &buffer_;
}

ALLF_DATA *Delivery::peek(std::size_t index) {
    try {
        if (reader_.readItem(index, currentRecording_, buffer_) != 0) {
            print_log("Read error \n");
            return nullptr;
        }
    } catch (TRKException *thrown) {
        const CaughtException error(thrown);
        print_log("Error %s \n", error->text());
        return nullptr;
    }
    return &buffer_;
}

ALLF_DATA *Delivery::read(std::size_t index) {
    ALLF_DATA *const record = peek(index);
    if (record == nullptr) {
        return nullptr;
    }
    const TRKItem &item = index_[index];
    if (strict_ && isEventCode(item.code())) {
        pairing_.pair(index, record->event);
    } else if (item.isSample()) {
        finishSample(item, record->sample);
    }
    return record;
}

} // namespace trk
