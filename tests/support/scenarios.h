// The recordings that tests and fuzz seeds share: the experiment of the examples, and one that holds everything.
#pragma once

#include "experiment.h"
#include "trkwriter/raw.h"

namespace trk_test {

using namespace trk_example;

// A few kilobytes with every kind of record, every field tag and every group of a sample, in several blocks: for
// tests that cut it or flip its bits.
trkwriter::raw::RecordingWriter richRecording();

} // namespace trk_test
