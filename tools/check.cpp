#include "check.h"

#include "damage.h"
#include "json.h"
#include "tables/text_output.h"

#include <algorithm>

namespace tool {

namespace {

OpenOptions withSalvage() {
    OpenOptions options;
    options.salvage = true;
    return options;
}

std::string lineOf(const Recording &recording, const DamageReport &report) {
    std::string line = recording.name() + ": " + std::string(statusName(report));
    if (report.isDamaged()) {
        line += " " + report.text();
    } else if (!report.repairs().empty()) {
        line += ": " + report.repairsText();
    }
    return line;
}

Json jsonOf(const Recording &recording, const DamageReport &report) {
    return {{"file", tables::utf8(recording.path())},
            {"status", statusName(report)},
            {"items", trk_get_element_count(recording.handle())},
            {"damages", damagesJson(report)},
            {"lost", lossJson(report)},
            {"repairs", repairsJson(report)}};
}

} // namespace

const char *const kCheckHelp =
    R"(One line for each recording: sound; repaired, and what was (samples outside of recording blocks dropped,
eye events moved onto the borders of blocks, blinks joined, gaps filled: what the tracker itself did wrong or
lost, nothing to worry about); damaged, and what cannot be saved (bytes of the record stream, about how many
items, about how many seconds of samples); or not readable, and why.
--json: a list with an object for each file: "file", "status", "items" (with what can be saved), "damages"
("kind", "code", "text", "offset" and "length" in bytes of the record stream, "item": number of the first item
behind it, from 0, "time" in ms), "lost" ("bytes", "items", "seconds"; null for
what could not be found out), "repairs" ("kind", "code", "text",
"count", for filled gaps "samples_each"); of one that cannot be read "error" ("code", "system_error", "text").)";

int check(const CheckOptions &options) {
    tables::TextOutput out(std::string(tables::TextOutput::kStandardOutput), {});
    Json all = Json::array();
    Status status = kSound;
    for (const std::string &path : options.files) {
        try {
            const Recording recording(path, withSalvage(), OnDamage::Refuse);
            const DamageReport report(recording);
            status = std::max(status, report.status());
            if (options.json) {
                all.push_back(jsonOf(recording, report));
            } else {
                out.text(lineOf(recording, report));
            }
        } catch (const CannotRead &failure) {
            status = std::max(status, failure.status());
            if (options.json) {
                all.push_back(failureJson(path, failure));
            } else {
                out.text(tables::escaped(path) + ": " +
                         (failure.status() == kFailed ? "not readable: " : "damaged: ") + failure.what());
            }
        }
        if (!options.json) {
            out.text("\n");
            out.flush();
        }
    }
    if (options.json) {
        tables::writeJson(out, all);
    }
    out.finish();
    return status;
}

} // namespace tool
