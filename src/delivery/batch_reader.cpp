#include "delivery/batch_reader.h"

#include "base/exception.h"
#include "base/log.h"
#include "records/codes.h"

namespace trk {

namespace {

// Samples that go back in time are not added. In a recording that goes back for good, reading on to its end would
// add nothing and cost the more the longer it is.
constexpr int kMostRefused = 8 * SampleWindow::kCapacity;

// Stands for a sample that the tracker lost, or that is not where the index has it.
constexpr Sample placeholderSample() {
    Sample sample{};
    fillEyeData(sample, MISSING_DATA, MISSING_DATA);
    sample.flags = TRK_SAMPLE_LEFT | TRK_SAMPLE_RIGHT;
    return sample;
}

constexpr Sample kPlaceholder = placeholderSample();

void logUnreadableEvent(const Item &item) {
    constexpr int kUnreadable = -1;
    logLine("error reading trk file 4   %d %ld\n", kUnreadable, static_cast<long>(item.filePosition));
}

// Decodes the event that the reader stands before.
bool readEvent(RecordReader &reader, uint16_t tag, const Item &reportedAs, FEVENT &event) {
    bool read = false;
    try {
        read = reader.readEvent(tag, event);
    } catch (const TRKException &) {
        read = false;
    }
    if (!read) {
        logUnreadableEvent(reportedAs);
    }
    return read;
}

} // namespace

bool readEventAt(RecordReader &reader, const Item &item, FEVENT &event) {
    reader.seekTo(item.filePosition);
    return readEvent(reader, item.tag, item, event);
}

const Sample *BatchReader::sampleAt(ItemNumber number) {
    const uint64_t key = index_[number].key;
    int position = window_.find(key);
    for (; position >= 0; position = window_.find(key)) {
        if (SampleWindow::reachesAhead(position)) {
            return &window_.entry(position);
        }
        refill(number);
    }
    if (window_.spans(key)) {
        return entryAt(window_.search(key));
    }
    refill(number);
    position = window_.find(key);
    if (position < 0) {
        position = window_.search(key);
    }
    if (position < 0) {
        window_.clear();
        refill(number);
        position = window_.find(key);
    }
    return entryAt(position);
}

// Adds the samples from an item on to the window until it is full or the recording block or the index ends.
void BatchReader::refill(ItemNumber number) {
    if (!window_.isContinuedBy(index_[number].key)) {
        window_.clear();
    } else {
        window_.dropOldest();
    }
    // While dummies are made the stream stays where it is; the next real sample is found by a seek.
    bool seekFirst = true;
    int refused = 0;
    while (!window_.isFull() && refused < kMostRefused) {
        const Item &item = index_[number];
        const bool added = item.isDummy() ? addDummy(item) : addSample(item, seekFirst);
        refused = added ? 0 : refused + 1;
        seekFirst = item.isDummy();
        if (!toNextSample(number, seekFirst) || (!seekFirst && !toNextSampleRecord(index_[number]))) {
            return;
        }
    }
}

// Steps to the next sample of the index. Returns false past its end, or where the block ends in the index when
// nothing is read from the stream that would tell.
bool BatchReader::toNextSample(ItemNumber &number, bool stopAtBlockEnd) const {
    while (++number < index_.size()) {
        const Item &item = index_[number];
        if (item.isSample()) {
            return true;
        }
        if (stopAtBlockEnd && kBlockEnds.contains(item.code())) {
            return false;
        }
    }
    return false;
}

// Reads on to the next sample's tag word, over the events before it. Returns false where the batch ends: at the
// end of the block or of the stream, or where something cannot be read.
bool BatchReader::toNextSampleRecord(const Item &item) {
    while (true) {
        RecordHead record;
        try {
            record = reader_.next();
        } catch (const TRKException &) {
            return false;
        }
        if (record.kind != RecordKind::EventRecord) {
            tag_ = record.tag;
            return record.kind == RecordKind::SampleRecord;
        }
        if (!readEvent(reader_, record.tag, item, passedEvent_) ||
            kBlockEnds.contains(static_cast<unsigned>(passedEvent_.type))) {
            return false;
        }
    }
}

bool BatchReader::addSample(const Item &item, bool seekFirst) {
    const uint32_t indexTime = TimeKey::time(item.key);
    if (seekFirst) {
        reader_.seekTo(item.filePosition);
        tag_ = item.tag;
    }
    Sample &sample = window_.freeSlot();
    bool read = false;
    try {
        read = reader_.readSample(tag_, sample, seekFirst ? indexTime : 0);
    } catch (const TRKException &) {
        read = false;
    }
    if (!read) {
        logLine("error reading trk file 5\n");
        throw TRKException("Error reading Sample - type");
    }
    if (replaceMistimed_ && sample.time != indexTime) {
        return addDummy(item);
    }
    return window_.add(sample, item.key);
}

bool BatchReader::addDummy(const Item &item) {
    Sample &sample = window_.freeSlot();
    sample = kPlaceholder;
    sample.time = TimeKey::time(item.key);
    return window_.add(sample, item.key);
}

} // namespace trk
