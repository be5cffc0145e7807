#include "synth.h"

#include "progress.h"
#include "tables/text_output.h"
#include "tables/whole_file.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string_view>
#include <system_error>

namespace tool {

namespace {

constexpr std::string_view kTruthHeader =
    "eye\tkind\tstart_ms\tend_ms\tstart_x\tstart_y\tend_x\tend_y\tmean_x\tmean_y\tmean_pupil\tamplitude_deg\t"
    "peak_velocity\n";

std::string_view nameOf(trkwriter::EyeEvent kind) {
    constexpr std::array<std::string_view, 3> kNames{"blink", "saccade", "fixation"};
    return kNames.at(static_cast<std::size_t>(kind));
}

void writeTruth(tables::TextOutput &out, const trkwriter::TrueEvent &event) {
    out.text(event.eye == trkwriter::LeftEye ? "left" : "right");
    out.character('\t');
    out.text(nameOf(event.kind));
    const auto cell = [&out](double value, int decimals) {
        out.character('\t');
        if (!std::isnan(value)) {
            out.text(tables::fixedPoint(value, decimals));
        }
    };
    cell(event.start, 0);
    cell(event.end, 0);
    for (const double value : {event.from.x, event.from.y, event.to.x, event.to.y, event.mean.x, event.mean.y,
                               event.pupilSize, event.amplitude, event.peakVelocity}) {
        cell(value, 3);
    }
    out.character('\n');
}

void requireDifferent(const std::string &one, const std::optional<std::string> &other) {
    std::error_code ignored;
    if (other && *other != tables::TextOutput::kStandardOutput &&
        std::filesystem::weakly_canonical(one, ignored) == std::filesystem::weakly_canonical(*other, ignored)) {
        throw trkwriter::SessionError(tables::escaped(one) + " is to be written twice");
    }
}

std::unique_ptr<tables::TextOutput> openText(const std::optional<std::string> &path) {
    return path ? std::make_unique<tables::TextOutput>(*path, std::vector<std::string>{}) : nullptr;
}

[[noreturn]] void fail(const std::string &path, const std::system_error &error) {
    throw tables::OutputError(tables::escaped(path) + " cannot be written: " + error.code().message());
}

void damage(const SynthOptions &options, int descriptor) {
    uint64_t seed = options.session.seed;
    for (const std::string &name : options.damages) {
        const trkwriter::DamagedPlace place =
            trkwriter::damageFile(descriptor, trkwriter::damageNamed(name).value(), seed++);
        std::fprintf(stderr, "trk: %s: %s at byte %llu of the file, %llu %s long\n",
                     tables::escaped(options.output).c_str(), name.c_str(),
                     static_cast<unsigned long long>(place.offset), static_cast<unsigned long long>(place.length),
                     place.length == 1 ? "byte" : "bytes");
    }
}

void write(const SynthOptions &options, tables::WholeFile &file) {
    const auto truth = openText(options.truth);
    const auto log = openText(options.log);
    const bool toTerminal = (truth && truth->isTerminal()) || (log && log->isTerminal());
    constexpr double kSecondsPerMinute = 60;
    Progress progress(
        static_cast<uint64_t>(std::llround(options.session.minutes * kSecondsPerMinute * options.session.rate)),
        !toTerminal);
    trkwriter::SessionListener listener{.sample = [&progress] { progress.step(); }};
    if (truth) {
        truth->text(kTruthHeader);
        listener.truth = [&truth](const trkwriter::TrueEvent &event) { writeTruth(*truth, event); };
    }
    if (log) {
        listener.logLine = [&log](std::string_view line) { log->text(line); };
    }
    trkwriter::Recorder recorder = trkwriter::Recorder::toDescriptor(
        file.descriptor(), tables::escaped(options.output), {.compressed = options.compressed});
    trkwriter::writeSession(recorder, options.session, listener);
    recorder.finish();
    damage(options, file.descriptor());
    for (tables::TextOutput *const out : {truth.get(), log.get()}) {
        if (out != nullptr) {
            out->finish();
        }
    }
}

} // namespace

const char *const kSynthHelp =
    R"(The recording: trials with messages "TRIALID n" and "TRIAL OK" around them, inside "STIMULUS ON n",
"VAR name value" and a button; samples of gaze, head-referenced and raw pupil positions, pupil size and camera
data; fixations, saccades and blinks that say what the samples say. The same options write the same bytes
everywhere; movements, pupil and trials of a seed stay the same whatever noise, dropout and eyes are.
Saccades take 21 ms and 2.2 ms for each degree, with the velocity of least jerk; degrees are seen from where 40
pixels are one degree at the centre, (960, 540), of a display of 1920 x 1080 pixels. Around each blink stands a
saccade of the lids, as trackers write it; it is none of the true ones.
--truth: a tab-separated table of what the eyes did, without noise: "eye", "kind" (fixation, saccade, blink),
"start_ms" and "end_ms" of the first and last sample, gaze there and on the average in pixels, "mean_pupil",
"amplitude_deg", "peak_velocity" in degrees per second (samples smooth it: less is found in them). Empty where
it does not apply. Rows come in the order in which events end.
--noise: the root mean square of the angle between successive samples, white; storing gaze in steps of 0.1
pixels adds 0.0014 degrees. --dropout: bursts inside of fixations, in turn samples that were never
recorded, and samples without the left eye, the right one, both.
--damage: bit (one is flipped; in a plain recording perhaps in a value, where nobody can tell), zero (64 to 512
bytes are), hole (64 to 512 bytes are gone), cut (the rest is gone). Standard error tells where.)";

Status synth(const SynthOptions &options) {
    requireDifferent(options.output, options.truth);
    requireDifferent(options.output, options.log);
    if (options.truth) {
        requireDifferent(*options.truth, options.log);
    }
    std::error_code none;
    if (!options.force && std::filesystem::is_regular_file(options.output, none)) {
        throw tables::OutputError(tables::escaped(options.output) +
                                  " is there, and may be a recording of somebody: --force replaces it");
    }
    try {
        tables::WholeFile file(options.output);
        write(options, file);
        file.finish();
    } catch (const std::system_error &error) {
        fail(options.output, error);
    }
    return kSound;
}

} // namespace tool
