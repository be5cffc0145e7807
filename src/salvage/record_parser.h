// Takes one record apart without decoding its values: what there is to say of it before anything is known.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace trk {

struct ParsedRecord {
    enum class Form { Cut, EndMark, Malformed, Sample, Event };

    Form form = Form::Cut;
    uint16_t tag = 0;
    std::size_t length = 0; // in bytes, the tag word included

    // Samples.
    bool fullTime = false;
    uint32_t time = 0; // of a sample in full, or since the one before; of an event the latest it names

    // Events.
    unsigned code = 0;
    bool hasStart = false;
    bool hasEnd = false;
    uint32_t start = 0;
    uint32_t end = 0;             // in a start of a block its rate, 16.16 fixed point
    uint16_t status = 0;          // in a start of samples their content
    uint16_t gazeDivisor = 0;     // start pupil size elsewhere
    uint16_t velocityDivisor = 0; // end pupil size elsewhere
    uint32_t fields = 0;          // a digest of the tags of its fields, in their order
    bool hasUnknownField = false;
    bool hasMessage = false;
    bool repeatsField = false;
    bool settled = false; // a start of a block: time and rate are those that its twin has too

    [[nodiscard]] bool isSample() const { return form == Form::Sample; }
    [[nodiscard]] bool isEvent() const { return form == Form::Event; }
};

// Longer records are malformed. Those of sound recordings are far shorter.
inline constexpr std::size_t kLongestRecord = 4096;

// The record at the front of `bytes`. Cut stands for one that goes on behind them.
[[nodiscard]] ParsedRecord parseRecord(std::span<const uint8_t> bytes);

// A whole event without message, with another value in one of its fields, or with that field at its end.
[[nodiscard]] std::vector<uint8_t> withField(std::span<const uint8_t> event, uint8_t field, uint32_t value);

} // namespace trk
