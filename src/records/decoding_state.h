// What earlier records say about how later ones are to be decoded.
#pragma once

#include "records/block_facts.h"

#include <cstdint>

namespace trk {

struct DecodingState {
    // Set by the start of a recording block.
    float gazeDivisor = 1.0F;
    float velocityDivisor = 10.0F;
    float sampleRate = kDefaultSampleRate; // samples per second
    int16_t recordingMode = 0;
    int16_t filterLevel = 0;

    uint32_t sampleTimeBase = 0; // time of the last decoded sample, base of delta time stamps
};

} // namespace trk
