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
struct Trial {
    FRECORDING *recording = nullptr; // block in force when the trial ended; null while it is open
    uint32_t duration = 0;           // ms, where it is known
    uint32_t startTime = 0;          // ms
    uint32_t endTime = 0;            // ms; 0 while open
    ItemNumber firstItem = 0;        // the one that started the trial
    ItemNumber endItem = 0;          // one past its last item
};

// What starts and ends a trial. The texts are the caller's and may be null.
struct TrialMarkers {
    char *start = nullptr;
    char *end = nullptr;
    bool byInput = false; // compare input values instead of texts; once set it stays
};

// Walks the index once and returns the trials, first to last.
std::vector<Trial> collectTrials(ItemIndex &index, ItemSource &items, const TrialMarkers &markers);

// The trials of an open file, collected when they are first needed, and the one last gone to.
class TrialList {
  public:
    TrialList(ItemIndex &index, ItemSource &items) : index_(index), items_(items) {}

    void setMarkers(char *startText, char *endText);
    [[nodiscard]] const TrialMarkers &markers() const { return markers_; }

    [[nodiscard]] const std::vector<Trial> &trials();

    // These return the item to go to, or nothing when there is no such trial.
    std::optional<ItemNumber> goTo(int trial);
    std::optional<ItemNumber> goToPrevious() { return goTo(static_cast<int>(currentTrial_ - 1)); }
    std::optional<ItemNumber> goToNext() { return goTo(static_cast<int>(currentTrial_ + 1)); }
    std::optional<ItemNumber> goToStart(uint32_t time);
    std::optional<ItemNumber> goToEnd(uint32_t time);

    // The trial last gone to; null when there is none.
    const Trial *currentTrial();

    // The walk was moved to an item: the first trial that starts there becomes the current one.
    void arrivedAt(ItemNumber item);

    // The recording block of the last trial that contains the time and has one; null when there is none.
    const FRECORDING *blockAt(uint32_t time);

  private:
    static constexpr uint32_t kNoTrial = 0xFFFFFFFF; // one before the first

    void collect();
    std::optional<ItemNumber> goToFirstWith(uint32_t Trial::*field, uint32_t time);

    ItemIndex &index_;
    ItemSource &items_;
    TrialMarkers markers_;
    std::vector<Trial> trials_;
    std::vector<uint32_t> latestEnds_; // for each trial, the latest end up to it
    bool inOrder_ = true;              // the trials stand in the order of their starts
    bool collected_ = false;
    uint32_t currentTrial_ = kNoTrial;
};

} // namespace trk
