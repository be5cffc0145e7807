// Sizes of the parts of a sample record.
#pragma once

#include "trkapi/trkapi.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace trk {

inline constexpr int kExtensionWords = 8;

// Everything of a sample record behind its tag word but the skip lists: time, three positions of both eyes,
// resolution, pupil sizes, three words, extension header and words.
inline constexpr std::ptrdiff_t kLargestFixedPart = 4 + 3 * 8 + 4 + 4 + 3 * 2 + 1 + 2 * kExtensionWords;

// The number of bytes of eye data, by the upper byte of the flags.
inline constexpr std::array<uint8_t, 256> kEyeDataSizes = [] {
    std::array<uint8_t, 256> sizes{};
    for (unsigned upper = 0; upper < sizes.size(); ++upper) {
        const auto has = [upper](unsigned bit) { return (upper << 8 & bit) != 0 ? 1U : 0U; };
        const unsigned eyes = has(TRK_SAMPLE_LEFT) + has(TRK_SAMPLE_RIGHT);
        const unsigned pairs = has(TRK_SAMPLE_PUPIL_POSITION) + has(TRK_SAMPLE_HREF) + has(TRK_SAMPLE_GAZE);
        const unsigned words = eyes * (2 * pairs + has(TRK_SAMPLE_PUPIL_SIZE)) + 2 * has(TRK_SAMPLE_RESOLUTION);
        sizes[upper] = static_cast<uint8_t>(2 * words);
    }
    return sizes;
}();

} // namespace trk
