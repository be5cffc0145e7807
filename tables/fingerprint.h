// Tells recordings apart, and what was made of them.
#pragma once

#include <string>

namespace tables {

// Size and a checksum of the first and the last 64 KiB of a file: other for every recording, the same for copies
// of one. "" for a file that cannot be read.
[[nodiscard]] std::string fingerprintOf(const std::string &path);

// Whether a file is there and was written behind another one, or together with it.
[[nodiscard]] bool isNewerThan(const std::string &file, const std::string &other);

} // namespace tables
