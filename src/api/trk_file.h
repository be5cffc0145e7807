// An open recording: where its parts meet.
#pragma once

#include "delivery/batch_reader.h"
#include "delivery/delivery.h"
#include "delivery/item_reader.h"
#include "delivery/log_merge.h"
#include "delivery/message_log.h"
#include "delivery/time_adjustment.h"
#include "index/item_index.h"
#include "index/prescan.h"
#include "io/container.h"
#include "measures/raw_data.h"
#include "measures/sample_window.h"
#include "measures/velocity.h"
#include "navigation/bookmarks.h"
#include "navigation/item_source.h"
#include "navigation/trials.h"
#include "records/record_reader.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace trk {

// What opening a recording makes.
struct RecordingParts {
    MessageLog messageLog;
    std::unique_ptr<InputStream> stream;
    Preamble preamble;
    RecordReader reader; // over the stream, in the state in which the scan left it
    ItemIndex index;
    PrescanFacts facts;
};

struct DeliveryOptions {
    const CONFIG *config = nullptr; // the caller's, read at every sample; may be null
    bool strict = false;
    bool keepTimes = false;
};

class TRKFile final : private ItemSource, private BlockLookup {
  public:
    TRKFile(RecordingParts &&parts, const DeliveryOptions &options);

    // Steps to the next item or log message; its code, or 0.
    int step() { return merge_.step(); }

    // What was stepped to, with its times adjusted, or null.
    ALLF_DATA *fetch();

    // The same when the current item's code is one that `accepts` says yes to, else null.
    template <class Predicate> ALLF_DATA *fetchIf(Predicate accepts) {
        const Item *const item = delivery_.currentItem();
        return item != nullptr && accepts(item->code()) ? fetch() : nullptr;
    }

    // Trials. The go-to operations return 0, or -1 when there is no such trial.
    void setTrialMarkers(char *startText, char *endText) { trials_.setMarkers(startText, endText); }
    [[nodiscard]] const TrialMarkers &trialMarkers() const { return trials_.markers(); }
    std::size_t trialCount() { return trials_.trials().size(); }
    int goToTrial(int trial) { return goTo(trials_.goTo(trial)); }
    int goToPreviousTrial() { return goTo(trials_.goToPrevious()); }
    int goToNextTrial() { return goTo(trials_.goToNext()); }
    int goToTrialWithStart(uint32_t time) { return goTo(trials_.goToStart(time)); }
    int goToTrialWithEnd(uint32_t time) { return goTo(trials_.goToEnd(time)); }
    int copyTrialHeader(TRIAL *header);

    // Bookmarks. All return 0, or -1.
    int setBookmark(BOOKMARK *bookmark);
    int removeBookmark(const BOOKMARK *bookmark);
    int goToBookmark(const BOOKMARK *bookmark);
    int goToNextBookmark() { return goTo(bookmarks_.goNext()); }
    int goToPreviousBookmark() { return goTo(bookmarks_.goPrevious()); }

    // Moves the read position to an item: it is the next one stepped to. A trial that starts there becomes the
    // one last gone to. Returns 0, or -1 when there is no such item.
    int goToItem(ItemNumber number);

    // The sample with exactly this key, or null. The read position stays.
    ALLF_DATA *fetchSampleAt(uint64_t key);

    // What unpacks the raw data of samples asks of the recording.
    [[nodiscard]] BlockLookup &blocks() { return *this; }

    [[nodiscard]] const Preamble &preamble() const { return preamble_; }
    [[nodiscard]] std::size_t elementCount() const;
    [[nodiscard]] ItemNumber itemsPassed() const { return delivery_.itemsPassed(); }
    [[nodiscard]] const FRECORDING *currentRecording() const { return delivery_.currentRecording(); }
    [[nodiscard]] int filterLevel() const { return reader_.state().filterLevel; }
    [[nodiscard]] uint32_t inputDataAvailability() const { return facts_.inputDataAvailability; }

  private:
    int goTo(std::optional<ItemNumber> itemsPassed);
    ALLF_DATA *itemAt(ItemNumber number) override { return delivery_.read(number); }
    const FRECORDING *blockAt(uint32_t time) override { return trials_.blockAt(time); }

    MessageLog messageLog_;
    std::unique_ptr<InputStream> stream_;
    Preamble preamble_;
    RecordReader reader_;
    ItemIndex index_;
    PrescanFacts facts_;
    SampleWindow window_;
    BatchReader batches_;
    VelocityComputer velocity_;
    ItemReader itemReader_;
    Delivery delivery_;
    LogMerge merge_;
    TimeAdjustment times_;
    TrialList trials_;
    BookmarkList bookmarks_;
};

} // namespace trk
