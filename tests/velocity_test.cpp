// The sample window and the velocities: by hand, and bit for bit against the plain algorithm.
#include "measures/velocity.h"
#include "plain_velocity.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string_view>

namespace {

using trk::Sample;

// A sample's floats: 14 positions and pupil sizes, the resolution in x and y, 24 velocities.
constexpr std::ptrdiff_t kFirstVelocity = 16;
constexpr std::ptrdiff_t kFloats = 40;
float *floatsOf(FSAMPLE_REC &sample) { return reinterpret_cast<float *>(&sample) + 1; }
std::string_view bitsOf(FSAMPLE_REC &sample) {
    return {reinterpret_cast<const char *>(floatsOf(sample)), kFloats * sizeof(float)};
}

// The library's window and the plain one, fed alike.
struct Windows {
    trk::SampleWindow window;
    trk_bench::PlainQueue plain;

    void add(Sample sample, uint64_t key) {
        std::fill(floatsOf(sample) + kFirstVelocity, floatsOf(sample) + kFloats, MISSING_DATA);
        plain.add(sample, key);
        window.add(sample, key);
    }
};

// Positions i^3 + 3 i^2, i = -19 to 19, at 25 units per degree; the eye is lost at the distances `lost`. By hand,
// without the even part, which falls out: 250 / 25 x 18 x 0.167 smoothed and 250 / 25 x 2 / 2 fast, then 10 x 100,
// 1012, 9016 x 0.167 x scale and 10 x 4.5, 56, 540 x scale; the HREF resolution at (0, 0) is 15000 / 57.2958.
TEST(Velocity, BothModelsByHand) {
    constexpr float kNone = MISSING_DATA;
    const struct {
        int rate, model;
        std::vector<int> lost;
        float smoothed, fast;
    } cases[] = {
        {250, 3, {}, 30.06F, 10},         {500, 3, {-5, 5}, 200.4F, 54}, {1000, 3, {-10, 10}, 1843.68F, 610.9091F},
        {250, 3, {-2}, kNone, kNone},     {500, 3, {4}, kNone, kNone},   {2000, 4, {}, 15711.36F, 5634.7826F},
        {1000, 3, {-9}, kNone, kNone},    {1000, 3, {1}, kNone, kNone},  {2000, 3, {19}, kNone, kNone},
        {2000, 3, {0}, kNone, kNone},     {1000, 2, {-3, 0}, 120, 40},   {1000, 1, {2}, 40, 40},
        {1000, 2, {-1}, 160, 160},        {1000, 2, {1}, -80, -80},      {1000, 2, {0, 1}, kNone, kNone},
        {1000, 2, {-1, 1}, kNone, kNone},
    };
    for (const auto &[rate, model, lost, smoothed, fast] : cases) {
        Windows windows;
        for (int i = -19; i <= 19; ++i) {
            Sample sample{};
            sample.flags = TRK_SAMPLE_LEFT | TRK_SAMPLE_GAZE | TRK_SAMPLE_HREF | TRK_SAMPLE_PUPIL_SIZE;
            sample.href_x[0] = sample.gaze_x[0] = static_cast<float>(i * i * i + 3 * i * i);
            sample.res_x = sample.res_y = 25;
            sample.pupil_size[0] = std::ranges::count(lost, i) != 0 ? 14.9F : 15.0F;
            const int key = 1000 + i * 2000 / rate;
            windows.add(sample, static_cast<uint64_t>(key));
        }
        Sample middle = windows.window.entry(19);
        trk::VelocityComputer(windows.window, model).setVelocity(middle, {}, rate);
        const float hrefPerDegree = std::ranges::count(lost, 0) != 0 ? 25 : 261.79929F;
        EXPECT_FLOAT_EQ(middle.href_fvel_x[0], fast == kNone ? kNone : fast * 25 / hrefPerDegree);
        EXPECT_FLOAT_EQ(middle.gaze_vel_x[0], smoothed) << rate << ' ' << model << testing::PrintToString(lost);
        EXPECT_FLOAT_EQ(middle.gaze_fvel_x[0], fast) << rate << ' ' << model << testing::PrintToString(lost);
    }
}

// One computer a model sees refills of all kinds, amid a walk too, and changes of the rate, as in an open file.
TEST(Velocity, EqualsThePlainAlgorithmBitForBit) {
    std::mt19937 random(1);
    const auto pick = [&random]<class T>(std::initializer_list<T> choices) {
        return choices.begin()[random() % choices.size()];
    };
    const auto windows = std::make_unique<Windows[]>(4);
    trk::VelocityComputer computers[]{
        {windows[0].window, 1}, {windows[1].window, 2}, {windows[2].window, 3}, {windows[3].window, 4}};
    std::ptrdiff_t known = 0;
    for (int round = 0; round < 100; ++round) {
        const std::size_t model = random() % 4;
        auto &[window, plain] = windows[model];
        const int rate = pick({60, 250, 333, 500, 999, 1000, 1500, 2000, 4001});
        const uint64_t rightStep = rate < 250 ? 33 : rate > 2000 ? 1 : 2000U / static_cast<unsigned>(rate);
        const uint64_t step = random() % 6 != 0 ? rightStep : pick({1U, 2U, 3U, 4U, 8U, 9U, 16U});
        const unsigned flags = pick({0xDF00U, 0xDF00U, 0x8500U, 0x4E01U, 0xC100U});
        const auto fixed = pick({std::pair{MISSING_DATA, 5.0F}, {30, 40}, {0.005F, 40}, {30, MISSING_DATA}});
        const unsigned oddOnes = pick({3U, 40U, 2000U}); // one in so many
        const auto odd = [&] { return random() % oddOnes == 0; };
        if (random() % 2 == 0) {
            window.clear();
            plain.clear();
        }
        uint64_t key = plain.count() > 0 ? plain[plain.count() - 1].sort_key : random() % 9;
        for (std::size_t left = 1 + random() % 900; left > 0; --left) {
            Sample sample{};
            std::generate_n(floatsOf(sample), kFirstVelocity, [&] {
                return odd() ? pick({MISSING_DATA, 1e7F, 14.9F}) : static_cast<float>(random() % 60000) / 10 - 15;
            });
            sample.res_x = odd() ? pick({0.01F, 10000.0F, -3.0F, 0.02F}) : 35.5F;
            sample.res_y = odd() ? pick({0.01F, 9999.9F, 1e7F}) : 34.25F;
            sample.flags = static_cast<uint16_t>(odd() ? random() : flags);
            if (window.isFull()) {
                window.dropOldest();
                plain.shift();
            }
            windows[model].add(sample, key);
            key += odd() ? std::array{uint64_t{0}, uint64_t{1}, step - 1, 2 * step}[random() % 4] : step;
        }
        ASSERT_EQ(static_cast<std::size_t>(window.count()), plain.count());
        for (std::size_t i = 0; i < plain.count(); ++i) {
            if (i >= 128 && random() % 40 == 0) { // a walk goes on in what a refill leaves
                window.dropOldest();
                plain.shift();
                i -= 128;
            }
            Sample sample = window.entry(static_cast<int>(i));
            FSAMPLE_REC expected = plain[i];
            computers[model].setVelocity(sample, {fixed.first, fixed.second}, rate);
            plainSetVelocity(plain, expected, fixed.first, fixed.second, rate, static_cast<int>(model) + 1);
            ASSERT_EQ(sample.sort_key, expected.sort_key);
            ASSERT_TRUE(bitsOf(sample) == bitsOf(expected))
                << "round " << round << " sample " << i << " rate " << rate << " model " << model + 1;
            known += kFloats - std::count(floatsOf(sample), floatsOf(sample) + kFloats, MISSING_DATA);
        }
    }
    EXPECT_GT(known, 500000);
}

TEST(SampleWindow, TellsWhatContinuesIt) {
    const struct {
        std::vector<uint64_t> keys;
        uint64_t inside, outside;
    } cases[] = {
        {{100, 102}, 102, 103},      {{100, 102, 104}, 106, 107}, {{100, 102, 104}, 100, 99},
        {{100, 120, 124}, 128, 129}, {{100, 108, 109}, 117, 118}, {{100, 109, 110}, 111, 112},
    };
    for (const auto &[keys, inside, outside] : cases) {
        Windows windows;
        EXPECT_TRUE(windows.window.isContinuedBy(outside));
        std::ranges::for_each(keys, [&windows](uint64_t key) { windows.add({}, key); });
        EXPECT_TRUE(windows.window.isContinuedBy(inside)) << testing::PrintToString(keys);
        EXPECT_FALSE(windows.window.isContinuedBy(outside)) << testing::PrintToString(keys);
    }
}

} // namespace
