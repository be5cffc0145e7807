// From samples that were decoded directly to the columns of the caller.
#pragma once

#include "bulk/output_column.h"
#include "bulk/sample_rows.h"
#include "measures/run_velocity.h"
#include "records/sample_layout.h"

#include <cstdint>
#include <span>

namespace trk {

// What a reading of samples asks for.
struct SampleRequest {
    SampleRequest(std::span<const OutputColumn> outputs, ItemNumber endItem, int64_t mostRows);

    [[nodiscard]] bool wantsVelocities() const { return (smoothed | fast) != 0; }

    std::span<const OutputColumn> columns;
    ItemNumber end;
    int64_t rows;
    LaneMask smoothed; // lanes of the velocities among the columns
    LaneMask fast;
};

// The time with half milliseconds, moved by so many ms.
[[nodiscard]] double exactTime(uint64_t key, uint32_t offset);

// TRK_EYE_* value of a sample's flags.
[[nodiscard]] uint8_t eyesIn(uint16_t flags);

// Whether a sample carries what a column holds, by its flags and the header of its extension words.
[[nodiscard]] inline bool carries(const SampleColumn &column, uint16_t flags, uint16_t extensionType) {
    const int id = column.description.id;
    const bool isWord = id >= TRK_COLUMN_EXT_DATA_1 && id <= TRK_COLUMN_EXT_DATA_8;
    return (flags & column.needed) != 0 && !(isWord && column.place >= extensionWordCount(extensionType));
}

class RowColumns {
  public:
    // `offset` is what times are moved by, ms.
    RowColumns(SampleRows &rows, uint32_t offset) : rows_(rows), offset_(offset) {}

    // Puts the rows at a row of the columns on. The model and the resolution are for velocities.
    void put(uint32_t block, const SampleRequest &request, const VelocityModel &model, FixedResolution fixed,
             int64_t row);

  private:
    void putColumn(uint32_t block, const OutputColumn &out, int64_t row);
    void putPupilSizes(const OutputColumn &out, int64_t row);
    void putWords(const OutputColumn &out, int64_t row);
    void putPositions(const OutputColumn &out, int64_t row);
    void putVelocities(const SampleRequest &request, const VelocityModel &model, FixedResolution fixed,
                       int64_t row);
    template <class Number, class ValueAt>
    void putEach(const OutputColumn &out, int64_t row, ValueAt valueAt) const;

    SampleRows &rows_;
    uint32_t offset_;
    RunRows run_{};
};

} // namespace trk
