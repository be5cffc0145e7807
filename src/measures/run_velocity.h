// Velocities of samples that stand at even distances, worked out along time for a whole run.
#pragma once

#include "measures/lanes.h"
#include "measures/velocity_model.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace trk {

// A stretch of a run, one array for each number. Rows [kContext, kContext + kRows) are the samples whose
// velocities are wanted; before and behind them stand their neighbours.
struct RunRows {
    static constexpr std::size_t kRows = 256;
    static constexpr std::size_t kContext = VelocityModel::kLargestHalfSpan + 1;
    static constexpr std::size_t kAll = kRows + 2 * kContext;

    template <class Number> using Column = std::array<Number, kAll>;

    std::array<Column<float>, Lanes::kCount> position; // MISSING_DATA where there is none that can be relied on
    Column<float> resolutionX;
    Column<float> resolutionY;
    std::array<Column<uint32_t>, kEyes> present; // all bits set where the sample has the eye, else 0
};

// One of two numbers: the first where all bits of the mask are set, the second where none is. Several can be
// chosen side by side.
[[nodiscard, gnu::always_inline]] inline float chosen(uint32_t mask, float one, float other) {
    return std::bit_cast<float>((std::bit_cast<uint32_t>(one) & mask) | (std::bit_cast<uint32_t>(other) & ~mask));
}

// The velocities of one lane of a run, degrees per second, MISSING_DATA where there are none.
struct LaneVelocities {
    std::array<float, RunRows::kRows> smoothed;
    std::array<float, RunRows::kRows> fast;
};

// The same numbers, to the bit, as VelocityComputer gives for each of the samples in a window in which they stand
// at even distances, in a row.
class RunVelocity {
  public:
    RunVelocity(const VelocityModel &model, FixedResolution fixed) : model_(model), fixed_(fixed) {}

    // Takes rows to compute the velocities of. They must stay until the next call.
    void setRows(const RunRows &rows);

    // The velocities of a lane of the first `count` rows wanted.
    void compute(std::size_t lane, std::size_t count, LaneVelocities &out);

  private:
    void findResolution(std::size_t lane, std::size_t count);
    struct HrefResolutions {
        std::array<float, RunRows::kRows> x;
        std::array<float, RunRows::kRows> y;
    };
    const HrefResolutions &hrefResolutions(std::size_t eye, std::size_t count);
    void computeHighSpeed(std::size_t lane, std::size_t count, LaneVelocities &out);
    void hideBesideMissing(const RunRows::Column<float> &position, std::size_t count, LaneVelocities &out) const;
    void computePlain(std::size_t lane, std::size_t count, LaneVelocities &out) const;

    VelocityModel model_;
    FixedResolution fixed_;
    const RunRows *rows_ = nullptr;
    std::array<float, RunRows::kRows> commonX_{}; // resolution of each row; MISSING_DATA where there is none
    std::array<float, RunRows::kRows> commonY_{};
    std::array<float, RunRows::kRows> resolution_{}; // of the lane at hand
    std::array<HrefResolutions, kEyes> hrefResolutions_;
    std::array<bool, kEyes> hrefIsKnown_{};
    RunRows::Column<float> group_{}; // means of the groups that begin at each row
};

} // namespace trk
