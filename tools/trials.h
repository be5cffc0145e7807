// trk trials: the trials of a recording, and which items belong to them.
#pragma once

#include "open_recording.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tool {

struct TrialsOptions {
    std::string file;
    TrialTexts texts;
    OpenOptions open;
};

// What the table holds, for the help text.
extern const char *const kTrialsHelp;

// Returns the exit status. Throws CannotRead, OutputError and OutputClosed.
int trials(const TrialsOptions &options);

struct Trial {
    TRIAL header{};
    uint32_t first = 0; // number of its first item
    uint32_t end = 0;   // one past its last item
};

// All trials, first to last. Moves the read position. Tells standard error of a text that is found nowhere.
[[nodiscard]] std::vector<Trial> collectTrials(Recording &recording, const TrialTexts &texts);

} // namespace tool
