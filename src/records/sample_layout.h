// Sizes of the parts of a sample record.
#pragma once

#include "trkapi/trkapi.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace trk {

inline constexpr int kExtensionWords = 8;

// Words of an extension with this header.
[[nodiscard]] constexpr std::size_t extensionWordCount(unsigned header) {
    return std::min<std::size_t>(header & 0x0FU, kExtensionWords);
}

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

// Where the parts of a record stand behind its tag word.
struct SampleLayout {
    explicit SampleLayout(uint16_t tag) {
        const auto has = [tag](unsigned flag) { return (tag & flag) != 0; };
        const std::size_t eyes = (has(TRK_SAMPLE_LEFT) ? 1U : 0U) + (has(TRK_SAMPLE_RIGHT) ? 1U : 0U);
        std::size_t at = has(TRK_SAMPLE_FULL_TIME) ? 4 : 1;
        const auto part = [&](unsigned flag, std::size_t size) {
            const std::size_t begin = at;
            at += has(flag) ? size : 0;
            return begin;
        };
        group[2] = part(TRK_SAMPLE_PUPIL_POSITION, 4 * eyes);
        group[1] = part(TRK_SAMPLE_HREF, 4 * eyes);
        group[0] = part(TRK_SAMPLE_GAZE, 4 * eyes);
        resolution = part(TRK_SAMPLE_RESOLUTION, 4);
        pupilSize = part(TRK_SAMPLE_PUPIL_SIZE, 2 * eyes);
        status = part(TRK_SAMPLE_STATUS, 2);
        input = part(TRK_SAMPLE_INPUT, 2);
        buttons = part(TRK_SAMPLE_BUTTONS, 2);
        extension = part(TRK_SAMPLE_EXTENSION, 1);
        end = at;
    }

    std::array<std::size_t, 3> group{}; // gaze, HREF and pupil positions
    std::size_t resolution;
    std::size_t pupilSize;
    std::size_t status;
    std::size_t input;
    std::size_t buttons;
    std::size_t extension; // its header; the words follow
    std::size_t end;       // behind all but the extension words
};

} // namespace trk
