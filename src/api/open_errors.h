// Arguments and failures of the second door, in words.
#pragma once

#include "api/open_recording.h"
#include "base/exception.h"

namespace trk {

[[nodiscard]] TRK_OPEN_OPTIONS defaultOptions();

[[nodiscard]] TRK_ERROR noError();

// Copies the options, of whatever size, into `all`; null stands for the defaults. Returns false, and says why,
// when an argument is not allowed.
bool checkArguments(const char *path, const TRK_OPEN_OPTIONS *options, TRK_OPEN_OPTIONS &all, TRK_ERROR &error);

// Why a recording did not open: what, where, why and what to do.
void describeFailure(const char *path, const TRK_OPEN_OPTIONS &options, const TRKException &exception,
                     const OpenProgress &progress, TRK_ERROR &error) noexcept;
void describeWantOfMemory(const char *path, TRK_ERROR &error) noexcept;

} // namespace trk
