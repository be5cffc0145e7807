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

    SampleRows(InputStream &stream, const ItemIndex &index) : view_(stream, kBlock, kKeptBefore), index_(index) {}

    // Takes the next samples among the items [first, end) of a stretch, at most `most` and RunRows::kRows; with
    // `context`, their neighbours, too. Returns false when they are not as the index has them: then only a walk
    // knows what they are.
    [[nodiscard]] bool take(const Stretch &stretch, ItemNumber first, ItemNumber end, std::size_t most,
                            bool context, float gazeDivisor);

    // Takes nothing up again from here.
    void forget() { count_ = 0; }

    [[nodiscard]] std::size_t count() const { return count_; }
    [[nodiscard]] ItemNumber next() const { return next_; } // behind the last sample taken

    // Of the rows that were taken: number in the index, key, type with its marks, and flags of the record, which
    // are 0 for a row without sample.
    [[nodiscard]] const Column<ItemNumber> &numbers() const { return number_; }
    [[nodiscard]] const Column<uint64_t> &keys() const { return key_; }
    [[nodiscard]] const Column<uint16_t> &types() const { return type_; }
    [[nodiscard]] const Column<uint16_t> &tags() const { return tag_; }

    // These are decoded when they are asked for, once.
    const Column<float> &positions(std::size_t lane);
    const Column<float> &resolution(std::size_t axis);
    const Column<float> &pupilSizes(std::size_t eye);
    void words(const SampleColumn &column, Column<uint16_t> &out) const;

    // What the velocities of some lanes are computed from, neighbours included.
    void fillRun(LaneMask lanes, RunRows &run);

    // Whether gaze is hidden in any of the rows.
    [[nodiscard]] bool hidesAnyGaze() const { return (marks_ & (kItemInLeftBlink | kItemInRightBlink)) != 0; }

  private:
    // What stays in the cache until it is decoded; enough for the neighbours before.
    static constexpr std::size_t kBlock = std::size_t{128} * 1024;
    static constexpr int64_t kKeptBefore = 4096;

    bool collect(const Stretch &stretch, ItemNumber first, ItemNumber end, std::size_t most, bool context);
    void append(std::size_t row, ItemNumber number);
    bool locate();
    [[nodiscard]] bool timesFit(const Stretch &stretch) const;
    bool findPupilsBefore(const Stretch &stretch, ItemNumber first);
    void findPupilsBehind();
    [[nodiscard]] const Item *realSampleBefore(const Stretch &stretch, ItemNumber number, uint16_t flag) const;

    void findRuns();
    void fillLane(std::size_t lane, Column<float> &out);
    template <class Each> void forRuns(Each each) const;
    void gather(std::size_t from, std::size_t to, std::size_t offset, Column<uint16_t> &words) const;
    template <class Convert>
    void readValues(std::size_t from, std::size_t to, std::size_t offset, Convert convert,
                    Column<float> &out) const;

    ByteView view_;
    const ItemIndex &index_;
    float gazeDivisor_ = 1;

    // Rows [begin_, end_) are samples; [kFirst, kFirst + count_) those that are wanted.
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    std::size_t count_ = 0;
    ItemNumber next_ = 0;
    Column<ItemNumber> number_{};
    Column<uint64_t> key_{};
    Column<uint16_t> type_{};
    uint16_t marks_ = 0; // of any row
    Column<uint16_t> tag_{};
    Column<const uint8_t *> body_{}; // null for a dummy sample

    std::size_t runs_ = 0;
    std::array<std::size_t, RunRows::kAll + 1> runBegin_{};

    // Decoded columns, and which of them are those of the rows at hand.
    std::array<Column<float>, Lanes::kCount> positions_{};
    std::array<Column<float>, 2> resolution_{};
    std::array<Column<float>, kEyes> pupilSizes_{};
    LaneMask knownPositions_ = 0;
    unsigned knownResolution_ = 0;
    unsigned knownPupilSizes_ = 0;

    // A sample without pupil size has the last one before it.
    std::array<float, kEyes> pupilBefore_{}; // the first row wanted
    std::array<float, kEyes> pupilBehind_{}; // the last one
};

} // namespace trk
