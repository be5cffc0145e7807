// The viewing geometry, by hand.
#include "measures/geometry.h"

#include <cmath>
#include <gtest/gtest.h>

namespace {

using trk::Corners;
using trk::Matrix;
using trk::PlanePoint;
using trk::ViewingGeometry;

void expectNear(PlanePoint point, PlanePoint expected, double tolerance) {
    EXPECT_NEAR(point.x, expected.x, tolerance);
    EXPECT_NEAR(point.y, expected.y, tolerance);
}

PlanePoint mapped(PlanePoint point, const Matrix &map) {
    const auto [x, y, w] = trk::mmult({point.x, point.y, 1}, map);
    return {x / w, y / w};
}

TEST(Geometry, CornersMapBothWays) {
    constexpr Corners kSquare{{{0, 1}, {0, 0}, {1, 1}, {1, 0}}};
    constexpr Corners kTrapezoid{{{-2, 6}, {-3, 1}, {2, 6}, {3, 1}}};
    const Matrix map = trk::solveSQ(kTrapezoid);
    for (std::size_t i = 0; i < kSquare.size(); ++i) {
        expectNear(mapped(kSquare[i], map), kTrapezoid[i], 1e-9);
        expectNear(mapped(kTrapezoid[i], trk::invP(map)), kSquare[i], 1e-9);
    }
    expectNear(mapped({0.5, 0.5}, map), {0, 4}, 1e-9); // where the diagonals meet
    constexpr Matrix kAffine{{{2, 0, 0}, {1, 0, 0}, {5, 0, 1}}};
    EXPECT_EQ(trk::solveSQ({{{6, 0}, {5, 0}, {10, 0}, {7, 0}}}), kAffine); // all on a line
}

// Top edge: 400 mm at 500 mm, hence at 3/5 and 4/5 of it. Bottom edge: a right angle from there, at 300 mm. The y
// of the top has the other sign than on the flat screen.
TEST(Geometry, FlatAndTiltedScreen) {
    constexpr trk::Extent kScreen{-240, -400, 240, 183.0951894845F};
    constexpr Corners kPixels{{{0, 0}, {0, 500}, {960, 0}, {960, 500}}};
    constexpr Corners kTilted{{{-12000, -20000}, {-15000, 11250}, {12000, -20000}, {15000, 11250}}};
    constexpr Corners kFlat{{{-12000, 20000}, {-12000, -9154.76}, {12000, 20000}, {12000, -9154.76}}};
    for (const auto &[distance, distance2, href] :
         {std::tuple{500.0F, 300.0F, kTilted}, {300.0F, MISSING_DATA, kFlat}}) {
        ViewingGeometry geometry;
        geometry.computePhysicalSetup(distance, distance2, kScreen, {0, 0, 960, 500});
        for (std::size_t i = 0; i < kPixels.size(); ++i) {
            expectNear(geometry.gaze_to_href(kPixels[i]).value(), href[i], 0.02);
        }
    }
}

// A pixel is a millimetre, 900 mm away; the eyes look straight ahead. The screen is seen under 15.708 pixels per
// degree next to the gaze (900 / 57.2958), 20 to a place at 45 degrees, 900 x sqrt(3) / 60 to one at 60.
struct Viewer {
    static constexpr float k45Degrees = 50 * 900 - 1;
    static constexpr float k60Degrees = 50 * 1558.84573F - 1;

    ViewingGeometry geometry;
    trk::Sample sample{};

