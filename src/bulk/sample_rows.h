// Samples of a plain stretch, decoded straight from the stream into one array for each number.
#pragma once

#include "bulk/block_map.h"
#include "bulk/columns.h"
#include "index/item_index.h"
#include "io/byte_view.h"
#include "measures/run_velocity.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace trk {

class SampleRows {
  public:
    template <class Number> using Column = RunRows::Column<Number>;
    static constexpr std::size_t kFirst = RunRows::kContext; // row of the first sample that is wanted

    SampleRows(InputStream &stream, const ItemIndex &index) : view_(stream), index_(index) {}

    // Takes the next samples among the items [first, end) of a stretch, at most `most` and RunRows::kRows; with
    // `context`, their neighbours, too. Returns false when they are not as the index has them: then only a walk
    // knows what they are.
    [[nodiscard]] bool take(const Stretch &stretch, ItemNumber first, ItemNumber end, std::size_t most,
                            bool context, float gazeDivisor);

    [[nodiscard]] std::size_t count() const { return count_; }
    [[nodiscard]] ItemNumber next() const { return next_; } // behind the last sample taken
    [[nodiscard]] const Item &itemAt(std::size_t row) const { return index_[number_[row]]; }
    [[nodiscard]] ItemNumber numberAt(std::size_t row) const { return number_[row]; }

    // TRK_SAMPLE_* bits of the record; 0 for a row without sample.
    [[nodiscard]] uint16_t tagAt(std::size_t row) const { return tag_[row]; }

    // These fill the rows that were taken.
    void positions(std::size_t lane, Column<float> &out) const;
    void resolution(std::size_t axis, Column<float> &out) const;
    void pupilSizes(std::size_t eye, Column<float> &out) const;
    void words(const SampleColumn &column, Column<uint16_t> &out) const;

    // What the velocities of some lanes are computed from, neighbours included.
    void fillRun(LaneMask lanes, RunRows &run) const;

  private:
    struct Layout;

    bool collect(const Stretch &stretch, ItemNumber first, ItemNumber end, std::size_t most, bool context);
    void append(std::size_t row, ItemNumber number);
    bool locate();
    [[nodiscard]] bool timesFit(const Stretch &stretch) const;
    bool findPupilsBefore(const Stretch &stretch, ItemNumber first);
    void findPupilsBehind();
    [[nodiscard]] const Item *realSampleBefore(const Stretch &stretch, ItemNumber number, uint16_t flag) const;

    template <class Each> void forRuns(std::size_t from, std::size_t to, Each each) const;
    template <class Number, class Convert>
    void readWords(std::size_t from, std::size_t to, std::size_t offset, Convert convert,
                   Column<Number> &out) const;
    void readPositions(std::size_t lane, std::size_t from, std::size_t to, Column<float> &out) const;

    ByteView view_;
    const ItemIndex &index_;
    float gazeDivisor_ = 1;

    // Rows [begin_, end_) are samples; [kFirst, kFirst + count_) those that are wanted.
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    std::size_t count_ = 0;
    ItemNumber next_ = 0;
    std::array<ItemNumber, RunRows::kAll> number_{};
    std::array<uint16_t, RunRows::kAll> tag_{};
    std::array<const uint8_t *, RunRows::kAll> body_{}; // null for a dummy sample

    // A sample without pupil size has the last one before it.
    std::array<float, kEyes> pupilBefore_{}; // the first row wanted
    std::array<float, kEyes> pupilBehind_{}; // the last one
};

} // namespace trk
