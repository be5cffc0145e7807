#include "api/open_errors.h"

#include "io/temporary_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace trk {

namespace {

constexpr int kKnownFlags = TRK_OPEN_CHECK | TRK_OPEN_CHECK_AND_FILL | TRK_OPEN_TOLERANT | TRK_OPEN_KEEP_TIMES |
                            TRK_OPEN_MESSAGE_OFFSETS | TRK_OPEN_SALVAGE;
constexpr int kBothChecks = TRK_OPEN_CHECK | TRK_OPEN_CHECK_AND_FILL;

// A size between these is one; what a later version adds is a member or two, no page.
constexpr std::size_t kSmallestOptions = offsetof(TRK_OPEN_OPTIONS, config);
constexpr std::size_t kLargestOptions = 4096;

// The part of a path that people know a file by.
const char *nameIn(const char *path) {
    const char *const slash = std::strrchr(path, '/');
    return slash != nullptr && slash[1] != '\0' ? slash + 1 : path;
}

const char *adviceFor(int systemError) {
    switch (systemError) {
    case EMFILE:
    case ENFILE:
        return ": close other files, or raise the limit of open files";
    case EACCES:
        return ": it may not be read by this user";
    default:
        return "";
    }
}

void describeFile(const char *path, int systemError, const std::string &unreadableLog, TRK_ERROR &error) {
    error.system_error = systemError;
    if (!unreadableLog.empty()) {
        say(error, TRK_ERROR_FILE, "the message log %s cannot be read: %s%s", unreadableLog.c_str(),
            systemError == ESPIPE ? "it is no regular file" : std::strerror(systemError), adviceFor(systemError));
    } else if (systemError == ESPIPE) {
        say(error, TRK_ERROR_FILE, "%s is a pipe: a recording must be a file", nameIn(path));
    } else {
        say(error, TRK_ERROR_FILE, "%s cannot be read: %s%s", nameIn(path), std::strerror(systemError),
            adviceFor(systemError));
    }
}

// The first bytes of a file, fit to be shown.
std::array<char, 64> beginningOf(const char *path) {
    std::array<char, 64> shown{};
    std::array<unsigned char, 12> bytes{};
    const FilePointer file(std::fopen(path, "rb"));
    const std::size_t count = file ? std::fread(bytes.data(), 1, bytes.size(), file.get()) : 0;
    std::size_t used = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const bool printable = bytes[i] >= 0x20 && bytes[i] < 0x7F && bytes[i] != '"' && bytes[i] != '\\';
        used += static_cast<std::size_t>(
            std::snprintf(&shown[used], shown.size() - used, printable ? "%c" : "\\x%02X", bytes[i]));
    }
    return shown;
}

void describeNoRecording(const char *path, TRK_ERROR &error) {
    struct stat status {};
    const std::array<char, 64> beginning = beginningOf(path);
    if (::stat(path, &status) == 0 && S_ISDIR(status.st_mode)) {
        describeFile(path, EISDIR, {}, error);
    } else if (beginning[0] == '\0') {
        say(error, TRK_ERROR_NOT_A_RECORDING, "%s is empty: it is no recording", nameIn(path));
    } else {
        say(error, TRK_ERROR_NOT_A_RECORDING, "%s is not a recording: it begins with \"%s\"", nameIn(path),
            beginning.data());
    }
}

double megabytes(int64_t bytes) { return static_cast<double>(bytes) / 1e6; }

void describeTemporaryFile(const char *path, const TRK_OPEN_OPTIONS &options, int systemError,
                           const OpenProgress &progress, TRK_ERROR &error) {
    error.system_error = systemError;
    const std::string folder =
        options.temporary_folder != nullptr ? options.temporary_folder : defaultTemporaryFolder();
    const int64_t consumed = progress.inflation.consumed;
    const int64_t inflated = progress.inflation.inflated;
    if (systemError == ENOSPC || systemError == EDQUOT || systemError == EFBIG) {
        // As the part that was inflated, so the whole.
        const double grows = consumed > 0 ? static_cast<double>(inflated) / static_cast<double>(consumed) : 0;
        const double needed = grows * static_cast<double>(std::max(progress.size, consumed));
        say(error, TRK_ERROR_TEMPORARY_FILE,
            "the temporary folder %s is full: about %.0f MB are needed to inflate %s, %.0f MB are free; make room "
            "or choose another folder (TMPDIR)",
            folder.c_str(), megabytes(static_cast<int64_t>(needed)), nameIn(path),
            megabytes(std::max<int64_t>(freeBytesIn(folder), 0)));
    } else {
        say(error, TRK_ERROR_TEMPORARY_FILE, "%s cannot be inflated in the temporary folder %s: %s%s",
            nameIn(path), folder.c_str(), std::strerror(systemError), adviceFor(systemError));
    }
}

