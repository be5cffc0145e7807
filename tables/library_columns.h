// Columns of the library as columns of tables.
#pragma once

#include "table.h"
#include "trkapi/trkapi.hpp"

namespace tables {

// What cells of a column of the library hold.
[[nodiscard]] Type typeOf(const TRK_COLUMN_DESCRIPTION &description);

// The cell for a value that was read; NaN is missing.
[[nodiscard]] Cell cellOf(double value, Type type);

} // namespace tables
