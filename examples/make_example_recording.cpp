// Writes an example recording: make_example_recording FILE [--compressed]
//
// A plausible experiment of two minutes, binocular at 1000 samples per second: twelve trials, each a recording
// block with fixations, saccades, blinks, messages, an input and button presses, and one gap of lost samples.
// Beside it the external message log that the program of the experiment would have written, xq_messages.log.
#include "support/scenarios.h"
#include "trkapi/trkapi.h"

#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>

namespace {

int makeRecording(const char *path, bool compressed) {
    const trk_test::ScenarioOptions options{.compressed = compressed, .cameraData = true};
    const trk_test::Scenario recording = trk_test::experiment(options);
    const std::string log = std::filesystem::path(path).replace_filename("xq_messages.log").string();
    trk_test::save(path, recording.file);
    trk_test::save(log, trk_test::messageLogFor(options));
    std::printf("%s: %zu bytes, %zu trials, %zu samples\n", path, recording.file.size(), recording.trials,
                recording.count.at(REC_SAMPLE));
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
