// Plausible recordings and one that holds everything, on top of the recording writer. The same options make the
// same bytes everywhere.
#pragma once

#include "support/recording_writer.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace trk_test {

struct ScenarioOptions {
    uint32_t durationMs = 120000; // from the first message to the last, at least 3000; a trial takes about 10 s
    int sampleRate = 1000;        // 250, 500, 1000 or 2000
    Eyes eyes = BothEyes;
    bool compressed = false;
    bool cameraData = false; // samples carry uncorrected pupil and corneal reflection in extension words
    uint32_t seed = 1;
    uint32_t startTime = 250000; // tracker time of the first message
};

struct Scenario {
    Bytes file;
    std::map<int, size_t> count; // records by REC_* code; REC_RECORDING counts merged block starts and ends
    size_t trials = 0;
    size_t lostSamples = 0; // in the one gap
    uint32_t gapStart = 0;  // first lost time stamp
};

// An experiment of several trials. Each has a message "TRIALID n" before its recording block and "TRIAL OK" after
// it; in the block fixations, saccades, blinks inside saccades, an input, a button pressed and released. The
// second trial loses samples once. End events stand in the file some milliseconds after they ended, as a tracker
// writes them, so that the index needs sorting.
Scenario experiment(const ScenarioOptions &options = {});

// The external message log of the same experiment, on a clock of its own that runs a little fast: one line to
// synchronise in each trial, messages "frame n shown" and "key n pressed", and the end line.
std::string messageLogFor(const ScenarioOptions &options = {});

// A few kilobytes with every kind of record, every field tag and every group of a sample, in several blocks: for
// tests that cut it or flip its bits.
RecordingWriter richRecording();

} // namespace trk_test
