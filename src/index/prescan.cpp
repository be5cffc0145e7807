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
    } catch (const TRKException &error) {
        if (!options_.tolerant) {
            throw;
        }
        logLine("Error reading items %s \n", error.text());
    }
    index_.sortItems();
    return facts_;
}

// Reads one record; returns false at the end of the scan. A tolerant scan passes over one end mark.
bool Prescan::scanRecord() {
    record_ = reader_.next();
    if (options_.tolerant && record_.kind == RecordKind::EndMark) {
        facts_.passedEndMark = true;
        record_ = reader_.next();
    }
    if (record_.kind == RecordKind::EndMark) {
        return false;
    }
    return record_.kind == RecordKind::SampleRecord ? scanSample() : scanEvent();
}

// Decodes a record; one that is cut short is reported and counts as unreadable.
template <class Decode> bool Prescan::readBody(Decode decode) {
    try {
        return decode();
    } catch (const TRKException &error) {
        logLine("Error %s \n", error.text());
        return false;
    }
}

// The time of the first record, and the largest one.
void Prescan::seeTime(uint32_t first, uint32_t last) {
    if (!anyRecord_) {
        facts_.firstTime = first;
        anyRecord_ = true;
    }
    facts_.lastTime = std::max({facts_.lastTime, first, last});
}

bool Prescan::scanSample() {
    if (!readBody([this] { return reader_.readSample(record_.tag, sample_, 0, SampleDetail::Scan); })) {
        logLine("error reading trk file 2\n");
        if (!options_.tolerant) {
            throw TRKException("Error reading Sample - type");
        }
        logLine("Unexpected file read error while reading sample; simulating end reached. \n");
        return false;
    }
    seeTime(sample_.time, sample_.time);
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
    append({record_.position, REC_SAMPLE, record_.tag, key});
    gaps_.advance(sample_.time);
}

void Prescan::fillGap(uint64_t key) {
    const GapFiller::Gap gap = gaps_.check(key, reader_.state().sampleRate);
    filledSamples_ += gap.count;
    if (filledSamples_ > options_.mostFilledSamples) {
        throw TRKException("Too many missing samples", TRK_ERROR_TOO_LARGE);
    }
    if (gap.count > 0) {
        ++facts_.filledGaps[gap.count];
    }
    for (uint32_t i = 1; i <= gap.count; ++i) {
        append({kNoFilePosition, REC_SAMPLE, 0, gap.keyBefore + i * gap.period});
    }
}

bool Prescan::scanEvent() {
    if (!readBody([this] { return reader_.readEvent(record_.tag, event_); })) {
        logLine("error reading trk file 1\n");
        if (!options_.tolerant) {
            throw TRKException("Error reading event - type(preScan)");
        }
        logLine("Unexpected file read error while reading event; simulating end reached. \n");
        return false;
    }
    seeTime(event_.start_time, event_.end_time);
    indexEvent();
    return true;
}

void Prescan::indexEvent() {
    if (event_.type == 0) {
        if (options_.tolerant) {
            logLine("Unexpected event type tag 0. Skipping event \n");
        }
        return;
    }
    if (!options_.loadEvents && !kBlockBoundaries.contains(static_cast<unsigned>(event_.type))) {
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
    logLine("Unexpected time stamp 0. Skipping event \n");
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
    append({record_.position, static_cast<uint16_t>(static_cast<unsigned>(event_.type) | eye << 8), record_.tag,
            TimeKey::of(time)});
}

void Prescan::append(const Item &item) {
    makeRoom();
    index_.append(item);
}

// Before an item is added.
void Prescan::makeRoom() {
    if (index_.isFull()) [[unlikely]] {
        if (index_.size() >= options_.mostItems) {
            throw TRKException("Too many items", TRK_ERROR_TOO_LARGE);
        }
        index_.makeRoom(reader_.stream().position(), totalBytes_, options_.mostItems);
    }
}

} // namespace trk
