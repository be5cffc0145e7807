// Tables as text: a line of names, then a line for each row.
#pragma once

#include "table.h"
#include "text_output.h"

#include <string>

namespace tables {

// Both quote a cell that holds a quote, a separator or a line end, or that would read as missing; quotes inside
// are doubled. That is what RFC 4180 says of commas, and what the common readers take with tabs as well.
struct TextFormat {
    char separator = '\t';
    std::string missing;  // stands for a missing cell
    bool quotes = true;   // false: texts are as they are
    bool isShown = false; // on a terminal: control characters are shown as \xHH, and do nothing to it
};

class DelimitedWriter : public TableWriter {
  public:
    DelimitedWriter(TextOutput &out, TextFormat format) : out_(out), format_(std::move(format)) {}

    void writeHeader(std::span<const Column> columns);
    void write(const Rows &rows) override;

  private:
    void put(const Cell &cell);
    void putText(std::string_view text);

    TextOutput &out_;
    TextFormat format_;
};

} // namespace tables
