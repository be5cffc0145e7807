// Memory that runs out, the memory that an open recording takes, and memory that ends where the input does.
#include "api/open_recording.h"
#include "support/memory_stream.h"
#include "support/scenarios.h"
#include "support/walk.h"

#include <array>
#include <gtest/gtest.h>
#include <malloc.h>
#include <new>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

size_t live = 0, peak = 0; // bytes
size_t countdown = 0;      // allocations until one fails; 0: none does
bool failsForGood = false, failed = false;

// The next block of exactly this size, if not 0, ends where an unreadable page begins.
size_t guardedSize = 0;
void *guarded = nullptr; // that block
std::byte *guardPage = nullptr;

} // namespace

// NOLINTBEGIN(cppcoreguidelines-no-malloc)
void *operator new(size_t size, const std::nothrow_t & /*tag*/) noexcept {
    if (size != 0 && size == guardedSize) {
        guardedSize = 0;
        return guarded = guardPage - size;
    }
    if (countdown > 0 && --countdown == 0) {
        countdown = failsForGood ? 1 : 0;
        failed = true;
        return nullptr;
    }
    void *const block = std::malloc(std::max<size_t>(size, 1));
    live += malloc_usable_size(block);
    peak = std::max(peak, live);
    return block;
}

void *operator new(size_t size) {
    void *const block = operator new(size, std::nothrow);
    return block != nullptr ? block : throw std::bad_alloc();
}

void operator delete(void *block) noexcept {
    if (block != guarded || block == nullptr) {
        live -= malloc_usable_size(block);
        std::free(block);
    }
}
// NOLINTEND(cppcoreguidelines-no-malloc)

void operator delete(void *block, size_t /*size*/) noexcept { operator delete(block); }

namespace {

using namespace trk_test;

// Makes every call that a recording can be used with; none throws.
void useAll(_TRKFILE *handle) {
    float point[2];
    int pair[2];
    double ppd = 0;
    char text[20] = "", mark[] = "TRIAL";
    BOOKMARK bookmark{};
    TRIAL trial{};
    TRK_DAMAGE damage;
    unsigned item = 0;
    while (trk_get_next_data(handle) != 0) {
        if (ALLF_DATA *const record = trk_get_float_data(handle);
            record != nullptr && trk_get_sample_data(handle)) {
            trk_get_uncorrected_pupil_area(handle, &record->sample, 0);
            trk_get_pupil_cr(handle, &record->sample, 1, point);
            trk_get_pupil_dimension(handle, &record->sample, 1, pair);
            trk_get_window_position(handle, &record->sample, pair);
            trk_calculate_ppd(&record->sample, 0, &ppd, &ppd, 1, 1);
        }
    }
    trk_set_trial_identifier(handle, mark, nullptr);
    trk_get_trial_count(handle);
    trk_get_trial_range(handle, 0, &item, &item);
    trk_jump_to_trial(handle, 0);
    trk_get_trial_header(handle, &trial);
    trk_set_bookmark(handle, &bookmark);
    trk_goto_bookmark(handle, &bookmark);
    trk_free_bookmark(handle, &bookmark);
    trk_get_sample_close_to_time(handle, 1002);
    trk_get_preamble_text(handle, text, sizeof(text));
    trk_get_damage(handle, 0, &damage);
    trk_find_time(handle, 1002);
    std::array<float, 40> velocities{};
    std::array<FEVENT, 40> events;
    const TRK_COLUMN column{TRK_COLUMN_GAZE_VEL_X_LEFT, TRK_TYPE_FLOAT, velocities.data(), 0};
    TRK_ERROR error;
    const bool read = trk_read_samples(handle, 0, 100, &column, 1, 40, 0, &error) >= 0 &&
                      trk_read_events(handle, 0, 100, events.data(), 40, nullptr, 0, nullptr, &error) >= 0;
    EXPECT_TRUE(read || error.code == TRK_ERROR_MEMORY) << error.text;
    trk_set_extra_message_file("a name that is too long to be kept without memory");
    trk_set_extra_message_file(nullptr);
}

void useOnce(const std::string &path, bool secondDoor, size_t failAt) {
    TRK_OPEN_OPTIONS options;
    trk_default_options(&options);
    options.flags = TRK_OPEN_CHECK_AND_FILL | TRK_OPEN_SALVAGE;
    options.events = TRK_EVENTS_MESSAGE_LOG;
    TRK_ERROR why{};
    int error = 1;
    countdown = failAt;
    _TRKFILE *const handle = secondDoor
                                 ? trk_open(path.c_str(), &options, &why)
                                 : trk_open_file_ex(path.c_str(), TRK_OPEN_CHECK_AND_FILL | TRK_OPEN_TOLERANT,
                                                    TRK_EVENTS_MESSAGE_LOG, 1, nullptr, &error);
    if (handle != nullptr) {
        useAll(handle);
    } else if (secondDoor) {
        EXPECT_EQ(why.code, TRK_ERROR_MEMORY);
    } else {
        EXPECT_EQ(error, -1);
    }
    countdown = 1; // closing needs no memory
    trk_close_file(handle);
    countdown = 0;
}

TEST(Allocation, FailsAnywhere) {
    const TemporaryDirectory directory;
    const ScenarioOptions small{.durationMs = 3000, .sampleRate = 250};
    directory.save("xq_messages.log", messageLogFor(small));
    const RecordingWriter rich = richRecording();
    trk_set_log_function([](const char * /*text*/) {});
    for (const Bytes &bytes : {experiment(small).file, rich.compressed(), rich.plain().substr(0, 1500)}) {
        const std::string path = directory.save("recording", bytes);
        for (const unsigned way : {0U, 1U, 2U, 3U}) {
            const bool secondDoor = way / 2 != 0;
            useOnce(path, secondDoor, 0);
            const size_t liveBefore = live;
            const ptrdiff_t before = openDescriptors();
            size_t failAt = 0;
            failsForGood = way % 2 != 0;
            do {
                failed = false;
                useOnce(path, secondDoor, ++failAt);
                ASSERT_EQ(live, liveBefore) << failAt;
                ASSERT_EQ(openDescriptors(), before) << failAt;
            } while (failed);
            EXPECT_GT(failAt, 10U);
        }
    }
    trk_set_log_function(nullptr);
}

// A process that may take no more ends by itself, not by being aborted.
TEST(Allocation, AddressSpaceRunsOut) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "sanitizers take address space for themselves";
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
    GTEST_SKIP() << "sanitizers take address space for themselves";
#endif
#endif
    RecordingWriter writer;
    for (int i = 0; i < 2000000; ++i) {
        writer.raw(std::string_view("\x85\1\1\0\0\0\0\0\0", 9));
    }
    const TemporaryDirectory directory;
    const std::string path = directory.save("a.trk", writer.end().plain());
    const auto openWithLittle = [&path] {
        rlimit limit{};
        getrlimit(RLIMIT_AS, &limit);
        std::ifstream status("/proc/self/statm");
        size_t pages = 0;
        status >> pages;
        limit.rlim_cur = pages * static_cast<size_t>(sysconf(_SC_PAGESIZE)) + (16U << 20U);
        setrlimit(RLIMIT_AS, &limit);
        TRK_ERROR error{};
        const _TRKFILE *const handle = trk_open(path.c_str(), nullptr, &error);
        _exit(handle == nullptr && error.code == TRK_ERROR_MEMORY ? 0 : 1);
    };
    EXPECT_EXIT(openWithLittle(), testing::ExitedWithCode(0), "");
}

