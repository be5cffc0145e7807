#include "delivery/batch_reader.h"

#include "base/exception.h"
#include "base/log.h"

namespace trk {

namespace {

bool endsBlock(int code) { return code == REC_ENDSAMPLES || code == REC_ENDEVENTS; }

// Samples that go back in time are not added. In a recording that goes back for good, reading on to its end would
// add nothing and cost the more the longer it is.
constexpr int kMostRefused = 8 * SampleQueue::kCapacity;

// Stands for a sample that the tracker lost, or that is not where the index has it.
constexpr Sample placeholderSample() {
    Sample sample{};
    fillEyeData(sample, MISSING_DATA, MISSING_DATA);
    sample.flags = TRK_SAMPLE_LEFT | TRK_SAMPLE_RIGHT;
    return sample;
}

constexpr Sample kPlaceholder = placeholderSample();

} // namespace

int resetPosition(RecordReader &reader, const TRKItem &item) {
    reader.state().lastTagWord = item.tag_word;
    return reader.stream().seek(item.file_position);
}

int readIndexedEvent(RecordReader &reader, EData &event) {
    event = EData();
    try {
        return reader.read_combfile_event_noexcept(event);
    } catch (TRKException *thrown) {
        const CaughtException error(thrown);
        return kUnreadable;
    }
}

int BatchReader::batchReadSample(std::size_t index) {
    if (!index_[index].isSample()) {
        return 0;
    }
    if (queue_.isOutOfBoundsToAdd(index_[index].sort_key)) {
        queue_.clear();
    } else {
        queue_.shiftQueue();
    }
    // While dummies are made the stream stays where it is; the next real sample is found by a seek.
    bool seekFirst = true;
    int refused = 0;
    while (!queue_.isFull() && refused < kMostRefused) {
        const TRKItem &item = index_[index];
        const bool added = item.isDummy() ? addDummy(item) : addSample(item, seekFirst);
        refused = added ? 0 : refused + 1;
        seekFirst = item.isDummy();
        if (!toNextSample(index, seekFirst) || (!seekFirst && !toNextSampleRecord(index_[index]))) {
            return 0;
        }
    }
    return 0;
}

// Steps to the next sample of the index. Returns false past its end, or where the block ends in the index when
// nothing is read from the stream that would tell.
bool BatchReader::toNextSample(std::size_t &index, bool stopAtBlockEnd) const {
    while (++index < index_.size()) {
        const TRKItem &item = index_[index];
        if (item.isSample()) {
            return true;
        }
        if (stopAtBlockEnd && endsBlock(static_cast<int>(item.code()))) {
            return false;
        }
    }
    return false;
}

// Reads on to the next sample's tag word, over the events before it. Returns false where the batch ends: at the
// end of the block or of the stream, or where something cannot be read.
bool BatchReader::toNextSampleRecord(const TRKItem &item) {
    while (true) {
        int kind = kEndOfRecords;
        try {
            kind = reader_.next_combfile_item(nullptr);
        } catch (TRKException *thrown) {
            const CaughtException error(thrown);
        }
        if (kind != kEventRecord) {
            return kind == kSampleRecord;
        }
        const int result = readIndexedEvent(reader_, passedEvent_);
        if (result < 0) {
            print_log("error reading trk file 4   %d %ld\n", result, static_cast<long>(item.file_position));
            return false;
        }
        if (endsBlock(passedEvent_.type)) {
            return false;
        }
    }
}

bool BatchReader::addSample(const TRKItem &item, bool seekFirst) {
    const uint32_t indexTime = timeOfKey(item.sort_key);
    if (seekFirst) {
        resetPosition(reader_, item);
    }
    Sample &sample = queue_.freeSlot();
    int result = kUnreadable;
    try {
        result = reader_.read_combfile_sample_noexcept(&sample, seekFirst ? indexTime : 0);
    } catch (TRKException *thrown) {
        const CaughtException error(thrown);
    }
    if (result < 0) {
        print_log("error reading trk file 5\n");
        throwException("Error reading Sample - type");
    }
    if (replaceMistimed_ && sample.time != indexTime) {
        return addDummy(item);
    }
    return queue_.addSample(sample, item.sort_key);
}

bool BatchReader::addDummy(const TRKItem &item) {
    Sample &sample = queue_.freeSlot();
    sample = kPlaceholder;
    sample.time = timeOfKey(item.sort_key);
    return queue_.addSample(sample, item.sort_key);
}

} // namespace trk
