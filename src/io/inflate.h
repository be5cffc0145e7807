// Inflation of the compressed container variant.
#pragma once

#include "io/input_stream.h"

#include <cstdint>
#include <cstdio>

namespace trk {

// More than days of recording at the highest rates. A hostile stream inflates a thousandfold; it must not fill the
// disk.
inline constexpr int64_t kLargestInflation = int64_t{32} << 30;
inline constexpr int kInflatesTooFar = -100;

// Inflates the rest of `source`, one zlib stream, into `destination`. Returns 0, an error code of zlib, -1 when
// the source cannot be read or the destination cannot be written, or kInflatesTooFar behind `largest` bytes. What
// was inflated before an error stays in the destination.
int do_uncompress(InputStream &source, std::FILE *destination, int64_t largest = kLargestInflation);

} // namespace trk
