#include "summary.h"

#include <algorithm>
#include <numeric>

namespace tool {

namespace {

constexpr std::array<int, tables::kEyes> kEyeFlags{TRK_EYE_LEFT, TRK_EYE_RIGHT};
constexpr uint16_t kContentFlags = TRK_SAMPLE_PUPIL_POSITION | TRK_SAMPLE_HREF | TRK_SAMPLE_GAZE |
                                   TRK_SAMPLE_RESOLUTION | TRK_SAMPLE_PUPIL_SIZE | TRK_SAMPLE_STATUS |
                                   TRK_SAMPLE_INPUT | TRK_SAMPLE_BUTTONS | TRK_SAMPLE_EXTENSION;

} // namespace

uint64_t RecordingSummary::items() const { return countOf(0, static_cast<int>(kCodes) - 1); }

uint64_t RecordingSummary::countOf(int firstCode, int lastCode) const {
    return std::accumulate(counts_.begin() + firstCode, counts_.begin() + lastCode + 1, uint64_t{0});
}

void RecordingSummary::add(const tables::Item &item) {
    ++counts_[static_cast<std::size_t>(item.code)];
    if (item.code == REC_SAMPLE) {
        addSample(item);
    } else if (item.code == REC_RECORDING) {
        addRecording(*item.recording());
    } else {
        addEvent(item);
    }
}

void RecordingSummary::addUnreadable(int code) {
    ++counts_[static_cast<std::size_t>(code)];
    ++unreadable;
}

void RecordingSummary::addSample(const tables::Item &item) {
    const FSAMPLE_REC &sample = *item.sample();
    if (item.isDummySample()) {
        ++dummySamples;
    } else if ((sample.flags & TRK_SAMPLE_DUPLICATE_TIME) != 0) {
        ++repeatedTimes;
    }
    const bool hasInput = (sample.flags & TRK_SAMPLE_INPUT) != 0 && sample.input != TRK_WORD_ABSENT;
    samplesWithInput += hasInput ? 1U : 0U;
    int eyes = tables::eyesOf(sample.flags);
    if (insideBlock_) {
        BlockSummary &block = blocks.back();
        ++block.samples;
        block.end = std::max(block.end, sample.time);
        if (!block.contentIsAnnounced) {
            block.content |= sample.flags & kContentFlags;
        }
        // A dummy sample claims both eyes whatever was recorded.
        if (item.isDummySample() && block.eyes != TRK_EYE_NONE) {
            eyes = block.eyes;
        }
    }
    for (const tables::Eye eye : {tables::kLeft, tables::kRight}) {
        if ((eyes & kEyeFlags[eye]) != 0) {
            addSampleOfEye(item, eye);
        }
    }
}

void RecordingSummary::addSampleOfEye(const tables::Item &item, tables::Eye eye) {
    const FSAMPLE_REC &sample = *item.sample();
    EyeSamples &samples = eyeSamples[eye];
    ++samples.count;
    samples.insideBlink += insideBlink_[eye] ? 1U : 0U;
    if (item.isDummySample() || (sample.flags & TRK_SAMPLE_GAZE) != 0) {
        ++samples.withGaze;
        const bool isMissing = sample.gaze_x[eye] == MISSING_DATA || sample.gaze_y[eye] == MISSING_DATA;
        samples.gazeMissing += isMissing ? 1U : 0U;
    }
}

void RecordingSummary::addRecording(const FRECORDING &recording) {
    insideBlink_ = {};
    if (recording.state == TRK_BLOCK_START) {
        const bool isAnnounced = recording.sample_content_flags != 0;
        blocks.push_back({.start = recording.time,
                          .end = recording.time,
                          .eyes = recording.eye,
                          .sampleRate = recording.sample_rate,
                          .recordType = recording.record_type,
                          .content = static_cast<uint16_t>(recording.sample_content_flags & kContentFlags),
                          .contentIsAnnounced = isAnnounced});
    } else if (insideBlock_) {
        blocks.back().end = recording.time;
        blocks.back().endIsLost = false;
    }
    insideBlock_ = recording.state == TRK_BLOCK_START;
}

void RecordingSummary::addEvent(const tables::Item &item) {
    if (insideBlock_ && (item.code < REC_STARTSAMPLES || item.code > REC_ENDEVENTS)) {
        ++blocks.back().events;
    }
    if (item.code < REC_SBLINK || item.code > REC_EFIX) {
        return;
    }
    // Codes run from blinks to fixations, start and end of each.
    const int place = item.code - REC_SBLINK;
    const bool isStart = place % 2 == 0;
    const FEVENT &event = *item.event();
    const tables::Eye eye = event.eye == 0 ? tables::kLeft : tables::kRight;
    EyeEvents &events = eyeEvents[static_cast<std::size_t>(place / 2)][eye];
    if (isStart) {
        ++events.starts;
    } else {
        ++events.ends;
        if (event.start_time <= event.end_time) {
            ++events.timed;
            events.duration += event.end_time - event.start_time;
        }
    }
    if (place / 2 == kBlinks) {
        insideBlink_[eye] = isStart;
    }
}

} // namespace tool
