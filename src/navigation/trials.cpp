#include "navigation/trials.h"

#include "base/log.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace trk {

namespace {

constexpr const char *kInputPrefix = "inPut_type_";
constexpr const char *kIgnoredMessage = "!V"; // messages with this in them start and end nothing
constexpr std::size_t kLongestNumber = 3;

bool contains(const char *text, const char *part) { return part != nullptr && std::strstr(text, part) != nullptr; }

// The input value that a text asks for; 0 for a text that is none.
uint16_t inputNumber(const char *text, const char *announcement) {
    if (text == nullptr || *text == '\0' || std::strlen(text) > kLongestNumber) {
        return 0;
    }
    printText("%s\n", announcement);
    return static_cast<uint16_t>(std::strtol(text, nullptr, 10));
}

// The walk over the index.
class TrialCollector {
  public:
    TrialCollector(ItemIndex &index, ItemSource &items, const TrialMarkers &markers)
        : index_(index), items_(items), markers_(markers) {
        if (markers_.byInput) {
            startNumber_ = inputNumber(markers_.start, "!!!!!!!!!!!!!!!!!!!B");
            endNumber_ = inputNumber(markers_.end, "!!!!!!!!!!!!!!!!!!!!!!A");
            printText(" Start Input: %d\n End Input: %d\n", startNumber_, endNumber_);
        }
    }

    std::vector<Trial> run() {
        for (ItemNumber i = 0; i < index_.size(); ++i) {
            const Item &item = index_[i];
            if (!item.isSample()) {
                see(item, i);
            }
        }
        finish();
        return std::move(trials_);
    }

  private:
    void see(const Item &item, ItemNumber i) {
        const uint32_t time = timeAt(i);
        if (item.isRecordingBlock()) {
            FRECORDING &recording = index_.recordingOf(item);
            recording.state == TRK_BLOCK_END ? seeBlockEnd(i, time) : seeBlockStart(i, time, recording);
        } else if (item.code() == REC_MESSAGE && !markers_.byInput) {
            seeMessage(i, time);
        } else if (item.code() == REC_INPUT && markers_.byInput) {
            seeInput(i, time);
        }
    }

    void seeBlockEnd(ItemNumber i, uint32_t time) {
        if (markers_.start == nullptr && markers_.end == nullptr) {
            fetch();
            if (!trialClosed_) {
                close(i + 1, time, true);
                recordingInForce_ = nullptr;
                trialOpen_ = false;
            }
            trialClosed_ = true;
        }
        lastEndBlock_ = i;
    }

    void seeBlockStart(ItemNumber i, uint32_t time, FRECORDING &recording) {
        // A trial that waits for its end gets it at the end of the block before, and a new one opens here.
        const bool ended = closeAtLastEndBlock();
        if (ended) {
            lastEndBlock_.reset();
        }
        const bool waiting = trialOpen_ || (!trials_.empty() && trials_.back().recording == nullptr);
        recordingInForce_ = &recording;
        lastStartBlock_ = i;
        if (ended || !waiting) {
            open(i, time);
        }
    }

    void seeMessage(ItemNumber i, uint32_t time) {
        if (markers_.start == nullptr && markers_.end == nullptr) {
            return;
        }
        const ALLF_DATA *const record = items_.itemAt(i);
        if (record == nullptr || record->event.message == nullptr) {
            return;
        }
        const char *const text = record->event.message->text;
        if (contains(text, kIgnoredMessage)) {
            return;
        }
        if (contains(text, markers_.start)) {
            startTrial(i, time);
        } else if (contains(text, markers_.end)) {
            endTrial(i, time);
        }
    }

    void seeInput(ItemNumber i, uint32_t time) {
        const ALLF_DATA *const record = items_.itemAt(i);
        if (record == nullptr) {
            return;
        }
        const uint16_t value = record->event.aux_word1;
        if (value == startNumber_) {
            startTrial(i, time);
        } else if (value == endNumber_) {
            endTrial(i, time);
        }
    }

    // A start ends the trial that waits for its end. It is ignored where there is nothing yet that could end it.
    void startTrial(ItemNumber i, uint32_t time) {
        if (!trials_.empty()) {
            fetch();
            if ((recordingInForce_ == nullptr || trialClosed_) && trialOpen_) {
                return;
            }
            if (recordingInForce_ != nullptr && !trialClosed_) {
                close(i, time, true);
                recordingInForce_ = nullptr;
            }
            if (trials_.back().recording == nullptr) {
                trialOpen_ = false;
                return;
            }
        } else if (trialOpen_) {
            return;
        }
        open(i, time);
        recordingInForce_ = nullptr;
    }

    void endTrial(ItemNumber i, uint32_t time) {
        if (!trialOpen_ || trials_.empty()) {
            return;
        }
        fetch();
        if (recordingInForce_ != nullptr && !trialClosed_) {
            close(i + 1, time, true);
            recordingInForce_ = nullptr;
            trialOpen_ = false;
        }
    }

    void finish() {
        if (trialClosed_ || trials_.empty() || closeAtLastEndBlock()) {
            return;
        }
        trials_.pop_back();
        printText("removed last trial\n");
    }

