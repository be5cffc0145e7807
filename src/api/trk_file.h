// An open recording: where its parts meet.
#pragma once

#include "api/damages.h"
#include "base/log.h"
#include "bulk/bulk_reader.h"
#include "delivery/log_merge.h"
#include "delivery/message_log.h"
#include "delivery/walk.h"
#include "index/item_index.h"
#include "index/prescan.h"
#include "io/container.h"
#include "measures/raw_data.h"
#include "navigation/bookmarks.h"
#include "navigation/item_source.h"
#include "navigation/trials.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace trk {

// What opening a recording makes.
struct RecordingParts {
    MessageLog messageLog;
    std::unique_ptr<InputStream> stream;
    Preamble preamble;
    bool compressed = false;
    Inflation inflation;              // when it is compressed
    int64_t recordsBegin = 0;         // in the stream
    std::optional<Survey> survey;     // of the stream, or of what the spliced one is made of
    SplicedStream *spliced = nullptr; // the stream, when it is one
    DecodingState decodingState;      // in which the scan left it
    ItemIndex index;
    PrescanFacts facts;
    RepairCounts repairs;
    bool everythingIsIndexed = true; // events and samples were asked for

    [[nodiscard]] const Inflation *inflationIfAny() const { return compressed ? &inflation : nullptr; }
};

struct DeliveryOptions {
    const CONFIG *config = nullptr; // the caller's, read at every sample; null: `ownConfig`
    CONFIG ownConfig{MISSING_DATA, MISSING_DATA};
    bool strict = false;
    bool keepTimes = false;
    bool cutMessageOffsets = false;
    bool quiet = false; // all that is said goes to `log`
    LogReceiver log{};
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

    // The first item at or after a time as it is delivered; one past the last when there is none.
    [[nodiscard]] ItemNumber findTime(uint32_t time) const;

    // The items of a trial; null when there is no such trial.
    const Trial *trial(int number);

    // What is wrong with the recording. The first call may read all of it.
    const std::vector<TRK_DAMAGE> &damages();

    // Reads many items at once, beside the walk. Made when it is first needed.
    BulkReader &bulk();

    // Items of [first, end) with a code, 0 for all events: how many there are, and the numbers of the first of
    // them. The latter returns how many it wrote.
    [[nodiscard]] int64_t countItems(ItemNumber first, ItemNumber end, int code) const;
    int64_t listItems(ItemNumber first, ItemNumber end, int code, ItemNumber *numbers, int64_t room) const;

    [[nodiscard]] ItemNumber itemCount() const { return index_.size(); }

    [[nodiscard]] bool isCompressed() const { return parts_.compressed; }

    // Where to say things; null: as the process does.
    [[nodiscard]] const LogReceiver *log() const { return options_.quiet ? &options_.log : nullptr; }

    // The sample with exactly this key, or null. The read position stays.
    ALLF_DATA *fetchSampleAt(uint64_t key);

    // What unpacks the raw data of samples asks of the recording.
    [[nodiscard]] BlockLookup &blocks() { return *this; }

    [[nodiscard]] const Preamble &preamble() const { return parts_.preamble; }
    [[nodiscard]] std::size_t elementCount() const;
    [[nodiscard]] ItemNumber itemsPassed() const { return delivery_.itemsPassed(); }
    [[nodiscard]] const FRECORDING *currentRecording() const { return delivery_.currentRecording(); }
    [[nodiscard]] int filterLevel() const { return walk_.state().filterLevel; }
    [[nodiscard]] uint32_t inputDataAvailability() const { return parts_.facts.inputDataAvailability; }

  private:
    int goTo(std::optional<ItemNumber> itemsPassed);
    ALLF_DATA *itemAt(ItemNumber number) override { return delivery_.read(number); }
    const FRECORDING *blockAt(uint32_t time) override { return trials_.blockAt(time); }

    RecordingParts parts_;
    DeliveryOptions options_;
    ItemIndex &index_ = parts_.index;
    WalkSource source_;
    Walk walk_; // the caller's
    Delivery &delivery_ = walk_.delivery();
    TimeAdjustment &times_ = walk_.times();
    LogMerge merge_;
    TrialList trials_;
    BookmarkList bookmarks_;
    std::optional<std::vector<TRK_DAMAGE>> damages_;
    std::unique_ptr<BulkReader> bulk_;
};

} // namespace trk
