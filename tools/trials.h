// trk trials: the trials of a recording, one row each.
#pragma once

#include "open_recording.h"
#include "table_options.h"

#include <string>

namespace tool {

struct TrialsOptions {
    std::string file;
    tables::TrialTexts texts;
    std::string variable; // pattern for variables that messages name
    TableOptions table;
    std::string output{tables::TextOutput::kStandardOutput};
    OpenOptions open;
};

// What the table holds, for the help text.
extern const char *const kTrialsHelp;

// Returns the exit status. Throws CannotRead, OutputError and OutputClosed.
int trials(const TrialsOptions &options);

} // namespace tool
