// Inflation with ISA-L, where the library was built with it.
#pragma once

#include "io/inflate.h"

#include <cstdint>
#include <optional>

namespace trk {

// What became of it.
struct FastInflation {
    std::optional<Inflation> result{}; // none: zlib has to say
    std::optional<int64_t> ended{};    // the source did, behind so many bytes
};

// `resume` of the options does not count: it needs a damage, and damages are for zlib.
[[nodiscard]] FastInflation inflateFast(InflatedData &destination, InputStream &source,
                                        const InflationOptions &options);

} // namespace trk
