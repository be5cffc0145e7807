// Classes of data type codes and the parts of a tag word.
#pragma once

#include "trkapi/trkapi.h"

#include <cstdint>

namespace trk {

inline constexpr unsigned kLargestEventCode = 28;
inline constexpr uint32_t kEventCodeMask = 0x130787FE;

// Whether a code is one of the event codes 1 to 10, 15 to 18, 24, 25 and 28.
[[nodiscard]] constexpr bool isEventCode(unsigned code) {
    return code <= kLargestEventCode && (kEventCodeMask >> code & 1U) != 0;
}

// Bit 0 of a tag word alone tells a sample from an event.
[[nodiscard]] constexpr bool isSampleTag(uint16_t tagWord) { return (tagWord & TRK_SAMPLE_RECORD) != 0; }

// Parts of an event's tag word.
[[nodiscard]] constexpr int16_t eventCodeOfTag(uint16_t tagWord) {
    return static_cast<int16_t>(tagWord >> 8 & 0x3F);
}
[[nodiscard]] constexpr int16_t eyeOfTag(uint16_t tagWord) { return (tagWord & 0xC000) == 0x4000 ? 1 : 0; }
[[nodiscard]] constexpr uint16_t parseFlagsOfTag(uint16_t tagWord) { return tagWord & 0xFE; }

} // namespace trk