// A whole experiment, and what takes most for its size.
TEST(Allocation, GoesByItemsAndBytes) {
    constexpr size_t kHandle = 500000; // window, sample queue and all that does not grow
    RecordingWriter blocks;
    for (int i = 0; i < 100000; ++i) {
        blocks.event(EventRecord(REC_STARTEVENTS));
    }
    // Bytes an item, with those in reserve.
    for (const auto &[bytes, perItem] : {std::pair(experiment().file, 36U), {blocks.end().plain(), 76U}}) {
        const TemporaryDirectory directory;
        const std::string path = directory.save("a", bytes);
        const size_t before = peak = live;
        const Recording recording(path, {.flags = TRK_OPEN_CHECK});
        const size_t items = trk_get_element_count(recording.handle());
        EXPECT_GT(items, 100000U);
        EXPECT_LT(live - before, perItem * items + kHandle);
        EXPECT_LT(peak - before, 64 * bytes.size() + kHandle);
    }
}

// Each cut of a recording, flush against the unreadable page.
TEST(Allocation, DecodersKeepToTheInput) {
    constexpr size_t kRoom = 1 << 20;
    void *const room = mmap(nullptr, 2 * kRoom, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    guardPage = static_cast<std::byte *>(room) + kRoom;
    mprotect(guardPage, kRoom, PROT_NONE);
    const LogCapture log;
    const RecordingWriter rich = richRecording();
    for (size_t size = rich.head(kMagicCombfile).size(); size <= rich.plain().size(); ++size) {
        const Bytes bytes = rich.plain().substr(0, size);
        trk::OpenRequest request("", TRK_OPEN_TOLERANT, TRK_EVENTS_ALL, 1, nullptr);
        request.openStream = [&](const char *) {
            guardedSize = size != sizeof(MemoryStream) ? size : 0; // the window, not the stream itself
            return std::make_unique<MemoryStream>(bytes, MemoryStream::Plan{.windowSize = size});
        };
        const auto opened = trk::openRecording(request);
        trk::TRKFile &file = *opened;
        EXPECT_EQ(guardedSize, 0U);
        while (file.step() != 0) {
            file.fetch();
        }
    }
}

} // namespace
