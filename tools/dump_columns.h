// The columns of the dump's tables.
#pragma once

#include "items.h"
#include "text_output.h"

#include <span>

namespace tool {

struct Column {
    std::string_view name;
    void (*write)(TextOutput &out, const Item &item);
};

// The columns for a choice of kinds: those of one kind, or for several kinds those that bring them together.
// Names and order of columns are relied on by scripts: new columns go to the end.
[[nodiscard]] std::span<const Column> columnsFor(ItemKinds kinds);

// Further columns for raw pupil and corneal reflection, missing for items other than samples.
void writeRawHeader(TextOutput &out);
void writeRaw(TextOutput &out, _TRKFILE *handle, const Item &item);

} // namespace tool
