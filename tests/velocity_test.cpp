// The sample queue and the velocities: by hand, and bit for bit against the plain algorithm.
#include "measures/velocity.h"
#include "support/plain_velocity.h"
#include "support/walk.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <random>

namespace {

using namespace trk_test;
using trk::Sample;
using Keys = std::vector<uint64_t>;

// The floats of a sample: 14 positions and pupil sizes, 2 of the resolution, 24 velocities.
constexpr std::size_t kPositions = 14;
constexpr std::size_t kFirstVelocity = 16;
using Floats = std::array<float, 40>;

Floats floatsOf(const FSAMPLE_REC &sample) {
    Floats floats;
    std::memcpy(floats.data(), reinterpret_cast<const char *>(&sample) + sizeof(sample.time), sizeof(floats));
    return floats;
}

Sample sampleOf(unsigned flags, const Floats &floats) {
    Sample sample{};
    sample.flags = static_cast<uint16_t>(flags);
    std::memcpy(reinterpret_cast<char *>(&sample) + sizeof(sample.time), floats.data(), sizeof(floats));
    return sample;
}

Sample emptySample(unsigned flags) {
    Floats floats{};
    std::fill(floats.begin() + kFirstVelocity, floats.end(), MISSING_DATA);
    return sampleOf(flags, floats);
}

// The library's queue and the plain one, fed alike.
struct Queues {
    trk::ItemIndex index;
    trk::SampleQueue queue{index};
    PlainQueue plain;

