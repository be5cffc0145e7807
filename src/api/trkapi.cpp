// The exported calls.
#include "trkapi/trkapi.h"

#include "api/guard.h"
#include "api/internal_calls.h"
#include "api/live_handles.h"
#include "api/open_errors.h"
#include "api/open_recording.h"
#include "base/exception.h"
#include "base/log.h"
#include "base/numeric.h"
#include "delivery/message_log.h"
#include "measures/geometry.h"
#include "measures/raw_data.h"
#include "records/codes.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <vector>

using trk::guarded;
using trk::TRKFile;
using trk::with;

namespace {

constexpr int kFailed = -1;

// What the calls give that have no other way to say that memory ran out.
constexpr trk::Point kMissingPoint{MISSING_DATA, MISSING_DATA};
constexpr std::array<int, 2> kNothing{0, 0};

trk::RawEyeData rawData(TRKFile &file, const FSAMPLE_REC *sample, int eye) {
    return {file.blocks(), *sample, eye};
}

void put(trk::Point point, float out[2]) {
    out[0] = point.x;
    out[1] = point.y;
}

void put(const std::array<int, 2> &values, int out[2]) { std::ranges::copy(values, out); }

void report(int *error_value, int value) {
    if (error_value != nullptr) {
        *error_value = value;
    }
}

float sampleRateOf(const TRKFile &file) {
    const FRECORDING *const recording = file.currentRecording();
    return recording != nullptr ? recording->sample_rate : 0.0F;
}

// What stands in the place of an event's type, whatever kind of record it is.
uint16_t typeField(const ALLF_DATA *record) {
    uint16_t type = 0;
    std::memcpy(&type, reinterpret_cast<const char *>(record) + offsetof(FEVENT, type), sizeof(type));
    return type;
}

} // namespace

_TRKFILE *trk_open_file_ex(const char *path, int open_flags, int loadEvents, int load_samples, CONFIG *config,
                           int *error_value) noexcept {
    report(error_value, 0);
    trk::printText("loadEvents = %x\n", static_cast<unsigned>(loadEvents));
    _TRKFILE *const handle = guarded(nullptr, [&]() -> _TRKFILE * {
        try {
            const trk::OpenRequest request(path, open_flags, loadEvents, load_samples, config);
            return trk::keepHandle(trk::openRecording(request));
        } catch (const trk::TRKException &error) {
            trk::logLine("%s\n", error.text());
            return nullptr;
        }
    });
    report(error_value, handle != nullptr ? 0 : kFailed);
    return handle;
}

_TRKFILE *trk_open_file(const char *path, int open_flags, int loadEvents, int load_samples,
                        int *error_value) noexcept {
    static CONFIG noFixedResolution{MISSING_DATA, MISSING_DATA};
    return trk_open_file_ex(path, open_flags, loadEvents, load_samples, &noFixedResolution, error_value);
}

int trk_close_file(_TRKFILE *handle) noexcept {
    trk::takeHandle(handle).reset();
    return 0;
}

void trk_set_log_function(TRK_LOG_FUNCTION function) noexcept { trk::setLogFunction(function); }

int trk_set_extra_message_file(const char *path) noexcept {
    return guarded(kFailed, [&] {
        trk::setExtraMessageFile(path);
        return 0;
    });
}

int trk_get_next_data(_TRKFILE *handle) noexcept {
    return with(handle, 0, [&](TRKFile &file) { return file.step(); });
}

ALLF_DATA *trk_get_float_data(_TRKFILE *handle) noexcept {
    return with(handle, nullptr, [&](TRKFile &file) { return file.fetch(); });
}

ALLF_DATA *trk_get_event_data(_TRKFILE *handle) noexcept {
    return with(handle, nullptr, [&](TRKFile &file) {
        return file.fetchIf([](unsigned code) { return trk::kEvents.contains(code); });
    });
}

ALLF_DATA *trk_get_sample_data(_TRKFILE *handle) noexcept {
    return with(handle, nullptr,
                [&](TRKFile &file) { return file.fetchIf([](unsigned code) { return code == REC_SAMPLE; }); });
}

ALLF_DATA *trk_get_recording_data(_TRKFILE *handle) noexcept {
    return with(handle, nullptr,
                [&](TRKFile &file) { return file.fetchIf([](unsigned code) { return code == REC_RECORDING; }); });
}

