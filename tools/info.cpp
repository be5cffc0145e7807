#include "info.h"

#include "facts.h"
#include "info_json.h"
#include "table_options.h"
#include "tables/text_output.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace tool {

namespace {

constexpr std::string_view kMissing = ".";

constexpr double kMillisecondsPerSecond = 1000.0;

using TableRow = std::vector<std::string>;

// Columns are aligned as `alignment` says, one letter each: l or r.
void writeTable(tables::TextOutput &out, std::string_view title, std::string_view alignment,
                const std::vector<TableRow> &rows) {
    std::vector<std::size_t> widths(alignment.size(), 0);
    for (const TableRow &row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    out.text("\n");
    out.text(title);
    out.text("\n");
    for (const TableRow &row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string padding(widths[i] - row[i].size(), ' ');
            line += "  " + (alignment[i] == 'r' ? padding + row[i] : row[i] + padding);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out.text(line);
        out.text("\n");
    }
}

void writeFact(tables::TextOutput &out, std::string_view name, std::string_view value) {
    constexpr std::size_t kNameWidth = 14;
    out.text("  ");
    out.text(name);
    out.text(std::string(kNameWidth - std::min(name.size(), kNameWidth - 1), ' '));
    out.text(value);
    out.text("\n");
}

std::string seconds(uint64_t milliseconds) {
    return tables::fixedPoint(static_cast<double>(milliseconds) / kMillisecondsPerSecond, 3);
}

std::string share(uint64_t part, uint64_t whole) {
    if (whole == 0) {
        return std::string(kMissing);
    }
    return tables::fixedPoint(100.0 * static_cast<double>(part) / static_cast<double>(whole), 2) + " %";
}

std::string counted(uint64_t count, std::string_view thing) {
    return std::to_string(count).append(" ").append(thing).append(count == 1 ? "" : "s");
}

std::string sampleRate(float rate) {
    std::array<char, 32> digits{};
    return {digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), rate).ptr};
}

// ---- The head ----

std::string trackerText(_TRKFILE *handle) {
    const int model = trk_get_pupilon_revision(handle);
    const int revision = trk_get_revision(handle);
    return "model " + std::to_string(model) + (model == 2 ? " (V2)" : "") + (model == 3 ? " (LX)" : "") +
           (revision == 0 ? ", no file revision stated" : ", file revision " + std::to_string(revision));
}

std::string recordedText(const RecordingSummary &summary) {
    if (summary.blocks.empty()) {
        return "no recording block";
    }
    uint64_t duration = 0;
    uint32_t first = summary.blocks.front().start;
    uint32_t last = first;
    for (const BlockSummary &block : summary.blocks) {
        duration += block.duration();
        first = std::min(first, block.start);
        last = std::max(last, block.end);
    }
    return seconds(duration) + " s in " + counted(summary.blocks.size(), "block") + ", from " +
           std::to_string(first) + " to " + std::to_string(last) + " ms (" + seconds(last - first) + " s)";
}

// What all blocks have in common, or else each of their values with the number of blocks that have it.
template <typename TextOf>
void writeBlockFact(tables::TextOutput &out, std::string_view name, const RecordingSummary &summary,
                    TextOf textOf) {
    using Value = std::pair<std::string, std::size_t>;
    std::vector<Value> values;
    for (const BlockSummary &block : summary.blocks) {
        const std::string text(textOf(block));
        const auto known = std::ranges::find(values, text, &Value::first);
        if (known == values.end()) {
            values.emplace_back(text, 1);
        } else {
            ++known->second;
        }
    }
    std::string all;
    for (const auto &[text, count] : values) {
        all += (all.empty() ? "" : "; ") + (text.empty() ? std::string(kMissing) : text);
        if (values.size() > 1) {
            all += " (" + counted(count, "block") + ")";
        }
    }
    writeFact(out, name, all.empty() ? kMissing : all);
}

std::string messageLogText(const LogFacts &log) {
    if (!log.failure.empty()) {
        return "none: " + log.failure;
    }
    const std::string found = tables::escaped(log.name) + ": " + counted(log.messages, "message");
    if (log.messages == 0) {
        return found + ", not merged: no line pairs the clocks";
    }
    if (log.endIsMissing) {
        return found + ", not merged: the end line is missing";
    }
    return found + "; --log merges " + std::to_string(log.merged) + " and leaves out " +
           counted(log.replaced, "item");
}

