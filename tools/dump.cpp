#include "dump.h"

#include "dump_columns.h"
#include "progress.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace tool {

namespace {

void writeHeader(TextOutput &out, std::span<const Column> columns) {
    for (const Column &column : columns) {
        out.text(&column == columns.data() ? "" : "\t");
        out.text(column.name);
    }
    out.character('\n');
}

void writeLine(TextOutput &out, std::span<const Column> columns, const Item &item) {
    columns.front().write(out, item);
    for (const Column &column : columns.subspan(1)) {
        out.character('\t');
        column.write(out, item);
    }
    out.character('\n');
}

// Writes the items and returns how many of those wanted could not be read.
uint64_t writeItems(TextOutput &out, _TRKFILE *handle, const DumpOptions &options) {
    const std::span<const Column> columns = columnsFor(options.kinds);
    writeHeader(out, columns);
    Progress progress(trk_get_element_count(handle), !out.isTerminal());
    uint64_t unreadable = 0;
    bool isFirst = true;
    for (int code = 0; (code = trk_get_next_data(handle)) != 0; progress.step()) {
        const bool wanted = (kindOf(code) & options.kinds) != 0;
        // The library counts the times of late recordings from the item fetched first: it must not depend on the
        // choice of kinds.
        if (!wanted && !std::exchange(isFirst, false)) {
            continue;
        }
        isFirst = false;
        const Item item{code, trk_get_float_data(handle)};
        if (!wanted) {
            continue;
        }
        if (item.record == nullptr) {
            ++unreadable;
        } else if (item.time() >= options.from && item.time() <= options.to) {
            writeLine(out, columns, item);
        }
    }
    return unreadable;
}

} // namespace

const char *const kDumpHelp =
    "\"time\" is the item's place in ms; ends of blinks, saccades and fixations stand at their end time. Kind\n"
    "\"dummy\" is a sample that the tracker lost. A value that is missing or does not apply is \".\"; a pupil\n"
    "size, velocity or resolution of an event that is 0 was not recorded. Message texts have \\t, \\n, \\r, \\\\ "
    "and\n"
    "\\xHH in place of control bytes and backslashes. New columns are added at the end.";

int dump(const DumpOptions &options) {
    const Recording recording(options.file, options.open, OnDamage::Refuse);
    TextOutput out(options.output, options.file);
    const uint64_t unreadable = writeItems(out, recording.handle(), options);
    out.finish();
    if (unreadable == 0) {
        return EXIT_SUCCESS;
    }
    std::fprintf(stderr, "trk: %s: %llu %s could not be read (%s)\n", escaped(options.file).c_str(),
                 static_cast<unsigned long long>(unreadable), unreadable == 1 ? "item" : "items",
                 recording.log().last().c_str());
    return EXIT_FAILURE;
}

} // namespace tool
