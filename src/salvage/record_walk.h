// Walks over the records of a stream from one that makes sense to the next, over what does not.
#pragma once

#include "base/time_key.h"
#include "io/byte_view.h"
#include "salvage/record_parser.h"
#include "salvage/sample_clock.h"
#include "salvage/start_reader.h"
#include "salvage/survey.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

namespace trk {

// The recording block that records are judged by.
struct BlockContext {
    bool samplesOpen = false;
    bool eventsOpen = false;
    bool timed = false;          // `reference` is known
    unsigned startedBy = 0;      // code of the last record when it was a start, else 0
    bool settled = false;        // and one whose time and rate its twin must have too
    uint16_t content = 0;        // flags of its samples
    uint16_t samplesDivisor = 0; // of gaze
    double rate = 250;           // samples per second
    uint32_t statedRate = 0;     // the same as the start states it, 16.16 fixed point; 0 when it does not
    uint32_t sampleTime = 0;     // of the last sample, as a reader has it who reads straight on, ms
    uint32_t reference = 0;      // about the time of the last record, ms
};

// Samples that follow each other without a doubt. Between runs the beat breaks, or records are missing.
struct SampleRun {
    int64_t begin = 0;     // offset of its first sample
    int64_t end = 0;       // behind its last one
    uint64_t firstKey = 0; // as a reader would have it who reads straight on
    uint64_t lastKey = 0;
    int64_t lostBytes = 0; // before it, when records are missing there
    uint32_t sampleSize = 0;
    uint32_t block = 0;      // number of its recording block
    bool isBroken = false;   // records are missing before it
    bool afterBreak = false; // that, or before another run of its block
    bool firstOfBlock = false;
    bool fullTime = false; // the first sample has its time in full
    SampleClock clock;     // at its end
};

// An event among samples.
struct SeenEvent {
    static constexpr uint32_t kNoRun = 0xFFFFFFFF;

    int64_t offset = 0;
    uint32_t length = 0;
    uint32_t time = 0; // the latest that it names
    uint32_t start = 0;
    uint32_t fields = 0;
    uint32_t run = kNoRun; // of the sample beside it
    uint64_t sampleKey = 0;
    uint8_t code = 0;
    uint8_t eye = 0;
    bool hasStart = false;
};

// A start of samples or of events.
struct SeenStart {
    int64_t offset = 0;
    uint32_t length = 0;
    uint32_t block = 0; // number of the block of samples in which, or before which, it stands
    unsigned code = 0;
    // As it states them; 0 for what it does not.
    uint32_t time = 0;
    uint32_t rate = 0; // 16.16 fixed point
    uint16_t gazeDivisor = 0;
    uint16_t velocityDivisor = 0;
    uint16_t content = 0;
    // As what stands behind it shows them.
    uint32_t rateShown = 0;
    uint16_t contentShown = 0;
    uint32_t reference = 0; // time of the record before, ms
};

class RecordWalk {
  public:
    RecordWalk(InputStream &stream, const SurveyOptions &options)
        : view_(stream), starts_(view_), options_(options) {}

    void run();

    [[nodiscard]] bool ratesAreFixed() const { return options_.fileRevision == 0; }
    // A record that the walk has taken, as it stands.
    [[nodiscard]] ParsedRecord recordAt(int64_t offset) { return parseRecord(view_.at(offset, kLongestRecord)); }
    [[nodiscard]] std::span<const uint8_t> bytesAt(int64_t offset, std::size_t count) {
        return view_.at(offset, count).first(count);
    }

    // What it found. Cuts are stretches to be left out, in order; some damages have none.
    struct Cut {
        int64_t begin;
        int64_t end;
    };
    std::vector<Damage> damages;
    std::vector<Cut> cuts;
    std::vector<SampleRun> runs;
    std::vector<SeenEvent> events;
    std::vector<SeenStart> starts;
    int64_t end = 0;           // of the stream
    bool blocksDiffer = false; // in what their samples are decoded by

  private:
    enum class Verdict { Sound, Implausible, NoRecord };

    // What taking a record changes, to be able to take it back.
    struct State {
        BlockContext block;
        uint64_t lastKey = 0;
        uint32_t blocks = 0;
        std::size_t runs = 0;
        std::optional<SampleRun> lastRun;
        std::size_t events = 0;
        std::size_t starts = 0;
        std::size_t firstWaiting = 0; // event that waits for its sample
    };

    [[nodiscard]] ParsedRecord settledAt(int64_t offset, const BlockContext &block);
    [[nodiscard]] const LostRange *lostIn(int64_t begin, int64_t until) const;
    [[nodiscard]] bool tearsAt(int64_t begin, int64_t until) const;
    static bool boundaryFits(const ParsedRecord &record, const BlockContext &block);
    static Verdict judge(const ParsedRecord &record, const BlockContext &block);
    bool makesSense(int64_t offset, BlockContext block, bool afterLoss);
    [[nodiscard]] bool isKnownForm(const ParsedRecord &record) const;
    static int beliefIn(const ParsedRecord &record, const BlockContext &block, bool first);
    [[nodiscard]] int64_t endOfStream(int64_t from);
    void follow(const ParsedRecord &record, BlockContext &block) const;
    void startBlock(const ParsedRecord &record, BlockContext &block) const;
    void take(int64_t offset, const ParsedRecord &record);
    void takeSample(int64_t offset, const ParsedRecord &record);
    void takeEvent(int64_t offset, const ParsedRecord &record);
    void noteStart(int64_t offset);
    void checkBlock(int64_t offset, const ParsedRecord &record);
    void takeBack();
    bool passOver(int64_t offset, const ParsedRecord &record);
    std::optional<int64_t> nextSense(int64_t from);
    bool meetEndMark(int64_t offset);
    void report(DamageKind kind, int64_t begin, int64_t until, std::string text);
    void finish();

    ByteView view_;
    StartReader starts_;
    SurveyOptions options_;
    int64_t at_ = 0;
    State state_;
    std::optional<State> before_; // the last record was taken
    int64_t lastOffset_ = 0;      // of the record taken last
    bool lastIsSettled_ = false;  // its form is one seen before: no byte of it is missing
    int64_t lostBytes_ = 0;       // since the last sample, when records are missing
    bool lost_ = false;
    uint32_t lastSampleSize_ = 0;
    std::vector<uint32_t> waiting_;                // events whose next sample has not come yet
    std::optional<BlockContext> firstBlock_;       // of samples
    std::unordered_map<uint64_t, uint32_t> forms_; // of events, by code and fields
};

} // namespace trk
