// Decides what the starts of recording blocks must have stated, where two of one block contradict each other or
// the samples behind them.
#pragma once

#include "salvage/record_walk.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace trk {

class OpeningJudge {
  public:
    explicit OpeningJudge(const RecordWalk &walk);

    // A field of the start at `offset` that must have had another value.
    struct Mend {
        int64_t offset;
        uint32_t length; // of the start
        uint8_t field;
        uint32_t value;
    };
    // A block of samples. What is in doubt nothing decides.
    struct Block {
        const SeenStart *start = nullptr; // of its samples
        int64_t begin = 0;                // offset of what stands behind its starts
        uint32_t time = 0;                // at which it starts, ms
        bool timeIsSure = false;          // both starts state it
        bool timeInDoubt = false;         // and a first sample goes by it
        bool sampleInDoubt = false;       // its first, unless events confirm its time
        bool gazeInDoubt = false;         // its divisor
        bool velocityInDoubt = false;
    };
    [[nodiscard]] const std::vector<Damage> &damages() const { return damages_; }
    [[nodiscard]] const std::vector<Mend> &mends() const { return mends_; }
    // By their numbers.
    [[nodiscard]] const std::map<uint32_t, Block> &blocks() const { return blocks_; }
    // Null when the samples' start is lost.
    [[nodiscard]] const Block *find(uint32_t block) const {
        const auto found = blocks_.find(block);
        return found != blocks_.end() ? &found->second : nullptr;
    }

    // The time of the first sample of a block, by its start; nothing where that is in doubt, or where samples of
    // this recording do not begin right at the start.
    [[nodiscard]] std::optional<uint32_t> firstSampleAt(uint32_t block) const;

  private:
    // The starts of one block. A block of samples or of events alone has one.
    struct Opening {
        const SeenStart *first;
        const SeenStart *second = nullptr;

        [[nodiscard]] const SeenStart *samples() const;
    };
    using Counts = std::map<uint32_t, std::size_t>;
    struct Divisor {
        uint8_t field;
        uint16_t SeenStart::*value;
        bool Block::*doubt;
        const char *name;
        Counts counts{}; // of the starts that nothing contradicts
    };

    void learn();
    void judge(const Opening &opening);
    void judgeTime(const Opening &opening);
    void judgeTimeAlone(const SeenStart &start);
    void judgeRate(const Opening &opening);
    void judgeDivisor(const Opening &opening, const Divisor &divisor);
    void judgeContent(const SeenStart &start);
    [[nodiscard]] std::optional<uint32_t> firstSampleTime(uint32_t block) const;
    void contradict(const SeenStart &wrong, uint8_t field, uint32_t right, std::string text);
    void doubt(const Opening &opening, std::string text);

    const RecordWalk &walk_;
    std::vector<Opening> openings_;
    std::map<uint32_t, const SampleRun *> firstRuns_; // by block
    std::array<Divisor, 2> divisors_;
    Counts rates_;
    std::map<int64_t, std::size_t> leads_; // of starts before their first samples, ms
    bool timesDiffer_ = false;             // as this tracker's habit
    std::vector<Damage> damages_;
    std::vector<Mend> mends_;
    std::map<uint32_t, Block> blocks_;
};

} // namespace trk
