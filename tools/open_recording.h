// An open recording, with what the library logged about it and what is wrong with it.
#pragma once

#include "status.h"
#include "tables/places.h"
#include "trkapi/trkapi.hpp"

#include <cstdint>
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

    void add(std::string_view line) noexcept;

    [[nodiscard]] const std::vector<Group> &groups() const { return groups_; }
    [[nodiscard]] uint64_t ungrouped() const { return ungrouped_; } // lines of yet other patterns
    [[nodiscard]] const std::string &last() const { return last_; }
    [[nodiscard]] bool toldOutOfMemory() const { return toldOutOfMemory_; } // by the library

  private:
    void sort(std::string_view line);

    std::vector<Group> groups_;
    uint64_t ungrouped_ = 0;
    bool toldOutOfMemory_ = false;
    std::string last_;
};

struct OpenOptions {
    int check = TRK_OPEN_CHECK_AND_FILL; // TRK_OPEN_NO_CHECK, _CHECK or _CHECK_AND_FILL
    bool tolerant = false;
    bool salvage = false;
    bool messageOffsets = false;
    bool mergeLog = false;              // the messages of the external log among the items
    std::optional<std::string> logFile; // in place of the one beside the recording
};

// What to do with a recording that opens only tolerantly.
enum class OnDamage { Refuse, ShowIntactPart };

// Name of the external message log that is merged into a recording.
[[nodiscard]] std::string messageLogName(const std::string &path, const OpenOptions &options);

// What cannot be read, and why.
class CannotRead : public std::runtime_error {
  public:
    CannotRead(const std::string &reason, Status status, const TRK_ERROR &error = {})
        : std::runtime_error(reason), status_(status), error_(error) {}

    [[nodiscard]] Status status() const { return status_; }
    [[nodiscard]] const TRK_ERROR &error() const { return error_; } // where the library had one

  private:
    Status status_;
    TRK_ERROR error_;
};

class Recording {
  public:
    // Throws CannotRead.
    Recording(std::string path, OpenOptions options, OnDamage onDamage);
    ~Recording() = default;
    Recording(const Recording &) = delete; // lines of the log go into it
    Recording &operator=(const Recording &) = delete;

    [[nodiscard]] _TRKFILE *handle() const { return recording_.handle(); }
    [[nodiscard]] const LogLines &log() const { return log_; }
    [[nodiscard]] const std::string &path() const { return path_; }
    [[nodiscard]] const std::string &name() const { return name_; } // to be shown
    [[nodiscard]] const OpenOptions &options() const { return options_; }

    // Collects trials and blocks. Moves the read position: for a walk of its own, it wants its own recording.
    [[nodiscard]] tables::Places findPlaces(const tables::TrialTexts &texts);

  private:
    std::string path_;
    std::string name_;
    OpenOptions options_;
    LogLines log_;
    trkapi::Recording recording_;
};

} // namespace tool
