#include "index/prescan.h"

#include "base/exception.h"
#include "base/log.h"

#include <algorithm>

namespace trk {

namespace {

// Kind, in the upper bits of a sample's extension header, that takes back what the start of the block said of
// its extension words.
constexpr uint16_t kExtensionKindMask = 0xFFF0;
constexpr uint16_t kWithdrawingExtension = 0xF0;

} // namespace

PrescanFacts Prescan::run() {
    try {
        while (scanRecord()) {
        }
    } catch (TRKException *thrown) {
        if (!options_.tolerant) {
            throw;
        }
        const CaughtException error(thrown);
        print_log("Error reading items %s \n", error->text());
    }
    index_.sortItems();
    return facts_;
}

// The kind of the next record. A tolerant scan passes over one end mark.
int Prescan::nextRecord() {
    int kind = reader_.next_combfile_item(nullptr);
    if (options_.tolerant && kind == kEndOfRecords) {
        kind = reader_.next_combfile_item(nullptr);
    }
    if (kind == kPreambleUnfinished) {
        print_log("error reading trk file 3\n");
        throwException("Error reading trk file unknown data type");
    }
    return kind;
}

// Reads one record; returns false at the end of the scan.
bool Prescan::scanRecord() {
    const int kind = nextRecord();
    if (kind == kEndOfRecords) {
        return false;
    }
    bodyPosition_ = reader_.stream().position();
    tagWord_ = reader_.state().lastTagWord;
    return kind == kSampleRecord ? scanSample() : scanEvent();
}

bool Prescan::scanSample() {
    if (reader_.read_combfile_sample(&sample_, 0, true, SampleDetail::Scan) < 0) {
        print_log("error reading trk file 2\n");
        if (!options_.tolerant) {
            throwException("Error reading Sample - type");
        }
        print_log("Unexpected file read error while reading sample; simulating end reached. \n");
        return false;
    }
    if (!anyRecord_) {
        facts_.firstSampleTime = sample_.time;
        anyRecord_ = true;
    }
    facts_.lastSampleTime = std::max(facts_.lastSampleTime, sample_.time);
    if (options_.loadSamples) {
        indexSample();
    }
    return true;
}

void Prescan::indexSample() {
    if (sample_.input != TRK_WORD_ABSENT) {
        facts_.inputDataAvailability |= PrescanFacts::kSampleInputs;
    }
    const uint64_t key = gaps_.keyOf(sample_.time);
    if (options_.fillGaps) {
        fillGap(key);
    }
    append({bodyPosition_, REC_SAMPLE, tagWord_, key});
    gaps_.advance(sample_.time);
}

void Prescan::fillGap(uint64_t key) {
    const GapFiller::Gap gap = gaps_.check(key, reader_.state().sampleRate);
    filledSamples_ += gap.count;
    if (filledSamples_ > options_.mostFilledSamples) {
        throwException("Too many missing samples");
    }
    for (uint32_t i = 1; i <= gap.count; ++i) {
        append({kNoFilePosition, REC_SAMPLE, 0, gap.keyBefore + i * gap.period});
    }
}

bool Prescan::scanEvent() {
    event_ = EData();
    if (reader_.read_combfile_event(event_, true) < 0) {
        print_log("error reading trk file 1\n");
        if (!options_.tolerant) {
            throwException("Error reading event - type(preScan)");
        }
        print_log("Unexpected file read error while reading event; simulating end reached. \n");
        return false;
    }
    if (!anyRecord_) {
        facts_.firstSampleTime = event_.start_time;
        anyRecord_ = true;
    }
    facts_.lastSampleTime = std::max({facts_.lastSampleTime, event_.start_time, event_.end_time});
    indexEvent();
    return true;
}

void Prescan::indexEvent() {
    const bool blockEvent = event_.type >= REC_STARTSAMPLES && event_.type <= REC_ENDEVENTS;
    if (event_.type == 0) {
        if (options_.tolerant) {
            print_log("Unexpected event type tag 0. Skipping event \n");
        }
        return;
    }
    if (!options_.loadEvents && !blockEvent) {
        return;
    }
    switch (event_.type) {
    case REC_EVENT1:
        static_cast<void>(lacksTime());
        return;
    case REC_EVENT2:
        return;
    case REC_SBLINK:
    case REC_SSACC:
    case REC_SFIX:
        if (!lacksTime()) {
            appendEvent(event_.start_time, eyeField());
        }
        return;
    case REC_EBLINK:
    case REC_ESACC:
    case REC_EFIX:
        return appendEvent(event_.end_time, eyeField());
    case REC_STARTSAMPLES:
    case REC_STARTEVENTS:
        return startBlock();
    case REC_ENDSAMPLES:
    case REC_ENDEVENTS:
        return endBlock();
    case REC_RECORDING:
        // The index uses this code for its own recording blocks; a record of the file that carries it has none.
        return;
    case REC_INPUT:
        facts_.inputDataAvailability |= PrescanFacts::kInputEvents;
        return appendEvent(event_.start_time, 0);
    default:
        return appendEvent(event_.start_time, 0);
    }
}

// In a tolerant scan, a start event without a time is reported and skipped.
bool Prescan::lacksTime() const {
    if (!options_.tolerant || event_.start_time != 0) {
        return false;
    }
    print_log("Unexpected time stamp 0. Skipping event \n");
    return true;
}

// Whether the blocks of this event's kind are indexed: those of samples go with the samples, those of events with
// the events.
bool Prescan::blockIsLoaded() const {
    const bool samples = event_.type == REC_STARTSAMPLES || event_.type == REC_ENDSAMPLES;
    return samples ? options_.loadSamples : options_.loadEvents;
}

void Prescan::startBlock() {
    gaps_.forgetTimes();
    gaps_.forgetPeriod();
    if (blockIsLoaded()) {
        makeRoom();
        blocks_.start(event_, reader_.state());
        appendEvent(event_.start_time, eyeField());
    }
}

void Prescan::endBlock() {
    gaps_.forgetTimes();
    if (blockIsLoaded()) {
        withdrawExtension();
        makeRoom();
        blocks_.end(event_, reader_.state());
        appendEvent(event_.start_time, eyeField());
    }
}

// Clears the extension bit of the block at hand when the last sample read says so.
void Prescan::withdrawExtension() {
    if (!options_.loadSamples || index_.recordings().empty()) {
        return;
    }
    FRECORDING &last = index_.recordings().back();
    if (last.state == TRK_BLOCK_START && (sample_.flags & TRK_SAMPLE_EXTENSION) != 0 &&
        (sample_.ext_type & kExtensionKindMask) == kWithdrawingExtension) {
        last.sample_content_flags &= static_cast<uint16_t>(~TRK_SAMPLE_EXTENSION);
    }
}

unsigned Prescan::eyeField() const { return event_.eye != 0 ? 2 : 1; }

void Prescan::appendEvent(uint32_t time, unsigned eye) {
    append({bodyPosition_, static_cast<uint16_t>(static_cast<unsigned>(event_.type) | eye << 8), tagWord_,
            keyOfTime(time)});
}

void Prescan::append(const TRKItem &item) {
    makeRoom();
    index_.append(item);
}

// Before an item is added.
void Prescan::makeRoom() {
    if (index_.isFull()) [[unlikely]] {
        if (index_.size() >= options_.mostItems) {
            throwException("Too many items");
        }
        index_.makeRoom(reader_.stream().position(), totalBytes_, options_.mostItems);
    }
}

} // namespace trk
