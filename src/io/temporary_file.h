// Temporary files without a name.
#pragma once

#include "io/file_input_stream.h"

#include <cstdint>
#include <string>

namespace trk {

// The folder that the environment names for temporary files, else the system's.
[[nodiscard]] std::string defaultTemporaryFolder();

// Opens a file that is gone when it is closed, in a folder, or where the system has them when that is empty. Not
// buffered. Throws "Failed to create temp file \n".
[[nodiscard]] FilePointer openTemporaryFile(const std::string &folder);

// Bytes that a process like this one can still write into a folder; -1 when that is not known.
[[nodiscard]] int64_t freeBytesIn(const std::string &folder);

} // namespace trk
