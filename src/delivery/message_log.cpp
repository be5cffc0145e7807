#include "delivery/message_log.h"

#include "base/numeric.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <mutex>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <system_error>

namespace trk {

namespace {

constexpr int kLineLimit = 4096;
constexpr const char *kSyncMark = "TRACKER_TIME";
constexpr const char *kEndMark = "Quit logger";
constexpr const char *kDefaultName = "xq_messages.log";
constexpr int64_t kStartOfFirstLine = -1;

struct ExtraMessageFile {
    std::mutex mutex;
    std::optional<std::string> name; // plogMsgFile
};

ExtraMessageFile &extraMessageFile() {
    static ExtraMessageFile file;
    return file;
}

bool isBlank(char character) { return std::isspace(static_cast<unsigned char>(character)) != 0; }

const char *skipBlanks(const char *text) { return std::find_if_not(text, text + std::strlen(text), isBlank); }

// Whether a number that is out of range is so because it is too small: by its exponent, else by its integer part.
bool isTooSmall(std::string_view number) {
    const std::size_t exponent = number.find_first_of("eE");
    return exponent != std::string_view::npos ? number.substr(exponent + 1).starts_with('-')
                                              : number.find_first_of("123456789") > number.find('.');
}

// Reads a number as programs write it, whatever the locale of this one. Returns what follows it, or null.
template <class Number> const char *readNumber(const char *text, Number &number) {
    const char *first = skipBlanks(text);
    first += first[0] == '+' && first[1] != '-' ? 1 : 0;
    const auto [next, error] = std::from_chars(first, first + std::strlen(first), number);
    if (error == std::errc::result_out_of_range) {
        const bool small = isTooSmall({first, static_cast<std::size_t>(next - first)});
        number = small           ? Number{0}
                 : *first == '-' ? std::numeric_limits<Number>::lowest()
                                 : std::numeric_limits<Number>::max();
    }
    return next == first ? nullptr : next;
}

// Reads the fields of a sync line: log time, a word, an integer, the tracker's time.
std::optional<TrackerT> parseSyncLine(const char *line) {
    TrackerT sync{};
    const char *const word = readNumber(line, sync.log_time);
    if (word == nullptr) {
        return std::nullopt;
    }
    const char *const start = skipBlanks(word);
    const char *const end = std::find_if(start, start + std::strlen(start), isBlank);
    const char *const number = start == end ? nullptr : readNumber(end, sync.sync_value);
    return number != nullptr && readNumber(number, sync.tracker_time) != nullptr ? std::optional(sync)
                                                                                 : std::nullopt;
}

bool isRegularFile(const char *path) {
    struct stat status {};
    return stat(path, &status) == 0 && S_ISREG(status.st_mode);
}

} // namespace

void setExtraMessageFile(const char *path) {
    ExtraMessageFile &file = extraMessageFile();
    const std::scoped_lock lock(file.mutex);
    file.name = path != nullptr ? std::optional<std::string>(path) : std::nullopt;
}

std::string extraMessageFileFor(const char *recordingPath) {
    ExtraMessageFile &file = extraMessageFile();
    const std::scoped_lock lock(file.mutex);
    if (file.name) {
        return *file.name;
    }
    const std::string_view path(recordingPath);
    const std::size_t slash = path.rfind('/');
    std::string name(path.substr(0, slash == std::string_view::npos ? 0 : slash + 1));
    return name.append(kDefaultName);
}

void MessageLog::setEyeLogFileName(const std::string &name) {
    if (!name.empty()) {
        name_ = name;
        std::printf("Log file name %s \n", name.c_str());
    }
}

int MessageLog::openEyeLogFile() {
    // A pipe or a device may have no end, or nothing to say.
    file_.reset(isRegularFile(name_.c_str()) ? std::fopen(name_.c_str(), "rt") : nullptr);
    if (!file_) {
        return -1;
    }
    std::array<char, kLineLimit> line{};
    bool started = false;
    bool ended = false;
    // The start of the first line is not known. Seeking there fails and the file stays at the second line, so that
    // a sync line on the first has the text of the second. On purpose.
    int64_t start = kStartOfFirstLine;
    while (!ended && std::fgets(line.data(), kLineLimit, file_.get()) != nullptr) {
        const int64_t next = ftello(file_.get());
        if (std::strstr(line.data(), kSyncMark) != nullptr) {
            started = true;
            addSyncLine(line.data(), start, next);
        } else if (started) {
            ended = std::strstr(line.data(), kEndMark) != nullptr;
            if (!ended) {
                addMessage(line.data(), start);
            }
        }
        start = next;
    }
    std::rewind(file_.get());
    loaded_ = ended && !trackerTimes_.empty();
    count_ = truncateTo<int>(static_cast<double>(messages_.size()));
    return count_;
}

void MessageLog::addSyncLine(const char *line, int64_t start, int64_t next) {
    std::optional<TrackerT> sync = parseSyncLine(line);
    if (!sync) {
        std::puts("TRACKER_TIME format not right ");
        return;
    }
    sync->log_index = static_cast<uint32_t>(messages_.size());
    trackerTimes_.push_back(*sync);
    messages_.push_back({truncateTo<uint64_t>(std::round(sync->tracker_time)), textOffsetOfLine(start, next)});
}

int64_t MessageLog::textOffsetOfLine(int64_t start, int64_t next) {
    std::array<char, kLineLimit> line{};
    fseeko(file_.get(), start, SEEK_SET);
    const int64_t lineStart = ftello(file_.get());
    double number = 0;
    const char *text = std::fgets(line.data(), kLineLimit, file_.get());
    text = text != nullptr ? readNumber(text, number) : nullptr;
    fseeko(file_.get(), next, SEEK_SET);
    return text != nullptr ? lineStart + (text - line.data()) : lineStart;
}

// The time of a message goes by the last sync line before it. Without one, or without a time, there is none.
void MessageLog::addMessage(const char *line, int64_t start) {
    float logTime = 0;
    const char *const textStart = readNumber(line, logTime);
    if (textStart == nullptr || trackerTimes_.empty()) {
        return;
    }
    const TrackerT &sync = trackerTimes_.back();
    const double sinceSync = static_cast<double>(logTime) - sync.log_time;
    const double time = std::floor(std::trunc(sync.tracker_time) + sinceSync + 0.5);
    messages_.push_back({truncateTo<uint64_t>(time), start + (textStart - line)});
}

std::string MessageLog::textOf(std::size_t message) {
    if (!file_) {
        return {};
    }
    std::array<char, kLineLimit> rest{};
    if (fseeko(file_.get(), messages_[message].text_offset, SEEK_SET) != 0 ||
        std::fgets(rest.data(), kLineLimit, file_.get()) == nullptr) {
        rest[0] = '\0';
    }
    return std::to_string(messages_[message].time).append(rest.data());
}

} // namespace trk
