// Arguments and failures of the calls that came later, in words.
#pragma once

#include "api/open_recording.h"
#include "base/exception.h"

namespace trk {

[[nodiscard]] TRK_OPEN_OPTIONS defaultOptions();

[[nodiscard]] TRK_ERROR noError();

// Sets code and text. A text that does not fit is cut before a character, not within one.
[[gnu::format(printf, 3, 4)]] void say(TRK_ERROR &error, TRK_ERROR_CODE code, const char *format, ...);

// Copies the options, of whatever size, into `all`; null stands for the defaults. Returns false, and says why,
// when an argument is not allowed.
bool checkArguments(const char *path, const TRK_OPEN_OPTIONS *options, TRK_OPEN_OPTIONS &all, TRK_ERROR &error);

// Why a recording did not open: what, where, why and what to do.
void describeFailure(const char *path, const TRK_OPEN_OPTIONS &options, const TRKException &exception,
                     const OpenProgress &progress, TRK_ERROR &error) noexcept;
void describeWantOfMemory(const char *path, TRK_ERROR &error) noexcept;

} // namespace trk
