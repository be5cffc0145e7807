// trk synth: a made-up recording with a known truth.
#pragma once

#include "status.h"
#include "trkwriter/damage.h"
#include "trkwriter/session.h"

#include <optional>
#include <string>
#include <vector>

namespace tool {

struct SynthOptions {
    std::string output;
    trkwriter::SessionOptions session;
    bool compressed = false;
    bool force = false;               // replaces a file that is there
    std::vector<std::string> damages; // named as damageNamed() knows them
    std::optional<std::string> truth; // file for the table of true events
    std::optional<std::string> log;   // file for the external message log
};

// What the recording and the table hold, for the help text.
extern const char *const kSynthHelp;

// Tells standard error where damages are. Throws trkwriter::SessionError for options that cannot be, else
// OutputError, OutputClosed and trkwriter::Error.
Status synth(const SynthOptions &options);

} // namespace tool
