// Samples as columns of numbers.
#pragma once

#include "table.h"
#include "trkapi/trkapi.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tables {

// What cells of a column of the library hold.
[[nodiscard]] Type typeOf(const TRK_COLUMN_DESCRIPTION &description);

// The cell for a value that was read; NaN is missing.
[[nodiscard]] Cell cellOf(double value, Type type);

// Reads many samples at a time. What is missing is NaN.
class SampleReader {
  public:
    // The columns are TRK_COLUMN_IDs, and the items [first, end).
    SampleReader(_TRKFILE *handle, const std::vector<int> &ids, uint32_t first, uint32_t end);

    // Replaces the rows by the next ones; false when there are none.
    bool next();

    [[nodiscard]] std::size_t rows() const { return rows_; }
    [[nodiscard]] double value(std::size_t column, std::size_t row) const {
        const Values &values = columns_[column];
        return values.singles.empty() ? values.doubles[row] : static_cast<double>(values.singles[row]);
    }

    // Samples that could not be read, so far, and why the last of them.
    [[nodiscard]] uint64_t unreadable() const { return unreadable_; }
    [[nodiscard]] const std::string &failure() const { return failure_; }

  private:
    // Doubles for what a float does not hold.
    struct Values {
        std::vector<float> singles;
        std::vector<double> doubles;
    };

    _TRKFILE *handle_;
    uint32_t next_;
    uint32_t end_;
    std::size_t rows_ = 0;
    std::vector<Values> columns_;
    std::vector<TRK_COLUMN> places_;
    uint64_t unreadable_ = 0;
    std::string failure_;
};

} // namespace tables
