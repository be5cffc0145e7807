#include "library_columns.h"

#include <cmath>

namespace tables {

Type typeOf(const TRK_COLUMN_DESCRIPTION &description) {
    return description.type == TRK_TYPE_FLOAT    ? Type::Float
           : description.type == TRK_TYPE_DOUBLE ? Type::Double
                                                 : Type::Integer;
}

Cell cellOf(double value, Type type) {
    if (std::isnan(value)) {
        return {};
    }
    return type == Type::Float    ? Cell(static_cast<float>(value))
           : type == Type::Double ? Cell(value)
                                  : Cell(static_cast<int64_t>(value));
}

} // namespace tables
