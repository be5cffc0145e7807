// trk check: whether recordings are sound, and what of them is lost.
#pragma once

#include <string>
#include <vector>

namespace tool {

struct CheckOptions {
    std::vector<std::string> files;
    bool json = false;
};

extern const char *const kCheckHelp;

// Returns the exit status. Throws OutputError and OutputClosed.
int check(const CheckOptions &options);

} // namespace tool
