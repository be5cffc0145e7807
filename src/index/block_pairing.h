// Joins the samples block and the events block that start, or end, together into one recording block.
#pragma once

#include "index/item_index.h"
#include "records/decoding_state.h"
#include "trkapi/trkapi.h"

#include <cstdint>

namespace trk {

class BlockPairing {
  public:
    explicit BlockPairing(ItemIndex &index) : index_(index) {}

    // Take the start (end) of a samples or events block: makes a recording block of it, or joins it with a
    // pending one of the other kind.
    void start(const FEVENT &event, const DecodingState &state);
    void end(const FEVENT &event, const DecodingState &state);

  private:
    // The last record of each kind that has not found its partner yet; owned by the index.
    struct Pending {
        FRECORDING *samples = nullptr;
        FRECORDING *events = nullptr;
    };

    void joinOrAppend(Pending &pending, const FRECORDING &recording);

    ItemIndex &index_;
    Pending pendingStart_;
    Pending pendingEnd_;
};

} // namespace trk
