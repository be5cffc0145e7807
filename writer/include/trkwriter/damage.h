// Damages a finished recording, to try what readers make of it.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace trkwriter {

enum class Damage {
    Bit,  // one bit flipped. One in a value of a plain recording cannot be noticed
    Zero, // 64 to 512 bytes are zero
    Hole, // 64 to 512 bytes are gone, as after a transfer that lost some
    Cut,  // the rest is gone, from somewhere in the last half on
};

// "bit", "zero", "hole" and "cut"; nothing for all others.
std::optional<Damage> damageNamed(std::string_view name);

struct DamagedPlace {
    uint64_t offset = 0; // in the file, bytes
    uint64_t length = 0; // bytes
};

// Damages the regular file behind a descriptor, open for reading and writing, which stays the caller's; where it
// stands is left undefined. The place depends on the seed alone, for a file of the same size: it lies in the
// middle of the file, behind the head. Throws Error when the file is too short (4096 bytes) or cannot be read or
// written.
DamagedPlace damageFile(int descriptor, Damage damage, uint64_t seed);

} // namespace trkwriter
