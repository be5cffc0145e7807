#include "delivery/time_adjustment.h"

#include "base/log.h"
#include "records/codes.h"

namespace trk {

// Takes the first record's time. Returns false when the recording needs no adjustment, now and from now on.
bool TimeAdjustment::begin(uint32_t time, const char *announcement) {
    timeBase_ = time;
    if (lastTime_ < kFirstLateTime) {
        disabled_ = true;
        return false;
    }
    if (!announced_) {
        logLine("%s", announcement);
        announced_ = true;
    }
    return true;
}

// Recording blocks are moved by the time of the first record delivered, samples and events by that of the first
// record of the file, and the two announcements differ by a blank: what was analysed before keeps its times.
void TimeAdjustment::adjust(const Item *item, ALLF_DATA &record) {
    if (disabled_) {
        return;
    }
    if (item == nullptr) {
        logLine("Unknown type %d\n", 0);
        return;
    }
    const unsigned code = item->code();
    if (kEvents.contains(code)) {
        FEVENT &event = record.event;
        const bool ownTime = event.time != 0 && event.time < event.start_time;
        if (timeBase_ == 0 && !begin(ownTime ? event.time : event.start_time, "Enabling time offset fixup \n")) {
            return;
        }
        event.time -= firstTime_;
        event.start_time -= firstTime_;
        event.end_time -= firstTime_;
    } else if (code == REC_RECORDING) {
        FRECORDING &recording = record.recording;
        if (timeBase_ == 0 && !begin(recording.time, "Enabling time offset fixup\n")) {
            return;
        }
        recording.time -= timeBase_;
    } else if (code == REC_SAMPLE) {
        FSAMPLE_REC &sample = record.sample;
        if (timeBase_ == 0 && !begin(sample.time, "Enabling time offset fixup\n")) {
            return;
        }
        sample.time -= firstTime_;
    } else {
        logLine("Unknown type %d\n", static_cast<int>(code));
    }
}

} // namespace trk
