// trk dump: all items of a recording as a table.
#pragma once

#include "open_recording.h"
#include "table_options.h"
#include "tables/items.h"
#include "tables/text_output.h"

#include <limits>
#include <optional>
#include <vector>

namespace tool {

struct DumpOptions {
    std::vector<std::string> files;
    tables::ItemKinds kinds = tables::kAllKinds;
    uint32_t from = 0;
    uint32_t to = std::numeric_limits<uint32_t>::max();
    std::optional<uint32_t> trial; // only this one's items
    tables::TrialTexts texts;
    bool raw = false; // with the columns for raw pupil and corneal reflection
    TableOptions table;
    std::string output{tables::TextOutput::kStandardOutput};
    OpenOptions open;
};

// What the table holds, for the help text.
extern const char *const kDumpHelp;

// Returns the exit status. Throws CannotRead, OutputError and OutputClosed.
int dump(const DumpOptions &options);

} // namespace tool
