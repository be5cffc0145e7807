// Damaged recordings, sources that fail, resources that run out, bounds; many recordings in one process, and a
// very large one. Whatever opens is walked to its end with every fetch.
#include "api/open_recording.h"
#include "base/exception.h"
#include "io/inflate.h"
#include "support/memory_stream.h"
#include "support/scenarios.h"
#include "support/walk.h"

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using namespace trk_test;
using Items = std::vector<Item>;

// The items of what opens, nothing of what does not.
std::optional<Items> itemsOf(const Bytes &bytes, int flags, const MemoryStream::Plan &plan = {}) {
    const LogCapture log;
    trk::OpenRequest request("", flags, TRK_EVENTS_ALL, 1, nullptr);
    request.openStream = [&](const char *) { return std::make_unique<MemoryStream>(bytes, plan); };
    try {
        const auto opened = trk::openRecording(request);
        trk::TRKFile &file = *opened;
        Items items;
        while (const int code = file.step()) {
            items.push_back(itemOf(code, file.fetch()));
        }
        EXPECT_EQ(items.size(), file.elementCount());
        return items;
    } catch (const trk::TRKException &) {
        return std::nullopt;
    }
}

// Velocities may differ: beside a fault, a sample may lack the neighbours that they are computed from.
bool agree(const Item &item, const Item &whole) {
    return item.code == whole.code && item.fetched == whole.fetched && item.time() == whole.time() &&
           item.message == whole.message &&
           (item.code != REC_SAMPLE || item.sample().gaze_x[0] == whole.sample().gaze_x[0]);
}

bool isPartOf(const Items &part, const Items &whole) {
    size_t found = 0;
    for (const Item &item : whole) {
        found += found < part.size() && agree(part[found], item) ? 1 : 0;
    }
    return found == part.size();
}

// A tolerant open keeps items of the whole in their order, and never fewer when the cut comes later.
TEST(BadInput, CutAnywhere) {
    const RecordingWriter rich = richRecording();
    for (const int check : {TRK_OPEN_NO_CHECK, TRK_OPEN_CHECK, TRK_OPEN_CHECK_AND_FILL}) {
        const Items whole = itemsOf(rich.plain(), check).value();
        for (const bool compressed : {false, true}) {
            const Bytes bytes = compressed ? rich.compressed() : rich.plain();
            const size_t head = rich.head(compressed ? kMagicCompressed : kMagicCombfile).size();
            const size_t mayMiss = compressed ? 8 : 0; // the end of a zlib stream holds nothing of the recording
            for (size_t size = 0, kept = 0; size <= bytes.size(); ++size) {
                SCOPED_TRACE(size);
                const Bytes cut = bytes.substr(0, size);
                const auto tolerant = itemsOf(cut, check | TRK_OPEN_TOLERANT);
                EXPECT_EQ(tolerant.has_value(), size >= head);
                if (tolerant && check == TRK_OPEN_NO_CHECK) {
                    EXPECT_TRUE(isPartOf(*tolerant, whole));
                    EXPECT_GE(tolerant->size(), std::exchange(kept, tolerant->size()));
                    EXPECT_TRUE(kept + 1 == whole.size() || size + 2 < bytes.size()); // one start has no time
                }
                if (size % 3 == static_cast<size_t>(check) || size == bytes.size()) {
                    const auto strict = itemsOf(cut, check);
                    EXPECT_TRUE(strict ? strict == whole && size + mayMiss >= bytes.size() : size < bytes.size());
                }
            }
        }
    }
}

TEST(BadInput, FlippedBits) {
    const RecordingWriter rich = richRecording();
    for (const Bytes &whole : {rich.plain(), rich.compressed()}) {
        for (size_t i = 0; i < whole.size(); ++i) {
            for (const int pattern : {i % 2 == 0 ? 0x01 : 0xFF, i % 2 == 0 ? 0x80 : 0x20}) {
                Bytes damaged = whole;
                damaged[i] = static_cast<char>(damaged[i] ^ pattern);
                itemsOf(damaged, TRK_OPEN_CHECK_AND_FILL | (pattern == 0xFF ? 0 : TRK_OPEN_TOLERANT));
            }
        }
    }
}

