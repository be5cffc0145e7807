// The viewing geometry, by hand.
#include "measures/geometry.h"

#include <cmath>
#include <gtest/gtest.h>

namespace {

using trk::Corners, trk::Matrix, trk::PlanePoint, trk::ViewingGeometry;

void expectNear(PlanePoint point, PlanePoint expected, double tolerance) {
    EXPECT_NEAR(point.x, expected.x, tolerance);
    EXPECT_NEAR(point.y, expected.y, tolerance);
}

TEST(Geometry, CornersMapBothWays) {
    constexpr Corners kSquare{{{0, 1}, {0, 0}, {1, 1}, {1, 0}}};
    constexpr Corners kQuadrilateral{{{3, 8}, {3, 4}, {7, 10}, {9, 5}}};
    const auto mapped = [](PlanePoint point, const Matrix &map) {
        const auto [x, y, w] = trk::product({point.x, point.y, 1}, map);
        return PlanePoint{x / w, y / w};
    };
    const Matrix map = trk::mapOfSquareOnto(kQuadrilateral);
    for (std::size_t i = 0; i < kSquare.size(); ++i) {
        expectNear(mapped(kSquare[i], map), kQuadrilateral[i], 1e-9);
        expectNear(mapped(kQuadrilateral[i], trk::inverse(map)), kSquare[i], 1e-9);
    }
    expectNear(mapped({0.5, 0.5}, map), {5, 7}, 1e-9); // where the diagonals meet
    constexpr Matrix kAffine{{{2, 0, 0}, {1, 0, 0}, {5, 0, 1}}};
    EXPECT_EQ(trk::mapOfSquareOnto({{{6, 0}, {5, 0}, {10, 0}, {7, 0}}}), kAffine); // all on a line
}

// Top edge: 400 mm at 500 mm, hence at 3/5 and 4/5 of it. Bottom edge: a right angle from there, at 300 mm. The y
// of the top has the other sign than on the flat screen.
TEST(Geometry, FlatAndTiltedScreen) {
    constexpr Corners kPixels{{{0, 0}, {0, 500}, {960, 0}, {960, 500}}};
    constexpr Corners kTilted{{{-12000, -20000}, {-15000, 11250}, {12000, -20000}, {15000, 11250}}};
    constexpr Corners kFlat{{{-12000, 20000}, {-12000, -9154.76}, {12000, 20000}, {12000, -9154.76}}};
    for (const auto &[top, bottom, corners] : {std::tuple(500.F, 300.F, kTilted), {300.F, MISSING_DATA, kFlat}}) {
        ViewingGeometry geometry;
        geometry.setUp(top, bottom, {-240, -400, 240, 183.0951894845F}, {0, 0, 960, 500});
        for (std::size_t i = 0; i < kPixels.size(); ++i) {
            expectNear(geometry.hrefOfGaze(kPixels[i]).value(), corners[i], 0.02);
        }
    }
}

// A pixel is a millimetre, 900 mm away; the eyes look straight ahead. Pixels per degree: 900 / 57.2958 = 15.708 to
// a place beside the gaze, 20 to one at 45 degrees, 900 x sqrt(3) / 60 = 25.981 to one at 60.
struct Viewer : testing::Test {
    static constexpr float kBeside = 49, k45Degrees = 50 * 900 - 1, k60Degrees = 50 * 1558.84573F - 1;
    ViewingGeometry geometry;
    trk::Sample sample{};

    Viewer() {
        placeScreen(900, MISSING_DATA);
        sample.flags = TRK_SAMPLE_GAZE | TRK_SAMPLE_HREF;
        sample.gaze_x[0] = sample.gaze_y[0] = sample.gaze_x[1] = sample.gaze_y[1] = 1000;
    }
    void placeScreen(float top, float bottom, float height = -1000) {
        geometry.setUp(top, bottom, {-1000, -height, 1000, height}, {0, 0, 2000, 2000});
    }
    void expectPpd(int eye, float stepX, float stepY, double x, double y, int errors = 0) {
        const int before = geometry.mathErrors();
        const trk::PixelsPerDegree ppd = geometry.pixelsPerDegree(sample, eye, stepX, stepY);
        EXPECT_DOUBLE_EQ(ppd.x, x);
        EXPECT_DOUBLE_EQ(ppd.y, y);
        EXPECT_EQ(geometry.mathErrors() - before, errors);
    }
};

TEST_F(Viewer, KeepsAHistoryOfTen) {
    for (const int eye : {-1, 1}) {
        for (int i = 0; i < 10; ++i) {
            expectPpd(eye, k45Degrees, k60Degrees, 20.0, 26.0);
        }
        expectPpd(eye, kBeside, k60Degrees, 19.6, 26.0); // (9 x 20 + 15.708) / 10
        expectPpd(eye, 0, k60Degrees, 19.1, 26.0);
    }
    placeScreen(900, MISSING_DATA);
    EXPECT_EQ(geometry.history(0).next + 10 * geometry.history(1).next, 20U);
    expectPpd(1, k45Degrees, kBeside, 20.0, 15.7);
    for (const unsigned lacking : {TRK_SAMPLE_GAZE, TRK_SAMPLE_HREF}) { // nothing to compute, nothing forgotten
        sample.flags = static_cast<uint16_t>(~lacking);
        expectPpd(1, kBeside, kBeside, 1e8, 1e8);
    }
    sample.flags = 0xFFFF;
    expectPpd(1, k60Degrees, k45Degrees, 23.0, 17.9); // 22.990 and 17.854
    EXPECT_DOUBLE_EQ(trk::toOneDecimal(37.25), 37.3);
    EXPECT_DOUBLE_EQ(trk::toOneDecimal(37.24), 37.2);
    EXPECT_EQ(trk::toOneDecimal(1e300), 922337203685477580.7);
    EXPECT_EQ(trk::toOneDecimal(NAN), 0);
}

TEST_F(Viewer, FailuresForgetTheHistoryOfTheEye) {
    expectPpd(0, kBeside, kBeside, 15.7, 15.7);
    // No angle; one pixel to 45 degrees; a failed conversion, which counts twice.
    for (const auto &[href, step, errors] :
         {std::tuple{0.0F, -1.0F, 1}, {15000.0F, 49.0F, 0}, {0.0F, INFINITY, 2}}) {
        sample.href_x[1] = 0;
        expectPpd(1, kBeside, kBeside, 15.7, 15.7);
        sample.href_x[1] = href;
        expectPpd(1, step, step, 1e8, 1e8, errors);
        EXPECT_EQ(geometry.history(1).next, 0U);
        EXPECT_EQ(geometry.history(1).x[0], 0);
    }
    // An angle that is not a number takes a slot and is not averaged.
    sample.href_x[0] = NAN;
    expectPpd(0, k45Degrees, k45Degrees, 15.7, 15.7);
    EXPECT_EQ(geometry.history(0).next, 2U);
    ViewingGeometry::History history;
    for (const auto &[x, y] : {std::pair(20., 1.), {1, 20}, {30, 40}}) {
        history.add({x, y});
    }
    EXPECT_EQ(std::pair(history.mean().x, history.mean().y), std::pair(30.0, 40.0));
    // Not set up, a triangle that is none, and distances of no use.
    geometry = ViewingGeometry();
    expectPpd(0, kBeside, kBeside, 1e8, 1e8, 2);
    for (const float distance : {100.0F, 0.0F, NAN}) {
        placeScreen(distance, distance, 1000);
        expectPpd(0, kBeside, kBeside, 1e8, 1e8, 2);
    }
}

} // namespace
