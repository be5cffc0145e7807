// The columns of tables of items: all kinds in one table, or one kind with its own, fuller columns.
#pragma once

#include "encoding.h"
#include "items.h"
#include "places.h"
#include "table.h"

#include <span>
#include <string_view>
#include <vector>

namespace tables {

// An item, and what its cells are made from besides.
struct ItemRow {
    const Item &item;
    const Places &places;
    std::string_view file;
    _TRKFILE *handle;
    TextDecoder &decoder;
    Rows &rows; // keep texts
};

struct ItemColumn {
    Column column;
    Cell (*value)(const ItemRow &row, int detail);
    int detail = 0; // tells columns apart that share a function
};

// Which columns a table of items has.
struct ColumnChoice {
    ItemKinds kinds = kAllKinds;
    bool raw = false;  // with those of raw pupil and corneal reflection, for which the library must have collected
                       // the trials
    bool file = false; // by default, the recording comes first
    std::string text;  // as selectColumns takes it; "" for those by default
};

// All columns that there are for a choice, those that are there by default first. Names and order of the latter
// are relied on by scripts: new ones go to the end.
struct ItemColumns {
    explicit ItemColumns(const ColumnChoice &choice);

    std::vector<ItemColumn> all;
    std::size_t byDefault = 0;

    [[nodiscard]] std::vector<Column> descriptions() const;
};

// Those that were chosen, in order. Throws std::invalid_argument.
[[nodiscard]] std::vector<ItemColumn> chooseColumns(const ColumnChoice &choice);

[[nodiscard]] std::vector<ItemColumn> rawColumns();

// A row of cells for an item.
void addRow(const std::vector<ItemColumn> &columns, const ItemRow &row);

// Columns of eye events as a whole, and of buttons and inputs: for tables of what isWholeEvent takes.
[[nodiscard]] std::vector<ItemColumn> wholeEventColumns();

// The end of a blink, saccade or fixation, which tells all of it, or an event of the buttons or the input port.
[[nodiscard]] bool isWholeEvent(const Item &item);

// Columns of messages.
[[nodiscard]] std::vector<ItemColumn> textColumns();

} // namespace tables
