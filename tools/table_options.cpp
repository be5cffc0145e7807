#include "table_options.h"

#include <algorithm>
#include <cstdio>

namespace tool {

std::string doubtfulTexts(uint64_t count, const std::string &encoding) {
    const std::string text = std::to_string(count) + (count == 1 ? " text is not " : " texts are not ");
    return encoding.empty() ? text + "UTF-8 and taken as Latin-1 (--encoding names another)"
                            : text + encoding + ": what could not be converted is U+FFFD";
}

Status TableText::reportDoubtful() const {
    if (decoder_.doubtful() != 0) {
        std::fprintf(stderr, "trk: %s\n", doubtfulTexts(decoder_.doubtful(), encoding_).c_str());
    }
    return kSound;
}

Status listColumns(const std::vector<tables::Column> &columns, const std::vector<std::size_t> &byDefault) {
    tables::TextOutput out(std::string(tables::TextOutput::kStandardOutput), {});
    const std::size_t width = std::ranges::max_element(columns, {}, [](const tables::Column &column) {
                                  return column.name.size();
                              })->name.size();
    const auto list = [&](const tables::Column &column) {
        out.text("  " + column.name + std::string(width + 2 - column.name.size(), ' ') + column.description);
        out.text(column.unit.empty() ? "\n" : " [" + column.unit + "]\n");
    };
    out.text("By default:\n");
    for (const std::size_t place : byDefault) {
        list(columns[place]);
    }
    if (byDefault.size() < columns.size()) {
        out.text("\nBesides, with --columns NAME,... or --columns +NAME,...:\n");
    }
    for (std::size_t place = 0; place < columns.size(); ++place) {
        if (std::ranges::find(byDefault, place) == byDefault.end()) {
            list(columns[place]);
        }
    }
    out.finish();
    return kSound;
}

void writeTable(tables::Table &table, const TableOptions &options, const TableText &text,
                tables::TextOutput &out) {
    tables::ChosenColumns chosen(table, options.columns);
    tables::DelimitedWriter writer(out, text.format());
    writer.writeHeader(chosen.columns());
    tables::copyRows(chosen, writer);
}

Status reportUnreadable(const Recording &recording, uint64_t count) {
    if (count == 0) {
        return kSound;
    }
    std::fprintf(stderr, "trk: %s: %llu %s could not be read\n", recording.name().c_str(),
                 static_cast<unsigned long long>(count), count == 1 ? "item" : "items");
    return kIncomplete;
}

Status reportUnmatched(const Recording &recording, const tables::Places &places) {
    for (const std::string &sentence : places.unmatched()) {
        std::fprintf(stderr, "trk: %s: %s\n", recording.name().c_str(), sentence.c_str());
    }
    return places.unmatched().empty() ? kSound : kIncomplete;
}

} // namespace tool
