// An open recording, with what the library logged about it.
#pragma once

#include "trkapi/trkapi.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

// The library's diagnostic lines. Lines that differ in their numbers only are counted under the first of them,
// so that a recording with a million defects is told in a few lines.
class LogLines {
  public:
    struct Group {
        std::string pattern; // the line with # for each number
        std::string first;
        uint64_t count = 0;
    };

    void add(std::string_view line);
    void clear() { *this = {}; }

    [[nodiscard]] const std::vector<Group> &groups() const { return groups_; }
    [[nodiscard]] uint64_t ungrouped() const { return ungrouped_; } // lines of yet other patterns
    [[nodiscard]] const std::string &last() const { return last_; }

  private:
    std::vector<Group> groups_;
    uint64_t ungrouped_ = 0;
    std::string last_;
};

// Receives the library's lines while it lives, in place of one made before it.
class LogHook {
  public:
    explicit LogHook(LogLines &lines);
    ~LogHook();
    LogHook(const LogHook &) = delete;
    LogHook &operator=(const LogHook &) = delete;

  private:
    LogLines *replaced_;
};

// The library prints lines of its own to standard output when it opens a recording and collects trials. Nothing
// printed through C stdio gets there while an object of this class lives.
class StandardOutputMute {
  public:
    StandardOutputMute();
    ~StandardOutputMute();
    StandardOutputMute(const StandardOutputMute &) = delete;
    StandardOutputMute &operator=(const StandardOutputMute &) = delete;

  private:
    int saved_;
};

struct OpenOptions {
    int check = TRK_OPEN_CHECK_AND_FILL; // TRK_OPEN_NO_CHECK, _CHECK or _CHECK_AND_FILL
    bool tolerant = false;
    bool keepTimes = false;
    bool messageOffsets = false;
    bool mergeLog = false;              // the messages of the external log among the items
    std::optional<std::string> logFile; // in place of the one beside the recording
};

// What starts and ends trials; without texts, each recording block is a trial.
struct TrialTexts {
    std::optional<std::string> start;
    std::optional<std::string> end;
};

// What to do with a recording that opens only tolerantly.
enum class OnDamage { Refuse, ShowIntactPart };

// Name of the external message log that is merged into a recording.
[[nodiscard]] std::string messageLogName(const std::string &path, const OpenOptions &options);

// What the system has against reading a file; empty when nothing.
[[nodiscard]] std::string systemReason(const std::string &path);

// What cannot be read, and why.
class CannotRead : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class Recording {
  public:
    // Throws CannotRead.
    Recording(const std::string &path, const OpenOptions &options, OnDamage onDamage);

    [[nodiscard]] _TRKFILE *handle() const { return handle_.get(); }
    [[nodiscard]] const LogLines &log() const { return log_; }
    [[nodiscard]] const std::string &name() const { return name_; } // to be shown
    // Why the recording could be opened no further than its damage; empty when it is whole.
    [[nodiscard]] const std::string &damage() const { return damage_; }

    // Lets the library collect the trials and returns their number.
    int collectTrials(const TrialTexts &texts);

  private:
    struct Closer {
        void operator()(_TRKFILE *handle) const { trk_close_file(handle); }
    };

    std::string name_;
    LogLines log_;
    LogHook hook_{log_};
    TrialTexts trialTexts_; // the library keeps pointers to them
    std::unique_ptr<_TRKFILE, Closer> handle_;
    std::string damage_;
};

} // namespace tool