void describeDamage(const char *path, const OpenProgress &progress, TRK_ERROR &error) {
    error.offset = progress.offset;
    if (progress.offset < 0) {
        say(error, TRK_ERROR_DAMAGED, "%s is damaged: it breaks off before its records begin", nameIn(path));
    } else {
        say(error, TRK_ERROR_DAMAGED,
            "%s is damaged at byte %lld: open it tolerant for what lies before, or with salvage for all that can "
            "be saved",
            nameIn(path), static_cast<long long>(progress.offset));
    }
}

} // namespace

void say(TRK_ERROR &error, TRK_ERROR_CODE code, const char *format, ...) {
    constexpr std::size_t kCapacity = sizeof(error.text);
    error.code = code;
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(error.text, kCapacity, format, arguments);
    va_end(arguments);
    if (length >= static_cast<int>(kCapacity)) {
        std::size_t end = kCapacity - 1;
        while (end > 0 && (static_cast<unsigned char>(error.text[end - 1]) & 0xC0U) == 0x80) {
            --end;
        }
        const bool broken = end > 0 && static_cast<unsigned char>(error.text[end - 1]) >= 0xC0;
        error.text[broken ? end - 1 : kCapacity - 1] = '\0';
    }
    // File names may hold line ends.
    const auto isControl = [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return byte < 0x20 || byte == 0x7F;
    };
    std::replace_if(error.text, error.text + std::strlen(error.text), isControl, '?');
}

TRK_OPEN_OPTIONS defaultOptions() {
    TRK_OPEN_OPTIONS options{};
    options.size = sizeof(options);
    options.flags = TRK_OPEN_CHECK;
    options.events = TRK_EVENTS_ALL;
    options.samples = 1;
    options.config = {MISSING_DATA, MISSING_DATA};
    return options;
}

TRK_ERROR noError() {
    TRK_ERROR error{};
    error.offset = error.item = -1;
    return error;
}

bool checkArguments(const char *path, const TRK_OPEN_OPTIONS *options, TRK_OPEN_OPTIONS &all, TRK_ERROR &error) {
    all = defaultOptions();
    if (options != nullptr) {
        const std::size_t size = options->size;
        if (size < kSmallestOptions || size > kLargestOptions || size % alignof(TRK_OPEN_OPTIONS) != 0) {
            say(error, TRK_ERROR_ARGUMENT,
                "the size of the options is %zu: fill them with trk_default_options before use", size);
            return false;
        }
        all = {};
        std::memcpy(&all, options, std::min(size, sizeof(all)));
        const std::string_view bytes(reinterpret_cast<const char *>(options), size);
        if (bytes.size() > sizeof(all) && bytes.find_first_not_of('\0', sizeof(all)) != std::string_view::npos) {
            say(error, TRK_ERROR_ARGUMENT,
                "the options hold members that this version of the library does not know: leave them 0");
            return false;
        }
    }
    if (path == nullptr) {
        say(error, TRK_ERROR_ARGUMENT, "the path is null");
    } else if ((all.flags & ~kKnownFlags) != 0) {
        say(error, TRK_ERROR_ARGUMENT, "unknown flags 0x%X", static_cast<unsigned>(all.flags & ~kKnownFlags));
    } else if ((all.flags & kBothChecks) == kBothChecks) {
        say(error, TRK_ERROR_ARGUMENT,
            "the flags ask for TRK_OPEN_CHECK and TRK_OPEN_CHECK_AND_FILL: choose one of them");
    } else if (all.events < TRK_EVENTS_BLOCKS_ONLY || all.events > TRK_EVENTS_MESSAGE_LOG) {
        say(error, TRK_ERROR_ARGUMENT, "events is %d: it must be one of the TRK_EVENTS_ values", all.events);
    } else {
        return true;
    }
    return false;
}

void describeFailure(const char *path, const TRK_OPEN_OPTIONS &options, const TRKException &exception,
                     const OpenProgress &progress, TRK_ERROR &error) noexcept {
    try {
        switch (exception.code()) {
        case TRK_ERROR_FILE:
            return describeFile(path, exception.systemError(), progress.unreadableLog, error);
        case TRK_ERROR_NOT_A_RECORDING:
            return describeNoRecording(path, error);
        case TRK_ERROR_TEMPORARY_FILE:
            return describeTemporaryFile(path, options, exception.systemError(), progress, error);
        case TRK_ERROR_TOO_LARGE:
            error.offset = progress.offset;
            return say(error, TRK_ERROR_TOO_LARGE, "%s is larger than any recording can be: %s", nameIn(path),
                       exception.text());
        default:
            return describeDamage(path, progress, error);
        }
    } catch (...) {
        describeWantOfMemory(path, error);
    }
}

void describeWantOfMemory(const char *path, TRK_ERROR &error) noexcept {
    error.system_error = ENOMEM;
    say(error, TRK_ERROR_MEMORY, "not enough memory to open %s", nameIn(path));
}

} // namespace trk
