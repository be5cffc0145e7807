// How tables are written as text: what dump, trials and convert share.
#pragma once

#include "open_recording.h"
#include "status.h"
#include "tables/delimited.h"
#include "tables/encoding.h"
#include "tables/places.h"
#include "tables/table.h"

#include <string>
#include <vector>

namespace tool {

struct TableOptions {
    std::string columns;      // as tables::selectColumns takes them; "" for those by default
    std::string missing{"."}; // stands for a missing value
    std::string encoding;     // of the texts of recordings; "" is UTF-8, or else Latin-1

    [[nodiscard]] bool wantsList() const { return columns == "help"; }
};

class TableText {
  public:
    // Throws std::invalid_argument.
    TableText(const TableOptions &options, const tables::TextOutput &out)
        : format_{.missing = options.missing, .isShown = out.isTerminal()}, encoding_(options.encoding),
          decoder_(encoding_) {}

    [[nodiscard]] const tables::TextFormat &format() const { return format_; }
    [[nodiscard]] tables::TextDecoder &decoder() { return decoder_; }

    // Tells standard error of texts whose encoding was another. Returns the exit status.
    [[nodiscard]] Status reportDoubtful() const;

  private:
    tables::TextFormat format_;
    std::string encoding_;
    tables::TextDecoder decoder_;
};

// A sentence on texts whose encoding was not what they were taken for.
[[nodiscard]] std::string doubtfulTexts(uint64_t count, const std::string &encoding);

// Lists columns on standard output, those first that are there by default: name, what they hold, unit. Returns the
// exit status.
Status listColumns(const std::vector<tables::Column> &columns, const std::vector<std::size_t> &byDefault);

// Writes a table with the columns that the options name.
void writeTable(tables::Table &table, const TableOptions &options, const TableText &text, tables::TextOutput &out);

// Tells standard error of items that could not be read. Returns the exit status.
Status reportUnreadable(const Recording &recording, uint64_t count);

// Tells standard error of trial texts that occur nowhere. Returns the exit status.
Status reportUnmatched(const Recording &recording, const tables::Places &places);

} // namespace tool