    void add(Sample sample, uint64_t key) {
        plain.add(sample, key);
        queue.addSample(sample, key);
    }
};

// Velocities in x at the middle of positions i^3 + 3 i^2, i = -19 to 19, at 25 units per degree; the eye is lost
// at the distances `lost`. The numbers are those of the cubes, since the even part falls out: in the first row
// 250 / 25 x 18 x 0.167 and 250 / 25 x 2 x 0.5, in the next three 10 x 100, 1012, 9016 x 0.167 x scale.
TEST(Velocity, BothModelsByHand) {
    const struct {
        int rate, model;
        std::vector<int> lost;
        float smoothed, fast;
    } cases[] = {
        {250, 3, {}, 30.06F, 10},
        {500, 3, {-5, 5}, 200.4F, 54},
        {1000, 3, {-10, 10}, 1843.68F, 610.9091F},
        {2000, 4, {}, 15711.36F, 5634.7826F},
        {250, 3, {-2}, MISSING_DATA, MISSING_DATA},
        {500, 3, {4}, MISSING_DATA, MISSING_DATA},
        {1000, 3, {-9}, MISSING_DATA, MISSING_DATA},
        {1000, 3, {1}, MISSING_DATA, MISSING_DATA},
        {2000, 3, {19}, MISSING_DATA, MISSING_DATA},
        {2000, 3, {0}, MISSING_DATA, MISSING_DATA},
        {1000, 2, {-3, 0, 3}, 120, 40}, // 18 x 1000 / 6 / 25, 2 x 1000 / 2 / 25
        {1000, 1, {2}, 40, 40},         // two points
        {1000, 2, {-1}, 160, 160},      // from here to the next: 4 x 1000 / 25
        {1000, 2, {1}, -80, -80},       // from the one before to here: -2 x 1000 / 25
        {1000, 2, {0, 1}, MISSING_DATA, MISSING_DATA},
        {1000, 2, {-1, 1}, MISSING_DATA, MISSING_DATA},
    };
    for (const auto &[rate, model, lost, smoothed, fast] : cases) {
        SCOPED_TRACE(testing::Message() << rate << "/s, model " << model << testing::PrintToString(lost));
        Queues queues;
        for (int i = -19; i <= 19; ++i) {
            Sample sample = emptySample(TRK_SAMPLE_LEFT | TRK_SAMPLE_GAZE | TRK_SAMPLE_PUPIL_SIZE);
            sample.gaze_x[0] = static_cast<float>(i * i * i + 3 * i * i);
            sample.res_x = sample.res_y = 25;
            sample.pupil_size[0] = std::ranges::count(lost, i) != 0 ? 14.9F : 15.0F;
            queues.add(sample, static_cast<uint64_t>(1000 + i * 2000 / rate));
        }
        Sample middle = queues.queue.entry(19);
        trk::VelocityComputer(queues.queue, model).setVelocity(middle, {}, rate);
        EXPECT_FLOAT_EQ(middle.gaze_vel_x[0], smoothed);
        EXPECT_FLOAT_EQ(middle.gaze_fvel_x[0], fast);
        EXPECT_EQ(middle.gaze_vel_x[1], MISSING_DATA);
    }
}

// Units per degree at the centre: 15000 / 57.2958. At (20000, 0), where the squares add up to that of 25000:
// 25000^2 / 15000 / 57.2958 and 25000 / 57.2958.
TEST(Velocity, HrefResolutionByHand) {
    for (const auto &[x, perDegreeX, perDegreeY] :
         {std::array{0.0F, 261.79929F, 261.79929F}, std::array{20000.0F, 727.22026F, 436.33215F}}) {
        Queues queues;
        for (const float i : {-1.0F, 0.0F, 1.0F}) {
            Sample sample = emptySample(TRK_SAMPLE_RIGHT | TRK_SAMPLE_HREF);
            sample.href_x[1] = x + 1000 * i;
            sample.href_y[1] = 1000 * i;
            queues.add(sample, static_cast<uint64_t>(100 + 8 * i));
        }
        Sample middle = queues.queue.entry(1);
        trk::VelocityComputer(queues.queue, 2).setVelocity(middle, {}, 250);
        EXPECT_FLOAT_EQ(middle.href_fvel_x[1], 250000 / perDegreeX);
        EXPECT_FLOAT_EQ(middle.href_fvel_y[1], 250000 / perDegreeY);
    }
}

// One computer sees several recordings' worth of refills and rates, as it does in an open file.
TEST(Velocity, EqualsThePlainAlgorithmBitForBit) {
    std::mt19937 random(1);
    const auto pick = [&random]<class T>(std::initializer_list<T> choices) {
        return choices.begin()[random() % choices.size()];
    };
    const auto queues = std::make_unique<Queues[]>(4);
    trk::VelocityComputer computers[]{
        {queues[0].queue, 1}, {queues[1].queue, 2}, {queues[2].queue, 3}, {queues[3].queue, 4}};
    std::ptrdiff_t known = 0;
    for (int round = 0; round < 200; ++round) {
        const std::size_t model = random() % 4;
        auto &[index, queue, plain] = queues[model];
        const int rate = pick({60, 250, 333, 500, 999, 1000, 1500, 2000, 4001});
        const uint64_t rightStep = rate < 250 ? 33 : rate > 2000 ? 1 : 2000U / static_cast<unsigned>(rate);
        const uint64_t step = random() % 6 != 0 ? rightStep : pick({1U, 2U, 3U, 4U, 8U, 9U, 16U});
        const unsigned oddOnes = pick({3U, 40U, 2000U}); // one in so many
        const auto odd = [&] { return random() % oddOnes == 0; };
        const auto fixed = std::array<trk::FixedResolution, 5>{
            {{}, {}, {30, 40}, {0.005F, 40}, {30, MISSING_DATA}}}[random() % 5];
        const unsigned flags = pick({0xDF00U, 0xDF00U, 0x8500U, 0x4E01U, 0xC100U});
        if (random() % 2 == 0) {
            queue.clear();
            plain.clear();
        }
        uint64_t key = plain.count() > 0 ? queue.key(queue.count() - 1) : random() % 9;
        for (std::size_t left = 1 + random() % 900; left > 0; --left) {
            Floats floats = floatsOf(emptySample(0));
            std::generate_n(floats.begin(), kPositions, [&] {
                return odd() ? pick({MISSING_DATA, 1e7F, 14.9F}) : static_cast<float>(random() % 60000) / 10 - 15;
            });
            floats[kPositions] = odd() ? pick({0.01F, 10000.0F, -3.0F, 0.02F}) : 35.5F;
            floats[kPositions + 1] = odd() ? pick({0.01F, 9999.9F, 1e7F}) : 34.25F;
            if (queue.isFull()) {
                queue.shiftQueue();
                plain.shift();
            }
            queues[model].add(sampleOf(odd() ? static_cast<unsigned>(random()) : flags, floats), key);
            key += odd() ? std::array{uint64_t{0}, uint64_t{1}, step - 1, 2 * step}[random() % 4] : step;
        }
        ASSERT_EQ(static_cast<std::size_t>(queue.count()), plain.count());
        for (std::size_t i = 0; i < plain.count(); ++i) {
            Sample sample = queue.entry(static_cast<int>(i));
            FSAMPLE_REC expected = plain[i];
            computers[model].setVelocity(sample, fixed, rate);
            plainSetVelocity(plain, expected, fixed.x, fixed.y, rate, static_cast<int>(model) + 1);
            ASSERT_EQ(sample.sort_key, expected.sort_key);
            const Floats floats = floatsOf(sample);
            ASSERT_EQ(std::memcmp(floats.data(), floatsOf(expected).data(), sizeof(floats)), 0)
                << "round " << round << " sample " << i << " rate " << rate << " model " << model + 1;
            known += std::count_if(floats.begin() + kFirstVelocity, floats.end(),
                                   [](float velocity) { return velocity != MISSING_DATA; });
        }
    }
    EXPECT_GT(known, 100000);
}

TEST(SampleQueue, LooksUpBySpacingAndTellsWhatMayFollow) {
    const struct {
        Keys keys, found, notFound; // by the spacing
        Keys follows, outside;      // what a refill may start with, and may not
    } cases[] = {
        {{}, {}, {5}, {0, 5}, {}},
        {{100, 102}, {100, 102}, {101}, {100, 102}, {99, 103}},
        {{100, 102, 104}, {100, 102, 104}, {103, 106}, {104, 106}, {99, 107}},
        {{100, 120, 124}, {100, 120, 124}, {104}, {128}, {129}},
        {{100, 108, 109}, {100, 108, 109}, {101}, {117}, {118}},
        {{100, 109, 110}, {100, 109, 110}, {101}, {111}, {112}},
        {{100, 103, 106, 109}, {100, 109}, {103, 106}, {112}, {113}},
        {{100, 104, 108, 120, 124}, {104, 108, 120}, {112, 116}, {128}, {129}},
        {{100, 104, 108, 200, 201, 202, 203}, {108, 200, 201, 202}, {205}, {207}, {208}},
        {{100, 101, 104, 105, 108}, {101, 105}, {104}, {109}, {110}},
    };
    for (const auto &[keys, found, notFound, follows, outside] : cases) {
        SCOPED_TRACE(testing::PrintToString(keys));
        Queues queues;
        const trk::SampleQueue &queue = queues.queue;
        std::ranges::for_each(keys, [&](uint64_t key) { queues.add(emptySample(0), key); });
        for (const uint64_t key : found) {
            int position = -1;
            ASSERT_NE(queue.getOldSample(key, &position), nullptr) << key;
            EXPECT_EQ(queue.key(position), key);
        }
        for (const uint64_t key : notFound) {
            int position = 0;
            EXPECT_EQ(queue.getOldSample(key, &position), nullptr) << key;
            EXPECT_EQ(position, -1);
            EXPECT_EQ(queue.getOldSampleSlow(key) != nullptr, std::ranges::count(keys, key) != 0);
        }
        EXPECT_TRUE(std::ranges::none_of(follows, [&](uint64_t key) { return queue.isOutOfBoundsToAdd(key); }));
        EXPECT_TRUE(std::ranges::all_of(outside, [&](uint64_t key) { return queue.isOutOfBoundsToAdd(key); }));
    }
}

TEST(SampleQueue, CarriesPupilSizesForwardAndRefusesOldKeys) {
    Queues queues;
    const auto add = [&queues](unsigned flags, uint64_t key) {
        Sample sample = emptySample(flags);
        sample.pupil_size[1] = 800;
        queues.add(sample, key);
        const int count = queues.queue.count();
        return std::pair(count, queues.queue.entry(count - 1).pupil_size[1]);
    };
    EXPECT_EQ(add(0, 10), std::pair(1, 1000.0F));
    EXPECT_EQ(add(TRK_SAMPLE_PUPIL_SIZE, 10), std::pair(1, 1000.0F));
    EXPECT_EQ(add(0, 12), std::pair(2, 1000.0F));
    EXPECT_EQ(add(TRK_SAMPLE_PUPIL_SIZE, 14), std::pair(3, 800.0F));
    queues.queue.shiftQueue();
    EXPECT_EQ(add(0, 1), std::pair(1, 800.0F));
    queues.queue.clear();
    EXPECT_EQ(add(0, 1), std::pair(1, 1000.0F));
}

// The queue is refilled before its end is reached, so that only the edges of a block lack velocities.
TEST(Velocity, LongBlocksHaveNoHoles) {
    for (const auto &[rate, halfSpan] : {std::pair{250U, 2U}, {500U, 4U}, {1000U, 9U}, {2000U, 19U}}) {
        constexpr uint32_t kSamples = 1300;
        RecordingWriter writer;
        writer.startBlock({.time = 1000, .rate = rate});
        for (uint32_t i = 0; i < kSamples; ++i) {
            const Position gaze{static_cast<int>(i), 0};
            writer.sample(
                {.time = 1000 + i * 1000 / rate, .gaze = EyePositions{gaze, {}}, .resolution = Position{1, 1}});
        }
        uint32_t place = 0;
        for (const Item &item : openBytes(writer.endBlock(9000).end().plain()).walk()) {
            if (item.code == REC_SAMPLE) {
                const bool atEdge = place < halfSpan || place + halfSpan >= kSamples;
                ASSERT_EQ(item.sample().gaze_fvel_x[0] == MISSING_DATA, atEdge) << rate << "/s " << place;
                ++place;
            }
        }
        EXPECT_EQ(place, kSamples);
    }
}

} // namespace
