// What earlier records say about how later ones are to be decoded.
#pragma once

#include <cstdint>

namespace trk {

// Shared by the scan, the batch reader and the item reader: whoever decodes the start of a recording block
// changes how the samples that are decoded afterwards read.
struct DecodingState {
    uint16_t lastTagWord = 0; // tag word read and not yet consumed by a decoder; 0: none

    // Set by the start of a recording block.
    float gazeDivisor = 1.0F;
    float velocityDivisor = 10.0F;
    float blockFactor1 = 1.0F;
    float blockFactor2 = 1.0F;
    float sampleRate = 250.0F; // samples per second
    uint16_t sampleBlockValue = 1;
    uint16_t eventBlockStatus = 0;
    uint16_t eventBlockFlags = 0;
    int16_t recordingModeWord = 0;
    int16_t filterLevel = 0;
    int16_t modeLowBits = 0;

    // OR of the flag words of the samples decoded since the last start of a sample block.
    uint16_t sampleFlagsSeen = 0;

    uint32_t sampleTimeBase = 0; // time of the last decoded sample, base of delta time stamps
    uint32_t minDecodedTime = 0; // 0: none yet
    uint32_t maxDecodedTime = 0;
};

} // namespace trk
