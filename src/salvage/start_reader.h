// Reads starts of recording blocks in the light of what stands behind them.
#pragma once

#include "io/byte_view.h"
#include "salvage/record_parser.h"
#include "trkapi/trkapi.h"

#include <cstdint>
#include <vector>

namespace trk {

inline constexpr uint16_t kSampleEyes = TRK_SAMPLE_LEFT | TRK_SAMPLE_RIGHT;
// What all samples of a block carry alike, and what none has that is not announced. Words for input, buttons and
// status may come and go.
inline constexpr uint16_t kSteadyContent = kSampleEyes | TRK_SAMPLE_PUPIL_POSITION | TRK_SAMPLE_HREF |
                                           TRK_SAMPLE_GAZE | TRK_SAMPLE_RESOLUTION | TRK_SAMPLE_PUPIL_SIZE;
inline constexpr uint16_t kAnnouncedContent = TRK_SAMPLE_EXTENSION | TRK_SAMPLE_SKIP_LIST1 | TRK_SAMPLE_SKIP_LIST2;

// Whether a sample is one of a block that announces `content`.
[[nodiscard]] constexpr bool sampleFits(uint16_t tag, uint16_t content) {
    const bool announced = (tag & ~content & kAnnouncedContent) == 0;
    const bool likely = (tag & kSampleEyes) != 0 && (tag & TRK_SAMPLE_DUPLICATE_TIME) == 0;
    return ((tag ^ content) & kSteadyContent) == 0 && announced && likely;
}

// A tracker that records samples and eye events starts a block with a start of each, one directly behind the
// other, and states the same in both. So where one of them is damaged the other still tells what it stated, and
// the samples tell which of the two is right, of time, rate and content.
class StartReader {
  public:
    explicit StartReader(ByteView &view) : view_(view) {}

    // Whether a block that starts at `start` cannot have its first sample at `sample`, ms.
    [[nodiscard]] static bool isFar(uint32_t start, uint32_t sample);

    // Gives the first of two starts, `record` at `offset`, the time and the rate that both must have had, where
    // they differ by so much that one of them would make nonsense of what follows; a start of samples alone, the
    // time of its first sample in that case. `reference` is the time of the record before.
    void settle(ParsedRecord &record, int64_t offset, uint32_t reference);

    // The content of the samples behind a start of samples: what it announces, unless they agree on another.
    [[nodiscard]] uint16_t contentShown(const ParsedRecord &record, int64_t offset);

  private:
    void settleAlone(ParsedRecord &record, int64_t behind, uint32_t reference);
    [[nodiscard]] std::vector<ParsedRecord> samplesFrom(int64_t offset, std::size_t count);

    ByteView &view_;
};

} // namespace trk