FEVENT *trk_get_event(ALLF_DATA *record) noexcept {
    const uint16_t type = typeField(record);
    return type != REC_RECORDING && type != REC_SAMPLE ? &record->event : nullptr;
}

FSAMPLE_REC *trk_get_sample(ALLF_DATA *record) noexcept {
    return typeField(record) == REC_SAMPLE ? &record->sample : nullptr;
}

FRECORDING *trk_get_recording(ALLF_DATA *record) noexcept {
    return typeField(record) == REC_RECORDING ? &record->recording : nullptr;
}

unsigned int trk_get_element_count(_TRKFILE *handle) noexcept {
    return with(handle, 0U, [&](TRKFile &file) { return static_cast<unsigned int>(file.elementCount()); });
}

int trk_set_trial_identifier(_TRKFILE *handle, char *start_text, char *end_text) noexcept {
    return with(handle, kFailed, [&](TRKFile &file) {
        file.setTrialMarkers(start_text, end_text);
        return 0;
    });
}

char *trk_get_start_trial_identifier(_TRKFILE *handle) noexcept {
    return with(handle, nullptr, [&](TRKFile &file) { return file.trialMarkers().start; });
}

char *trk_get_end_trial_identifier(_TRKFILE *handle) noexcept {
    return with(handle, nullptr, [&](TRKFile &file) { return file.trialMarkers().end; });
}

int trk_get_trial_count(_TRKFILE *handle) noexcept {
    return with(handle, 0, [&](TRKFile &file) { return static_cast<int>(file.trialCount()); });
}

int trk_jump_to_trial(_TRKFILE *handle, int trial) noexcept {
    return with(handle, kFailed, [&](TRKFile &file) { return file.goToTrial(trial); });
}

int trk_get_trial_header(_TRKFILE *handle, TRIAL *header) noexcept {
    return with(handle, kFailed, [&](TRKFile &file) { return file.copyTrialHeader(header); });
}

int trk_goto_previous_trial(_TRKFILE *handle) noexcept {
    return with(handle, kFailed, [&](TRKFile &file) { return file.goToPreviousTrial(); });
}

int trk_goto_next_trial(_TRKFILE *handle) noexcept {
    return with(handle, kFailed, [&](TRKFile &file) { return file.goToNextTrial(); });
}

int trk_goto_trial_with_start_time(_TRKFILE *handle, unsigned int time) noexcept {
    return with(handle, kFailed, [&](TRKFile &file) { return file.goToTrialWithStart(time); });
}

int trk_goto_trial_with_end_time(_TRKFILE *handle, unsigned int time) noexcept {
    return with(handle, kFailed, [&](TRKFile &file) { return file.goToTrialWithEnd(time); });
}

int trk_set_bookmark(_TRKFILE *handle, BOOKMARK *bookmark) noexcept {
    return with(handle, kFailed, [&](TRKFile &file) { return file.setBookmark(bookmark); });
}

int trk_free_bookmark(_TRKFILE *handle, BOOKMARK *bookmark) noexcept {
    return with(handle, kFailed, [&](TRKFile &file) { return file.removeBookmark(bookmark); });
}

int trk_goto_bookmark(_TRKFILE *handle, BOOKMARK *bookmark) noexcept {
    return with(handle, kFailed, [&](TRKFile &file) { return file.goToBookmark(bookmark); });
}

int trk_goto_next_bookmark(_TRKFILE *handle) noexcept {
    return with(handle, kFailed, [&](TRKFile &file) { return file.goToNextBookmark(); });
}

int trk_goto_previous_bookmark(_TRKFILE *handle) noexcept {
    return with(handle, kFailed, [&](TRKFile &file) { return file.goToPreviousBookmark(); });
}

ALLF_DATA *trk_get_sample_close_to_time(_TRKFILE *handle, unsigned int time) noexcept {
    // The doubling wraps at 32 bits: later times find the sample 2147483648 ms before, or none.
    const uint32_t key = 2 * time;
    return with(handle, nullptr, [&](TRKFile &file) { return file.fetchSampleAt(key); });
}

