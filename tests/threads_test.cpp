// Different recordings in different threads: each walk is the one that a single thread gets.
#include "support/bulk.h"
#include "support/scenarios.h"
#include "support/walk.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <optional>
#include <thread>
#include <tuple>

namespace {

using namespace trk_test;

using Job = std::pair<std::string, OpenOptions>;
// Items of what opens, number of its trials, and what differs when many are read at a time.
using Walk = std::optional<std::tuple<std::vector<Item>, int, std::string>>;

Walk walk(const Job &job) {
    const Recording recording(job.first, job.second);
    if (!recording) {
        return std::nullopt;
    }
    std::vector<Item> items = recording.walk();
    double x = 0, y = 0; // of a sample or not, the geometry is used
    trk_calculate_ppd(&items.back().record.sample, 0, &x, &y, 1, 1);
    const bool hasLog = job.second.loadEvents == TRK_EVENTS_MESSAGE_LOG; // whose messages are no items
    const std::string difference =
        hasLog ? "" : BulkComparison(recording.handle(), items, true, 300).difference(0, items.size());
    return {{std::move(items), trk_get_trial_count(recording.handle()), difference}};
}

std::vector<Job> saveRecordings(const TemporaryDirectory &directory) {
    constexpr int kFill = TRK_OPEN_CHECK_AND_FILL;
    std::vector<Job> jobs;
    for (const bool compressed : {false, true}) {
        const ScenarioOptions options{.durationMs = 3000, .sampleRate = 500, .compressed = compressed};
        const Bytes whole = experiment(options).file;
        directory.save("xq_messages.log", messageLogFor(options));
        const std::string path = directory.save(compressed ? "zip" : "plain", whole),
                          cut = directory.save(compressed ? "cut zip" : "cut", whole.substr(0, whole.size() / 2));
        jobs.insert(jobs.end(), {{path, {.loadEvents = TRK_EVENTS_MESSAGE_LOG}},
                                 {path, {.flags = kFill}},
                                 {cut, {.flags = kFill | TRK_OPEN_TOLERANT}},
                                 {cut, {.flags = TRK_OPEN_CHECK}}});
    }
    return jobs;
}

void changeSettings(const std::stop_token &stop, const std::string &messageLog) {
    static std::atomic<size_t> characters;
    const TRK_LOG_FUNCTION count = [](const char *text) { characters += std::strlen(text); };
    for (unsigned i = 0; !stop.stop_requested(); ++i) {
        trk_set_log_function(i % 3 == 0 ? nullptr : count);
        trk_set_extra_message_file(i % 2 == 0 ? nullptr : messageLog.c_str()); // the same log under both names
        trk_compute_physical_setup(600, MISSING_DATA, -200, -150, 200, 150, 0, 0, 1919, 1079);
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    trk_set_log_function(nullptr);
    trk_set_extra_message_file(nullptr);
}

TEST(Threads, WalkAsOneThreadDoes) {
    constexpr size_t kThreads = 8, kRounds = 5;
    const TemporaryDirectory directory;
    const std::vector<Job> jobs = saveRecordings(directory);
    testing::internal::CaptureStdout();
    std::vector<Walk> expected;
    std::transform(jobs.begin(), jobs.end(), std::back_inserter(expected), walk);
    std::atomic<size_t> equal = 0;
    {
        const std::jthread settings(changeSettings, directory.path("xq_messages.log"));
        std::vector<std::jthread> threads;
        for (size_t first = 0; first < kThreads; ++first) {
            threads.emplace_back([&, first] {
                for (size_t i = first; i < first + kRounds * jobs.size(); ++i) {
                    equal += walk(jobs[i % jobs.size()]) == expected[i % jobs.size()] ? 1 : 0;
                }
            });
        }
    }
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(equal, kThreads * kRounds * jobs.size());
    for (const Walk &walk : expected) {
        EXPECT_TRUE(!walk || std::get<std::string>(*walk).empty()) << std::get<std::string>(*walk);
    }
    EXPECT_TRUE(std::get<int>(*expected[0]) == 2 && !expected[3]); // the fourth is cut
}

} // namespace
