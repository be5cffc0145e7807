#include "open_recording.h"

#include "tables/text_output.h"

#include <algorithm>
#include <new>

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

_TRKFILE *openWith(const std::string &path, const OpenOptions &options, LogLines &log, TRK_ERROR &error) {
    const std::string logName = messageLogName(path, options);
    TRK_OPEN_OPTIONS all;
    trk_default_options(&all);
    all.flags = openFlags(options);
    all.events = options.mergeLog ? TRK_EVENTS_MESSAGE_LOG : TRK_EVENTS_ALL;
    all.message_log = logName.c_str();
    all.log = [](void *lines, const char *text) { static_cast<LogLines *>(lines)->add(text); };
    all.user = &log;
    return trk_open(path.c_str(), &all, &error);
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

Recording::Recording(const std::string &path, const OpenOptions &options, OnDamage onDamage)
    : path_(path), name_(tables::escaped(path)), options_(options) {
    TRK_ERROR error;
    handle_.reset(openWith(path, options_, log_, error));
    if (!handle_ && error.code == TRK_ERROR_DAMAGED && onDamage == OnDamage::ShowIntactPart && !options.salvage) {
        TRK_ERROR ignored;
        options_.tolerant = true;
        log_ = {};
        handle_.reset(openWith(path, options_, log_, ignored));
    }
    if (!handle_) {
        throw CannotRead(reasonOf(path, error), error.code == TRK_ERROR_DAMAGED ? kIncomplete : kFailed, error);
    }
}

tables::Places Recording::findPlaces(const tables::TrialTexts &texts) {
    trialTexts_ = texts;
    return {handle(), trialTexts_};
}

} // namespace tool
