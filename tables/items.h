// What the programs say of an item, whatever its kind.
#pragma once

#include "trkapi/trkapi.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tables {

enum Eye : unsigned { kLeft = 0, kRight = 1 };
inline constexpr std::size_t kEyes = 2;

using trkapi::Item;
using trkapi::kAllKinds;
using trkapi::kBlocks;
using trkapi::kEvents;
using trkapi::kindOf;
using trkapi::kMessages;
using trkapi::kSamples;
using ItemKinds = trkapi::Kinds;

// What the item is, in a word.
[[nodiscard]] std::string_view nameOf(const Item &item);

// Of an eye event: the start or the end of a blink, saccade or fixation.
[[nodiscard]] inline bool isEyeEvent(const Item &item) {
    return item.event() != nullptr && item.code >= REC_EVENT1 && item.code <= REC_EVENT10;
}
[[nodiscard]] inline Eye eyeOf(const Item &item) { return item.event()->eye == 0 ? kLeft : kRight; }

// "fixation", "saccade" or "blink" for the end of one, which tells all of it; else empty.
[[nodiscard]] std::string_view wholeEyeEvent(const Item &item);

// Name of a TRK_EYE_* value.
[[nodiscard]] std::string_view eyeName(int eyes);

// Name of a TRK_BLOCK_* record type.
[[nodiscard]] std::string_view recordTypeName(int type);

// TRK_EYE_* value of a word in which the two highest bits tell the eyes, as in the flags of samples.
[[nodiscard]] int eyesOf(uint16_t flags);

// The field groups that a sample's flags or a block's content flags name, such as "gaze, pupil size".
[[nodiscard]] std::string contentNames(uint16_t flags);

} // namespace tables
