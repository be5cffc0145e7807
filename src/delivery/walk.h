// A walk over the items: what it reads with, and what it has come to know on the way.
#pragma once

#include "delivery/batch_reader.h"
#include "delivery/delivery.h"
#include "delivery/item_reader.h"
#include "delivery/time_adjustment.h"
#include "measures/sample_window.h"
#include "measures/velocity.h"

namespace trk {

// What all walks over a recording have in common.
struct WalkSource {
    InputStream &stream;
    const ItemIndex &index;
    DecodingState state; // before the first item
    const CONFIG *config;
    uint16_t fileRevision;
    int trackerModel;
    bool strict;
    bool cutMessageOffsets;
    TimeAdjustment times; // as it is before the first item
};

// The caller's, or one beside it.
class Walk {
  public:
    explicit Walk(const WalkSource &source)
        : times_(source.times), reader_(source.stream, source.fileRevision, source.cutMessageOffsets),
          batches_(reader_, source.index, window_, source.strict), velocity_(window_, source.trackerModel),
          items_(reader_, source.index, batches_, velocity_, source.config),
          delivery_(items_, source.index, source.strict) {
        reader_.setState(source.state);
    }

    [[nodiscard]] Delivery &delivery() { return delivery_; }
    [[nodiscard]] TimeAdjustment &times() { return times_; }
    [[nodiscard]] const DecodingState &state() const { return reader_.state(); }

    // Steps to the next item and fetches it, with its times adjusted; null when it cannot be read.
    ALLF_DATA *next() {
        delivery_.step();
        ALLF_DATA *const record = delivery_.fetch();
        if (record != nullptr) {
            times_.adjust(delivery_.currentItem(), *record);
        }
        return record;
    }

  private:
    TimeAdjustment times_;
    SampleWindow window_;
    RecordReader reader_;
    BatchReader batches_;
    VelocityComputer velocity_;
    ItemReader items_;
    Delivery delivery_;
};

} // namespace trk
