// An open recording, with what the library logged about it.
#pragma once

#include "trkapi/trkapi.h"

#include <cstdint>
#include <memory>
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

// Receives the library's lines while it lives. One at a time.
class LogHook {
  public:
    explicit LogHook(LogLines &lines);
    ~LogHook();
    LogHook(const LogHook &) = delete;
    LogHook &operator=(const LogHook &) = delete;
};

// The library prints a line of its own to standard output at every open. Nothing printed through C stdio gets
// there while an object of this class lives.
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
};

// What to do with a recording that opens only tolerantly.
enum class OnDamage { Refuse, ShowIntactPart };

class CannotRead : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class Recording {
  public:
    // Throws CannotRead with the reason.
    Recording(const std::string &path, const OpenOptions &options, OnDamage onDamage);

    [[nodiscard]] _TRKFILE *handle() const { return handle_.get(); }
    [[nodiscard]] const LogLines &log() const { return log_; }
    // Why the recording could be opened no further than its damage; empty when it is whole.
    [[nodiscard]] const std::string &damage() const { return damage_; }

  private:
    struct Closer {
        void operator()(_TRKFILE *handle) const { trk_close_file(handle); }
    };

    LogLines log_;
    LogHook hook_{log_};
    std::unique_ptr<_TRKFILE, Closer> handle_;
    std::string damage_;
};

} // namespace tool
