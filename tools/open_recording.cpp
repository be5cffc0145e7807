#include "open_recording.h"

#include "text_output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {

namespace {

constexpr std::size_t kMaximalGroups = 64;

LogLines *logReceiver = nullptr;

bool isDigit(char character) { return character >= '0' && character <= '9'; }

std::string withoutNumbers(std::string_view line) {
    std::string pattern;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (isDigit(line[i]) || (line[i] == '-' && i + 1 < line.size() && isDigit(line[i + 1]))) {
            if (!pattern.ends_with('#')) {
                pattern += '#';
            }
        } else {
            pattern += line[i];
        }
    }
    return pattern;
}

std::string_view trimmed(std::string_view line) {
    constexpr std::string_view kBlanks = " \r\n";
    const std::size_t first = std::min(line.find_first_not_of(kBlanks), line.size());
    return line.substr(first, line.find_last_not_of(kBlanks) + 1 - first);
}

int openFlags(const OpenOptions &options) {
    return options.check | (options.tolerant ? TRK_OPEN_TOLERANT : 0) |
           (options.keepTimes ? TRK_OPEN_KEEP_TIMES : 0) | (options.messageOffsets ? TRK_OPEN_MESSAGE_OFFSETS : 0);
}

_TRKFILE *openQuietly(const std::string &path, const OpenOptions &options) {
    constexpr int kLoadSamples = 1;
    const StandardOutputMute mute;
    int error = 0;
    return trk_open_file(path.c_str(), openFlags(options), TRK_EVENTS_ALL, kLoadSamples, &error);
}

// What the system has against the file; empty when it can be read.
std::string systemReason(const std::string &path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0 || ::access(path.c_str(), R_OK) != 0) {
        return std::strerror(errno);
    }
    if (S_ISDIR(status.st_mode)) {
        return std::strerror(EISDIR);
    }
    return S_ISREG(status.st_mode) && status.st_size == 0 ? "file is empty" : "";
}

} // namespace

void LogLines::add(std::string_view line) {
    const std::string text = escaped(trimmed(line));
    const std::string pattern = withoutNumbers(text);
    const auto known = std::ranges::find(groups_, pattern, &Group::pattern);
    if (known != groups_.end()) {
        ++known->count;
    } else if (groups_.size() < kMaximalGroups) {
        groups_.push_back({pattern, text, 1});
    } else {
        ++ungrouped_;
    }
    last_ = text;
}

LogHook::LogHook(LogLines &lines) {
    logReceiver = &lines;
    trk_set_log_function([](const char *line) { logReceiver->add(line); });
}

LogHook::~LogHook() { trk_set_log_function(nullptr); }

StandardOutputMute::StandardOutputMute() : saved_(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
    std::fflush(stdout);
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere >= 0) {
        ::dup2(nowhere, STDOUT_FILENO);
        ::close(nowhere);
    }
}

StandardOutputMute::~StandardOutputMute() {
    std::fflush(stdout);
    if (saved_ >= 0) {
        ::dup2(saved_, STDOUT_FILENO);
        ::close(saved_);
    }
}

Recording::Recording(const std::string &path, const OpenOptions &options, OnDamage onDamage) {
    handle_.reset(openQuietly(path, options));
    if (handle_) {
        return;
    }
    const std::string system = systemReason(path);
    const std::string reason = system.empty() ? log_.last() : system;
    if (!system.empty() || options.tolerant) {
        throw CannotRead(reason);
    }
    log_.clear();
    OpenOptions tolerant = options;
    tolerant.tolerant = true;
    handle_.reset(openQuietly(path, tolerant));
    if (!handle_) {
        throw CannotRead(reason);
    }
    if (onDamage == OnDamage::Refuse) {
        throw CannotRead("recording is damaged (" + reason + "); --tolerant shows the items before the damage");
    }
    damage_ = reason;
}

} // namespace tool
