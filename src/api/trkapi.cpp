// The exported calls.
#include "trkapi/trkapi.h"

#include "api/internal_calls.h"
#include "api/live_handles.h"
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

using trk::TRKFile;

namespace {

TRKFile &fileOf(_TRKFILE *handle) { return *reinterpret_cast<TRKFile *>(handle); }

trk::RawEyeData rawData(_TRKFILE *handle, const FSAMPLE_REC *sample, int eye) {
    return {fileOf(handle).blocks(), *sample, eye};
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

float sampleRateOf(_TRKFILE *handle) {
    const FRECORDING *const recording = fileOf(handle).currentRecording();
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
                           int *error_value) {
    report(error_value, 0);
    trk::printText("loadEvents = %x\n", static_cast<unsigned>(loadEvents));
    try {
        const trk::OpenRequest request(path, open_flags, loadEvents, load_samples, config);
        return trk::keepHandle(trk::openRecording(request));
    } catch (const trk::TRKException &error) {
        trk::logLine("%s\n", error.text());
        report(error_value, -1);
        return nullptr;
    } catch (...) {
        report(error_value, -1);
        throw;
    }
}

_TRKFILE *trk_open_file(const char *path, int open_flags, int loadEvents, int load_samples, int *error_value) {
    static CONFIG noFixedResolution{MISSING_DATA, MISSING_DATA};
    return trk_open_file_ex(path, open_flags, loadEvents, load_samples, &noFixedResolution, error_value);
}

int trk_close_file(_TRKFILE *handle) {
    trk::takeHandle(handle).reset();
    return 0;
}

void trk_set_log_function(TRK_LOG_FUNCTION function) { trk::setLogFunction(function); }

int trk_set_extra_message_file(const char *path) {
    trk::setExtraMessageFile(path);
    return 0;
}

int trk_get_next_data(_TRKFILE *handle) { return fileOf(handle).step(); }

ALLF_DATA *trk_get_float_data(_TRKFILE *handle) { return fileOf(handle).fetch(); }

ALLF_DATA *trk_get_event_data(_TRKFILE *handle) {
    return fileOf(handle).fetchIf([](unsigned code) { return trk::kEvents.contains(code); });
}

ALLF_DATA *trk_get_sample_data(_TRKFILE *handle) {
    return fileOf(handle).fetchIf([](unsigned code) { return code == REC_SAMPLE; });
}

ALLF_DATA *trk_get_recording_data(_TRKFILE *handle) {
    return fileOf(handle).fetchIf([](unsigned code) { return code == REC_RECORDING; });
}

FEVENT *trk_get_event(ALLF_DATA *record) {
    const uint16_t type = typeField(record);
    return type != REC_RECORDING && type != REC_SAMPLE ? &record->event : nullptr;
}

FSAMPLE_REC *trk_get_sample(ALLF_DATA *record) {
    return typeField(record) == REC_SAMPLE ? &record->sample : nullptr;
}

FRECORDING *trk_get_recording(ALLF_DATA *record) {
    return typeField(record) == REC_RECORDING ? &record->recording : nullptr;
}

unsigned int trk_get_element_count(_TRKFILE *handle) {
    return static_cast<unsigned int>(fileOf(handle).elementCount());
}

int trk_set_trial_identifier(_TRKFILE *handle, char *start_text, char *end_text) {
    fileOf(handle).setTrialMarkers(start_text, end_text);
    return 0;
}

char *trk_get_start_trial_identifier(_TRKFILE *handle) { return fileOf(handle).trialMarkers().start; }

char *trk_get_end_trial_identifier(_TRKFILE *handle) { return fileOf(handle).trialMarkers().end; }

int trk_get_trial_count(_TRKFILE *handle) { return static_cast<int>(fileOf(handle).trialCount()); }

int trk_jump_to_trial(_TRKFILE *handle, int trial) { return fileOf(handle).goToTrial(trial); }

int trk_get_trial_header(_TRKFILE *handle, TRIAL *header) { return fileOf(handle).copyTrialHeader(header); }

int trk_goto_previous_trial(_TRKFILE *handle) { return fileOf(handle).goToPreviousTrial(); }

int trk_goto_next_trial(_TRKFILE *handle) { return fileOf(handle).goToNextTrial(); }

int trk_goto_trial_with_start_time(_TRKFILE *handle, unsigned int time) {
    return fileOf(handle).goToTrialWithStart(time);
}

int trk_goto_trial_with_end_time(_TRKFILE *handle, unsigned int time) {
    return fileOf(handle).goToTrialWithEnd(time);
}

int trk_set_bookmark(_TRKFILE *handle, BOOKMARK *bookmark) { return fileOf(handle).setBookmark(bookmark); }

int trk_free_bookmark(_TRKFILE *handle, BOOKMARK *bookmark) { return fileOf(handle).removeBookmark(bookmark); }

int trk_goto_bookmark(_TRKFILE *handle, BOOKMARK *bookmark) { return fileOf(handle).goToBookmark(bookmark); }

int trk_goto_next_bookmark(_TRKFILE *handle) { return fileOf(handle).goToNextBookmark(); }

int trk_goto_previous_bookmark(_TRKFILE *handle) { return fileOf(handle).goToPreviousBookmark(); }

ALLF_DATA *trk_get_sample_close_to_time(_TRKFILE *handle, unsigned int time) {
    // The doubling wraps at 32 bits: later times find the sample 2147483648 ms before, or none.
    const uint32_t key = 2 * time;
    return fileOf(handle).fetchSampleAt(key);
}

unsigned int trk_get_uncorrected_pupil_area(_TRKFILE *handle, FSAMPLE_REC *sample, int eye) {
    return rawData(handle, sample, eye).pupilArea();
}

void trk_get_uncorrected_raw_pupil(_TRKFILE *handle, FSAMPLE_REC *sample, int eye, float out[2]) {
    put(rawData(handle, sample, eye).pupil(), out);
}

unsigned int trk_get_uncorrected_cr_area(_TRKFILE *handle, FSAMPLE_REC *sample, int eye) {
    return rawData(handle, sample, eye).crArea();
}

void trk_get_uncorrected_raw_cr(_TRKFILE *handle, FSAMPLE_REC *sample, int eye, float out[2]) {
    put(rawData(handle, sample, eye).cr(), out);
}

unsigned int trk_get_uncorrected_cr2_area(_TRKFILE *handle, FSAMPLE_REC *sample, int eye) {
    return rawData(handle, sample, eye).secondCrArea();
}

void trk_get_uncorrected_raw_cr2(_TRKFILE *handle, FSAMPLE_REC *sample, int eye, float out[2]) {
    put(rawData(handle, sample, eye).secondCr(), out);
}

void trk_get_pupil_dimension(_TRKFILE *handle, FSAMPLE_REC *sample, int eye, int out[2]) {
    put(rawData(handle, sample, eye).pupilDimension(), out);
}

void trk_get_cr_dimension(_TRKFILE * /*handle*/, FSAMPLE_REC *sample, int out[2]) {
    put(trk::crDimension(*sample), out);
}

void trk_get_window_position(_TRKFILE *handle, FSAMPLE_REC *sample, int out[2]) {
    put(trk::windowPosition(fileOf(handle).blocks(), *sample), out);
}

void trk_get_pupil_cr(_TRKFILE *handle, FSAMPLE_REC *sample, int eye, float out[2]) {
    put(rawData(handle, sample, eye).pupilMinusCr(), out);
}

int trk_compute_physical_setup(float distance, float distance2, float screen_left, float screen_top,
                               float screen_right, float screen_bottom, float display_left, float display_top,
                               float display_right, float display_bottom) {
    trk::ProcessGeometry()->setUp(distance, distance2, {screen_left, screen_top, screen_right, screen_bottom},
                                  {display_left, display_top, display_right, display_bottom});
    return 0;
}

void trk_calculate_ppd(FSAMPLE_REC *sample, int eye, double *ppd_x, double *ppd_y, float step_x, float step_y) {
    const trk::PixelsPerDegree ppd = trk::ProcessGeometry()->pixelsPerDegree(*sample, eye, step_x, step_y);
    *ppd_x = ppd.x;
    *ppd_y = ppd.y;
}

int trk_get_preamble_text(_TRKFILE *handle, char *buffer, int length) {
    if (length > 0) {
        const std::string &text = fileOf(handle).preamble().text;
        const std::size_t copied = text.copy(buffer, static_cast<std::size_t>(length) - 1);
        buffer[copied] = '\0';
    }
    return 0;
}

int trk_get_preamble_text_length(_TRKFILE *handle) {
    return static_cast<int>(fileOf(handle).preamble().text.size()) + 1;
}

int trk_get_revision(_TRKFILE *handle) { return fileOf(handle).preamble().revision; }

int trk_get_pupilon_revision(_TRKFILE *handle) { return fileOf(handle).preamble().trackerModel; }

const char *trk_get_version() { return "4.2.762.0 MacOS X   standalone Jul 20 2023"; }

int trk_get_sample_interval(_TRKFILE *handle) {
    const float rate = sampleRateOf(handle);
    return rate > 0 ? trk::truncateTo<int>(1000.0 / static_cast<double>(rate)) : 0;
}

float trk_get_sample_interval_ex(_TRKFILE *handle) {
    const float rate = sampleRateOf(handle);
    return rate > 0 ? 1000.0F / rate : 0.0F;
}

float trk_get_sample_per_second(_TRKFILE *handle) { return sampleRateOf(handle); }

int get_filter_level_for_sample(_TRKFILE *handle) { return fileOf(handle).filterLevel(); }

int trk_get_element_index(_TRKFILE *handle) { return static_cast<int>(fileOf(handle).itemsPassed()); }

int trk_get_input_data_availibity(_TRKFILE *handle) {
    return static_cast<int>(fileOf(handle).inputDataAvailability());
}
