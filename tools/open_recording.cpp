#include "open_recording.h"

#include "text_output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace tool {

namespace {

constexpr std::size_t kMaximalGroups = 64;
constexpr const char *kDefaultMessageLog = "xq_messages.log";

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
    if (options.mergeLog) {
        trk_set_extra_message_file(messageLogName(path, options).c_str());
    }
    int error = 0;
    return trk_open_file(path.c_str(), openFlags(options),
                         options.mergeLog ? TRK_EVENTS_MESSAGE_LOG : TRK_EVENTS_ALL, kLoadSamples, &error);
}

void refuseUnreadable(const std::string &path, std::string_view role) {
    const std::string reason = systemReason(path);
    if (!reason.empty()) {
        throw CannotRead(std::string(role) + escaped(path) + ": " + reason);
    }
}

} // namespace

std::string messageLogName(const std::string &path, const OpenOptions &options) {
    return options.logFile.value_or(path.substr(0, path.rfind('/') + 1) + kDefaultMessageLog);
}

std::string systemReason(const std::string &path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0 || ::access(path.c_str(), R_OK) != 0) {
        return std::strerror(errno);
    }
    if (S_ISDIR(status.st_mode)) {
        return std::strerror(EISDIR);
    }
    if (!S_ISREG(status.st_mode)) {
        return "not a regular file";
    }
    return status.st_size == 0 ? "file is empty" : "";
}

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

LogHook::LogHook(LogLines &lines) : replaced_(std::exchange(logReceiver, &lines)) {
    trk_set_log_function([](const char *line) { logReceiver->add(line); });
}

LogHook::~LogHook() {
    logReceiver = replaced_;
    if (logReceiver == nullptr) {
        trk_set_log_function(nullptr);
    }
}

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

Recording::Recording(const std::string &path, const OpenOptions &options, OnDamage onDamage)
    : name_(escaped(path)) {
    refuseUnreadable(path, "");
    if (options.mergeLog) {
        refuseUnreadable(messageLogName(path, options), "message log ");
    }
    handle_.reset(openQuietly(path, options));
    if (handle_) {
        return;
    }
    const std::string reason = log_.last();
    OpenOptions tolerant = options;
    tolerant.tolerant = true;
    if (!options.tolerant) {
        log_.clear();
        handle_.reset(openQuietly(path, tolerant));
    }
    if (!handle_) {
        throw CannotRead(name_ + ": " + reason);
    }
    if (onDamage == OnDamage::Refuse) {
        throw CannotRead(name_ + ": recording is damaged (" + reason +
                         "); --tolerant shows the items before the damage");
    }
    damage_ = reason;
}

int Recording::collectTrials(const TrialTexts &texts) {
    trialTexts_ = texts;
    const auto pointer = [](std::optional<std::string> &text) { return text ? text->data() : nullptr; };
    const StandardOutputMute mute;
    if (texts.start || texts.end) {
        trk_set_trial_identifier(handle(), pointer(trialTexts_.start), pointer(trialTexts_.end));
    }
    return trk_get_trial_count(handle());
}

} // namespace tool
