// The head of a recording file: magic line and preamble.
#pragma once

#include "io/input_stream.h"

#include <cstdint>
#include <string>

namespace trk {

enum class ContainerVariant { Plain, Compressed };

// Reads the magic line. Throws "Bad magic.  Corrupt trk file. \n" for anything but a recording's first line.
ContainerVariant readMagicLine(InputStream &stream);

// What the preamble says of the recording.
struct Preamble {
    std::string text; // its lines, each preceded by "** "; at most 1999 characters
    uint16_t revision = 0;
    uint16_t trackerModel = 1; // 1, 2 (V2) or 3 (LX)
};

// Reads all of the preamble, its end line included. Throws "End of file Exception" when it breaks off.
Preamble readPreamble(InputStream &stream);

} // namespace trk
