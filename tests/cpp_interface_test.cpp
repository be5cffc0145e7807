// The header of C++: the same items and values as the calls beneath it.
#include "support/scenarios.h"
#include "support/walk.h"
#include "trkapi/trkapi.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using namespace trk_test;

static_assert(!std::is_copy_constructible_v<trkapi::SampleReader>); // it would fill the columns of another one
static_assert(std::is_move_constructible_v<trkapi::SampleReader>);

std::vector<Item> itemsOf(const trkapi::Recording &recording) {
    std::vector<Item> items;
    for (const trkapi::Item &item : recording) {
        items.push_back(itemOf(item.code, item.record));
    }
    return items;
}

} // namespace

TEST(CppInterface, LoopsOverWhatAWalkFetches) {
    const TemporaryDirectory directory;
    const ScenarioOptions scenario{.durationMs = 12000};
    const std::string path = directory.save("a.trk", experiment(scenario).file);
    directory.save("xq_messages.log", messageLogFor(scenario));
    for (const int events : {TRK_EVENTS_ALL, TRK_EVENTS_MESSAGE_LOG}) {
        TRK_OPEN_OPTIONS options;
        trk_default_options(&options);
        options.flags = TRK_OPEN_CHECK_AND_FILL;
        options.events = events;
        _TRKFILE *const handle = trk_open(path.c_str(), &options, nullptr);
        std::vector<Item> expected;
        while (int code = trk_get_next_data(handle)) {
            const ALLF_DATA *const record = trk_get_float_data(handle);
            // A message of the log that pairs the clocks comes in the place of an item of any kind.
            code = record->event.type == REC_MESSAGE && record->event.read_flags == 0 ? REC_MESSAGE : code;
            expected.push_back(itemOf(code, record));
        }
        trk_close_file(handle);

        trkapi::Recording opened(path, {.flags = TRK_OPEN_CHECK_AND_FILL, .events = events});
        const trkapi::Recording recording = std::move(opened);
        const std::vector<Item> items = itemsOf(recording);
        ASSERT_EQ(items.size(), expected.size());
        for (size_t i = 0; i < items.size(); ++i) {
            ASSERT_EQ(items[i], expected[i]) << i << " with events " << events;
        }
        if (events == TRK_EVENTS_ALL) {
            EXPECT_EQ(itemsOf(recording).size(), recording.size()); // again, from the first
        }
    }
}

TEST(CppInterface, TellsItemsFromMessagesOfALog) {
    const TemporaryDirectory directory;
    const ScenarioOptions scenario{.durationMs = 12000};
    const std::string path = directory.save("a.trk", experiment(scenario).file);
    std::string log = messageLogFor(scenario);
    log.replace(log.find("pressed"), 7, 400, 'x'); // more than is delivered of a line
    directory.save("xq_messages.log", log);
    const trkapi::Recording plain(path);
    size_t longest = 0;
    for (const trkapi::Item &item : trkapi::Recording(path, {.events = TRK_EVENTS_MESSAGE_LOG})) {
        longest = std::max(longest, item.text().size());
        EXPECT_EQ(item.text().find('\0'), std::string_view::npos);
    }
    EXPECT_EQ(longest, 260U);

    const trkapi::Recording merged(path, {.events = TRK_EVENTS_MESSAGE_LOG});
    for (uint32_t number = 0; number < plain.size(); number += 500) {
        const trkapi::Item item = merged.at(number);
        const trkapi::Item expected = plain.at(number);
        EXPECT_EQ(itemOf(item.code, item.record), itemOf(expected.code, expected.record)) << number;
    }
    trkapi::BulkWalk walk(merged.handle());
    uint32_t items = 0;
    for (; const std::optional<trkapi::Item> item = walk.next(); ++items) {
        ASSERT_NE(item->record, nullptr) << item->number;
    }
    EXPECT_EQ(items, plain.size());
}

TEST(CppInterface, ReadsColumnsAndTrials) {
    const TemporaryDirectory directory;
    const std::string path = directory.save("a.trk", experiment({.durationMs = 42000}).file);
    trkapi::Recording recording(path);
    const std::vector<trkapi::Trial> trials = recording.trials("TRIALID", "TRIAL OK");
    ASSERT_EQ(trials.size(), 4U);
    EXPECT_EQ(recording.trials().size(), 4U); // blocks: the texts before are gone
    const trkapi::Trial &trial = trials[1];
    EXPECT_EQ(recording.at(trial.first).text(), "TRIALID 2");

    // More rows than one reading holds, and the values of the items.
    trkapi::SampleReader reader(recording.handle(), {TRK_COLUMN_ITEM, TRK_COLUMN_GAZE_X_LEFT}, trial.first,
                                trial.end);
    trkapi::BulkWalk walk(recording.handle(), trial.first, trial.end, trkapi::kSamples);
    size_t rows = 0;
    size_t missing = 0;
    while (reader.next()) {
        EXPECT_EQ(reader.doubles(0).size(), reader.rows());
        EXPECT_TRUE(reader.floats(0).empty());
        for (size_t row = 0; row < reader.rows(); ++row) {
            const std::optional<trkapi::Item> item = walk.next();
            ASSERT_TRUE(item);
            ASSERT_EQ(reader.doubles(0)[row], item->number);
            const float gaze = reader.floats(1)[row];
            missing += std::isnan(gaze) ? 1 : 0;
            ASSERT_EQ(std::isnan(gaze) ? float(MISSING_DATA) : gaze, item->sample()->gaze_x[0]);
        }
        rows += reader.rows();
    }
    EXPECT_FALSE(walk.next());
    EXPECT_GT(rows, 9000U);
    EXPECT_GT(missing, 0U);
    EXPECT_THROW(trkapi::SampleReader(recording.handle(), {0}), trkapi::Error);
}

TEST(CppInterface, TellsWhatFails) {
    const TemporaryDirectory directory;
    const auto none = trkapi::Recording::open(directory.path("none.trk"));
    ASSERT_FALSE(none);
    EXPECT_EQ(none.error().code, TRK_ERROR_FILE);

    const Bytes whole = experiment({.durationMs = 3000}).file;
    const std::string cut = directory.save("cut.trk", whole.substr(0, whole.size() - 2000));
    try {
        trkapi::Recording recording(cut);
        FAIL() << "opened";
    } catch (const trkapi::Error &error) {
        EXPECT_EQ(error.code(), TRK_ERROR_DAMAGED);
        EXPECT_NE(std::string(error.what()).find("cut.trk"), std::string::npos);
    }
    std::string log;
    auto tolerant =
        trkapi::Recording::open(cut, {.flags = TRK_OPEN_TOLERANT, .log = [&log](std::string_view line) {
                                          log += line;
                                          throw std::bad_function_call(); // stays here
                                      }});
    ASSERT_TRUE(tolerant);
    EXPECT_EQ(tolerant->damages().size(), 1U);
    EXPECT_FALSE(log.empty());
    EXPECT_EQ(tolerant->at(tolerant->size()).record, nullptr);
}