    Viewer() {
        setUp();
        sample.flags = TRK_SAMPLE_GAZE | TRK_SAMPLE_HREF;
        sample.gaze_x[0] = sample.gaze_y[0] = sample.gaze_x[1] = sample.gaze_y[1] = 1000;
    }
    void setUp() {
        geometry.computePhysicalSetup(900, MISSING_DATA, {-1000, 1000, 1000, -1000}, {0, 0, 2000, 2000});
    }
    void expectPpd(int eye, float stepX, float stepY, double x, double y) {
        const trk::PixelsPerDegree ppd = geometry.calculatePpd(sample, eye, stepX, stepY);
        EXPECT_DOUBLE_EQ(ppd.x, x);
        EXPECT_DOUBLE_EQ(ppd.y, y);
    }
    void expectFailure(int eye, float step, int errors) {
        const int before = geometry.mathErrors();
        expectPpd(eye, step, step, 1e8, 1e8);
        EXPECT_EQ(geometry.mathErrors() - before, errors);
    }
};

TEST(Geometry, PixelsPerDegree) {
    Viewer viewer;
    viewer.expectPpd(0, 0, Viewer::k45Degrees, 15.7, 20.0);
    viewer.expectPpd(1, Viewer::k60Degrees, 49, 26.0, 15.7);
    viewer.expectPpd(-1, Viewer::k45Degrees, Viewer::k60Degrees, 17.9, 23.0); // 17.854 and 22.990
    EXPECT_DOUBLE_EQ(trk::toOneDecimal(37.25), 37.3);
    EXPECT_DOUBLE_EQ(trk::toOneDecimal(37.24), 37.2);
    EXPECT_EQ(trk::toOneDecimal(1e300), 922337203685477580.7);
}

TEST(Geometry, HistoryOfTen) {
    Viewer viewer;
    for (const int eye : {0, 1}) {
        for (int i = 0; i < 10; ++i) {
            viewer.expectPpd(eye, Viewer::k45Degrees, Viewer::k45Degrees, 20.0, 20.0);
        }
        viewer.expectPpd(eye, 49, Viewer::k45Degrees, 19.6, 20.0); // (9 x 20 + 15.708) / 10
        viewer.expectPpd(eye, 49, Viewer::k45Degrees, 19.1, 20.0);
    }
    viewer.setUp();
    EXPECT_EQ(viewer.geometry.history(0).ppdc, 0U);
    EXPECT_EQ(viewer.geometry.history(1).ppdc, 2U);
    viewer.expectPpd(1, 49, 49, 15.7, 15.7);
    for (const unsigned lacking : {TRK_SAMPLE_GAZE, TRK_SAMPLE_HREF}) { // nothing to compute, nothing forgotten
        viewer.sample.flags = static_cast<uint16_t>(~lacking);
        viewer.expectFailure(1, 49, 0);
    }
    viewer.sample.flags = 0xFFFF;
    viewer.expectPpd(1, Viewer::k45Degrees, Viewer::k45Degrees, 17.9, 17.9);
}

// No angle, one pixel to 45 degrees, and a failed conversion, which counts twice.
TEST(Geometry, FailuresForgetTheHistoryOfTheEye) {
    Viewer viewer;
    viewer.expectPpd(0, 49, 49, 15.7, 15.7);
    for (const auto &[href, step, errors] :
         {std::tuple{0.0F, -1.0F, 1}, {15000.0F, 49.0F, 0}, {0.0F, INFINITY, 2}}) {
        viewer.sample.href_x[1] = 0;
        viewer.expectPpd(1, 49, 49, 15.7, 15.7);
        viewer.sample.href_x[1] = href;
        viewer.expectFailure(1, step, errors);
        EXPECT_EQ(viewer.geometry.history(1).ppdc, 0U);
        EXPECT_EQ(viewer.geometry.history(1).ppdx[0], 0);
    }
    EXPECT_EQ(viewer.geometry.history(0).ppdc, 1U);
    // An angle that is not a number takes a slot and is not averaged.
    viewer.sample.href_x[0] = NAN;
    viewer.expectPpd(0, 49, 49, 15.7, 15.7);
    EXPECT_EQ(viewer.geometry.history(0).ppdc, 2U);
    // Not set up, a triangle that is none, and distances of no use.
    viewer.geometry = ViewingGeometry();
    viewer.expectFailure(0, 49, 2);
    for (const float distance : {100.0F, 0.0F, NAN}) {
        viewer.geometry.computePhysicalSetup(distance, distance, {-1000, -1000, 1000, 1000}, {0, 0, 2000, 2000});
        viewer.expectFailure(0, 49, 2);
    }
    EXPECT_FALSE(trk::ProcessGeometry()->gaze_to_href({1, 1}));
}

} // namespace
