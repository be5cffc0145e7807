// Reads many samples or events at once.
#pragma once

#include "bulk/block_map.h"
#include "bulk/row_columns.h"
#include "bulk/sample_rows.h"
#include "delivery/walk.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace trk {

// How a reading ended.
struct BulkResult {
    int64_t rows = 0;
    ItemNumber item = 0;     // to go on from
    bool unreadable = false; // it ended at that item, which cannot be read
};

// Where events go. What is null is left out.
struct EventPlaces {
    FEVENT *events = nullptr;
    int64_t rows = 0;
    char *texts = nullptr;
    std::size_t textsSize = 0;
    int64_t *textOffsets = nullptr;
};

// All values are those of a walk over all items that fetches each. Where a stretch of the recording can be shown
// to read the same without what lies before, it is decoded straight into columns; elsewhere a walk of its own,
// from the nearest place that does not depend on what is before, finds them out.
class BulkReader {
  public:
    BulkReader(const WalkSource &source, bool indexIsComplete);

    BulkResult readSamples(ItemNumber first, const SampleRequest &request);
    BulkResult readEvents(ItemNumber first, ItemNumber end, const EventPlaces &places);

  private:
    template <class Read> BulkResult guard(Read read);
    BulkResult samplesFrom(ItemNumber first, const SampleRequest &request);
    BulkResult eventsFrom(ItemNumber first, ItemNumber end, const EventPlaces &places);
    Stretch &stretchOf(ItemNumber item);
    bool isFresh(Stretch &stretch);
    bool readDirectly(Stretch &stretch, const SampleRequest &request, BulkResult &result);
    void walkOver(const Stretch &stretch, const SampleRequest &request, BulkResult &result);
    Walk &walkTo(ItemNumber item);
    void putRecord(const SampleRequest &request, int64_t row, ItemNumber number, uint32_t block,
                   const Sample &sample) const;
    ALLF_DATA *eventAt(ItemNumber number);
    [[nodiscard]] ItemNumber nextSample(ItemNumber item, ItemNumber end) const;

    WalkSource source_;
    std::vector<Stretch> stretches_;
    SampleRows rows_;
    RowColumns columns_;
    std::unique_ptr<Walk> walk_;   // over all items, for samples
    std::unique_ptr<Walk> events_; // for events
    bool eventsStandAlone_;        // no sample on the way matters for them
};

} // namespace trk
