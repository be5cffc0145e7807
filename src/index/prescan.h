// The one pass over the record stream that builds the item index.
#pragma once

#include "index/block_pairing.h"
#include "index/gap_filler.h"
#include "index/item_index.h"
#include "records/record_reader.h"

#include <cstddef>
#include <cstdint>
#include <map>

namespace trk {

// Bounds far beyond any recording, so that a small hostile file cannot take all memory. Reaching one is a failure
// of the scan.
inline constexpr std::size_t kMostItems = std::size_t{1} << 28; // 37 hours at 2000 samples per second
inline constexpr std::size_t kMostFilledSamples = 20'000'000;   // close to three hours lost at that rate

struct PrescanOptions {
    bool tolerant = false; // a read failure ends the scan as the end of the file would
    bool fillGaps = false;
    bool loadEvents = true; // else only the starts and ends of recording blocks
    bool loadSamples = true;
    std::size_t mostItems = kMostItems;
    std::size_t mostFilledSamples = kMostFilledSamples;
};

// Gaps in the samples that were filled, by the number of samples.
using FilledGaps = std::map<uint32_t, uint32_t>;

// What the scan learned besides the index.
struct PrescanFacts {
    static constexpr uint32_t kInputEvents = 1;  // an input event was indexed
    static constexpr uint32_t kSampleInputs = 2; // some sample carries an input value

    uint32_t firstTime = 0; // of the first record
    uint32_t lastTime = 0;  // the largest of a sample or event
    uint32_t inputDataAvailability = 0;
    FilledGaps filledGaps{};
    bool passedEndMark = false; // records behind an end mark were indexed
};

// Reads the records from the stream's position to the end of the record stream into the index and sorts it.
// Throws a TRKException when the stream breaks off or cannot be decoded, unless the scan is tolerant.
class Prescan {
  public:
    Prescan(RecordReader &reader, ItemIndex &index, const PrescanOptions &options)
        : reader_(reader), index_(index), options_(options), blocks_(index),
          totalBytes_(reader.stream().sourceSize()) {}

    PrescanFacts run();

  private:
    bool scanRecord();
    bool scanSample();
    bool scanEvent();
    template <class Decode> bool readBody(Decode decode);
    void seeTime(uint32_t first, uint32_t last);
    void indexSample();
    void fillGap(uint64_t key);
    void indexEvent();
    void startBlock();
    void endBlock();
    void withdrawExtension();
    [[nodiscard]] bool lacksTime() const;
    [[nodiscard]] bool blockIsLoaded() const;
    [[nodiscard]] unsigned eyeField() const;
    void appendEvent(uint32_t time, unsigned eye);
    void append(const Item &item);
    void makeRoom();

    RecordReader &reader_;
    ItemIndex &index_;
    PrescanOptions options_;
    BlockPairing blocks_;
    GapFiller gaps_;
    PrescanFacts facts_;
    int64_t totalBytes_;

    bool anyRecord_ = false;
    std::size_t filledSamples_ = 0;
    RecordHead record_; // the one at hand
    Sample sample_{};   // the last sample read, indexed or not
    FEVENT event_{};
};

} // namespace trk
