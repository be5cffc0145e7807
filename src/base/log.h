// What the library says: diagnostic lines, and the lines that some calls print whatever the log does.
#pragma once

#include "trkapi/trkapi.h"

namespace trk {

// Formats one diagnostic line and passes it to the log hook, or prints it to standard output when no hook is set.
// Lines longer than 499 characters are cut.
[[gnu::format(printf, 1, 2)]] void logLine(const char *format, ...);

// Process-wide; null restores printing to standard output.
void setLogFunction(TRK_LOG_FUNCTION function);

// Prints to standard output. The text brings its own line end.
[[gnu::format(printf, 1, 2)]] void printText(const char *format, ...);

// Flushes all output streams of the process, so that what a program prints stays in order with what is printed
// here.
void flushStreams();

} // namespace trk
