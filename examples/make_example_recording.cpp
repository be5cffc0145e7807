// Writes an example recording: make_example_recording FILE [--compressed]
//
// A plausible experiment of two minutes, binocular at 1000 samples per second: twelve trials, each a recording
// block with fixations, saccades, blinks, messages, inputs and button presses, and one gap of lost samples.
// Beside it the external message log that the program of the experiment would have written, xq_messages.log.
#include "experiment.h"

#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace {

int makeRecording(const char *path, bool compressed) {
    const trk_example::ScenarioOptions options{.cameraData = true};
    trkwriter::Recorder recorder(path, {.compressed = compressed});
    const size_t samples = trk_example::writeExperiment(recorder, options);
    recorder.finish();
    std::printf("%s: %zu samples\n", path, samples);

    const std::string log = std::filesystem::path(path).replace_filename("xq_messages.log").string();
    std::ofstream file(log, std::ios::binary);
    if (!(file << trk_example::messageLogFor(options)).flush()) {
        throw std::runtime_error(log + ": cannot be written");
    }
    std::printf("%s: the external message log of the same experiment\n", log.c_str());
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    const bool compressed = argc == 3 && std::strcmp(argv[2], "--compressed") == 0;
    if (argc != 2 && !compressed) {
        std::fprintf(stderr, "usage: make_example_recording FILE [--compressed]\n");
        return 2;
    }
    try {
        return makeRecording(argv[1], compressed);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "make_example_recording: %s\n", error.what());
        return 1;
    }
}
