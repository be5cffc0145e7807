// trk convert: recordings as tables, many at a time.
#pragma once

#include "open_recording.h"
#include "table_options.h"
#include "tables/bids.h"

#include <set>
#include <string>
#include <vector>

namespace tool {

struct ConvertOptions {
    std::vector<std::string> inputs; // files and folders
    std::string folder;              // to write to
    std::string format{"tsv"};
    std::set<std::string> what{"samples", "events", "messages", "trials", "blocks"};
    bool velocities = false;
    bool force = false;
    std::size_t jobs = 0; // at a time; 0: as many as there are processors
    std::string variable; // as for trials
    tables::TrialTexts texts;
    TableOptions table;
    tables::BidsOptions bids;
    OpenOptions open;
};

// What is written, for the help text.
extern const char *const kConvertHelp;

// Returns the exit status. Throws std::invalid_argument for options that do not fit together.
int convert(const ConvertOptions &options);

} // namespace tool
