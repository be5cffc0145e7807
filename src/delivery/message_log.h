// The extra message log: a text file that an experiment program writes on a clock of its own.
#pragma once

#include "io/file_input_stream.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace trk {

// The process-wide name of the log that later opens read; null for none.
void setExtraMessageFile(const char *path);

// The usual name of the log of a recording: of a file beside it.
std::string messageLogBeside(const char *recordingPath);

// The process-wide name, or else the usual one.
std::string extraMessageFileFor(const char *recordingPath);

// Stands in lines of the log, and in messages of the recording, that pair the two clocks.
inline constexpr const char *kClockPairingMark = "TRACKER_TIME";

// A message on the tracker's clock.
struct LogMessage {
    uint64_t time;      // ms of the tracker's clock
    int64_t textOffset; // where its text begins in the file
};

// The times of one moment on both clocks, ms.
struct ClockPairing {
    double trackerTime;
    double logTime;
};

class MessageLog {
  public:
    // An empty log.
    MessageLog() = default;

    // Reads a log; one that cannot be opened is empty, and errno says why.
    explicit MessageLog(const std::string &name);

    [[nodiscard]] bool isOpen() const { return file_ != nullptr; }

    // Whether the log was read to its end line and pairs the clocks: its messages can be merged.
    [[nodiscard]] bool isMergeable() const { return mergeable_; }

    [[nodiscard]] const std::vector<LogMessage> &messages() const { return messages_; }

    // The text of a message: its time, then what follows the time in the log.
    [[nodiscard]] std::string textOf(std::size_t message);

  private:
    void addPairing(const char *line, int64_t start, int64_t next);
    void addMessage(const char *line, int64_t start);
    int64_t textOffsetOfLine(int64_t start, int64_t next);

    FilePointer file_;
    std::vector<LogMessage> messages_;
    std::optional<ClockPairing> lastPairing_;
    bool mergeable_ = false;
};

} // namespace trk