std::string trialsText(std::size_t count, const tables::TrialTexts &texts) {
    const auto quoted = [](std::string_view word, const std::optional<std::string> &text) {
        return text ? std::string(word) + " \"" + tables::escaped(*text) + "\"" : std::string();
    };
    const std::string limits = quoted(" from", texts.start) + quoted(" to", texts.end);
    return std::to_string(count) + (limits.empty() ? " by recording blocks" : limits);
}

// ---- The tables ----

std::string aboutSamples(const RecordingSummary &summary) {
    const bool isFast = std::ranges::any_of(
        summary.blocks, [](float rate) { return rate > tables::kFastestDistinctRate; }, &BlockSummary::sampleRate);
    return std::to_string(summary.dummySamples) + " of them dummies in place of lost ones, " +
           std::to_string(summary.repeatedTimes) + " with a repeated time stamp" +
           (isFast ? " (natural above 1000 samples/s)" : "");
}

void writeItemCounts(tables::TextOutput &out, const RecordingSummary &summary) {
    const uint64_t eyeEvents = summary.countOf(REC_EVENT1, REC_EVENT10);
    const uint64_t marks = summary.countOf(REC_STARTSAMPLES, REC_ENDEVENTS) + summary.countOf(REC_RECORDING);
    const uint64_t samples = summary.countOf(REC_SAMPLE);
    const uint64_t messages = summary.countOf(REC_MESSAGE);
    const uint64_t buttons = summary.countOf(REC_BUTTON);
    const uint64_t inputs = summary.countOf(REC_INPUT);
    const uint64_t others = summary.items() - eyeEvents - marks - samples - messages - buttons - inputs;
    std::vector<TableRow> rows{
        {"samples", std::to_string(samples), aboutSamples(summary)},
        {"messages", std::to_string(messages)},
        {"eye events", std::to_string(eyeEvents)},
        {"button events", std::to_string(buttons)},
        {"input events", std::to_string(inputs)},
        {"block starts and ends", std::to_string(marks)},
    };
    if (others != 0) {
        rows.push_back({"of unknown kind", std::to_string(others)});
    }
    if (summary.unreadable != 0) {
        rows.push_back({"unreadable", std::to_string(summary.unreadable), "counted above, too"});
    }
    writeTable(out, "Items: " + std::to_string(summary.items()), "lrl", rows);
}

std::string eyeEventsText(const EyeEvents &events) {
    std::string text = std::to_string(events.ends);
    if (events.starts != events.ends) {
        text += " (" + counted(events.starts, "start") + ")";
    }
    return text;
}

void writeEyeTable(tables::TextOutput &out, const RecordingSummary &summary) {
    std::vector<TableRow> rows{{"", "left", "right"}};
    const auto addRow = [&rows](std::string_view name, auto textOfEye) {
        rows.push_back({std::string(name), textOfEye(tables::kLeft), textOfEye(tables::kRight)});
    };
    addRow("samples", [&](tables::Eye eye) { return std::to_string(summary.eyeSamples[eye].count); });
    addRow("gaze missing", [&](tables::Eye eye) {
        return share(summary.eyeSamples[eye].gazeMissing, summary.eyeSamples[eye].withGaze);
    });
    addRow("inside blinks", [&](tables::Eye eye) {
        return share(summary.eyeSamples[eye].insideBlink, summary.eyeSamples[eye].count);
    });
    for (std::size_t kind = 0; kind < kEyeEventNames.size(); ++kind) {
        const auto &eyes = summary.eyeEvents[kind];
        addRow(kEyeEventNames[kind], [&](tables::Eye eye) { return eyeEventsText(eyes[eye]); });
        addRow("  mean ms", [&](tables::Eye eye) {
            const EyeEvents &events = eyes[eye];
            return events.timed == 0
                       ? std::string(kMissing)
                       : tables::fixedPoint(
                             static_cast<double>(events.duration) / static_cast<double>(events.timed), 1);
        });
    }
    writeTable(out, "Eyes", "lrr", rows);
}

