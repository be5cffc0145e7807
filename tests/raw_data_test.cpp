// Raw pupil and corneal-reflection data, unpacked from samples that are put together by hand.
#include "measures/raw_data.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <gtest/gtest.h>
#include <tuple>

namespace {

using trk::Point;
using trk::RawEyeData;
using trk::Sample;
using Pair = std::array<int, 2>;

constexpr Pair kUnknown{100000000, 100000000};
constexpr Point kMissing{MISSING_DATA, MISSING_DATA};

struct Blocks : trk::BlockLookup {
    float prescaler = 10;
    Pair window{0, 0}; // 0: the file states none
    float getGazePrescaler(uint32_t time) override { return time == 77 ? prescaler : 1; }
    int getWindowSize(uint32_t time, int &first, int &second) override {
        std::tie(first, second) =
            time == 77 && window[0] != 0 ? std::tie(window[0], window[1]) : std::tie(first, second);
        return 0;
    }
};

void expectPoint(Point point, Point expected) {
    EXPECT_FLOAT_EQ(point.x, expected.x);
    EXPECT_FLOAT_EQ(point.y, expected.y);
}

// Left eye in the extension words: fine offsets 0.5, -1, 0.2 and -0.1 pixels in the window at 300 x 4 and 13 x 8.
// Right eye packed: 1605 and 3200 sixteenths, the word 0x2A79; 1700 and 3300 sixteenths, the word 0x83C1.
Sample makeSample() {
    Sample sample{};
    sample.time = 77;
    std::ranges::copy(std::array{125, 0xFF06, 50, 0xFFE7, 900, 60, 0xF82A, 0x7FFF}, sample.ext_data);
    sample.input = 13 << 9 | 300;
    sample.pupil_size[1] = 1500 - 32700;
    sample.pupil_x[1] = 1605 - 32700;
    sample.pupil_y[1] = 3200 - 32700;
    sample.gaze_x[1] = (0x2A79 - 32700) / 10.0F;
    sample.href_x[1] = 1700 - 32700;
    sample.href_y[1] = 3300 - 32700;
    sample.gaze_y[1] = (0x83C1 - 32700) / 10.0F;
    sample.res_x = 3.14F;
    sample.res_y = 5.76F;
    return sample;
}

TEST(RawData, AllEncodings) {
    constexpr float kLost = MISSING_DATA;
    constexpr Point kPupil{25687 / 256.0F, 51209 / 256.0F};
    constexpr Point kCr{27212 / 256.0F, 52801 / 256.0F};
    constexpr Pair kSize{0x83, 0x2A};
    const struct {
        void (*change)(Sample &);
        int eye;
        unsigned pupilArea, crArea;
        Point pupil, cr;
        Pair dimension;
    } cases[] = {
        {[](Sample &) {}, 1, 1500, 58, kPupil, kCr, kSize},
        {[](Sample &s) { s.pupil_x[1] = kLost; }, 1, 1500, 58, kMissing, kCr, kSize},
        {[](Sample &s) { s.pupil_y[1] = kLost; }, 1, 1500, 58, kMissing, kCr, kSize},
        {[](Sample &s) { s.gaze_x[1] = kLost; }, 1, 1500, 58, kMissing, kCr, kUnknown},
        {[](Sample &s) { s.gaze_y[1] = kLost; }, 1, 1500, 58, kPupil, kMissing, kUnknown},
        {[](Sample &s) { s.href_x[1] = kLost; }, 1, 1500, 58, kPupil, kMissing, kSize},
        {[](Sample &s) { s.href_y[1] = kLost; }, 1, 1500, 58, kPupil, kMissing, kSize},
        {[](Sample &s) { s.res_y = 0.04F; }, 1, 1500, 0, kPupil, kMissing, kSize},
        {[](Sample &s) { s.pupil_size[1] = -32699.5F; }, 1, 0, 58, kMissing, kCr, {0, 0}},
        {[](Sample &s) { s.pupil_size[1] = -32700; }, 1, 0, 58, kMissing, kMissing, {0, 0}},
        {[](Sample &s) { s.pupil_size[0] = -32768; }, INT_MAX, 0, 31, kMissing, kMissing, {0, 0}},
        {[](Sample &) {}, 0, 900, 60, {1288.5F, 198}, {1288.2F, 198.9F}, {42, -8}},
        {[](Sample &s) { s.ext_data[4] = 0; }, -1, 0, 60, kMissing, {1288.2F, 198.9F}, {0, 0}},
        {[](Sample &s) { s.ext_data[5] = 0; }, 2, 900, 0, {1288.5F, 198}, kMissing, {42, -8}},
    };
    for (const auto &[change, eye, pupilArea, crArea, pupil, cr, dimension] : cases) {
        Blocks blocks;
        Sample sample = makeSample();
        change(sample);
        RawEyeData data(blocks, sample, eye);
        EXPECT_EQ(data.pupilArea(), pupilArea);
        EXPECT_EQ(data.crArea(), crArea);
        expectPoint(data.pupil(), pupil);
        expectPoint(data.cr(), cr);
        EXPECT_EQ(data.pupilDimension(), dimension);
    }
}

// Every bit of a word is read by the position or the dimension. The word 0x8000 is MISSING_DATA, above.
TEST(RawData, EveryPackedWordComesBack) {
    Blocks blocks;
    Sample sample = makeSample();
    sample.pupil_x[1] = sample.pupil_y[1] = -32700;
    for (const float prescaler : {1.0F, 2.0F, 5.0F, 10.0F, 20.0F}) {
        blocks.prescaler = prescaler;
        for (int field = -32767; field <= 32767; ++field) {
            sample.gaze_x[1] = sample.res_y = static_cast<float>(field) / prescaler;
            RawEyeData eye(blocks, sample, 1);
            const auto low = static_cast<int>(eye.pupil().x * 4096 + eye.pupil().y * 256);
            ASSERT_EQ(eye.pupilDimension()[1] * 256 + low, (field + 32700) & 0xFFFF) << field << ' ' << prescaler;
            ASSERT_EQ(eye.crArea(), static_cast<unsigned>(std::max(field, 0)));
        }
    }
}

TEST(RawData, CameraWindow) {
    Blocks blocks;
    const Sample sample = makeSample();
    EXPECT_EQ(trk::getWindowPosition(blocks, sample), (Pair{1288, 199}));
    blocks.window = {177, 101};
    EXPECT_EQ(trk::getWindowPosition(blocks, sample), (Pair{1288, 154}));
    expectPoint(RawEyeData(blocks, sample, 0).pupil(), {1289, 153.5F});
    blocks.window = {INT_MAX, INT_MIN};
    EXPECT_EQ(trk::getWindowPosition(blocks, sample), (Pair{1073743023, 0}));
}

TEST(RawData, CrDimensionAndSecondCr) {
    Blocks blocks;
    Sample sample{};
    for (const auto &[eye, type, size, areaA, area, cr] :
         {std::tuple{0, 200, -32768, 77, 77U, Point{99.5F, -1.75F}},
          {1, 200, -1, 77, 40000U, {10.25F, 20.99609375F}},
          {1, 196, -1, 77, 77U, {99.5F, -1.75F}},
          {0, 199, -1, 77, 0U, kMissing},
          {1, 200, 0, 77, 0U, kMissing},
          {1, 196, -1, 0, 0U, kMissing}}) {
        std::ranges::copy(std::array{100, 0xFFFE, 0x8040, areaA, 10, 20, 0x40FF, 40000}, sample.ext_data);
        sample.pupil_size[eye] = static_cast<float>(size);
        sample.ext_type = static_cast<uint16_t>(type);
        EXPECT_EQ(RawEyeData(blocks, sample, eye).secondCrArea(), area);
        expectPoint(RawEyeData(blocks, sample, eye).secondCr(), cr);
        EXPECT_EQ(trk::getCrDimension(sample), type == 200 ? kUnknown : (Pair{0x40, -100}));
    }
}

// A pupil of radius 1000 and a CR of radius 400, widened to 500: a quarter of the pupil's area. The pupil goes at
// most a fifth of the way to the CR, which lies at (10, 20).
TEST(RawData, PupilIsMendedWhereTheCrCoversIt) {
    constexpr unsigned kArea = 3141590;
    constexpr float kCr = 502654.4F;
    for (const auto &[distance, iterations, area, crArea, mended, mendedArea] :
         {std::tuple{1505.0F, 5, kArea, kCr, 1505.0F, kArea},
          {1500.0F, 5, kArea, kCr, 1500.0F, kArea}, // t < 0, t = 0
          {1000.0F, 1, kArea, kCr, 900.0F, 3534288U},
          {1000.0F, 2, kArea, kCr, 867.86797F, 3660470U}, // 0.5, then 0.6607
          {1000.0F, 5, kArea, kCr, 853.46439F, 3717033U},
          {500.0F, 5, kArea, kCr, 400.0F, 3926987U}, // 0.7327; t = 1
          {500.0F, 5, kArea, 0.99F, 500.0F, kArea},
          {500.0F, 5, 0U, kCr, 500.0F, 0U}}) {
        Point pupil{10 + 0.6F * distance, 20 + 0.8F * distance};
        unsigned mendingArea = area;
        trk::do_pupil_cr_fixup(pupil, mendingArea, {10, 20}, crArea, 100, iterations);
        expectPoint(pupil, {10 + 0.6F * mended, 20 + 0.8F * mended});
        EXPECT_EQ(mendingArea, mendedArea);
    }
    constexpr Point kNear{MISSING_DATA - 8, MISSING_DATA - 8};
    for (const auto &[pupil, cr] :
         {std::pair{Point{MISSING_DATA, kNear.y}, kNear}, {kNear, {kNear.x, MISSING_DATA}}}) {
        Point same = pupil;
        unsigned area = kArea;
        trk::do_pupil_cr_fixup(same, area, cr, kCr, 100, 5);
        expectPoint(same, pupil);
        EXPECT_EQ(area, kArea);
    }
}

// The margin of 3 pixels makes a CR of area 12 one of 77.114.
TEST(RawData, PupilMinusCr) {
    Blocks blocks;
    Sample sample = makeSample();
    for (const auto &[fineX, crArea, expected] :
         {std::tuple{25000, 60, 1288.5 - 1.02 * 1388}, // 100 pixels beside the window's centre
          {5125, 12, (77.114 * 1308.5 + 3141 * 1288.5) / 3218.114 - 1.02 * 1308.5},
          {5125, 0, 1288.5 - 1.02e8}}) {
        sample.ext_data[2] = static_cast<uint16_t>(fineX);
        sample.ext_data[4] = 3141;
        sample.ext_data[5] = static_cast<uint16_t>(crArea);
        EXPECT_NEAR(RawEyeData(blocks, sample, 0).pupilMinusCr().x, expected, std::abs(expected) * 5e-6);
    }
    EXPECT_FLOAT_EQ(RawEyeData(blocks, sample, 0).pupilMinusCr().y, 198 - 1.02e8F);
}

TEST(RawData, HostileNumbers) {
    Blocks blocks;
    Sample sample = makeSample();
    for (const float value : {NAN, INFINITY, -INFINITY, 3e38F, -3e38F}) {
        sample.pupil_x[1] = sample.href_y[1] = sample.gaze_x[1] = sample.gaze_y[1] = sample.res_y = value;
        for (const float prescaler : {NAN, INFINITY, -INFINITY, 3e38F}) {
            blocks.prescaler = prescaler;
            RawEyeData eye(blocks, sample, 1);
            EXPECT_EQ(eye.crArea(), value * prescaler > 0 ? UINT_MAX : 0U) << value << ' ' << prescaler;
            EXPECT_EQ(eye.pupilDimension()[1], value * prescaler > 0 ? 0xFF : 0) << value << ' ' << prescaler;
            EXPECT_FALSE(std::isfinite(eye.pupilMinusCr().x));
        }
    }
}

} // namespace
