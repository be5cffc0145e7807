// Salvage: what is delivered of recordings that were damaged at random, and that nothing is invented.
#include "support/scenarios.h"
#include "support/walk.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <vector>

namespace {

using namespace trk_test;

std::vector<Item> itemsOf(const std::string &path, int flags, int *damages = nullptr) {
    TRK_OPEN_OPTIONS options;
    trk_default_options(&options);
    options.flags = flags;
    _TRKFILE *const handle = trk_open(path.c_str(), &options, nullptr);
    std::vector<Item> items;
    while (const int code = handle != nullptr ? trk_get_next_data(handle) : 0) {
        const ALLF_DATA *const record = trk_get_float_data(handle);
        items.push_back({code, record != nullptr, record != nullptr ? *record : ALLF_DATA{}});
    }
    TRK_DAMAGE damage;
    while (damages != nullptr && trk_get_damage(handle, *damages, &damage) == 0 && damage.kind < 100) {
        ++*damages;
    }
    trk_close_file(handle);
    return items;
}

// What of a sample does not depend on its neighbours.
std::string valuesOf(const Item &item) {
    const auto *const from = reinterpret_cast<const char *>(item.sample().pupil_x);
    return {from, offsetof(FSAMPLE_REC, gaze_vel_x) - offsetof(FSAMPLE_REC, pupil_x)};
}

using Moment = std::pair<int, uint32_t>;

struct Original {
    explicit Original(const std::vector<Item> &items) : size(items.size()) {
        for (const Item &item : items) {
            ++moments[{item.code, item.time()}];
            if (item.code == REC_SAMPLE) {
                samples.emplace(item.time(), valuesOf(item));
            }
        }
    }
    // The share of the items that are there, and the number of samples that are not of the original.
    std::pair<double, int> compare(const std::vector<Item> &items) const {
        std::map<Moment, int> left = moments;
        double found = 0;
        int invented = 0;
        for (const Item &item : items) {
            found += --left[{item.code, item.time()}] >= 0 ? 1 : 0;
            if (item.code == REC_SAMPLE) {
                const auto [first, last] = samples.equal_range(item.time());
                invented += std::none_of(first, last, [&](auto &s) { return s.second == valuesOf(item); }) ? 1 : 0;
            }
        }
        return {found / static_cast<double>(size), invented};
    }

    size_t size;
    std::map<Moment, int> moments;
    std::multimap<uint32_t, std::string> samples;
};

class Salvage : public testing::Test {
  protected:
    static constexpr size_t kTorn = 4096;

    void damage(Bytes &bytes, unsigned kind) {
        const size_t at = head_ + random_() % (bytes.size() - head_ - kTorn - 200);
        switch (kind) {
        case 0:
            bytes[at] = static_cast<char>(bytes[at] ^ 1 << random_() % 8);
            break;
        case 1:
            bytes.erase(at, 1);
            break;
        case 2:
            bytes.replace(at, 100, 100, '\0');
            break;
        default:
            bytes.erase(at, kTorn);
        }
    }

    // Damages `whole` in `rounds` ways of a kind, 4 for two damages at once.
    void check(const Bytes &whole, unsigned kind, int rounds) {
        const TemporaryDirectory directory;
        const Original original(itemsOf(directory.save("whole.trk", whole), TRK_OPEN_NO_CHECK));
        head_ = whole.find(kPreambleEnd) + kPreambleEnd.size();
        std::vector<double> shares;
        for (int round = 0; round < rounds; ++round) {
            Bytes bytes = whole;
            damage(bytes, kind < 4 ? kind : random_() % 4);
            if (kind == 4) {
                damage(bytes, random_() % 4);
            }
            int damages = 0;
            const std::vector<Item> items =
                itemsOf(directory.save("damaged.trk", bytes), TRK_OPEN_SALVAGE, &damages);
            const auto [share, invented] = original.compare(items);
            shares.push_back(share);
            // A flipped bit in a value cannot be seen: one sample then holds it.
            EXPECT_LE(invented, kind == 0 ? 1 : kind == 4 ? 2 : 0) << "kind " << kind << " round " << round;
            EXPECT_TRUE(damages > 0 || items.size() == original.size) << "kind " << kind << " round " << round;
        }
        std::ranges::sort(shares);
        EXPECT_GT(shares[shares.size() / 2], 0.99) << kind;
        EXPECT_GT(shares[shares.size() / 20], 0.95) << kind;
    }

