#include "delimited.h"

#include <algorithm>

namespace tables {

void DelimitedWriter::writeHeader(std::span<const Column> columns) {
    for (bool isFirst = true; const Column &column : columns) {
        if (!std::exchange(isFirst, false)) {
            out_.character(format_.separator);
        }
        putText(column.name);
    }
    out_.character('\n');
}

void DelimitedWriter::write(const Rows &rows) {
    for (std::size_t i = 0; i < rows.size(); ++i) {
        for (bool isFirst = true; const Cell &cell : rows.row(i)) {
            if (!std::exchange(isFirst, false)) {
                out_.character(format_.separator);
            }
            put(cell);
        }
        out_.character('\n');
    }
}

void DelimitedWriter::put(const Cell &cell) {
    switch (cell.kind()) {
    case Cell::Kind::Missing:
        return out_.text(format_.missing);
    case Cell::Kind::Integer:
        return out_.number(cell.integer());
    case Cell::Kind::Float:
        return out_.number(cell.single());
    case Cell::Kind::Double:
        return out_.number(cell.real());
    case Cell::Kind::Text:
        return putText(cell.text());
    }
}

void DelimitedWriter::putText(std::string_view text) {
    if (format_.isShown) {
        return out_.text(escaped(text));
    }
    const bool needsQuotes =
        format_.quotes && (text == format_.missing || text.find_first_of("\"\r\n") != std::string_view::npos ||
                           text.find(format_.separator) != std::string_view::npos);
    if (!needsQuotes) {
        return out_.text(text);
    }
    out_.character('"');
    for (const char character : text) {
        if (character == '"') {
            out_.character('"');
        }
        out_.character(character);
    }
    out_.character('"');
}

} // namespace tables
