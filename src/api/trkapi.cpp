// The exported calls.
#include "trkapi/trkapi.h"

#include "api/internal_calls.h"
#include "api/live_handles.h"
#include "api/trk_file.h"
#include "base/exception.h"
#include "base/log.h"
#include "base/numeric.h"
#include "records/codes.h"

#include <cstddef>
#include <cstdio>
#include <cstring>

using trk::TRKFile;

namespace {

TRKFile &fileOf(_TRKFILE *handle) { return *reinterpret_cast<TRKFile *>(handle); }

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
    std::printf("loadEvents = %x\n", static_cast<unsigned>(loadEvents));
    try {
        const trk::OpenRequest request(path, open_flags, loadEvents, load_samples, config);
        return trk::keepHandle(std::make_unique<TRKFile>(request));
    } catch (trk::TRKException *thrown) {
        const trk::CaughtException exception(thrown);
        trk::print_log("%s\n", exception->text());
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

int trk_get_next_data(_TRKFILE *handle) { return fileOf(handle).getNextData(); }

ALLF_DATA *trk_get_float_data(_TRKFILE *handle) { return fileOf(handle).getFloatData(); }

ALLF_DATA *trk_get_event_data(_TRKFILE *handle) { return fileOf(handle).getFloatDataIf(trk::isEventCode); }

ALLF_DATA *trk_get_sample_data(_TRKFILE *handle) {
    return fileOf(handle).getFloatDataIf([](unsigned code) { return code == REC_SAMPLE; });
}

ALLF_DATA *trk_get_recording_data(_TRKFILE *handle) {
    return fileOf(handle).getFloatDataIf([](unsigned code) { return code == REC_RECORDING; });
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

int trk_get_element_index(_TRKFILE *handle) { return static_cast<int>(fileOf(handle).currentIndex()); }

int trk_get_input_data_availibity(_TRKFILE *handle) {
    return static_cast<int>(fileOf(handle).inputDataAvailability());
}
