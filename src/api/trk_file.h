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
#include "measures/sample_queue.h"
#include "measures/velocity.h"
#include "navigation/bookmarks.h"
#include "navigation/item_source.h"
#include "navigation/trials.h"
#include "records/record_reader.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace trk {

// What the open call was asked for.
struct OpenRequest {
    using StreamOpener = std::function<std::unique_ptr<InputStream>(const char *path)>;

    OpenRequest(const char *path, int openFlags, int loadEvents, int loadSamples, const CONFIG *config);

    const char *path;
    const CONFIG *config; // the caller's; may be null
    bool checkConsistency;
    bool strict;
    bool tolerant;
    bool keepTimes;
    bool cutMessageOffsets;
    bool loadEvents;
    bool mergeMessageLog;
    bool loadSamples;
    StreamOpener openStream; // of the recording file; tests put streams of their own here
};

class TRKFile final : private ItemSource, private BlockLookup {
  public:
    // Opens the recording, indexes, orders and repairs it. Throws a TRKException on failure.
    explicit TRKFile(const OpenRequest &request);

    // Steps to the next item or log message; its code, or 0.
    int getNextData() { return merge_.getNextDataMergeWithLog(); }

    // What was stepped to, with its times adjusted, or null.
    ALLF_DATA *getFloatData();

    // The same when the current item's code is one that `accepts` says yes to, else null.
    template <class Predicate> ALLF_DATA *getFloatDataIf(Predicate accepts) {
        const TRKItem *const item = delivery_.currentItem();
        return item != nullptr && accepts(item->code()) ? getFloatData() : nullptr;
    }

    // Trials. The go-to operations return 0, or -1 when there is no such trial.
    int setTrialIdentifier(char *startText, char *endText);
    [[nodiscard]] const TrialMarkers &trialMarkers() const { return trials_.markers(); }
    std::size_t trialCount() { return trials_.trials().size(); }
    int jumpToTrial(int trial) { return goTo(trials_.jumpToTrial(trial)); }
    int gotoPreviousTrial() { return goTo(trials_.gotoPreviousTrial()); }
    int gotoNextTrial() { return goTo(trials_.gotoNextTrial()); }
    int gotoTrialWithStartTime(uint32_t time) { return goTo(trials_.gotoTrialWithStartTime(time)); }
    int gotoTrialWithEndTime(uint32_t time) { return goTo(trials_.gotoTrialWithEndTime(time)); }
    int getTrialHeaders(TRIAL *header);

    // Bookmarks. All return 0, or -1.
    int setBookMark(BOOKMARK *bookmark);
    int removeBookMark(const BOOKMARK *bookmark);
    int gotoBookMark(const BOOKMARK *bookmark);
    int gotoNextBookMark() { return goTo(bookmarks_.goNext()); }
    int gotoPreviousBookMark() { return goTo(bookmarks_.goPrevious()); }

    // Moves the read position to a 0-based item number: the item there is the next one stepped to. A number out of
    // range changes nothing but, perhaps, the current trial.
    void gotoIndex(int index);

    // The sample with exactly this key, or null. The read position stays.
    ALLF_DATA *getSampleCloseToTime(uint32_t key);

    // What unpacks the raw data of samples asks of the recording.
    [[nodiscard]] BlockLookup &blocks() { return *this; }

    [[nodiscard]] const Preamble &preamble() const { return preamble_; }
    [[nodiscard]] std::size_t elementCount() const;
    [[nodiscard]] uint32_t currentIndex() const { return delivery_.currentIndex(); }
    [[nodiscard]] const FRECORDING *currentRecording() const { return delivery_.currentRecording(); }
    [[nodiscard]] int filterLevel() const { return reader_.state().filterLevel; }
    [[nodiscard]] uint32_t inputDataAvailability() const { return facts_.inputDataAvailability; }

  private:
    int goTo(std::optional<uint32_t> position);
    ALLF_DATA *itemAt(std::size_t index) override { return delivery_.read(index); }
    float getGazePrescaler(uint32_t time) override;
    int getWindowSize(uint32_t time, int &first, int &second) override;

    static MessageLog openMessageLog(const OpenRequest &request);
    Preamble openContainer(const OpenRequest &request);
    PrescanFacts preScan(const OpenRequest &request);

    // In the order in which opening sets them up.
    MessageLog messageLog_;
    RecordReader reader_;
    Preamble preamble_;
    ItemIndex index_;
    PrescanFacts facts_;
    SampleQueue queue_;
    BatchReader batchReader_;
    VelocityComputer velocity_;
    ItemReader itemReader_;
    Delivery delivery_;
    LogMerge merge_;
    TimeAdjustment times_;
    TrialList trials_;
    BookmarkList bookmarks_;
};

} // namespace trk
