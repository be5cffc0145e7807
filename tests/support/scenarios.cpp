#include "support/scenarios.h"

#include "trkwriter/session.h"

#include <algorithm>

namespace trk_test {

namespace {

Scenario make(const ScenarioOptions &options, std::string &log) {
    constexpr double kLostMs = 150;
    Scenario scenario;
    auto recorder = trkwriter::Recorder::toMemory(scenario.file, {.compressed = options.compressed});
    scenario.samples =
        trkwriter::writeSession(recorder,
                                {.minutes = options.durationMs / 60000.0,
                                 .rate = static_cast<double>(options.sampleRate),
                                 .trials = std::max(2, static_cast<int>(options.durationMs / 10000)),
                                 .dropout = 100 * kLostMs / options.durationMs,
                                 .cameraData = options.cameraData},
                                {.logLine = [&log](std::string_view line) { log += line; }});
    recorder.finish();
    return scenario;
}

} // namespace

Scenario experiment(const ScenarioOptions &options) {
    std::string log;
    return make(options, log);
}

std::string messageLogFor(const ScenarioOptions &options) {
    std::string log;
    make(options, log);
    return log;
}

} // namespace trk_test
