#include "delivery/message_log.h"

#include "base/log.h"
#include "base/numeric.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
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
constexpr const char *kEndMark = "Quit logger";
constexpr const char *kDefaultName = "xq_messages.log";
constexpr int64_t kStartOfFirstLine = -1;

struct ExtraMessageFile {
    std::mutex mutex;
    std::optional<std::string> name;
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

// Reads the fields of a line that pairs the clocks: log time, a word, an integer, the tracker's time.
std::optional<ClockPairing> parsePairing(const char *line) {
    ClockPairing pairing{};
    int32_t unused = 0;
    const char *const word = readNumber(line, pairing.logTime);
    if (word == nullptr) {
        return std::nullopt;
    }
    const char *const start = skipBlanks(word);
    const char *const end = std::find_if(start, start + std::strlen(start), isBlank);
    const char *const number = start == end ? nullptr : readNumber(end, unused);
    return number != nullptr && readNumber(number, pairing.trackerTime) != nullptr ? std::optional(pairing)
                                                                                   : std::nullopt;
}

bool isRegularFile(const char *path) {
    struct stat status {};
    if (stat(path, &status) != 0) {
        return false;
    }
    errno = S_ISDIR(status.st_mode) ? EISDIR : ESPIPE;
    return S_ISREG(status.st_mode);
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
    return file.name ? *file.name : messageLogBeside(recordingPath);
}

std::string messageLogBeside(const char *recordingPath) {
    const std::string_view path(recordingPath);
    const std::size_t slash = path.rfind('/');
    std::string name(path.substr(0, slash == std::string_view::npos ? 0 : slash + 1));
    return name.append(kDefaultName);
}

MessageLog::MessageLog(const std::string &name) {
    // A pipe or a device may have no end, or nothing to say.
    file_.reset(isRegularFile(name.c_str()) ? std::fopen(name.c_str(), "rt") : nullptr);
    if (!file_) {
        return;
    }
    std::array<char, kLineLimit> line{};
    bool started = false;
    bool ended = false;
    // The start of the first line is not known. Seeking there fails and the file stays at the second line: a
    // pairing on the first line is delivered with the text of the second. Kept, as it names no wrong time.
    int64_t start = kStartOfFirstLine;
    while (!ended && std::fgets(line.data(), kLineLimit, file_.get()) != nullptr) {
        const int64_t next = ftello(file_.get());
        if (std::strstr(line.data(), kClockPairingMark) != nullptr) {
            started = true;
            addPairing(line.data(), start, next);
        } else if (started) {
            ended = std::strstr(line.data(), kEndMark) != nullptr;
            if (!ended) {
                addMessage(line.data(), start);
            }
        }
        start = next;
    }
    std::rewind(file_.get());
    mergeable_ = ended && lastPairing_;
}

void MessageLog::addPairing(const char *line, int64_t start, int64_t next) {
    const std::optional<ClockPairing> pairing = parsePairing(line);
    if (!pairing) {
        printText("TRACKER_TIME format not right \n");
        return;
    }
    lastPairing_ = pairing;
    messages_.push_back({truncateTo<uint64_t>(std::round(pairing->trackerTime)), textOffsetOfLine(start, next)});
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

// The time of a message goes by the last pairing before it. Without one, or without a time, there is none.
void MessageLog::addMessage(const char *line, int64_t start) {
    float logTime = 0;
    const char *const textStart = readNumber(line, logTime);
    if (textStart == nullptr || !lastPairing_) {
        return;
    }
    const double sincePairing = static_cast<double>(logTime) - lastPairing_->logTime;
    const double time = std::floor(std::trunc(lastPairing_->trackerTime) + sincePairing + 0.5);
    messages_.push_back({truncateTo<uint64_t>(time), start + (textStart - line)});
}

std::string MessageLog::textOf(std::size_t message) {
    std::array<char, kLineLimit> rest{};
    if (fseeko(file_.get(), messages_[message].textOffset, SEEK_SET) != 0 ||
        std::fgets(rest.data(), kLineLimit, file_.get()) == nullptr) {
        rest[0] = '\0';
    }
    return std::to_string(messages_[message].time).append(rest.data());
}

} // namespace trk