    // Ends a trial that waits for its end at the last end of a recording block behind its start.
    bool closeAtLastEndBlock() {
        if (trialClosed_ || !lastEndBlock_ || trials_.empty() ||
            trials_.back().startTime >= timeAt(*lastEndBlock_)) {
            return false;
        }
        fetch();
        if (recordingInForce_ == nullptr) {
            return false;
        }
        close(*lastEndBlock_ + 1, timeAt(*lastEndBlock_), false);
        return true;
    }

    // Looks up the recording block in force. One at the very first item does not count: place 0 stands for none.
    void fetch() {
        if (recordingInForce_ == nullptr && lastStartBlock_ >= 1) {
            recordingInForce_ = &index_.recordingOf(index_[lastStartBlock_]);
        }
    }

    void close(ItemNumber endIndex, uint32_t time, bool withDuration) {
        Trial &trial = trials_.back();
        trial.endItem = endIndex;
        trial.recording = recordingInForce_;
        trial.endTime = time;
        if (withDuration) {
            trial.duration = time - trial.startTime;
        }
        trialClosed_ = true;
    }

    void open(ItemNumber i, uint32_t time) {
        trials_.push_back({.startTime = time, .firstItem = i});
        trialOpen_ = true;
        trialClosed_ = false;
    }

    [[nodiscard]] uint32_t timeAt(ItemNumber i) const { return TimeKey::time(index_.effectiveKey(index_[i])); }

    ItemIndex &index_;
    ItemSource &items_;
    TrialMarkers markers_;
    uint16_t startNumber_ = 0;
    uint16_t endNumber_ = 0;

    std::vector<Trial> trials_;
    bool trialOpen_ = false;
    bool trialClosed_ = true; // no trial waits for its end
    FRECORDING *recordingInForce_ = nullptr;
    ItemNumber lastStartBlock_ = 0; // 0: none
    std::optional<ItemNumber> lastEndBlock_;
};

} // namespace

std::vector<Trial> collectTrials(ItemIndex &index, ItemSource &items, const TrialMarkers &markers) {
    return TrialCollector(index, items, markers).run();
}

void TrialList::setMarkers(char *startText, char *endText) {
    flushStreams();
    markers_.end = endText;
    if (endText != nullptr) {
        printText("setTrial End:  %s\n", endText);
    } else {
        printText("Set TrialEndMesage Empty\n");
    }
    markers_.start = startText;
    if (startText != nullptr && contains(startText, kInputPrefix)) {
        markers_.byInput = true;
        markers_.start = startText + std::strlen(kInputPrefix); // the prefix is expected at the beginning
        printText("Input Split option found :%s  %s\n", startText, markers_.start);
    }
    flushStreams();
    collect();
}

void TrialList::collect() {
    // When memory runs out on the way, things are as if nothing had been collected yet.
    collected_ = false;
    trials_ = collectTrials(index_, items_, markers_);
    inOrder_ = std::ranges::is_sorted(trials_, {}, &Trial::startTime);
    latestEnds_.clear();
    for (const Trial &trial : trials_) {
        latestEnds_.push_back(std::max(trial.endTime, latestEnds_.empty() ? 0 : latestEnds_.back()));
    }
    collected_ = true;
}

const std::vector<Trial> &TrialList::trials() {
    if (!collected_) {
        collect();
    }
    return trials_;
}

std::optional<ItemNumber> TrialList::goTo(int trial) {
    if (const std::size_t count = trials().size(); trial < 0 || static_cast<std::size_t>(trial) >= count) {
        return std::nullopt;
    }
    currentTrial_ = static_cast<uint32_t>(trial);
    return trials_[currentTrial_].firstItem;
}

std::optional<ItemNumber> TrialList::goToFirstWith(uint32_t Trial::*field, uint32_t time) {
    const auto found = std::ranges::find(trials(), time, field);
    return found == trials_.end() ? std::nullopt : goTo(static_cast<int>(found - trials_.begin()));
}

std::optional<ItemNumber> TrialList::goToStart(uint32_t time) { return goToFirstWith(&Trial::startTime, time); }

std::optional<ItemNumber> TrialList::goToEnd(uint32_t time) { return goToFirstWith(&Trial::endTime, time); }

const Trial *TrialList::currentTrial() {
    return currentTrial_ < trials().size() ? &trials_[currentTrial_] : nullptr;
}

void TrialList::arrivedAt(ItemNumber item) {
    if (!collected_) {
        return;
    }
    const auto found = std::ranges::find(trials_, item, &Trial::firstItem);
    if (found != trials_.end()) {
        currentTrial_ = static_cast<uint32_t>(found - trials_.begin());
    }
}

// The last trial that contains the time wins. Trials stand in the order of their starts, unless the index is out
// of order; those that ended too early are passed over together.
const FRECORDING *TrialList::blockAt(uint32_t time) {
    const std::vector<Trial> &all = trials();
    std::size_t trial = all.size();
    if (inOrder_) {
        trial = static_cast<std::size_t>(std::ranges::upper_bound(all, time, {}, &Trial::startTime) - all.begin());
    }
    while (trial > 0 && latestEnds_[trial - 1] >= time) {
        const Trial &candidate = all[--trial];
        if (candidate.recording != nullptr && candidate.startTime <= time && time <= candidate.endTime) {
            return candidate.recording;
        }
    }
    return nullptr;
}

} // namespace trk
