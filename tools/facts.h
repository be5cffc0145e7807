// What there is to know of a recording at a glance.
#pragma once

#include "damage.h"
#include "summary.h"
#include "tables/places.h"

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

// The external message log beside a recording.
struct LogFacts {
    std::string name;
    std::string failure; // why it cannot be read; then the rest is not known
    uint64_t messages = 0;
    uint64_t merged = 0;
    uint64_t replaced = 0; // items of the recording that the merge leaves out
    bool endIsMissing = false;
};

struct Facts {
    const Recording &recording;
    const DamageReport &damage;
    RecordingSummary summary;
    const tables::Places &places;
    LogFacts messageLog;
    std::vector<std::string> preamble; // its lines

    [[nodiscard]] std::string_view container() const {
        return trk_is_compressed(recording.handle()) == 1 ? "compressed" : "plain";
    }
};

// The lines of its preamble, without the mark before them.
[[nodiscard]] std::vector<std::string> preambleLines(_TRKFILE *handle);

// Walks over the whole recording. The facts refer to all three.
[[nodiscard]] Facts gatherFacts(const Recording &recording, const DamageReport &damage,
                                const tables::Places &places);

inline constexpr std::array<std::string_view, kFixations + 1> kEyeEventNames{"blinks", "saccades", "fixations"};

} // namespace tool
