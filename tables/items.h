// What the programs say of an item, whatever its kind.
#pragma once

#include "trkapi/trkapi.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tables {

enum Eye : unsigned { kLeft = 0, kRight = 1 };
inline constexpr std::size_t kEyes = 2;

// Kinds of items, as a set of bits.
using ItemKinds = unsigned;
inline constexpr ItemKinds kSamples = 1;
inline constexpr ItemKinds kEvents = 2; // all but messages
inline constexpr ItemKinds kMessages = 4;
inline constexpr ItemKinds kRecordings = 8;
inline constexpr ItemKinds kAllKinds = kSamples | kEvents | kMessages | kRecordings;

[[nodiscard]] ItemKinds kindOf(int code);

// A fetched item. Each of the three accessors gives null for an item of another kind.
struct Item {
    int code;
    const ALLF_DATA *record;

    [[nodiscard]] const FSAMPLE_REC *sample() const { return code == REC_SAMPLE ? &record->sample : nullptr; }
    [[nodiscard]] const FRECORDING *recording() const {
        return code == REC_RECORDING ? &record->recording : nullptr;
    }
    [[nodiscard]] const FEVENT *event() const {
        return code == REC_SAMPLE || code == REC_RECORDING ? nullptr : &record->event;
    }

    [[nodiscard]] bool isDummySample() const {
        return code == REC_SAMPLE && (record->sample.flags & TRK_SAMPLE_RECORD) == 0;
    }
    // Made from a line of the external message log: no record of the recording stands behind it.
    [[nodiscard]] bool isLogMessage() const {
        return code == REC_MESSAGE && (record->event.read_flags & TRK_EVENT_AT_START) == 0;
    }
    // Of an eye event.
    [[nodiscard]] Eye eye() const { return record->event.eye == 0 ? kLeft : kRight; }

    // "fixation", "saccade" or "blink" for the end of one, which tells all of it; else empty.
    [[nodiscard]] std::string_view wholeEyeEvent() const;

    [[nodiscard]] bool isEyeEvent() const { return code >= REC_EVENT1 && code <= REC_EVENT10; }
    // Start or end of the samples or the events of a recording block.
    [[nodiscard]] bool isBlockMark() const { return code >= REC_STARTSAMPLES && code <= REC_ENDEVENTS; }

    // Of a message; empty when there is none.
    [[nodiscard]] std::string_view messageText() const;

    [[nodiscard]] std::string_view name() const;

    // The moment at which the item stands among the others: ends of blinks, saccades and fixations at their end,
    // all other events at their start.
    [[nodiscard]] uint32_t time() const;
};

// Fetches the item that the walk stepped to. A line of the message log that pairs the clocks can come in the place
// of another item: that item is then lost, and the message is what was fetched.
[[nodiscard]] Item fetchItem(_TRKFILE *handle, int code);

// Name of a TRK_EYE_* value.
[[nodiscard]] std::string_view eyeName(int eyes);

// Name of a TRK_BLOCK_* record type.
[[nodiscard]] std::string_view recordTypeName(int type);

// TRK_EYE_* value of a word in which the two highest bits tell the eyes, as in the flags of samples.
[[nodiscard]] int eyesOf(uint16_t flags);

// The field groups that a sample's flags or a block's content flags name, such as "gaze, pupil size".
[[nodiscard]] std::string contentNames(uint16_t flags);

} // namespace tables
