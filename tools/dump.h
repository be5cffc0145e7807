// trk dump: all items of a recording as a table.
#pragma once

#include "items.h"
#include "open_recording.h"
#include "text_output.h"

#include <limits>
#include <optional>

namespace tool {

struct DumpOptions {
    std::string file;
    ItemKinds kinds = kAllKinds;
    uint32_t from = 0;
    uint32_t to = std::numeric_limits<uint32_t>::max();
    std::optional<uint32_t> trial; // only this one's items
    TrialTexts texts;
    bool raw = false; // with the columns for raw pupil and corneal reflection
    std::string output{TextOutput::kStandardOutput};
    OpenOptions open;
};

// What the table holds, for the help text.
extern const char *const kDumpHelp;

// Returns the exit status. Throws CannotRead, OutputError and OutputClosed.
int dump(const DumpOptions &options);

} // namespace tool
