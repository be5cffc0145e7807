#include "bulk/block_map.h"

#include "measures/sample_window.h"
#include "records/codes.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace trk {

namespace {

// One pass over the index. A walk reads samples in batches that follow the stream and take the items one by one;
// both go together as long as samples stand in the index as in the stream. A batch ends where the stream has the
// end of a block: it then holds nothing of the next block, and whether the first sample there empties the window
// follows from its distance to the last one.
class Mapper {
  public:
    Mapper(const ItemIndex &index, bool isComplete) : index_(index), inStep_(isComplete) {}

    std::vector<Stretch> run() {
        open(0, 0);
        uint32_t blocks = 0;
        for (ItemNumber number = 0; number < index_.size(); ++number) {
            const Item &item = index_[number];
            if (item.isSample()) {
                seeSample(number, item);
            } else if (item.isRecordingBlock()) {
                if (index_.recordingOf(item).state == TRK_BLOCK_START) {
                    close(number);
                    open(number, ++blocks);
                } else {
                    ended_ = true;
                }
            } else if (kBlockStarts.contains(item.code())) {
                seeStart(item);
            } else if (kBlockEnds.contains(item.code())) {
                seeEnd(item);
            }
        }
        close(index_.size());
        dropStrayed();
        return std::move(stretches_);
    }

  private:
    // A sample or the border of a block that stands elsewhere in the stream than in the index is met by the
    // batches over there: from then on they are out of step, or decode otherwise.
    void dropStrayed() {
        for (std::size_t i = 0; i < stretches_.size(); ++i) {
            Stretch &stretch = stretches_[i];
            stretch.plain = stretch.plain && reach_[i] < firstStrayed_;
            stretch.fresh = stretch.fresh && index_[stretch.firstSample].filePosition < firstStrayed_;
        }
    }

    void open(ItemNumber number, uint32_t block) {
        stretches_.push_back({.begin = number, .firstSample = number, .block = block});
        orderly_ = block > 0;
        ended_ = false;
        samples_ = 0;
        spacing_ = 0;
        evenly_ = true;
        lastStart_ = 0;
    }

    void close(ItemNumber number) {
        Stretch &stretch = stretches_.back();
        stretch.end = number;
        stretch.samples = samples_;
        stretch.plain = stretch.fresh && orderly_ && inStep_;
        reach_.push_back(lastSample_);
        stretch.spacing = evenly_ && samples_ >= 3 && SampleWindow::isSearchable(spacing_) ? spacing_ : 0;
    }

    // Of samples and the borders of blocks.
    void noteOrder(const Item &item) {
        if (item.filePosition <= lastSample_) {
            stray(item.filePosition);
        }
        if (!item.isSample()) {
            lastBorder_ = std::max(lastBorder_, item.filePosition);
        }
    }

    void stray(int64_t position) {
        inStep_ = false;
        firstStrayed_ = std::min(firstStrayed_, position);
    }

    void seeSample(ItemNumber number, const Item &item) {
        if (samples_ == 0) {
            seeFirstSample(number, item);
        }
        if (!item.isDummy()) {
            noteOrder(item);
            if (item.filePosition <= lastBorder_) {
                stray(lastBorder_);
            }
            lastSample_ = std::max(lastSample_, item.filePosition);
        }
        // A window takes no sample whose key does not lie behind the last; a walk takes time 0 for one that is not
        // known.
        orderly_ = orderly_ && (samples_ == 0 || item.key > lastKey_) && !ended_ && TimeKey::time(item.key) != 0 &&
                   lastStart_ < lastSample_;
        if (samples_ > 0) {
            const uint64_t step = item.key > lastKey_ ? item.key - lastKey_ : 0;
            largestStep_ = std::max(largestStep_, step);
            evenly_ = evenly_ && (samples_ == 1 || step == spacing_);
            spacing_ = step;
        }
        lastKey_ = std::max(lastKey_, item.key);
        anySample_ = true;
        endedSinceSample_ = false;
        ++samples_;
    }

    void seeFirstSample(ItemNumber number, const Item &item) {
        Stretch &stretch = stretches_.back();
        stretch.firstSample = number;
        const bool ends = endedSinceSample_ && item.filePosition > lastEnd_ && lastStart_ > lastEnd_;
        const bool apart =
            item.key > lastKey_ && item.key - lastKey_ > std::max(largestStep_, TimeKey::kLargestSpacing);
        stretch.fresh = stretch.block > 0 && inStep_ && lastStart_ > 0 && item.filePosition > lastStart_ &&
                        (!anySample_ || (ends && apart));
        if (stretch.fresh) {
            largestStep_ = 0;
        } else if (anySample_ && item.key > lastKey_) {
            largestStep_ = std::max(largestStep_, item.key - lastKey_);
        }
        // Batches run on from the samples before: these have neighbours here.
        if (anySample_ && !ends) {
            stretches_[lastWithSamples_].plain = false;
        }
        lastWithSamples_ = stretches_.size() - 1;
    }

    void seeStart(const Item &item) {
        noteOrder(item);
        orderly_ = orderly_ && samples_ == 0;
        lastStart_ = std::max(lastStart_, item.filePosition);
    }

    void seeEnd(const Item &item) {
        noteOrder(item);
        ended_ = true;
        endedSinceSample_ = endedSinceSample_ || item.filePosition > lastSample_;
        lastEnd_ = std::max(lastEnd_, item.filePosition);
    }

    const ItemIndex &index_;
    std::vector<Stretch> stretches_;
    std::size_t lastWithSamples_ = 0;
    std::vector<int64_t> reach_; // for each, the farthest position of a sample in it or before

    // Of the index so far. Positions in the stream, 0: none.
    bool inStep_; // samples stand as in the stream, at rising times
    bool anySample_ = false;
    bool endedSinceSample_ = false; // in the index and in the stream
    uint64_t lastKey_ = 0;
    int64_t lastSample_ = 0;
    int64_t lastEnd_ = 0;
    int64_t lastBorder_ = 0;
    int64_t firstStrayed_ = std::numeric_limits<int64_t>::max();
    uint64_t largestStep_ = 0; // between samples since the last fresh stretch

    // Of the stretch at hand.
    bool orderly_ = false;
    bool ended_ = false;
    int64_t lastStart_ = 0;
    uint32_t samples_ = 0;
    uint64_t spacing_ = 0;
    bool evenly_ = true;
};

} // namespace

std::vector<Stretch> mapBlocks(const ItemIndex &index, bool isComplete) { return Mapper(index, isComplete).run(); }

} // namespace trk
