// The fields of an event body.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace trk {

// Tag bytes. In a start of a recording block EndTime is the rate, StartPupilSize the gaze divisor, EndPupilSize
// the velocity divisor, EndResolution the mode, AuxWord2 the pupil mode and Status the content.
namespace EventField {
inline constexpr uint8_t StartTime = 0x21;
inline constexpr uint8_t StartRaw = 0x28;
inline constexpr uint8_t StartHref = 0x29;
inline constexpr uint8_t StartGaze = 0x2A;
inline constexpr uint8_t StartResolution = 0x2B;
inline constexpr uint8_t StartPupilSize = 0x30;
inline constexpr uint8_t StartVelocity = 0x33;
inline constexpr uint8_t EndTime = 0x41;
inline constexpr uint8_t EndRaw = 0x48;
inline constexpr uint8_t EndHref = 0x49;
inline constexpr uint8_t EndGaze = 0x4A;
inline constexpr uint8_t EndResolution = 0x4B;
inline constexpr uint8_t EndPupilSize = 0x51;
inline constexpr uint8_t EndVelocity = 0x53;
inline constexpr uint8_t AuxWord1 = 0x55;
inline constexpr uint8_t AuxWord2 = 0x56;
inline constexpr uint8_t Message = 0x5E;
inline constexpr uint8_t AverageRaw = 0x68;
inline constexpr uint8_t AverageHref = 0x69;
inline constexpr uint8_t AverageGaze = 0x6A;
inline constexpr uint8_t AveragePupilSize = 0x72;
inline constexpr uint8_t AverageVelocity = 0x73;
inline constexpr uint8_t PeakVelocity = 0x93;
inline constexpr uint8_t Status = 0xB4;
} // namespace EventField

inline constexpr std::size_t kLongestMessage = 498;

// Bytes of the value behind each tag; 0 for a message, whose length stands before it, and where there is no such
// field.
inline constexpr std::array<uint8_t, 256> kEventFieldSizes = [] {
    using namespace EventField;
    std::array<uint8_t, 256> sizes{};
    for (const uint8_t field : {StartTime, EndTime, StartRaw, StartHref, StartGaze, StartResolution, EndRaw,
                                EndHref, EndGaze, EndResolution, AverageRaw, AverageHref, AverageGaze}) {
        sizes[field] = 4;
    }
    for (const uint8_t field : {StartPupilSize, EndPupilSize, AveragePupilSize, StartVelocity, EndVelocity,
                                AverageVelocity, PeakVelocity, AuxWord1, AuxWord2, Status}) {
        sizes[field] = 2;
    }
    return sizes;
}();

} // namespace trk