TEST(Faults, SourceFailsAtAnyRead) {
    constexpr size_t kWindow = 16;
    const RecordingWriter rich = richRecording();
    const Bytes bytes = rich.plain(), zip = rich.compressed();
    const Items whole = itemsOf(bytes, 0, {.windowSize = kWindow}).value();
    EXPECT_EQ(itemsOf(bytes, 0, {.windowSize = kWindow, .longestRead = 3}), whole);
    for (size_t at = 0; at < 2 * bytes.size(); at += kWindow) {
        for (const int kind : {0, 1, 2, 3}) { // an error or the end, from there on or once
            SCOPED_TRACE(testing::Message() << at << ' ' << kind);
            const MemoryStream::Plan plan{.windowSize = kWindow,
                                          .faultAtRead = at / kWindow,
                                          .fault = kind < 2 ? -1 : 0,
                                          .lasts = kind % 2 == 0};
            const auto strict = itemsOf(bytes, 0, plan), tolerant = itemsOf(bytes, TRK_OPEN_TOLERANT, plan);
            ASSERT_EQ(strict.has_value(), at >= bytes.size());
            ASSERT_EQ(tolerant.has_value(), at >= rich.head(kMagicCombfile).size());
            if (strict) {
                EXPECT_TRUE(std::ranges::equal(*strict, whole, [](const Item &item, const Item &of) {
                    return item.fetched ? agree(item, of) : item.code == of.code;
                }));
            } else if (tolerant && !plan.lasts) {
                EXPECT_EQ(tolerant, itemsOf(bytes.substr(0, at), TRK_OPEN_TOLERANT, {}));
            }
            const auto inflated = itemsOf(zip, 0, plan); // the checksum at its end may be lost
            EXPECT_TRUE(inflated ? *inflated == whole && at + 8 >= zip.size() : at < zip.size() + kWindow);
        }
    }
}

Recording openUnder(__rlimit_resource resource, size_t limit, const std::string &path,
                    const OpenOptions &options) {
    rlimit saved{};
    getrlimit(resource, &saved);
    const rlimit limited{limit, saved.rlim_max};
    setrlimit(resource, &limited);
    Recording recording(path, options);
    setrlimit(resource, &saved);
    return recording;
}

TEST(Faults, DescriptorsRunOut) {
    const TemporaryDirectory directory;
    const std::string path = directory.save("compressed", richRecording().compressed());
    directory.save("xq_messages.log", messageLogFor());
    // The undefined-behaviour sanitizer needs descriptors when it first meets a type.
    ASSERT_TRUE(Recording(path, {.loadEvents = TRK_EVENTS_MESSAGE_LOG}));
    ASSERT_FALSE(Recording(directory.path("missing")));
    const int lowestFree = dup(STDIN_FILENO);
    close(lowestFree);
    // By the number of free descriptors: for the log, which is opened first, the recording, the temporary file.
    const std::string notOpened = "File Could not be opened!\n";
    const std::vector<std::string> failures{notOpened, notOpened, "Failed to create temp file \n\n", ""};
    for (size_t free = 0; free < failures.size(); ++free) {
        const LogCapture log;
        const ptrdiff_t descriptors = openDescriptors();
        const auto limit = static_cast<size_t>(lowestFree) + free;
        const Recording recording = openUnder(RLIMIT_NOFILE, limit, path, {.loadEvents = TRK_EVENTS_MESSAGE_LOG});
        ASSERT_EQ(recording.error(), free < 3 ? -1 : 0);
        EXPECT_TRUE(recording || LogCapture::take().ends_with(failures[free]));
        EXPECT_EQ(openDescriptors(), descriptors + (recording ? 2 : 0));
    }
}

TEST(Faults, TemporaryFileFillsUp) {
    const Bytes plain = experiment({.durationMs = 3000, .sampleRate = 250}).file;
    const Bytes compressed = experiment({.durationMs = 3000, .sampleRate = 250, .compressed = true}).file;
    const size_t head = plain.find(kPreambleEnd) + kPreambleEnd.size();
    const TemporaryDirectory directory;
    const std::string path = directory.save("compressed", compressed);
    auto *const previous = std::signal(SIGXFSZ, SIG_IGN);
    for (size_t size = 0; size < plain.size() - head; size += 1777) {
        const LogCapture log;
        EXPECT_FALSE(openUnder(RLIMIT_FSIZE, size, path, {})) << size;
        const Recording full = openUnder(RLIMIT_FSIZE, size, path, {.flags = TRK_OPEN_TOLERANT});
        const Recording cut = openBytes(plain.substr(0, head + size), {.flags = TRK_OPEN_TOLERANT});
        ASSERT_TRUE(full) << size;
        EXPECT_EQ(full.walk(), cut.walk()) << size;
    }
    std::signal(SIGXFSZ, previous);
}

TEST(Faults, BoundsEndTheScan) {
    const LogCapture log;
    // Three items a round, that stop at a start; four, that stop at an end.
    for (const auto &[last, most] :
         {std::pair(RecordingWriter().sample(1).records(), 51U), {endEvents(1).bytes(), 50U}}) {
        Bytes records;
        for (uint32_t time = 0; time < 100; ++time) {
            records += startEvents({.time = 10000 * time}).bytes() + last;
        }
        for (const bool tolerant : {false, true}) {
            MemoryStream stream(records);
            trk::RecordReader reader(stream, 5, false);
            trk::ItemIndex index;
            std::string failure;
            try {
                trk::Prescan(reader, index, {.tolerant = tolerant, .mostItems = most}).run();
            } catch (const trk::TRKException &exception) {
                failure = exception.text();
            }
            EXPECT_EQ(failure, tolerant ? "" : "Too many items");
            EXPECT_EQ(index.size(), most);
        }
    }
    const Bytes inflating = deflated(Bytes(100000, '\0'));
    for (const int64_t largest : {100000, 99999}) {
        MemoryStream source(inflating);
        trk::InflatedData data(1 << 20, [] { return trk::FilePointer(std::tmpfile()); });
        EXPECT_EQ(inflateTo(data, source, {.largest = largest}).end,
                  largest == 100000 ? trk::InflationEnd::Done : trk::InflationEnd::TooLarge);
    }
}

