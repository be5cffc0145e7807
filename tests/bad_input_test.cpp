// Damaged recordings: whatever opens is walked to its end with every fetch.
#include "support/scenarios.h"
#include "support/walk.h"

#include <gtest/gtest.h>

namespace {

using namespace trk_test;

// Drops the line that every open prints.
class BadInput : public testing::Test {
  protected:
    void SetUp() override { testing::internal::CaptureStdout(); }
    void TearDown() override { testing::internal::GetCapturedStdout(); }
};

// The items of what opens, nothing of what does not.
std::optional<std::vector<Item>> itemsOf(const Bytes &bytes, int flags) {
    const LogCapture log;
    const Recording recording = openBytes(bytes, {.flags = flags});
    EXPECT_EQ(recording.error(), recording ? 0 : -1);
    return recording ? std::optional(recording.walk()) : std::nullopt;
}

TEST_F(BadInput, CutAnywhere) {
    const RecordingWriter rich = richRecording();
    for (const int check : {TRK_OPEN_NO_CHECK, TRK_OPEN_CHECK, TRK_OPEN_CHECK_AND_FILL}) {
        const auto whole = itemsOf(rich.plain(), check);
        for (const bool compressed : {false, true}) {
            const Bytes bytes = compressed ? rich.compressed() : rich.plain();
            const size_t head = rich.head(compressed ? kMagicCompressed : kMagicCombfile).size();
            const size_t mayMiss = compressed ? 8 : 0; // the end of a zlib stream holds nothing of the recording
            for (size_t size = 0; size <= bytes.size(); ++size) {
                const Bytes cut = bytes.substr(0, size);
                EXPECT_EQ(itemsOf(cut, check | TRK_OPEN_TOLERANT).has_value(), size >= head) << size;
                if (size % 3 == static_cast<size_t>(check) || size == bytes.size()) {
                    const auto strict = itemsOf(cut, check);
                    EXPECT_TRUE(strict ? strict == whole && size + mayMiss >= bytes.size() : size < bytes.size())
                        << size;
                }
            }
        }
    }
}

TEST_F(BadInput, FlippedBits) {
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

// A tolerant open keeps just the items before the cut.
TEST_F(BadInput, CutRecordingsKeepWhatCameBefore) {
    RecordingWriter writer;
    writer.startBlock({.time = 1000, .rate = 500});
    std::vector<size_t> ends; // of the records after the start of the block
    for (uint32_t time = 1002; time < 1040; time += 2) {
        ends.push_back(writer.sample(time, {960, 540}).records().size());
        ends.push_back(writer.message(time + 1, std::to_string(time)).records().size());
    }
    const auto whole = itemsOf(RecordingWriter(writer).end().plain(), 0).value();
    constexpr size_t kStart = 3; // recording block, start of samples, start of events
    ASSERT_EQ(whole.size(), kStart + ends.size());
    const size_t head = writer.head(kMagicCombfile).size();
    for (size_t kept = 0, size = ends[0] - 1; size < ends.back(); ++size) {
        kept += size == ends[kept] ? 1 : 0;
        const auto items = itemsOf(writer.plain().substr(0, head + size), TRK_OPEN_TOLERANT).value();
        ASSERT_EQ(items.size(), kStart + kept) << size;
        for (size_t i = 0; i < items.size(); ++i) { // code, time and message
            EXPECT_EQ(testing::PrintToString(items[i]), testing::PrintToString(whole[i]));
        }
    }
}

} // namespace
