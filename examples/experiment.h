// The experiment of the example recording: several trials, binocular. The same options make the same bytes
// everywhere. Tests, benchmarks and fuzz targets read it too.
//
// Each trial has a message "TRIALID n" before its recording block and "TRIAL OK" after it; in the block fixations,
// saccades, blinks inside saccades, an input, a button pressed and released. The second trial loses samples once.
// Eye events say what the samples say, and stand in the file some milliseconds after they ended, as a tracker
// writes them, so that the index needs sorting.
#pragma once

#include "trkwriter/recorder.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace trk_example {

struct ScenarioOptions {
    uint32_t durationMs = 120000; // from the first message, at 250000 ms, to the last; at least 3000
    int sampleRate = 1000;        // 250, 500, 1000 or 2000
    bool compressed = false;      // for experiment() below
    bool cameraData = false;      // samples carry uncorrected pupil and corneal reflection in extension words
};

// Writes the experiment and leaves the recording to be finished. Returns the number of samples.
size_t writeExperiment(trkwriter::Recorder &recorder, const ScenarioOptions &options);

struct Scenario {
    trkwriter::raw::Bytes file;
    size_t samples = 0;
};
Scenario experiment(const ScenarioOptions &options = {});

// The external message log of the same experiment, on a clock of its own that runs a little fast: one line to
// synchronise in each trial, messages "frame n shown" and "key n pressed", and the end line.
std::string messageLogFor(const ScenarioOptions &options = {});

} // namespace trk_example
