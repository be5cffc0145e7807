// What the library says: diagnostic lines, and the lines that some calls print whatever the log does.
#pragma once

#include "trkapi/trkapi.h"

namespace trk {

// Where a recording that was opened quietly sends all that is said about it.
struct LogReceiver {
    TRK_LOG_TO function = nullptr; // null: nowhere
    void *user = nullptr;
};

// While one lives, what is said in its thread goes to the receiver, and nothing is printed or flushed. Without a
// receiver things are as they are outside: scopes nest, as a log function may make calls of its own.
class LogScope {
  public:
    explicit LogScope(const LogReceiver *receiver);
    ~LogScope();
    LogScope(const LogScope &) = delete;
    LogScope &operator=(const LogScope &) = delete;

  private:
    const LogReceiver *outer_;
};

// Formats one diagnostic line and passes it to the receiver in force, else to the log hook, else prints it to
// standard output. Lines longer than 499 characters are cut. Takes no memory.
[[gnu::format(printf, 1, 2)]] void logLine(const char *format, ...);

// Process-wide; null restores printing to standard output.
void setLogFunction(TRK_LOG_FUNCTION function);

// Prints to standard output, or logs where printing is not wanted. The text brings its own line end.
[[gnu::format(printf, 1, 2)]] void printText(const char *format, ...);

// Flushes all output streams of the process, so that what a program prints stays in order with what is printed
// here.
void flushStreams();

} // namespace trk
