// Classes of data type codes and the parts of a tag word.
#pragma once

#include "trkapi/trkapi.h"

#include <cstdint>
#include <initializer_list>

namespace trk {

// A set of event codes, which have six bits.
class CodeSet {
  public:
    constexpr CodeSet(std::initializer_list<int> codes) {
        for (const int code : codes) {
            bits_ |= uint64_t{1} << code;
        }
    }

    // False for all that is no event code, samples and recording blocks among them.
    [[nodiscard]] constexpr bool contains(unsigned code) const { return code < 64 && (bits_ >> code & 1U) != 0; }

    friend constexpr CodeSet operator|(CodeSet a, CodeSet b) {
        a.bits_ |= b.bits_;
        return a;
    }

  private:
    uint64_t bits_ = 0;
};

// Starts and ends of blinks, saccades and fixations.
inline constexpr CodeSet kEyeEventStarts{REC_SBLINK, REC_SSACC, REC_SFIX};
inline constexpr CodeSet kEyeEventEnds{REC_EBLINK, REC_ESACC, REC_EFIX};
inline constexpr CodeSet kEyeEvents = kEyeEventStarts | kEyeEventEnds;

// Starts and ends of the samples and of the events of a recording block.
inline constexpr CodeSet kBlockStarts{REC_STARTSAMPLES, REC_STARTEVENTS};
inline constexpr CodeSet kBlockEnds{REC_ENDSAMPLES, REC_ENDEVENTS};
inline constexpr CodeSet kBlockBoundaries = kBlockStarts | kBlockEnds;

// Events that start or end something, and all others.
inline constexpr CodeSet kStarts = CodeSet{REC_EVENT1} | kEyeEventStarts | kBlockStarts;
inline constexpr CodeSet kEnds = CodeSet{REC_EVENT2} | kEyeEventEnds | kBlockEnds;
inline constexpr CodeSet kMoments{REC_EVENT9, REC_EVENT10, REC_MESSAGE, REC_BUTTON, REC_INPUT};

// All that can be delivered as an event.
inline constexpr CodeSet kEvents = kStarts | kEnds | kMoments;

// Bit 0 of a tag word alone tells a sample from an event.
[[nodiscard]] constexpr bool isSampleTag(uint16_t tag) { return (tag & TRK_SAMPLE_RECORD) != 0; }

// Parts of an event's tag word.
[[nodiscard]] constexpr int16_t eventCodeOfTag(uint16_t tag) { return static_cast<int16_t>(tag >> 8 & 0x3F); }
[[nodiscard]] constexpr int16_t eyeOfTag(uint16_t tag) { return (tag & 0xC000) == 0x4000 ? 1 : 0; }
[[nodiscard]] constexpr uint16_t parseFlagsOfTag(uint16_t tag) { return tag & 0xFE; }

} // namespace trk
