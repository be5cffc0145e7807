// A column in the memory of the caller.
#pragma once

#include "bulk/columns.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

namespace trk {

class OutputColumn {
  public:
    // With `nan`, what is missing reads NaN in float and double columns.
    OutputColumn(const SampleColumn &column, const TRK_COLUMN &place, bool nan)
        : column_(&column), type_(place.type), data_(static_cast<char *>(place.data)),
          stride_(place.stride != 0 ? place.stride : sizeOf(place.type)),
          nan_(nan && (type_ == TRK_TYPE_FLOAT || type_ == TRK_TYPE_DOUBLE)) {}

    [[nodiscard]] const SampleColumn &column() const { return *column_; }
    [[nodiscard]] bool wantsNan() const { return nan_; }

    // Bytes of a value; 0 for a type that is none.
    [[nodiscard]] static std::size_t sizeOf(int type);

    // Whether a type holds every value of a column.
    [[nodiscard]] static bool holds(int type, const SampleColumn &column);

    // Puts values from a row on.
    template <class Number> void put(int64_t row, const Number *values, std::size_t count) const {
        char *const to = data_ + static_cast<std::size_t>(row) * stride_;
        switch (type_) {
        case TRK_TYPE_FLOAT:
            return putAs<float>(to, values, count);
        case TRK_TYPE_DOUBLE:
            return putAs<double>(to, values, count);
        case TRK_TYPE_UINT8:
            return putAs<uint8_t>(to, values, count);
        case TRK_TYPE_UINT16:
            return putAs<uint16_t>(to, values, count);
        case TRK_TYPE_UINT32:
            return putAs<uint32_t>(to, values, count);
        default:
            return putAs<int64_t>(to, values, count);
        }
    }

  private:
    // The caller's arrays may stand anywhere, packed structures among them.
    template <class Target, class Number> void putAs(char *to, const Number *values, std::size_t count) const {
        if constexpr (std::is_floating_point_v<Number> && !std::is_floating_point_v<Target>) {
            return; // refused before
        } else if (nan_) {
            for (std::size_t i = 0; i < count; ++i, to += stride_) {
                const Target value = isMissing(values[i])
                                         ? static_cast<Target>(std::numeric_limits<float>::quiet_NaN())
                                         : static_cast<Target>(values[i]);
                std::memcpy(to, &value, sizeof(value));
            }
        } else if (stride_ == sizeof(Target)) {
            for (std::size_t i = 0; i < count; ++i) {
                const auto value = static_cast<Target>(values[i]);
                std::memcpy(to + i * sizeof(value), &value, sizeof(value));
            }
        } else {
            for (std::size_t i = 0; i < count; ++i, to += stride_) {
                const auto value = static_cast<Target>(values[i]);
                std::memcpy(to, &value, sizeof(value));
            }
        }
    }

    template <class Number> [[nodiscard]] bool isMissing(Number value) const {
        if constexpr (std::is_same_v<Number, float>) {
            return value == MISSING_DATA || value == TRK_FIELD_ABSENT ||
                   (value == 0 && column_->source == ColumnSource::PupilSize);
        } else {
            return false;
        }
    }

    const SampleColumn *column_;
    int type_;
    char *data_;
    std::size_t stride_;
    bool nan_;
};

} // namespace trk
