// Trials: stretches of a recording, delimited by message texts, input values or recording blocks.
#pragma once

#include "index/item_index.h"
#include "navigation/item_source.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace trk {

// The first four fields are those of TRIAL.
struct TRKTrial {
    FRECORDING *recording = nullptr; // block in force when the trial ended; null while it is open
    uint32_t duration = 0;           // ms, where it is known
    uint32_t start_time = 0;         // ms
    uint32_t end_time = 0;           // ms; 0 while open
    uint32_t start_index = 0;        // item that started the trial
    uint32_t end_index = 0;          // one past its last item
};

// What starts and ends a trial. The texts are the caller's and may be null.
struct TrialMarkers {
    char *start = nullptr;
    char *end = nullptr;
    bool byInput = false; // compare input values instead of texts; once set it stays
};

// Walks the index once and returns the trials, first to last.
std::vector<TRKTrial> collectTrials(ItemIndex &index, ItemSource &items, const TrialMarkers &markers);

// The trials of an open file, collected when they are first needed, and the one last gone to.
class TrialList {
  public:
    TrialList(ItemIndex &index, ItemSource &items) : index_(index), items_(items) {}

    void setTrialIdentifier(char *startText, char *endText);
    [[nodiscard]] const TrialMarkers &markers() const { return markers_; }

    [[nodiscard]] const std::vector<TRKTrial> &trials();

    // These return the item to go to, or nothing when there is no such trial.
    std::optional<uint32_t> jumpToTrial(int trial);
    std::optional<uint32_t> gotoPreviousTrial() { return jumpToTrial(static_cast<int>(currentTrial_ - 1)); }
    std::optional<uint32_t> gotoNextTrial() { return jumpToTrial(static_cast<int>(currentTrial_ + 1)); }
    std::optional<uint32_t> gotoTrialWithStartTime(uint32_t time);
    std::optional<uint32_t> gotoTrialWithEndTime(uint32_t time);

    // The trial last gone to; null when there is none.
    const TRKTrial *getTrialHeaders();

    // The walk was moved to an item: the first trial that starts there becomes the current one.
    void arrivedAt(int index);

    // The recording block of the last trial that contains the time and has one; null when there is none.
    const FRECORDING *recordingAt(uint32_t time);

  private:
    static constexpr uint32_t kNoTrial = 0xFFFFFFFF; // one before the first

    void collect();
    std::optional<uint32_t> gotoTrialWith(uint32_t TRKTrial::*field, uint32_t time);

    ItemIndex &index_;
    ItemSource &items_;
    TrialMarkers markers_;
    std::vector<TRKTrial> trials_;
    std::vector<uint32_t> latestEnds_; // for each trial, the latest end up to it
    bool inOrder_ = true;              // the trials stand in the order of their starts
    bool collected_ = false;
    uint32_t currentTrial_ = kNoTrial;
};

} // namespace trk
