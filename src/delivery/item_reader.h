// Decodes one indexed item on demand.
#pragma once

#include "delivery/batch_reader.h"
#include "index/item_index.h"
#include "measures/sample_queue.h"
#include "measures/velocity.h"
#include "records/record_reader.h"

namespace trk {

class ItemReader {
  public:
    // `config` is the caller's, may be null, and is read at every sample.
    ItemReader(RecordReader &reader, const ItemIndex &index, SampleQueue &queue, SampleRefill &refill,
               VelocityComputer &velocity, const CONFIG *config)
        : reader_(reader), index_(index), queue_(queue), refill_(refill), velocity_(velocity), config_(config) {}

    // Decodes the item at `index` into `out`. `block` is the recording block in force, or null. Returns 0, or -1
    // for an item of unknown type and a sample that cannot be had. Throws when a record cannot be decoded.
    int readItem(std::size_t index, const FRECORDING *block, ALLF_DATA &out);

  private:
    void readEvent(const TRKItem &item, FEVENT &out);
    int readSample(std::size_t index, const FRECORDING *block, FSAMPLE_REC &out);

    RecordReader &reader_;
    const ItemIndex &index_;
    SampleQueue &queue_;
    SampleRefill &refill_;
    VelocityComputer &velocity_;
    const CONFIG *config_;
    EData event_;
};

} // namespace trk