unsigned int trk_get_uncorrected_pupil_area(_TRKFILE *handle, FSAMPLE_REC *sample, int eye) noexcept {
    return with(handle, 0U, [&](TRKFile &file) { return rawData(file, sample, eye).pupilArea(); });
}

void trk_get_uncorrected_raw_pupil(_TRKFILE *handle, FSAMPLE_REC *sample, int eye, float out[2]) noexcept {
    put(with(handle, kMissingPoint, [&](TRKFile &file) { return rawData(file, sample, eye).pupil(); }), out);
}

unsigned int trk_get_uncorrected_cr_area(_TRKFILE *handle, FSAMPLE_REC *sample, int eye) noexcept {
    return with(handle, 0U, [&](TRKFile &file) { return rawData(file, sample, eye).crArea(); });
}

void trk_get_uncorrected_raw_cr(_TRKFILE *handle, FSAMPLE_REC *sample, int eye, float out[2]) noexcept {
    put(with(handle, kMissingPoint, [&](TRKFile &file) { return rawData(file, sample, eye).cr(); }), out);
}

unsigned int trk_get_uncorrected_cr2_area(_TRKFILE *handle, FSAMPLE_REC *sample, int eye) noexcept {
    return with(handle, 0U, [&](TRKFile &file) { return rawData(file, sample, eye).secondCrArea(); });
}

void trk_get_uncorrected_raw_cr2(_TRKFILE *handle, FSAMPLE_REC *sample, int eye, float out[2]) noexcept {
    put(with(handle, kMissingPoint, [&](TRKFile &file) { return rawData(file, sample, eye).secondCr(); }), out);
}

void trk_get_pupil_dimension(_TRKFILE *handle, FSAMPLE_REC *sample, int eye, int out[2]) noexcept {
    put(with(handle, kNothing, [&](TRKFile &file) { return rawData(file, sample, eye).pupilDimension(); }), out);
}

void trk_get_cr_dimension(_TRKFILE * /*handle*/, FSAMPLE_REC *sample, int out[2]) noexcept {
    put(trk::crDimension(*sample), out);
}

void trk_get_window_position(_TRKFILE *handle, FSAMPLE_REC *sample, int out[2]) noexcept {
    put(with(handle, kNothing, [&](TRKFile &file) { return trk::windowPosition(file.blocks(), *sample); }), out);
}

void trk_get_pupil_cr(_TRKFILE *handle, FSAMPLE_REC *sample, int eye, float out[2]) noexcept {
    put(with(handle, kMissingPoint, [&](TRKFile &file) { return rawData(file, sample, eye).pupilMinusCr(); }),
        out);
}

int trk_compute_physical_setup(float distance, float distance2, float screen_left, float screen_top,
                               float screen_right, float screen_bottom, float display_left, float display_top,
                               float display_right, float display_bottom) noexcept {
    trk::ProcessGeometry()->setUp(distance, distance2, {screen_left, screen_top, screen_right, screen_bottom},
                                  {display_left, display_top, display_right, display_bottom});
    return 0;
}

void trk_calculate_ppd(FSAMPLE_REC *sample, int eye, double *ppd_x, double *ppd_y, float step_x,
                       float step_y) noexcept {
    const trk::PixelsPerDegree ppd = trk::ProcessGeometry()->pixelsPerDegree(*sample, eye, step_x, step_y);
    *ppd_x = ppd.x;
    *ppd_y = ppd.y;
}

int trk_get_preamble_text(_TRKFILE *handle, char *buffer, int length) noexcept {
    return with(handle, kFailed, [&](TRKFile &file) {
        if (length > 0) {
            const std::string &text = file.preamble().text;
            const std::size_t copied = text.copy(buffer, static_cast<std::size_t>(length) - 1);
            buffer[copied] = '\0';
        }
        return 0;
    });
}

int trk_get_preamble_text_length(_TRKFILE *handle) noexcept {
    return with(handle, kFailed, [&](TRKFile &file) { return static_cast<int>(file.preamble().text.size()) + 1; });
}

int trk_get_revision(_TRKFILE *handle) noexcept {
    return with(handle, kFailed, [](TRKFile &file) { return int{file.preamble().revision}; });
}

int trk_get_pupilon_revision(_TRKFILE *handle) noexcept {
    return with(handle, kFailed, [](TRKFile &file) { return int{file.preamble().trackerModel}; });
}

