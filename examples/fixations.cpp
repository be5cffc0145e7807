// Prints of each trial how many fixations it has, how long they last, and how large the pupil was. Usage:
// fixations FILE [START-TEXT END-TEXT]: a trial goes from a message with one text to a message with the other.
#include <cmath>
#include <cstdio>
#include <exception>
#include <optional>
#include <span>
#include <string>
#include <trkapi/trkapi.hpp>

namespace {

struct Mean {
    double sum = 0;
    unsigned count = 0;

    void add(double value) {
        sum += value;
        ++count;
    }
    [[nodiscard]] double value() const { return count == 0 ? NAN : sum / count; }
};

Mean fixationsIn(const trkapi::Recording &recording, const trkapi::Trial &trial) {
    Mean durations;
    trkapi::BulkWalk walk(recording.handle(), trial.first, trial.end, trkapi::kEvents);
    while (const std::optional<trkapi::Item> item = walk.next()) {
        if (const FEVENT *const event = item->event(); event != nullptr && item->code == REC_EFIX) {
            durations.add(event->end_time - event->start_time);
        }
    }
    return durations;
}

Mean pupilIn(const trkapi::Recording &recording, const trkapi::Trial &trial) {
    Mean size;
    trkapi::SampleReader reader(recording.handle(), {TRK_COLUMN_PUPIL_SIZE_LEFT, TRK_COLUMN_PUPIL_SIZE_RIGHT},
                                trial.first, trial.end);
    while (reader.next()) {
        for (std::size_t eye = 0; eye < 2; ++eye) {
            for (const float pupil : reader.floats(eye)) {
                if (!std::isnan(pupil)) {
                    size.add(static_cast<double>(pupil));
                }
            }
        }
    }
    return size;
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 2 && argc != 4) {
        std::fputs("usage: fixations FILE [START-TEXT END-TEXT]\n", stderr);
        return 2;
    }
    try {
        trkapi::Recording recording(argv[1], {.flags = TRK_OPEN_CHECK_AND_FILL});
        const bool hasTexts = argc == 4;
        const auto trials = hasTexts ? recording.trials(argv[2], argv[3]) : recording.trials();
        for (const trkapi::Trial &trial : trials) {
            const Mean durations = fixationsIn(recording, trial);
            std::printf("%u ms: %u fixations of all eyes, %.0f ms long, pupil %.0f\n", trial.header.start_time,
                        durations.count, durations.value(), pupilIn(recording, trial).value());
        }
    } catch (const std::exception &error) {
        std::fprintf(stderr, "fixations: %s\n", error.what());
        return 3;
    }
    return 0;
}