// The library's own bound: 20 kB that ask for 29 million dummies.
TEST(Faults, SmallFileCannotTakeAllMemory) {
    RecordingWriter writer;
    writer.startBlock({.time = 999}).sample(999).sample(1000).sample(1001);
    for (uint32_t gap = 1; gap <= 2900; ++gap) {
        writer.sample(1001 + 10000 * gap);
    }
    const LogCapture log;
    EXPECT_FALSE(openBytes(writer.end().plain(), {.flags = TRK_OPEN_CHECK_AND_FILL}));
    EXPECT_TRUE(LogCapture::take().ends_with("Too many missing samples\n"));
    const Recording kept = openBytes(writer.plain(), {.flags = TRK_OPEN_CHECK_AND_FILL | TRK_OPEN_TOLERANT});
    EXPECT_EQ(trk_get_element_count(kept.handle()), 3 + 3 + 2000U * 10000U);
}

double residentMegabytes() {
    double pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return pages * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1e6;
}

TEST(Many, OpensAndClosesLeaveNothing) {
    constexpr int kRounds = 4000, kWarmUp = kRounds / 2;
    const TemporaryDirectory directory;
    const RecordingWriter rich = richRecording();
    const std::vector<std::string> paths{directory.save("good", rich.plain()),
                                         directory.save("compressed", rich.compressed()),
                                         directory.save("cut", rich.plain().substr(0, 1000)),
                                         directory.save("bad", "no recording"), directory.path("missing")};
    const ptrdiff_t before = openDescriptors();
    double resident = 0;
    size_t inUse = 0; // bytes; the address sanitizer does not tell
    int opened = 0;
    testing::internal::CaptureStdout();
    for (int round = 0; round < kRounds; ++round) {
        const LogCapture log;
        for (const std::string &path : paths) {
            const Recording recording(path, {.flags = TRK_OPEN_CHECK_AND_FILL});
            opened += recording && recording.fetch(recording.step()).fetched ? 1 : 0;
        }
        if (round == kWarmUp) {
            resident = residentMegabytes();
            inUse = mallinfo2().uordblks;
        }
    }
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(opened, 2 * kRounds);
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_LT(mallinfo2().uordblks, inUse + 1000);
    EXPECT_LT(residentMegabytes(), resident + 50); // what the address sanitizer keeps grows a little
}

// A message of 498 bytes that begins with its time each millisecond from 1000 on, and a sample before every
// thousandth. Message 8,420,000 or so is the first behind 4 GiB.
constexpr uint32_t kFirst = 1000, kEnd = kFirst + 8600000, kSampleEvery = 1000;

std::string textAt(uint32_t time) { return std::to_string(time).append(490, 'x'); }

void saveLargeRecording(const std::string &path) {
    std::ofstream file(path, std::ios::binary);
    file << RecordingWriter().startBlock({.time = kFirst}).plain();
    for (uint32_t time = kFirst; time < kEnd; time += kSampleEvery) {
        RecordingWriter piece;
        piece.sample(time, {static_cast<int>(time / kSampleEvery), 540});
        for (uint32_t i = 0; i < kSampleEvery; ++i) {
            piece.message(time + i, textAt(time + i));
        }
        file << piece.records();
    }
    file << RecordingWriter().end().records();
}

TEST(Large, RecordingBeyondFourGibibytes) {
    if (std::getenv("TRKAPI_LARGE") == nullptr) {
        GTEST_SKIP() << "takes gigabytes of disk: scripts/test --large";
    }
    const TemporaryDirectory directory;
    const std::string path = directory.path("large.trk");
    saveLargeRecording(path);
    ASSERT_GT(std::filesystem::file_size(path), uint64_t{1} << 32);
    const double resident = residentMegabytes();
    const Recording recording(path);
    const uint32_t count = trk_get_element_count(recording.handle());
    EXPECT_EQ(count, 3 + (kEnd - kFirst) + (kEnd - kFirst) / kSampleEvery);
    EXPECT_NEAR(residentMegabytes() - resident, 24e-6 * count, 4);

    uint32_t time = kFirst;
    while (const int code = recording.step()) {
        if (code == REC_MESSAGE && (time % 9973 == 0 || time + 2000 > kEnd)) {
            ASSERT_EQ(recording.fetch(code).message, textAt(time));
        }
        time += code == REC_MESSAGE ? 1 : 0;
    }
    EXPECT_EQ(time, kEnd);
    for (const uint32_t number : {kEnd / kSampleEvery - 1, kFirst / kSampleEvery + 1, kEnd / kSampleEvery - 2}) {
        const ALLF_DATA *const found = trk_get_sample_close_to_time(recording.handle(), number * kSampleEvery);
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(found->sample.gaze_x[0], static_cast<float>(number));
    }
}

} // namespace
