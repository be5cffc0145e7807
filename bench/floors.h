// What the library's work would cost at the very least: the floors that the benchmarks are measured against.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace trk_bench {

struct FloorItem {
    int64_t position;
    uint16_t type;
    uint16_t tagWord;
    uint64_t key;
};

// Decodes each record of a stream that lies in memory, and appends one entry per record.
std::vector<FloorItem> walkRecords(std::string_view records);

// Decodes one batch of samples from the start of `records`. Returns a sum that depends on all of them.
double decodeBatch(std::string_view records, int samples);

// The columns that most analyses begin with.
struct GazeColumns {
    explicit GazeColumns(std::size_t rows);

    std::vector<uint32_t> time;
    std::vector<uint16_t> flags;
    std::array<std::vector<float>, 4> gaze; // x left, y left, x right, y right
    std::array<std::vector<float>, 2> pupilSize;
};

// Decodes what these columns hold of each sample, and passes over the rest. Returns the number of rows.
std::size_t decodeColumns(std::string_view records, GazeColumns &columns);

// Inflates a zlib stream with zlib to nowhere; returns its size.
std::size_t inflateToNowhere(std::string_view compressed);

} // namespace trk_bench
