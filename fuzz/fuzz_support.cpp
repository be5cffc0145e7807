#include "fuzz_support.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

namespace trk_fuzz {

namespace raw = trkwriter::raw;

namespace {

constexpr size_t kLongestLogText = 499;
constexpr unsigned kLongestMessage = 498;

// The library prints a line at every open, the log goes to the hook.
void quieten() {
    static const bool quiet = std::freopen("/dev/null", "w", stdout) != nullptr;
    require(quiet, "standard output can be silenced");
    trk_set_log_function(
        [](const char *text) { require(std::strlen(text) <= kLongestLogText, "log text length"); });
}

} // namespace

void require(bool kept, const char *promise) {
    if (!kept) {
        std::fprintf(stderr, "broken promise: %s\n", promise);
        std::abort();
    }
}

Options::Options(Input &input) {
    const auto flagByte = input.take<uint8_t>();
    const auto choices = input.take<uint8_t>();
    flags = flagByte & 0x1F;
    loadEvents = choices & 3;
    loadSamples = choices >> 2 & 1;
    config = (choices & 8) != 0 ? CONFIG{static_cast<float>(flagByte), 30.0F} : CONFIG{MISSING_DATA, MISSING_DATA};
    container = static_cast<Container>(choices >> 4 & 3);
    source = choices >> 6;
}

Bytes Options::preambleText() const {
    constexpr std::array kSources{"LX", "V2", "OTHER"};
    return source < kSources.size() ? raw::preamble(5, kSources[source]) : Bytes(raw::kPreambleEnd);
}

Bytes Options::file(std::string_view rest) const {
    const auto with = [this](std::string_view magic, std::string_view body) {
        return Bytes(magic).append(preambleText()).append(body);
    };
    switch (container) {
    case PlainRecords:
        return with(raw::kMagicCombfile, rest);
    case CompressedRecords:
        return with(raw::kMagicCompressed, raw::deflated(rest));
    case CompressedBody:
        return with(raw::kMagicCompressed, rest);
    default:
        return Bytes(rest);
    }
}

MemoryFile::MemoryFile()
    : descriptor_(memfd_create("fuzz", MFD_CLOEXEC)), path_("/proc/self/fd/" + std::to_string(descriptor_)) {
    require(descriptor_ >= 0, "files in memory can be had");
}

const char *MemoryFile::write(std::string_view bytes) {
    require(ftruncate(descriptor_, 0) == 0, "the file can be emptied");
    require(pwrite(descriptor_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
            "the file can be written");
    return path_.c_str();
}

Handle open(const char *path, Options &options) {
    quieten();
    int error = 1;
    Handle handle(
        trk_open_file_ex(path, options.flags, options.loadEvents, options.loadSamples, &options.config, &error),
        &trk_close_file);
    require(error == (handle ? 0 : -1), "the error value goes with the handle");
    if (handle && trk_get_element_count(handle.get()) > kMostItems) {
        handle.reset();
    }
    return handle;
}

void readRecord(int code, const ALLF_DATA *record, int loadEvents) {
    if (record == nullptr || code == REC_SAMPLE || code == REC_RECORDING) {
        return;
    }
    const TRK_MESSAGE *const message = record->event.message;
    // A message of the extra log has the length of its whole text.
    if (message != nullptr && (loadEvents & TRK_EVENTS_MESSAGE_LOG) == 0) {
        require(message->length <= kLongestMessage, "message length");
        require(message->text[message->length] == '\0', "a message is followed by a zero byte");
    }
    require(message == nullptr || std::memchr(message->text, 0, sizeof(message->text)) != nullptr,
            "a message text ends");
}

void walk(_TRKFILE *handle, int loadEvents) {
    unsigned steps = 0;
    while (const int code = trk_get_next_data(handle)) {
        require(steps++ < trk_get_element_count(handle), "the walk ends");
        readRecord(code, trk_get_float_data(handle), loadEvents);
    }
}

} // namespace trk_fuzz
