// Figures that sum up a recording, gathered in one walk over its items.
#pragma once

#include "tables/items.h"

#include <array>
#include <vector>

namespace tool {

struct BlockSummary {
    uint32_t start = 0;
    uint32_t end = 0; // time of the last sample where the end is lost
    bool endIsLost = true;
    int eyes = TRK_EYE_NONE;
    float sampleRate = 0;
    int recordType = 0;   // TRK_BLOCK_* value
    uint16_t content = 0; // TRK_SAMPLE_* bits: what the start announces, else what the samples carry
    bool contentIsAnnounced = false;
    uint64_t samples = 0;
    uint64_t events = 0; // messages included, marks of the block itself left out

    [[nodiscard]] uint32_t duration() const { return end > start ? end - start : 0; } // ms
};

// Samples of one eye, dummy samples included.
struct EyeSamples {
    uint64_t count = 0;
    uint64_t withGaze = 0; // that carry a place for gaze, be it missing
    uint64_t gazeMissing = 0;
    uint64_t insideBlink = 0;
};

// Events of one kind and eye.
struct EyeEvents {
    uint64_t starts = 0;
    uint64_t ends = 0;
    uint64_t timed = 0;    // ends whose start is known
    uint64_t duration = 0; // ms, of the timed ones
};

enum EyeEventKind : int { kBlinks, kSaccades, kFixations };

class RecordingSummary {
  public:
    void add(const tables::Item &item);
    void addUnreadable(int code);

    [[nodiscard]] uint64_t countOf(int code) const { return countOf(code, code); }
    [[nodiscard]] uint64_t countOf(int firstCode, int lastCode) const;
    [[nodiscard]] uint64_t items() const;

    std::vector<BlockSummary> blocks;
    std::array<EyeSamples, tables::kEyes> eyeSamples;
    std::array<std::array<EyeEvents, tables::kEyes>, kFixations + 1> eyeEvents;
    uint64_t dummySamples = 0;
    uint64_t repeatedTimes = 0;
    uint64_t samplesWithInput = 0;
    uint64_t unreadable = 0;

  private:
    void addSample(const tables::Item &item);
    void addSampleOfEye(const tables::Item &item, tables::Eye eye);
    void addRecording(const FRECORDING &recording);
    void addEvent(const tables::Item &item);

    static constexpr std::size_t kCodes = 256;
    std::array<uint64_t, kCodes> counts_{};
    bool insideBlock_ = false; // the last of `blocks` is in force
    std::array<bool, tables::kEyes> insideBlink_{};
};

} // namespace tool
