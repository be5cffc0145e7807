// Inflation of the compressed container variant.
#pragma once

#include "io/input_stream.h"

#include <cstdio>

namespace trk {

// Inflates the rest of `source`, one zlib stream, into `destination`. Returns 0, an error code of zlib, or -1
// when the source cannot be read or the destination cannot be written. What was inflated before an error stays
// in the destination.
int do_uncompress(InputStream &source, std::FILE *destination);

} // namespace trk
