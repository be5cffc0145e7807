// Decodes one indexed item on demand.
#pragma once

#include "delivery/batch_reader.h"
#include "index/item_index.h"
#include "measures/velocity.h"
#include "records/record_reader.h"

namespace trk {

// What a caller's configuration says; null says nothing.
[[nodiscard]] inline FixedResolution fixedResolutionOf(const CONFIG *config) {
    return config == nullptr ? FixedResolution{}
                             : FixedResolution{config->velocity_param_1, config->velocity_param_2};
}

class ItemReader {
  public:
    // `config` is the caller's, may be null, and is read at every sample.
    ItemReader(RecordReader &reader, const ItemIndex &index, BatchReader &batches, VelocityComputer &velocity,
               const CONFIG *config)
        : reader_(reader), index_(index), batches_(batches), velocity_(velocity), config_(config) {}

    // Decodes an item into `out`. `block` is the recording block in force, or null. Returns false for an item of
    // unknown type and a sample that cannot be had. Throws when a record cannot be decoded.
    [[nodiscard]] bool readItem(ItemNumber number, const FRECORDING *block, ALLF_DATA &out);

  private:
    bool readSample(ItemNumber number, const FRECORDING *block, FSAMPLE_REC &out);

    RecordReader &reader_;
    const ItemIndex &index_;
    BatchReader &batches_;
    VelocityComputer &velocity_;
    const CONFIG *config_;
    FEVENT event_{}; // a record that cannot be decoded leaves the caller's as it was
};

} // namespace trk
