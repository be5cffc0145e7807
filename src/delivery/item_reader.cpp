#include "delivery/item_reader.h"

#include "base/exception.h"
#include "base/log.h"
#include "base/numeric.h"
#include "records/codes.h"

namespace trk {

bool ItemReader::readItem(ItemNumber number, const FRECORDING *block, ALLF_DATA &out) {
    const Item &item = index_[number];
    if (item.isSample()) {
        return readSample(number, block, out.sample);
    }
    if (item.isRecordingBlock()) {
        out.recording = index_.recordingOf(item);
        return true;
    }
    if (!kEvents.contains(item.code())) {
        out = {};
        return false;
    }
    if (!readEventAt(reader_, item, event_)) {
        throw TRKException("Error reading event - type(readItem)");
    }
    out.event = event_;
    return true;
}

bool ItemReader::readSample(ItemNumber number, const FRECORDING *block, FSAMPLE_REC &out) {
    const Sample *const sample = batches_.sampleAt(number);
    if (sample == nullptr) {
        return false;
    }
    out = *sample;
    if (block != nullptr) {
        velocity_.setVelocity(out, fixedResolutionOf(config_), truncateTo<int>(block->sample_rate));
    } else {
        logLine("WARNING: TRK FILE MAY BE CORRUPTED. Samples %ld found without start recording \n",
                static_cast<long>(out.time));
    }
    return true;
}

} // namespace trk
