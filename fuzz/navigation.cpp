// Opens a recording and runs a script of calls on it: options, length of the script, script, recording.
#include "fuzz_support.h"

#include "api/internal_calls.h"

#include <array>
#include <string>

namespace {

class Script {
  public:
    Script(_TRKFILE *handle, int loadEvents, std::string_view bytes)
        : handle_(handle), loadEvents_(loadEvents), bytes_(bytes) {}

    void run() {
        while (!bytes_.empty()) {
            call(byte() % 16);
        }
    }

  private:
    uint8_t byte() { return bytes_.take<uint8_t>(); }
    BOOKMARK *bookmark() { return &bookmarks_[byte() % bookmarks_.size()]; }

    // A time near that of the last item, or any.
    uint32_t time() {
        const auto distance = bytes_.take<int8_t>();
        return distance < 100 ? lastTime_ + static_cast<uint32_t>(distance) : bytes_.take<uint32_t>();
    }

    void call(unsigned number) {
        switch (number) {
        case 0:
            return step(1);
        case 1:
            return step(byte());
        case 2:
            return setTrialTexts(byte());
        case 3:
            trk_jump_to_trial(handle_, bytes_.take<int8_t>());
            break;
        case 4:
            trk_goto_next_trial(handle_);
            break;
        case 5:
            trk_goto_previous_trial(handle_);
            break;
        case 6:
            static_cast<void>((byte() & 1) != 0 ? trk_goto_trial_with_start_time(handle_, time())
                                                : trk_goto_trial_with_end_time(handle_, time()));
            break;
        case 7:
            trk_set_bookmark(handle_, bookmark());
            return;
        case 8:
            trk_goto_bookmark(handle_, bookmark());
            trk_get_float_data(handle_);
            return;
        case 9:
            trk_free_bookmark(handle_, bookmark());
            return;
        case 10:
            static_cast<void>((byte() & 1) != 0 ? trk_goto_next_bookmark(handle_)
                                                : trk_goto_previous_bookmark(handle_));
            return;
        case 11:
        case 12:
            if (const ALLF_DATA *const record = trk_get_sample_close_to_time(handle_, time())) {
                useSample(record->sample);
            }
            return;
        case 13:
            return setUpGeometry(byte());
        case 14:
            return changeSample();
        default:
            return askForFacts();
        }
        TRIAL header{};
        if (trk_get_trial_header(handle_, &header) == 0) {
            trk_fuzz::require(trk_get_trial_count(handle_) > 0, "a header belongs to a trial");
            lastTime_ = header.recording != nullptr ? header.recording->time : header.start_time;
        }
    }

    void step(unsigned count) {
        for (int code = 0; count > 0 && (code = trk_get_next_data(handle_)) != 0; --count) {
            ALLF_DATA *const record = trk_get_float_data(handle_);
            trk_fuzz::readRecord(code, record, loadEvents_);
            if (record == nullptr) {
                continue;
            }
            lastTime_ = code == REC_RECORDING ? record->recording.time : record->event.start_time;
            if (code == REC_SAMPLE) {
                lastTime_ = record->sample.time;
                useSample(record->sample);
            }
            // These fetch again; at most one of them answers.
            for (ALLF_DATA *const view :
                 {trk_get_event_data(handle_), trk_get_sample_data(handle_), trk_get_recording_data(handle_)}) {
                if (view != nullptr) {
                    trk_get_event(view);
                    trk_get_sample(view);
                    trk_get_recording(view);
                }
            }
        }
    }

    void setTrialTexts(unsigned choice) {
        switch (choice % 4) {
        case 0:
            trk_set_trial_identifier(handle_, nullptr, nullptr);
            return;
        case 1:
            startText_ = "TRIALID";
            endText_ = "TRIAL OK";
            break;
        case 2:
            startText_ = "inPut_type_" + std::to_string(choice);
            endText_ = std::to_string(byte());
            break;
        default:
            startText_ = bytes_.text(choice / 4 % 8);
            endText_ = bytes_.text(choice / 32);
        }
        trk_set_trial_identifier(handle_, startText_.data(), (choice & 0x80) != 0 ? nullptr : endText_.data());
    }

    void useSample(const FSAMPLE_REC &sample) {
        sample_ = sample;
        std::array<float, 2> position{};
        std::array<int, 2> size{};
        double x = 0;
        double y = 0;
        for (const int eye : {0, 1}) {
            trk_get_uncorrected_pupil_area(handle_, &sample_, eye);
            trk_get_uncorrected_cr_area(handle_, &sample_, eye);
            trk_get_uncorrected_cr2_area(handle_, &sample_, eye);
            trk_get_uncorrected_raw_pupil(handle_, &sample_, eye, position.data());
            trk_get_uncorrected_raw_cr(handle_, &sample_, eye, position.data());
            trk_get_uncorrected_raw_cr2(handle_, &sample_, eye, position.data());
            trk_get_pupil_cr(handle_, &sample_, eye, position.data());
            trk_get_pupil_dimension(handle_, &sample_, eye, size.data());
            trk_calculate_ppd(&sample_, eye, &x, &y, probe_, 100.0F);
        }
        trk_get_cr_dimension(handle_, &sample_, size.data());
        trk_get_window_position(handle_, &sample_, size.data());
    }

    void setUpGeometry(unsigned choice) {
        std::array<float, 10> setup{700, MISSING_DATA, -200, 150, 200, -150, 0, 0, 1919, 1079};
        setup[choice % setup.size()] = bytes_.take<float>();
        trk_compute_physical_setup(setup[0], setup[1], setup[2], setup[3], setup[4], setup[5], setup[6], setup[7],
                                   setup[8], setup[9]);
        probe_ = choice >= 128 ? bytes_.take<float>() : 100.0F;
    }

    // Callers may change a record; anything may then stand in it.
    void changeSample() {
        FSAMPLE_REC sample = sample_;
        const size_t offset = bytes_.take<uint16_t>() % (sizeof(sample) - sizeof(float));
        const auto value = bytes_.take<float>();
        std::memcpy(reinterpret_cast<char *>(&sample) + offset, &value, sizeof(value));
        useSample(sample);
    }

    void askForFacts() {
        std::array<char, 64> text{};
        trk_get_preamble_text(handle_, text.data(), byte() % static_cast<int>(text.size()));
        trk_get_revision(handle_);
        trk_get_pupilon_revision(handle_);
        trk_get_trial_count(handle_);
        trk_get_start_trial_identifier(handle_);
        trk_get_end_trial_identifier(handle_);
        trk_get_sample_interval(handle_);
        trk_get_sample_interval_ex(handle_);
        trk_get_sample_per_second(handle_);
        trk_get_element_index(handle_);
        get_filter_level_for_sample(handle_);
        trk_get_input_data_availibity(handle_);
    }

    _TRKFILE *handle_;
    int loadEvents_;
    trk_fuzz::Input bytes_;
    uint32_t lastTime_ = 0;
    float probe_ = 100.0F;
    FSAMPLE_REC sample_{};
    std::string startText_;
    std::string endText_;
    std::array<BOOKMARK, 4> bookmarks_{};
};

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static trk_fuzz::MemoryFile file;
    trk_fuzz::Input input(data, size);
    trk_fuzz::Options options(input);
    const std::string_view calls = input.text(input.take<uint8_t>());
    trk_compute_physical_setup(700, MISSING_DATA, -200, 150, 200, -150, 0, 0, 1919, 1079);
    if (const auto recording = trk_fuzz::open(file.write(options.file(input.rest())), options)) {
        Script(recording.get(), options.loadEvents, calls).run();
    }
    return 0;
}
