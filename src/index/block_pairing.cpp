#include "index/block_pairing.h"

#include "base/numeric.h"

#include <algorithm>

namespace trk {

namespace {

constexpr uint16_t kFirstEyeBit = 0x8000;
constexpr uint16_t kSecondEyeBit = 0x4000;

uint8_t eyesOf(uint16_t word, uint8_t firstEye, uint8_t secondEye) {
    const bool first = (word & kFirstEyeBit) != 0;
    const bool second = (word & kSecondEyeBit) != 0;
    if (first && second) {
        return TRK_EYE_BOTH;
    }
    return first ? firstEye : second ? secondEye : uint8_t{TRK_EYE_NONE};
}

FRECORDING commonFields(const FEVENT &event, const DecodingState &state, uint32_t time, uint8_t recordType) {
    FRECORDING recording{};
    recording.time = time;
    recording.sort_key = TimeKey::of(time);
    recording.sample_rate = state.sampleRate;
    recording.record_type = recordType;
    recording.pupil_mode = event.aux_word2 != 1 ? 1 : 0;
    recording.recording_mode = state.recordingMode != 0 ? 1 : 0;
    recording.filter_level = static_cast<uint8_t>(state.filterLevel);
    recording.pos_type = static_cast<uint8_t>(event.parse_flags);
    recording.window_size1 = kCameraWindowWidth;
    recording.window_size2 = kCameraWindowHeight;
    return recording;
}

} // namespace

void BlockPairing::start(const FEVENT &event, const DecodingState &state) {
    const bool samples = event.type == REC_STARTSAMPLES;
    FRECORDING recording =
        commonFields(event, state, event.start_time, samples ? TRK_BLOCK_SAMPLES : TRK_BLOCK_EVENTS);
    recording.state = TRK_BLOCK_START;
    // The two kinds name the eyes by the same bits the other way round.
    if (samples) {
        recording.sample_content_flags = event.status_word;
        recording.eye = eyesOf(event.status_word, TRK_EYE_LEFT, TRK_EYE_RIGHT);
        recording.gaze_prescaler = event.start_pupil_size;
    } else {
        recording.event_content_flags = event.status_word;
        recording.eye = eyesOf(event.aux_word1, TRK_EYE_RIGHT, TRK_EYE_LEFT);
    }
    joinOrAppend(pendingStart_, recording);
}

void BlockPairing::end(const FEVENT &event, const DecodingState &state) {
    const bool samples = event.type == REC_ENDSAMPLES;
    FRECORDING recording =
        commonFields(event, state, event.end_time, samples ? TRK_BLOCK_SAMPLES : TRK_BLOCK_EVENTS);
    recording.state = TRK_BLOCK_END;
    if (!index_.recordings().empty()) {
        recording.eye = index_.recordings().back().eye;
    }
    joinOrAppend(pendingEnd_, recording);
}

void BlockPairing::joinOrAppend(Pending &pending, const FRECORDING &recording) {
    const bool samples = recording.record_type == TRK_BLOCK_SAMPLES;
    FRECORDING *const partner = samples ? pending.events : pending.samples;
    const auto window = truncateTo<uint64_t>(2 * recording.sample_rate);
    if (partner != nullptr && recording.sort_key <= partner->sort_key + window &&
        partner->sort_key <= recording.sort_key + window) {
        partner->record_type = TRK_BLOCK_SAMPLES_AND_EVENTS;
        partner->sort_key = recording.state == TRK_BLOCK_START ? std::min(partner->sort_key, recording.sort_key)
                                                               : std::max(partner->sort_key, recording.sort_key);
        partner->time = TimeKey::time(partner->sort_key);
        if (partner->pos_type == 0) {
            partner->pos_type = recording.pos_type;
        }
        pending = {};
        return;
    }
    index_.appendRecordingBlock(recording);
    (samples ? pending.samples : pending.events) = &index_.recordings().back();
}

} // namespace trk
