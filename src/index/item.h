// One entry of the item index.
#pragma once

#include "trkapi/trkapi.h"

#include <cstdint>

namespace trk {

inline constexpr int64_t kNoFilePosition = -1; // of a dummy sample

// Bits of TRKItem::item_type above the code and the eye.
inline constexpr uint16_t kItemMoved = 0x1000;         // eye event: its key was moved
inline constexpr uint16_t kItemBlinkRepaired = 0x2000; // end of blink: its start was moved or merged
inline constexpr uint16_t kItemInLeftBlink = 0x1000;   // sample: inside a left-eye blink
inline constexpr uint16_t kItemInRightBlink = 0x2000;  // sample: inside a right-eye blink

struct TRKItem {
    int64_t file_position; // of the record's body; kNoFilePosition for a dummy sample, 0 for a recording block
    uint16_t item_type;    // bits 0-7 code, 8-11 eye (1 left, 2 right) of paired events, 12-13 marks
    uint16_t tag_word;     // the record's tag word; 0 for a dummy sample
    uint64_t sort_key;     // 2 x time, plus 1 for a repeated sample time; for a recording block: the number of its
                           // record in the list of recording blocks, never a value of the file

    [[nodiscard]] unsigned code() const { return item_type & 0xFFU; }
    [[nodiscard]] unsigned eye() const { return item_type >> 8 & 0x0FU; }
    [[nodiscard]] bool isSample() const { return code() == REC_SAMPLE; }
    [[nodiscard]] bool isRecordingBlock() const { return code() == REC_RECORDING; }
    [[nodiscard]] bool isDummy() const { return file_position == kNoFilePosition; }
    void mark(uint16_t bits) { item_type = static_cast<uint16_t>(item_type | bits); }
};

static_assert(sizeof(TRKItem) == 24);

[[nodiscard]] constexpr uint64_t keyOfTime(uint32_t time) { return uint64_t{2} * time; }
[[nodiscard]] constexpr uint32_t timeOfKey(uint64_t key) { return static_cast<uint32_t>(key >> 1); }

} // namespace trk
