// How trk ends: the same in all of its commands. The worst of all files counts.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace tool {

enum Status : int {
    kSound = 0,
    kIncomplete = 1, // a recording is damaged, or what was asked for is not in it
    kUsage = 2,
    kFailed = 3, // a recording could not be read, or the output not be written
};

inline constexpr const char *kStatusHelp =
    R"(Exit status: 0 all is well (repairs that every recording needs do not count); 1 a recording is damaged, or
what was asked for is not in it; 2 the command line is wrong; 3 a recording cannot be read, or the output
cannot be written. Of several files the worst counts.)";

// The head of a help text: command lines behind "trk", one a line.
[[nodiscard]] inline std::string exampleText(std::string_view examples) {
    std::string text = "Examples:";
    while (!examples.empty()) {
        const std::string_view line = examples.substr(0, examples.find('\n'));
        examples.remove_prefix(std::min(line.size() + 1, examples.size()));
        text.append("\n  trk ").append(line);
    }
    return text + "\n";
}

} // namespace tool
