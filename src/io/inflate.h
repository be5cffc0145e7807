// Inflation of the compressed container variant.
#pragma once

#include "io/inflated_data.h"
#include "io/input_stream.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace trk {

// More than days of recording at the highest rates. A hostile stream inflates a thousandfold; it must not fill the
// disk.
inline constexpr int64_t kLargestInflation = int64_t{32} << 30;

enum class InflationEnd {
    Done,
    Damaged,           // the compressed data breaks off or is none
    WrongChecksum,     // all was inflated, but it is not what was compressed
    SourceFailed,      // the source cannot be read
    DestinationFailed, // the destination cannot be written
    NoMemory,          // none for zlib
    TooLarge,          // it would go on behind the bound
};

struct Inflation {
    InflationEnd end = InflationEnd::Done;
    int64_t consumed = 0; // bytes of the source
    int64_t inflated = 0; // bytes; a destination that failed has fewer
    int64_t behind = 0;   // bytes of the source behind the end of the compressed data, when that was reached
    int systemError = 0;  // errno of a failure to read or write
    bool cut = false;     // damaged for nothing but that the source ends early

    // With `resume`, places in the destination: where bytes are missing, because what they were compressed to is
    // damaged; and where what follows does not depend on what is before.
    std::vector<int64_t> tears{};
    std::vector<int64_t> fresh{};
    bool resumes = false; // it was asked for
};

struct InflationOptions {
    int64_t largest = kLargestInflation; // bytes, at most
    // Go on behind a damage at the next place that the compressed data were flushed for it.
    bool resume = false;
    // By the faster inflater first, where the library was built with one. What is damaged is inflated again by
    // zlib, which decides alone what can be had of it.
    bool fast = true;
};

// Inflates the rest of `source`, one zlib stream, into `destination`. What was inflated before an error stays in
// the destination.
[[nodiscard]] Inflation inflateTo(InflatedData &destination, InputStream &source,
                                  const InflationOptions &options = {});

// What is left of a source, with the bytes that were read from it and not used.
[[nodiscard]] inline int64_t bytesBehind(InputStream &source, uint32_t unused) {
    return std::max<int64_t>(source.sourceSize() - source.sourcePosition(), 0) + unused;
}

} // namespace trk
