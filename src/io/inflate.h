// Inflation of the compressed container variant.
#pragma once

#include "io/input_stream.h"

#include <cstdint>
#include <cstdio>

namespace trk {

// More than days of recording at the highest rates. A hostile stream inflates a thousandfold; it must not fill the
// disk.
inline constexpr int64_t kLargestInflation = int64_t{32} << 30;

enum class Inflation {
    Done,
    Damaged,    // the compressed data breaks off or is none
    FileFailed, // the source cannot be read or the destination cannot be written
    NoMemory,   // none for zlib
    TooLarge,   // it would go on behind the bound
};

// Inflates the rest of `source`, one zlib stream, into `destination`, `largest` bytes at most. What was inflated
// before an error stays in the destination.
[[nodiscard]] Inflation inflateTo(std::FILE *destination, InputStream &source,
                                  int64_t largest = kLargestInflation);

} // namespace trk