const char *trk_get_version() noexcept { return "4.2.762.0 MacOS X   standalone Jul 20 2023"; }

// ---- The calls that came later ----

void trk_default_options(TRK_OPEN_OPTIONS *options) noexcept { *options = trk::defaultOptions(); }

_TRKFILE *trk_open(const char *path, const TRK_OPEN_OPTIONS *options, TRK_ERROR *error) noexcept {
    TRK_ERROR unwanted;
    TRK_ERROR &result = error != nullptr ? *error : unwanted;
    result = trk::noError();
    TRK_OPEN_OPTIONS all;
    if (!trk::checkArguments(path, options, all, result)) {
        return nullptr;
    }
    const trk::LogReceiver receiver{all.log, all.user};
    const trk::LogScope scope(&receiver);
    trk::OpenProgress progress;
    try {
        const trk::OpenRequest request(path, all);
        return trk::keepHandle(trk::openRecording(request, progress));
    } catch (const trk::TRKException &exception) {
        trk::logLine("%s\n", exception.text());
        trk::describeFailure(path, all, exception, progress, result);
    } catch (...) {
        trk::logLine("%s", trk::kOutOfMemory);
        trk::describeWantOfMemory(path, result);
    }
    return nullptr;
}

int trk_get_damage(_TRKFILE *handle, int number, TRK_DAMAGE *damage) noexcept {
    return with(handle, kFailed, [&](TRKFile &file) {
        const std::vector<TRK_DAMAGE> &damages = file.damages();
        if (damage == nullptr || number < 0 || static_cast<std::size_t>(number) >= damages.size()) {
            return kFailed;
        }
        *damage = damages[static_cast<std::size_t>(number)];
        return 0;
    });
}

unsigned trk_get_position(_TRKFILE *handle) noexcept {
    return with(handle, 0U, [](TRKFile &file) { return file.itemsPassed(); });
}

int trk_goto_item(_TRKFILE *handle, unsigned item) noexcept {
    return with(handle, kFailed, [&](TRKFile &file) { return file.goToItem(item); });
}

unsigned trk_find_time(_TRKFILE *handle, unsigned ms) noexcept {
    return with(handle, 0U, [&](TRKFile &file) { return file.findTime(ms); });
}

int trk_get_trial_range(_TRKFILE *handle, int trial, unsigned *first, unsigned *end) noexcept {
    return with(handle, kFailed, [&](TRKFile &file) {
        const trk::Trial *const found = file.trial(trial);
        if (found == nullptr) {
            return kFailed;
        }
        if (first != nullptr) {
            *first = found->firstItem;
        }
        if (end != nullptr) {
            *end = found->endItem;
        }
        return 0;
    });
}

int trk_is_compressed(_TRKFILE *handle) noexcept {
    return with(handle, 0, [](TRKFile &file) { return file.isCompressed() ? 1 : 0; });
}

// ---- Calls that are not exported ----

int trk_get_sample_interval(_TRKFILE *handle) {
    return with(handle, kFailed, [&](TRKFile &file) {
        const float rate = sampleRateOf(file);
        return rate > 0 ? trk::truncateTo<int>(1000.0 / static_cast<double>(rate)) : 0;
    });
}

float trk_get_sample_interval_ex(_TRKFILE *handle) {
    return with(handle, 0.0F, [&](TRKFile &file) {
        const float rate = sampleRateOf(file);
        return rate > 0 ? 1000.0F / rate : 0.0F;
    });
}

float trk_get_sample_per_second(_TRKFILE *handle) {
    return with(handle, 0.0F, [&](TRKFile &file) { return sampleRateOf(file); });
}

int get_filter_level_for_sample(_TRKFILE *handle) {
    return with(handle, kFailed, [&](TRKFile &file) { return file.filterLevel(); });
}

int trk_get_element_index(_TRKFILE *handle) {
    return with(handle, kFailed, [&](TRKFile &file) { return static_cast<int>(file.itemsPassed()); });
}

int trk_get_input_data_availibity(_TRKFILE *handle) {
    return with(handle, kFailed, [&](TRKFile &file) { return static_cast<int>(file.inputDataAvailability()); });
}
