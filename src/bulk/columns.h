// The columns of samples: what each holds, and where it comes from.
#pragma once

#include "trkapi/trkapi.h"

#include <cstddef>

namespace trk {

enum class ColumnSource {
    Item,
    Block,
    Time,
    TimeExact,
    Dummy,
    Eyes,
    InBlink,   // of an eye
    Position,  // a lane
    PupilSize, // of an eye
    Resolution,
    Smoothed, // velocity of a lane
    Fast,
    Word, // of 16 bits
};

struct SampleColumn {
    TRK_COLUMN_DESCRIPTION description;
    ColumnSource source;
    std::size_t place; // lane, eye or axis; of an extension word its number
    int needed = 0;    // TRK_SAMPLE_* bit of the samples that carry it; 0: all do
};

// The column with an id; null when there is none.
[[nodiscard]] const SampleColumn *columnOf(int id);

} // namespace trk
