// Samples of the index, read in batches: one seek, then sequential reading into the sample window.
#pragma once

#include "index/item_index.h"
#include "measures/sample_window.h"
#include "records/record_reader.h"

namespace trk {

// Decodes the event of an item; a body that is cut short counts as unreadable.
[[nodiscard]] bool readEventAt(RecordReader &reader, const Item &item, FEVENT &event);

class BatchReader {
  public:
    // With `replaceMistimed`, a sample whose time is not the one that the index has for it becomes a dummy.
    BatchReader(RecordReader &reader, const ItemIndex &index, SampleWindow &window, bool replaceMistimed)
        : reader_(reader), index_(index), window_(window), replaceMistimed_(replaceMistimed) {}

    // The sample of an item, with enough samples behind it in the window for its velocity, where there are. Null
    // when it cannot be had. Throws "Error reading Sample - type" when a sample on the way cannot be decoded.
    const Sample *sampleAt(ItemNumber number);

  private:
    [[nodiscard]] const Sample *entryAt(int position) const {
        return position >= 0 ? &window_.entry(position) : nullptr;
    }
    void refill(ItemNumber number);
    bool toNextSample(ItemNumber &number, bool stopAtBlockEnd) const;
    bool toNextSampleRecord(const Item &item);
    bool addSample(const Item &item, bool seekFirst);
    bool addDummy(const Item &item);

    RecordReader &reader_;
    const ItemIndex &index_;
    SampleWindow &window_;
    bool replaceMistimed_;
    uint16_t tag_ = 0; // of the sample that the stream stands before
    FEVENT passedEvent_{};
};

} // namespace trk