    std::mt19937 random_{7};
    size_t head_ = 0;
};

TEST_F(Salvage, DeliversNearlyAllAndInventsNothing) {
    const int rounds = std::getenv("TRKAPI_LARGE") != nullptr ? 1000 : 24;
    const Bytes whole = experiment({.durationMs = 40000, .sampleRate = 500}).file;
    for (unsigned kind = 0; kind < 5; ++kind) {
        check(whole, kind, rounds);
    }
    check(experiment({.durationMs = 40000, .sampleRate = 2000}).file, 1, 3);
    check(experiment({.durationMs = 40000, .sampleRate = 250, .cameraData = true}).file, 3, 6);
}

// Sound recordings are left alone, be their rates, pauses and clocks what they may.
TEST_F(Salvage, RaisesNoFalseAlarm) {
    const TemporaryDirectory directory;
    for (const double rate : {60.0, 250.0, 333.0, 500.0, 1001.0, 2000.0}) {
        for (const bool events : {true, false}) {
            const double clock = rate == 333 ? 4e8 : 1000;
            trkwriter::Recorder recorder(directory.path("a.trk"), {.compressed = events, .flushEvery = 5000});
            recorder.message(clock - 500, "\"TRIALID\" 1");
            for (int block = 0; block < 3; ++block) {
                const double start = clock + block * 3600000.0; // an hour between blocks
                recorder.startBlock({.time = start, .rate = rate, .eyes = block == 1 ? LeftEye : BothEyes});
                for (int i = 0; i < 400; ++i) {
                    const double time = start + i * 1000 / rate + (i > 201 ? 40000 : 0); // lost samples
                    const double written = rate > 1000 && rate != 1001 ? time : std::floor(time);
                    if (events && i % 50 == 0) {
                        recorder.message(std::floor(written), "frame");
                        recorder.startEvent(trkwriter::EyeEvent::Fixation, LeftEye, std::floor(written));
                    }
                    if (rate != 1001 || i % 1001 != 1000) {
                        recorder.sample({.time = rate == 1001 ? start + i + (i > 201 ? 40000 : 0) : written});
                    }
                    if (events && i % 50 == 40) {
                        recorder.endEvent(trkwriter::EyeEvent::Fixation, LeftEye, std::floor(written));
                    }
                }
                recorder.endBlock(std::floor(start + 400 * 1000 / rate) + 41000);
            }
            recorder.finish();
            int damages = 0;
            const auto salvaged = itemsOf(directory.path("a.trk"), TRK_OPEN_SALVAGE, &damages);
            EXPECT_EQ(damages, 0) << rate << events;
            EXPECT_EQ(salvaged, itemsOf(directory.path("a.trk"), TRK_OPEN_NO_CHECK)) << rate << events;
        }
    }
}

// Behind a damage, compressed data can be taken up again where they were flushed for it.
TEST_F(Salvage, ResumesCompressedData) {
    const TemporaryDirectory directory;
    const std::string path = directory.path("a.trk");
    trkwriter::Recorder recorder(path, {.compressed = true, .flushEvery = 20000});
    writeExperiment(recorder, {.durationMs = 40000, .sampleRate = 500});
    recorder.finish();
    const auto whole = itemsOf(path, TRK_OPEN_NO_CHECK);
    std::ifstream file(path, std::ios::binary);
    Bytes bytes(std::istreambuf_iterator<char>(file), {});
    for (const bool lost : {false, true}) {
        Bytes damaged = bytes;
        damaged.replace(bytes.size() / 3, 30, lost ? 0 : 30, '\xA5');
        int damages = 0;
        const auto salvaged = itemsOf(directory.save("b.trk", damaged), TRK_OPEN_SALVAGE, &damages);
        const auto [share, invented] = Original(whole).compare(salvaged);
        EXPECT_GT(share, 0.9) << lost;
        EXPECT_EQ(invented, 0) << lost;
        EXPECT_GT(damages, 0) << lost;
    }
}

} // namespace
