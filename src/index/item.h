// One entry of the item index.
#pragma once

#include "base/time_key.h"
#include "trkapi/trkapi.h"

#include <cstdint>

namespace trk {

// The place of an item in the index, from 0. An index never comes near its limit.
using ItemNumber = uint32_t;

inline constexpr int64_t kNoFilePosition = -1; // of a dummy sample

// Bits of Item::type above the code and the eye.
inline constexpr uint16_t kItemMoved = 0x1000;         // eye event: its key was moved
inline constexpr uint16_t kItemBlinkRepaired = 0x2000; // end of blink: its start was moved or joined
inline constexpr uint16_t kItemInLeftBlink = 0x1000;   // sample: inside a left-eye blink
inline constexpr uint16_t kItemInRightBlink = 0x2000;  // sample: inside a right-eye blink

struct Item {
    int64_t filePosition; // of the record's body; kNoFilePosition for a dummy sample, 0 for a recording block
    uint16_t type;        // bits 0-7 code, 8-11 eye (1 left, 2 right) of paired events, 12-13 marks
    uint16_t tag;         // the record's tag word; 0 for a dummy sample
    uint64_t key;         // TimeKey; for a recording block: the number of its record in the list of recording
                          // blocks, never a value of the file

    [[nodiscard]] unsigned code() const { return type & 0xFFU; }
    [[nodiscard]] unsigned eye() const { return type >> 8 & 0x0FU; }
    [[nodiscard]] bool isSample() const { return code() == REC_SAMPLE; }
    [[nodiscard]] bool isRecordingBlock() const { return code() == REC_RECORDING; }
    [[nodiscard]] bool isDummy() const { return filePosition == kNoFilePosition; }
    [[nodiscard]] bool has(uint16_t mark) const { return (type & mark) != 0; }
    void mark(uint16_t bits) { type = static_cast<uint16_t>(type | bits); }
};

static_assert(sizeof(Item) == 24);

} // namespace trk
