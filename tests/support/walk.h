// Opens recordings through the public calls and walks them.
#pragma once

#include "support/files.h"
#include "support/texts.h"
#include "trkapi/trkapi.h"
#include "trkwriter/raw.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace trk_test {

using namespace trkwriter::raw;

// Gathers the diagnostic lines while it lives; one at a time.
class LogCapture {
  public:
    LogCapture() {
        trk_set_log_function([](const char *text) { log += text; });
    }
    ~LogCapture() {
        trk_set_log_function(nullptr);
        log.clear();
    }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    // The lines since the last call.
    static std::string take() { return std::exchange(log, {}); }

  private:
    static inline std::string log;
};

struct OpenOptions {
    int flags = TRK_OPEN_NO_CHECK;
    int loadEvents = TRK_EVENTS_ALL;
    int loadSamples = 1;
    CONFIG *config = nullptr;
};

// What one step and one fetch gave.
struct Item {
    int code = 0;
    bool fetched = false; // false: the fetch gave null, and the record is all zeros
    ALLF_DATA record{};
    std::string message{}; // text of the event's message; the record's own pointer is null here

    const FSAMPLE_REC &sample() const { return record.sample; }
    const FEVENT &event() const { return record.event; }
    const FRECORDING &recording() const { return record.recording; }
    uint32_t time() const {
        return code == REC_SAMPLE ? sample().time : code == REC_RECORDING ? recording().time : event().start_time;
    }
    // Compares field by field, up to the padding in the record.
    bool operator==(const Item &other) const {
        const size_t size = code == REC_SAMPLE      ? offsetof(FSAMPLE_REC, status) + 2
                            : code == REC_RECORDING ? offsetof(FRECORDING, eye) + 1
                                                    : offsetof(FEVENT, parse_flags) + 2;
        return code == other.code && fetched == other.fetched && message == other.message &&
               std::memcmp(&record, &other.record, size) == 0;
    }
};

inline std::string textOf(const Item &item) {
    const std::string text = item.code == REC_SAMPLE      ? textOf(item.sample())
                             : item.code == REC_RECORDING ? textOf(item.recording())
                                                          : textOf(item.event());
    return item.fetched ? text + (item.message.empty() ? "" : " '" + item.message + "'")
                        : std::to_string(item.code) + " unread";
}

inline void PrintTo(const Item &item, std::ostream *out) { *out << textOf(item); }

// The current item, whose code is given, with the record that its fetch gave.
inline Item itemOf(int code, const ALLF_DATA *record) {
    Item item{.code = code, .fetched = record != nullptr, .record = record != nullptr ? *record : ALLF_DATA{}};
    const bool event = record != nullptr && code != REC_SAMPLE && code != REC_RECORDING;
    if (const auto *message = event ? std::exchange(item.record.event.message, nullptr) : nullptr) {
        item.message.assign(message->text, std::min<size_t>(message->length, sizeof(message->text)));
    }
    return item;
}

// An open recording, or a failed attempt.
class Recording {
  public:
    explicit Recording(const std::string &path, const OpenOptions &options = {})
        : handle_(trk_open_file_ex(path.c_str(), options.flags, options.loadEvents, options.loadSamples,
                                   options.config, &error_),
                  &trk_close_file) {}

    explicit operator bool() const { return handle_ != nullptr; }
    _TRKFILE *handle() const { return handle_.get(); }
    int error() const { return error_; }
    int step() const { return trk_get_next_data(handle()); }

    Item fetch(int code) const { return itemOf(code, trk_get_float_data(handle())); }

    // What `tell` says of each item by its code, from the current position to the end; it may fetch the item.
    template <class Tell> std::string told(Tell tell) const {
        std::string text;
        while (const int code = step()) {
            text += tell(code);
        }
        return text;
    }

    // All items from the current position to the end, every one fetched.
    std::vector<Item> walk() const {
        std::vector<Item> items;
        while (const int code = step()) {
            if (items.size() == trk_get_element_count(handle())) {
                throw std::runtime_error("the walk does not end");
            }
            items.push_back(fetch(code));
        }
        return items;
    }

  private:
    int error_ = 1;
    std::unique_ptr<_TRKFILE, int (*)(_TRKFILE *)> handle_;
};

inline ptrdiff_t openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// Opens `bytes` as a recording. Its file is gone from the directory once it is open.
inline Recording openBytes(const Bytes &bytes, const OpenOptions &options = {}) {
    static const TemporaryDirectory directory;
    const std::string path = directory.save("recording.trk", bytes);
    Recording recording(path, options);
    std::filesystem::remove(path);
    return recording;
}

} // namespace trk_test