void writeBlocks(tables::TextOutput &out, const RecordingSummary &summary) {
    std::vector<TableRow> rows{
        {"#", "start ms", "end ms", "duration s", "eyes", "samples/s", "samples", "events", "content"}};
    for (const BlockSummary &block : summary.blocks) {
        rows.push_back({std::to_string(rows.size()), std::to_string(block.start),
                        block.endIsLost ? "lost" : std::to_string(block.end), seconds(block.duration()),
                        std::string(tables::eyeName(block.eyes)), sampleRate(block.sampleRate),
                        std::to_string(block.samples), std::to_string(block.events),
                        std::string(tables::recordTypeName(block.recordType))});
    }
    writeTable(out, "Recording blocks", "rrrrlrrrl", rows);
}

void writeLog(tables::TextOutput &out, const LogLines &log) {
    std::vector<TableRow> rows;
    for (const LogLines::Group &group : log.groups()) {
        rows.push_back({std::to_string(group.count) + " x", group.first, group.count > 1 ? "(the first)" : ""});
    }
    if (log.ungrouped() != 0) {
        rows.push_back({std::to_string(log.ungrouped()) + " x", "other lines"});
    }
    writeTable(out, rows.empty() ? "Defects logged: none" : "Defects logged", "rll", rows);
}

void describe(tables::TextOutput &out, const Facts &facts, const tables::TrialTexts &texts) {
    _TRKFILE *const handle = facts.recording.handle();
    const RecordingSummary &summary = facts.summary;
    out.text(facts.recording.name());
    out.text("\n");
    if (facts.damage.isDamaged()) {
        writeFact(out, "DAMAGED", facts.damage.text());
    }
    writeFact(out, "container", facts.container());
    writeFact(out, "tracker", trackerText(handle));
    writeFact(out, "recorded", recordedText(summary));
    writeBlockFact(out, "eyes", summary, [](const BlockSummary &block) { return tables::eyeName(block.eyes); });
    writeBlockFact(out, "samples/s", summary,
                   [](const BlockSummary &block) { return sampleRate(block.sampleRate); });
    writeBlockFact(out, "samples hold", summary,
                   [](const BlockSummary &block) { return tables::contentNames(block.content); });
    writeFact(out, "trials", trialsText(facts.places.trials().size(), texts));
    writeFact(out, "input data",
              counted(summary.countOf(REC_INPUT), "event") + ", " + counted(summary.samplesWithInput, "sample") +
                  " with an input value");
    writeFact(out, "message log", messageLogText(facts.messageLog));
    out.text("\nPreamble\n");
    for (const std::string &line : facts.preamble) {
        out.text("  ");
        out.text(tables::escaped(line));
        out.text("\n");
    }
    writeItemCounts(out, summary);
    writeEyeTable(out, summary);
    writeLog(out, facts.recording.log());
    writeBlocks(out, summary);
}

} // namespace

const char *const kInfoHelp =
    R"("dummies" stand for samples that the tracker lost; a "repeated time stamp" is that of the sample before.
"gaze missing" is the share of the samples that have a place for gaze, dummies included; "inside blinks" that of
all samples of the eye. Blinks, saccades and fixations count by their ends, "mean ms" is their mean duration
where both ends are known. "events" of a block count messages, and not the marks of the block. "Defects logged"
are the library's own notes on what it repaired or passed over. A DAMAGED line tells what is lost.
--json: a list with an object for each file; times and durations in ms, rates in samples per second; "damages",
"lost" and "repairs" as trk check has them.)";

int info(const InfoOptions &options) {
    tables::TextOutput out(std::string(tables::TextOutput::kStandardOutput), {});
    Status status = kSound;
    Json all = Json::array();
    bool isFirst = true;
    for (const std::string &path : options.files) {
        try {
            Recording recording(path, options.open, OnDamage::ShowIntactPart);
            const DamageReport damage(recording);
            status = std::max(status, reportDamage(recording, damage));
            const tables::Places places = recording.findPlaces(options.texts);
            status = std::max(status, reportUnmatched(recording, places));
            const Facts facts = gatherFacts(recording, damage, places);
            if (options.json) {
                all.push_back(factsJson(facts));
                continue;
            }
            out.text(std::exchange(isFirst, false) ? "" : "\n");
            describe(out, facts, options.texts);
            out.flush();
        } catch (const CannotRead &failure) {
            std::fprintf(stderr, "trk: %s\n", failure.what());
            status = std::max(status, failure.status());
            if (options.json) {
                all.push_back(failureJson(path, failure));
            }
        }
    }
    if (options.json) {
        tables::writeJson(out, all);
    }
    out.finish();
    return status;
}

} // namespace tool
