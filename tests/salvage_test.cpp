// Salvage: what is delivered of recordings that were damaged at random, and that nothing is invented.
#include "support/scenarios.h"
#include "support/walk.h"
#include "trkwriter/session.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <vector>

namespace {

using namespace trk_test;
using namespace std::string_literals;

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
                samples.emplace(item.sample().sort_key, valuesOf(item));
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
                const auto [first, last] = samples.equal_range(item.sample().sort_key);
                invented += std::none_of(first, last, [&](auto &s) { return s.second == valuesOf(item); }) ? 1 : 0;
            }
        }
        return {found / static_cast<double>(size), invented};
    }

    size_t size;
    std::map<Moment, int> moments;
    std::multimap<uint64_t, std::string> samples;
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

// A recording block is started twice, and both starts state time, divisors and rate. Flips each bit of these, and
// of the content: the other start, the samples and the blocks before tell what was stated. Without blocks before,
// nothing tells which of two divisors scales the gaze.
TEST_F(Salvage, MendsStartsOfBlocks) {
    const TemporaryDirectory directory;
    for (const bool alone : {false, true}) {
        Bytes whole = experiment({.durationMs = 4000, .sampleRate = 500}).file;
        head_ = whole.find(kPreambleEnd) + kPreambleEnd.size();
        size_t at = whole.rfind("\xCF\0\x21"s);
        at = alone ? whole.erase(head_, at - head_).find("\xCF\0\x21"s) : at;
        const auto items = itemsOf(directory.save("b.trk", whole), TRK_OPEN_NO_CHECK);
        for (const size_t second : {size_t{0}, size_t{30}}) {
            for (const auto &[field, mask] : {std::pair(3, 0xFFFFFFFF),
                                              {8, 0xFFFF0000},
                                              {11, 0xFFFF0000},
                                              {14, 0xFFFF0000},
                                              {27, second == 0 ? 0xDF000000 : 0}}) {
                for (size_t bit = 0; bit < 32; ++bit) {
                    Bytes bytes = whole;
                    char &byte = bytes[at + second + static_cast<size_t>(field) + bit / 8];
                    byte = static_cast<char>(byte ^ ((mask << bit & 0x80000000) != 0 ? 0x80 >> bit % 8 : 0));
                    int damages = 0;
                    const auto salvaged = itemsOf(directory.save("b.trk", bytes), TRK_OPEN_SALVAGE, &damages);
                    EXPECT_EQ(damages > 0, bytes != whole) << field << ' ' << bit << ' ' << second;
                    const bool undecided = alone && bit > 0 && (field == 8 || field == 11) && bytes != whole;
                    const auto isScaled = [gaze = field == 8](const Item &item) {
                        return item.code < REC_STARTSAMPLES || (gaze && item.code == REC_SAMPLE);
                    };
                    EXPECT_EQ(undecided ? std::ranges::none_of(salvaged, isScaled) : salvaged == items, true)
                        << field << ' ' << bit << ' ' << second;
                }
            }
        }
    }
}

// Samples alone, whose blocks have one start each: a first sample before it, or a block in the one before.
TEST_F(Salvage, SeesWrongStartsOfBlocksOfSamples) {
    const TemporaryDirectory directory;
    for (const int wrong : {0, -2000, 64, 700000}) {
        RecordingWriter writer;
        for (const int block : {0, 1, 2}) {
            const uint32_t start = 1000 + 1500 * static_cast<uint32_t>(block);
            writer.startSamples({.time = start + static_cast<uint32_t>(block == 1 ? wrong : 0),
                                 .gazeDivisor = 10,
                                 .content = 0x0400});
            for (uint32_t i = 0; i < 1000; ++i) {
                writer.sample({.time = start + i,
                               .gaze = EyePositions{{static_cast<int>(i), block}, {}},
                               .timeForm = i == 0 ? TimeForm::Full : TimeForm::Delta});
            }
            writer.endSamples(start + 1000);
        }
        const std::string path = directory.save("a.trk", writer.end().plain());
        int damages = 0;
        const auto salvaged = itemsOf(path, TRK_OPEN_SALVAGE, &damages);
        EXPECT_EQ(damages > 0, wrong != 0) << wrong;
        const auto isWrong = [](const Item &item) {
            return item.code == REC_SAMPLE &&
                   (item.time() - 1000) % 1500 != std::lround(item.sample().gaze_x[0] * 10);
        };
        EXPECT_TRUE(std::ranges::none_of(salvaged, isWrong)) << wrong;
        EXPECT_EQ(salvaged.size(), 3U * 1004) << wrong;
    }
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
                recorder.startBlock({.time = start,
                                     .rate = rate,
                                     .eyes = block == 1 ? LeftEye : BothEyes,
                                     .gazeDivisor = 10 + block,
                                     .velocityDivisor = 10 - block});
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
    trkwriter::writeSession(recorder, {.minutes = 2.0 / 3, .rate = 500});
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
    // A cut costs nothing of what is before it.
    const std::string cut = directory.save("c.trk", bytes.substr(0, bytes.size() - 2000));
    EXPECT_EQ(itemsOf(cut, TRK_OPEN_SALVAGE).size(), itemsOf(cut, TRK_OPEN_TOLERANT).size());
}

} // namespace
