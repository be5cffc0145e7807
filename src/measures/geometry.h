// The viewing geometry: from display pixels to degrees of visual angle.
#pragma once

#include "records/sample.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>

namespace trk {

// A position on a plane: display pixels, HREF units, or the unit square.
struct PlanePoint {
    double x;
    double y;
};

// A row vector.
struct Homogeneous {
    double x;
    double y;
    double w;
};

// A projective map, multiplied with row vectors from the left.
using Matrix = std::array<std::array<double, 3>, 3>;

// In this order: left top, left bottom, right top, right bottom.
using Corners = std::array<PlanePoint, 4>;

struct Extent {
    float left;
    float top;
    float right;
    float bottom;
};

struct PixelsPerDegree {
    double x = static_cast<double>(MISSING_DATA);
    double y = static_cast<double>(MISSING_DATA);
};

// The map of the unit square, its origin at left bottom, onto a quadrilateral.
[[nodiscard]] Matrix mapOfSquareOnto(const Corners &corners);

// The adjugate: undoes a projective map, but for the scale of w.
[[nodiscard]] Matrix inverse(const Matrix &map);

[[nodiscard]] Homogeneous product(const Homogeneous &vector, const Matrix &map);

// A mean, brought to one decimal.
[[nodiscard]] double toOneDecimal(double mean);

class ViewingGeometry {
  public:
    // The last values of one eye: a ring.
    struct History {
        static constexpr std::size_t kLength = 10;

        std::size_t next = 0; // slot of the next value
        std::array<double, kLength> x{};
        std::array<double, kLength> y{};

        void add(PixelsPerDegree value);
        [[nodiscard]] PixelsPerDegree mean() const;
    };

    // Sets up the maps. The screen is in millimetres from the point straight ahead of the eye, the display in
    // pixels. `distance` is that of the screen where distance2 is MISSING_DATA; else the two are the distances of
    // the screen's top and bottom edge. Empties the histories.
    void setUp(float distance, float distance2, const Extent &screen, const Extent &display);

    // Pixels per degree at the sample's gaze, the mean of the eye's history; MISSING_DATA on failure. Any eye but
    // 1 counts as the left one. The angle is measured to (step + 1) / 50 pixels beside the gaze.
    [[nodiscard]] PixelsPerDegree pixelsPerDegree(const Sample &sample, int eye, float stepX, float stepY);

    // Display pixels to HREF units; nothing, and one more in the error counter, where the map has no value.
    [[nodiscard]] std::optional<PlanePoint> hrefOfGaze(PlanePoint gaze);

    [[nodiscard]] int32_t mathErrors() const { return mathErrors_; }
    [[nodiscard]] const History &history(int eye) const { return histories_[indexOf(eye)]; }

  private:
    [[nodiscard]] static std::size_t indexOf(int eye) { return eye == 1 ? 1 : 0; }
    void countMathError();
    [[nodiscard]] std::optional<PixelsPerDegree> measure(const Sample &sample, std::size_t eye, double dx,
                                                         double dy);

    // A map of no use, under which every conversion fails.
    static constexpr Matrix kNotSetUp{{{1e8, 0, 0}, {0, 0, 0}, {0, 0, 0}}};

    Matrix squareToHref_ = kNotSetUp;
    Matrix displayToSquare_ = kNotSetUp;
    int32_t mathErrors_ = 0; // failures of the conversions
    std::array<History, kEyes> histories_{};
};

// The one geometry that all open recordings share, locked for as long as this object lives.
class ProcessGeometry {
  public:
    [[nodiscard]] ViewingGeometry *operator->() { return &geometry_; }

  private:
    static constinit inline std::mutex mutex_{};
    static constinit inline ViewingGeometry geometry_{};

    std::scoped_lock<std::mutex> lock_{mutex_};
};

} // namespace trk
