// The recordings that tests, benchmarks and fuzz seeds share: a session, and one recording that holds everything.
#pragma once

#include "trkwriter/raw.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace trk_test {

struct ScenarioOptions {
    uint32_t durationMs = 120000; // from the first message, at 250000 ms, to the last; at least 3000
    int sampleRate = 1000;
    bool compressed = false;
    bool cameraData = false;
};

// A session of both eyes with a trial for every ten seconds, at least two; samples are lost once or twice.
struct Scenario {
    trkwriter::raw::Bytes file;
    size_t samples = 0;
};
Scenario experiment(const ScenarioOptions &options = {});
// Its external message log.
std::string messageLogFor(const ScenarioOptions &options = {});

// A few kilobytes with every kind of record, every field tag and every group of a sample, in several blocks: for
// tests that cut it or flip its bits.
trkwriter::raw::RecordingWriter richRecording();

} // namespace trk_test
