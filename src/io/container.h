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
    bool done = false;         // the end line was read
};

// Reads one line of at most size - 1 characters into `line` and takes the facts from it. Returns 0, or 1 once
// the preamble has ended. Throws "End of file Exception" when there is no text to be read.
int get_combfile_preamble_text(InputStream &stream, Preamble &preamble, char *line, int size);

// Reads all of the preamble and, when it holds a version tag, sets the process-wide UTF-8 flag.
Preamble readPreamble(InputStream &stream);

// Process-wide: whether message texts are UTF-8, by the last version tag met. A recording without a version tag
// leaves it alone on purpose.
[[nodiscard]] bool utf8encoding();

} // namespace trk
