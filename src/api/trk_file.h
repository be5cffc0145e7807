// An open recording: where its parts meet.
#pragma once

#include "delivery/batch_reader.h"
#include "delivery/delivery.h"
#include "delivery/item_reader.h"
#include "delivery/time_adjustment.h"
#include "index/item_index.h"
#include "index/prescan.h"
#include "io/container.h"
#include "measures/sample_queue.h"
#include "measures/velocity.h"
#include "records/record_reader.h"

#include <cstdint>

namespace trk {

// What the open call was asked for.
struct OpenRequest {
    OpenRequest(const char *path, int openFlags, int loadEvents, int loadSamples, const CONFIG *config);

    const char *path;
    const CONFIG *config; // the caller's; may be null
    bool checkConsistency;
    bool strict;
    bool tolerant;
    bool keepTimes;
    bool cutMessageOffsets;
    bool loadEvents;
    bool loadSamples;
};

class TRKFile {
  public:
    // Opens the recording, indexes, orders and repairs it. Throws a TRKException on failure.
    explicit TRKFile(const OpenRequest &request);

    // Steps to the next item; its code, or 0.
    int getNextData() { return delivery_.step(); }

    // Moves the read position to a 0-based item number: the item there is the next one stepped to. A number out of
    // range changes nothing.
    void gotoIndex(int index);

    // The current item with its times adjusted, or null.
    ALLF_DATA *getFloatData();

    // The same when the current item's code is one that `accepts` says yes to, else null.
    template <class Predicate> ALLF_DATA *getFloatDataIf(Predicate accepts) {
        const TRKItem *const item = delivery_.currentItem();
        return item != nullptr && accepts(item->code()) ? getFloatData() : nullptr;
    }

    [[nodiscard]] const Preamble &preamble() const { return preamble_; }
    [[nodiscard]] std::size_t elementCount() const { return index_.size(); }
    [[nodiscard]] uint32_t currentIndex() const { return delivery_.currentIndex(); }
    [[nodiscard]] const FRECORDING *currentRecording() const { return delivery_.currentRecording(); }
    [[nodiscard]] int filterLevel() const { return reader_.state().filterLevel; }
    [[nodiscard]] uint32_t inputDataAvailability() const { return facts_.inputDataAvailability; }

  private:
    Preamble openContainer(const char *path);
    PrescanFacts preScan(const OpenRequest &request);

    // In the order in which opening sets them up.
    RecordReader reader_;
    Preamble preamble_;
    ItemIndex index_;
    PrescanFacts facts_;
    SampleQueue queue_;
    BatchReader batchReader_;
    VelocityComputer velocity_;
    ItemReader itemReader_;
    Delivery delivery_;
    TimeAdjustment times_;
};

} // namespace trk
