#include "open_recording.h"

#include "tables/text_output.h"

#include <algorithm>
#include <new>
#include <utility>

namespace tool {

namespace {

constexpr std::size_t kMaximalGroups = 64;
constexpr const char *kDefaultMessageLog = "xq_messages.log";

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
    // Trials never have their times moved; tables whose samples have could not be joined with them.
    return TRK_OPEN_KEEP_TIMES | options.check | (options.tolerant ? TRK_OPEN_TOLERANT : 0) |
           (options.salvage ? TRK_OPEN_SALVAGE : 0) | (options.messageOffsets ? TRK_OPEN_MESSAGE_OFFSETS : 0);
}

trkapi::Result<trkapi::Recording> openWith(const std::string &path, const OpenOptions &options, LogLines &log) {
    return trkapi::Recording::open(path, {.flags = openFlags(options),
                                          .events = options.mergeLog ? TRK_EVENTS_MESSAGE_LOG : TRK_EVENTS_ALL,
                                          .messageLog = messageLogName(path, options),
                                          .log = [&log](std::string_view line) { log.add(line); }});
}

// The library names a recording by its file name; among many the whole path is wanted. There is nothing in the
// text that has to be escaped.
std::string reasonOf(const std::string &path, const TRK_ERROR &error) {
    if (error.code == TRK_ERROR_DAMAGED && error.offset >= 0) {
        return tables::escaped(path) + " is damaged at byte " + std::to_string(error.offset) +
               ": --tolerant shows what lies before, --salvage all that can be saved";
    }
    const std::string name = path.substr(path.rfind('/') + 1);
    const std::string text(error.text);
    return !name.empty() && text.starts_with(name) ? tables::escaped(path) + text.substr(name.size()) : text;
}

// Throws CannotRead. Tells the options when it takes a tolerant opening.
trkapi::Recording openAs(const std::string &path, OpenOptions &options, OnDamage onDamage, LogLines &log) {
    auto opened = openWith(path, options, log);
    if (opened) {
        return *std::move(opened);
    }
    const TRK_ERROR error = opened.error();
    if (error.code == TRK_ERROR_DAMAGED && onDamage == OnDamage::ShowIntactPart && !options.salvage) {
        options.tolerant = true;
        log = {};
        if (auto intact = openWith(path, options, log)) {
            return *std::move(intact);
        }
    }
    throw CannotRead(reasonOf(path, error), error.code == TRK_ERROR_DAMAGED ? kIncomplete : kFailed, error);
}

} // namespace

std::string messageLogName(const std::string &path, const OpenOptions &options) {
    return options.logFile.value_or(path.substr(0, path.rfind('/') + 1) + kDefaultMessageLog);
}

void LogLines::add(std::string_view line) noexcept {
    toldOutOfMemory_ = toldOutOfMemory_ || line == "Out of memory\n";
    try {
        sort(line);
    } catch (const std::bad_alloc &) {
        ++ungrouped_;
    }
}

void LogLines::sort(std::string_view line) {
    const std::string text = tables::escaped(trimmed(line));
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

Recording::Recording(std::string path, OpenOptions options, OnDamage onDamage)
    : path_(std::move(path)), name_(tables::escaped(path_)), options_(std::move(options)),
      recording_(openAs(path_, options_, onDamage, log_)) {}

tables::Places Recording::findPlaces(const tables::TrialTexts &texts) { return {recording_, texts}; }

} // namespace tool
