// Raw pupil and corneal-reflection data, unpacked from samples that are put together by hand.
#include "measures/raw_data.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <gtest/gtest.h>
#include <sstream>

namespace {

using trk::Point;
using trk::RawEyeData;
using trk::Sample;
using Pair = std::array<int, 2>;

struct Blocks : trk::BlockLookup {
    FRECORDING block{.gaze_prescaler = 10, .window_size2 = 190, .window_size1 = 176};
    const FRECORDING *blockAt(uint32_t time) override { return time == 77 ? &block : nullptr; }
};

// Left eye in the extension words: fine offsets 0.5, -1, 0.2 and -0.1 pixels in the window at 300 x 4 and 13 x 8.
// Right eye packed: 1605 and 3200 sixteenths, the word 0x2A79; 1700 and 3300 sixteenths, the word 0x83C1.
Sample makeSample() {
    Sample sample{};
    sample.time = 77;
    std::ranges::copy(std::array{125, 0xFF06, 50, 0xFFE7, 900, 60, 0xF8AA, 0x7FFF}, sample.ext_data);
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

// Area and position of pupil, CR and second CR, then the dimension of the pupil.
std::string describe(const Sample &sample, int eye) {
    Blocks blocks;
    RawEyeData data(blocks, sample, eye);
    std::ostringstream text;
    const auto put = [&text](unsigned area, Point at) {
        at.x == MISSING_DATA &&at.y == MISSING_DATA ? text << area << ":- "
                                                    : text << area << ':' << at.x << ',' << at.y << ' ';
    };
    put(data.pupilArea(), data.pupil());
    put(data.crArea(), data.cr());
    put(data.secondCrArea(), data.secondCr());
    text << data.pupilDimension()[0] << ',' << data.pupilDimension()[1];
    return text.str();
}

TEST(RawData, AllEncodings) {
    constexpr float kLost = MISSING_DATA;
    const struct {
        void (*change)(Sample &);
        int eye;
        const char *expected;
    } cases[] = {
        {[](Sample &) {}, 1, "1500:100.34,200.035 58:106.297,206.254 0:- 131,42"},
        {[](Sample &s) { s.pupil_x[1] = kLost; }, 1, "1500:- 58:106.297,206.254 0:- 131,42"},
        {[](Sample &s) { s.pupil_y[1] = kLost; }, 1, "1500:- 58:106.297,206.254 0:- 131,42"},
        {[](Sample &s) { s.gaze_x[1] = kLost; }, 1, "1500:- 58:106.297,206.254 0:- 100000000,100000000"},
        {[](Sample &s) { s.gaze_y[1] = kLost; }, 1, "1500:100.34,200.035 58:- 0:- 100000000,100000000"},
        {[](Sample &s) { s.href_x[1] = kLost; }, 1, "1500:100.34,200.035 58:- 0:- 131,42"},
        {[](Sample &s) { s.href_y[1] = kLost; }, 1, "1500:100.34,200.035 58:- 0:- 131,42"},
        {[](Sample &s) { s.res_y = 0.04F; }, 1, "1500:100.34,200.035 0:- 0:- 131,42"},
        {[](Sample &s) { s.pupil_size[1] = -32699.5F; }, 1, "0:- 58:106.297,206.254 0:- 0,0"},
        {[](Sample &s) { s.pupil_size[1] = -32700; }, 1, "0:- 58:- 0:- 0,0"},
        {[](Sample &s) { s.pupil_size[0] = s.ext_type = 200; }, 0, "900:1288.5,198 60:1288.2,198.9 0:- 170,-8"},
        {[](Sample &s) { s.ext_data[4] = 0; }, -1, "0:- 60:1288.2,198.9 0:- 0,0"},
        {[](Sample &s) { s.ext_data[5] = 0; }, INT_MAX, "900:1288.5,198 0:- 0:- 170,-8"},
        // Second reflections. 31 and 58 are the areas of the first.
        {[](Sample &s) { s.pupil_size[0] = -32768, s.ext_type = 200; }, 0, "0:- 31:- 65511:125,-249.805 0,0"},
        {[](Sample &s) { s.pupil_size[1] = -32768, s.ext_type = 200; }, 1, "0:- 58:- 32767:899.969,60.6641 0,0"},
        {[](Sample &s) { s.pupil_size[1] = -32768, s.ext_type = 196; }, 1, "0:- 58:- 65511:125,-249.805 0,0"},
        {[](Sample &s) { s.pupil_size[1] = -32768, s.ext_type = 199; }, 1, "0:- 58:- 0:- 0,0"},
        {[](Sample &s) { s.ext_data[7] = 0, s.ext_type = 200; }, 1,
         "1500:100.34,200.035 58:106.297,206.254 0:- 131,42"},
    };
    for (const auto &[change, eye, expected] : cases) {
        Sample sample = makeSample();
        change(sample);
        EXPECT_EQ(describe(sample, eye), expected);
    }
}

// Every bit of a word is read by the position or the dimension. The word 0x8000 is MISSING_DATA, above.
TEST(RawData, EveryPackedWordComesBack) {
    Blocks blocks;
    Sample sample = makeSample();
    sample.pupil_x[1] = sample.pupil_y[1] = -32700;
    for (const float prescaler : {1.0F, 2.0F, 5.0F, 10.0F, 20.0F}) {
        blocks.block.gaze_prescaler = prescaler;
        for (int field = -32767; field <= 32767; ++field) {
            sample.gaze_x[1] = sample.res_y = static_cast<float>(field) / prescaler;
            RawEyeData eye(blocks, sample, 1);
            const auto low = static_cast<int>(eye.pupil().x * 4096 + eye.pupil().y * 256);
            ASSERT_EQ(eye.pupilDimension()[1] * 256 + low, (field + 32700) & 0xFFFF) << field << ' ' << prescaler;
            ASSERT_EQ(eye.crArea(), static_cast<unsigned>(std::max(field, 0)));
        }
    }
}

TEST(RawData, CameraWindowAndCrDimension) {
    Blocks blocks;
    Sample sample = makeSample();
    EXPECT_EQ(trk::windowPosition(blocks, sample), (Pair{1288, 199}));
    blocks.block.window_size1 = 177, blocks.block.window_size2 = 101;
    EXPECT_EQ(trk::windowPosition(blocks, sample), (Pair{1288, 154}));
    EXPECT_FLOAT_EQ(RawEyeData(blocks, sample, 0).pupil().x, 1289);
    blocks.block.window_size1 = 0x7FFFFFFF, blocks.block.window_size2 = 0x80000000;
    EXPECT_EQ(trk::windowPosition(blocks, sample), (Pair{1073743023, 0}));
    EXPECT_EQ(trk::crDimension(sample), (Pair{255, 127}));
    sample.ext_type = 200;
    EXPECT_EQ(trk::crDimension(sample), (Pair{100000000, 100000000}));
}

// A pupil of radius 1000 and a CR of radius 400, widened to 500: a quarter of the pupil's area. The pupil goes at
// most a fifth of the way to the CR. The overlap t: below 0, 0, 0.5, then 0.6607, up to 0.7327, and 1.25.
TEST(RawData, PupilIsMendedWhereTheCrCoversIt) {
    constexpr float kCr = 502654.4F;
    const struct {
        Point pupil, cr, mended;
        unsigned mendedArea;
        int iterations = 5;
        float crArea = kCr;
        unsigned area = 3141590;
    } cases[] = {{{1501, 0}, {0, 0}, {1501, 0}, 3141590},
                 {{0, 1500}, {0, 0}, {0, 1500}, 3141590},
                 {{0, 1000}, {0, 0}, {0, 900}, 3534288, 1},
                 {{1000, 0}, {0, 0}, {867.86797F, 0}, 3660470, 2},
                 {{1000, 0}, {0, 0}, {853.46439F, 0}, 3717033},
                 {{160, 220}, {10, 20}, {130, 180}, 3926987, 1},
                 {{310, 420}, {10, 20}, {310, 420}, 3141590, 5, 0.99F},
                 {{13, 24}, {10, 20}, {13, 24}, 0, 5, kCr, 0},
                 {{MISSING_DATA, 0}, {MISSING_DATA - 8, 0}, {MISSING_DATA, 0}, 3141590},
                 {{0, MISSING_DATA - 8}, {0, MISSING_DATA}, {0, MISSING_DATA - 8}, 3141590}};
    for (auto [pupil, cr, mended, mendedArea, iterations, crArea, area] : cases) {
        trk::mendPupil(pupil, area, cr, crArea, 100, iterations);
        EXPECT_FLOAT_EQ(pupil.x, mended.x);
        EXPECT_FLOAT_EQ(pupil.y, mended.y);
        EXPECT_EQ(area, mendedArea);
    }
}

// The margin of 3 pixels makes a CR of area 12 one of 77.114.
TEST(RawData, PupilMinusCr) {
    Blocks blocks;
    Sample sample = makeSample();
    sample.ext_data[2] = 5125; // 20 pixels beside the pupil
    sample.ext_data[4] = 3141;
    sample.ext_data[5] = 12;
    const double mended = (77.114 * 1308.5 + 3141 * 1288.5) / 3218.114;
    EXPECT_NEAR(RawEyeData(blocks, sample, 0).pupilMinusCr().x, mended - 1.02 * 1308.5, 1e-3);
    sample.ext_data[5] = 0;
    EXPECT_FLOAT_EQ(RawEyeData(blocks, sample, 0).pupilMinusCr().y, 198 - 1.02e8F);
}

TEST(RawData, HostileNumbers) {
    Blocks blocks;
    Sample sample = makeSample();
    for (const float value : {NAN, INFINITY, -INFINITY, 3e38F, -3e38F}) {
        sample.pupil_x[1] = sample.href_y[1] = sample.gaze_x[1] = sample.gaze_y[1] = sample.res_y = value;
        for (const float prescaler : {NAN, INFINITY, -INFINITY, 3e38F}) {
            blocks.block.gaze_prescaler = prescaler;
            RawEyeData eye(blocks, sample, 1);
            EXPECT_EQ(eye.crArea(), value * prescaler > 0 ? UINT_MAX : 0U) << value << ' ' << prescaler;
            EXPECT_EQ(eye.pupilDimension()[1], value * prescaler > 0 ? 0xFF : 0) << value << ' ' << prescaler;
            EXPECT_FALSE(std::isfinite(eye.pupilMinusCr().x));
        }
    }
}

} // namespace
