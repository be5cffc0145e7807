// Fills the sample queue: one seek, then sequential reading.
#pragma once

#include "index/item_index.h"
#include "measures/sample_queue.h"
#include "records/record_reader.h"

namespace trk {

// Puts the reader before an item: the next record read is the item's.
int resetPosition(RecordReader &reader, const TRKItem &item);

// Decodes an event that the reader stands before; a body that is cut short counts as unreadable.
int readIndexedEvent(RecordReader &reader, EData &event);

class BatchReader final : public SampleRefill {
  public:
    // With `replaceMistimed`, a sample whose time is not the one that the index has for it becomes a dummy.
    BatchReader(RecordReader &reader, const ItemIndex &index, SampleQueue &queue, bool replaceMistimed)
        : reader_(reader), index_(index), queue_(queue), replaceMistimed_(replaceMistimed) {}

    // Adds the samples from the item at `index` on to the queue until it is full or the recording block or the
    // index ends. Returns 0. Throws "Error reading Sample - type" when a sample cannot be decoded.
    int batchReadSample(std::size_t index) override;

  private:
    bool toNextSample(std::size_t &index, bool stopAtBlockEnd) const;
    bool toNextSampleRecord(const TRKItem &item);
    bool addSample(const TRKItem &item, bool seekFirst);
    bool addDummy(const TRKItem &item);

    RecordReader &reader_;
    const ItemIndex &index_;
    SampleQueue &queue_;
    bool replaceMistimed_;
    EData passedEvent_;
};

} // namespace trk
