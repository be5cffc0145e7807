// What the library's work would cost at the very least: the floors that the benchmarks are measured against.
#pragma once

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

// Inflates a zlib stream with zlib to nowhere; returns its size.
std::size_t inflateToNowhere(std::string_view compressed);

} // namespace trk_bench
