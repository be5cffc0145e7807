// Where items stand: in which recording block, and in which trial. Both are numbered from 1.
#pragma once

#include "trkapi/trkapi.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tables {

// Texts in messages that start and end trials; without any, each recording block is a trial.
struct TrialTexts {
    std::optional<std::string> start;
    std::optional<std::string> end;
};

// Samples per second. Beyond it, the millisecond clock of the tracker gives several samples one time stamp.
inline constexpr float kFastestDistinctRate = 1000.0F;

struct Block {
    FRECORDING start{};
    uint32_t first = 0; // number of its first item, the start
    uint32_t end = 0;   // one past its last item
    uint32_t endTime = 0;
    bool hasEnd = false; // else it breaks off, at the end of the file or where the next one begins
};

struct Trial {
    TRIAL header{};
    std::optional<FRECORDING> block; // in force when it ended
    uint32_t first = 0;              // number of its first item
    uint32_t end = 0;                // one past its last item
    std::string text;                // of the message that started it
    bool hasText = false;

    // Whether something of its own ended it, and not the recording block that it lies in.
    [[nodiscard]] bool hasOwnEnd() const { return header.duration != 0 || header.end_time <= header.start_time; }
    [[nodiscard]] uint32_t duration() const { // ms
        return header.end_time > header.start_time ? header.end_time - header.start_time : 0;
    }
};

class Places {
  public:
    Places() = default;

    // Looks through a recording. That moves the read position, uses up a message log and can set the base of moved
    // times: whoever walks the recording, too, opens it once more.
    Places(trkapi::Recording &recording, const TrialTexts &texts);

    [[nodiscard]] const std::vector<Block> &blocks() const { return blocks_; }
    [[nodiscard]] const std::vector<Trial> &trials() const { return trials_; }

    // 0 for an item outside.
    [[nodiscard]] uint32_t blockOf(uint32_t item) const;
    [[nodiscard]] uint32_t trialOf(uint32_t item) const;

    // Whether a time in ms does not tell samples apart.
    [[nodiscard]] bool hasFastBlock() const;

    // The first block that has items in [first, end); 0 when none has.
    [[nodiscard]] uint32_t firstBlockIn(uint32_t first, uint32_t end) const;

    // Texts that were given and occur nowhere, each as a sentence: then there are no trials.
    [[nodiscard]] const std::vector<std::string> &unmatched() const { return unmatched_; }

  private:
    void findBlocks(_TRKFILE *handle);
    void findTrials(trkapi::Recording &recording, const TrialTexts &texts);

    std::vector<Block> blocks_;
    std::vector<Trial> trials_;
    std::vector<std::string> unmatched_;
};

} // namespace tables
