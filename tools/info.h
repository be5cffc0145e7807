// trk info: a recording at a glance.
#pragma once

#include "open_recording.h"
#include "tables/text_output.h"

#include <string>
#include <vector>

namespace tool {

struct InfoOptions {
    std::vector<std::string> files;
    tables::TrialTexts texts;
    bool json = false;
    OpenOptions open;
};

// What the figures mean, for the help text.
extern const char *const kInfoHelp;

// Reports what cannot be read and goes on. Returns the exit status. Throws OutputError and OutputClosed.
int info(const InfoOptions &options);

} // namespace tool
