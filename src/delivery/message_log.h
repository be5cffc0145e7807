// The extra message log: a text file that an experiment program writes on a clock of its own.
#pragma once

#include "io/file_input_stream.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace trk {

// The process-wide name of the log that later opens read; null for none.
void setExtraMessageFile(const char *path);

// The name of the log of a recording: the process-wide one, or that of the log beside the recording.
std::string extraMessageFileFor(const char *recordingPath);

// A message on the tracker's clock.
struct LogMsg {
    uint64_t time;       // ms of the tracker's clock
    int64_t text_offset; // where its text begins in the file
};

// A line of the log that pairs the two clocks.
struct TrackerT {
    uint32_t log_index; // number of messages before it
    int32_t sync_value; // kept, not used
    double tracker_time;
    double log_time;
};

class MessageLog {
  public:
    // An empty name is ignored.
    void setEyeLogFileName(const std::string &name);

    // Reads the log whose name was set. Returns the number of its messages, or -1 when it cannot be opened.
    int openEyeLogFile();

    // Whether the log was read to its end line and pairs the clocks: its messages can be merged.
    [[nodiscard]] bool loadEyeLog() const { return loaded_; }

    // -1 when there is no log.
    [[nodiscard]] int getNumOfLogMsg() const { return count_; }

    [[nodiscard]] const std::vector<LogMsg> &messages() const { return messages_; }
    [[nodiscard]] const std::vector<TrackerT> &trackerTimes() const { return trackerTimes_; }

    // The text of a message: its time, then what follows the time in the log. Empty without a file.
    [[nodiscard]] std::string textOf(std::size_t message);

  private:
    void addSyncLine(const char *line, int64_t start, int64_t next);
    void addMessage(const char *line, int64_t start);
    int64_t textOffsetOfLine(int64_t start, int64_t next);

    std::string name_;
    FilePointer file_;
    std::vector<LogMsg> messages_;
    std::vector<TrackerT> trackerTimes_;
    bool loaded_ = false;
    int count_ = -1;
};

} // namespace trk
