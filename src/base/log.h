// The library's single diagnostic channel.
#pragma once

#include "trkapi/trkapi.h"

namespace trk {

// Formats one diagnostic line and passes it to the log hook, or prints it to standard output when no hook is
// set. Lines longer than 499 characters are cut. Returns 0.
[[gnu::format(printf, 1, 2)]] int print_log(const char *format, ...);

// Process-wide; null restores printing to standard output.
void setLogFunction(TRK_LOG_FUNCTION function);

} // namespace trk
