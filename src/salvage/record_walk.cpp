#include "salvage/record_walk.h"

#include "records/block_facts.h"
#include "records/codes.h"

#include <algorithm>
#include <cstdlib>
#include <string>

namespace trk {

namespace {

// How far the time of an event may lie from that of the records around it, ms. Trackers write events some
// milliseconds late; programs may send messages about what was seconds ago.
constexpr int64_t kLargestLead = 10'000;
constexpr int64_t kLargestLag = 600'000;

// What must be seen of records that follow each other before they are believed: a sample of the content of its
// block counts 1, a whole event 2, a start of samples, which all that follows goes by, 3.
constexpr int kBelieved = 7;
constexpr int kBelievedAtEnd = 2;
constexpr int kMostLookedAt = 16;

constexpr uint64_t formOf(unsigned code, uint32_t fields) { return uint64_t{code} << 32 | fields; }

int64_t since(uint32_t earlier, uint32_t later) { return int64_t{later} - int64_t{earlier}; }

} // namespace

void RecordWalk::report(DamageKind kind, int64_t begin, int64_t until, std::string text) {
    damages.push_back({kind, begin, until - begin, state_.block.reference, std::move(text)});
}

// The lost range that bytes reach into; null when there is none.
const LostRange *RecordWalk::lostIn(int64_t begin, int64_t until) const {
    const auto range = std::ranges::partition_point(
        options_.lost, [begin](const LostRange &lost) { return std::max(lost.end, lost.begin + 1) <= begin; });
    return range != options_.lost.end() && range->begin < until ? &*range : nullptr;
}

bool RecordWalk::tearsAt(int64_t begin, int64_t until) const { return lostIn(begin, until) != nullptr; }

void RecordWalk::run() {
    at_ = options_.begin;
    while (true) {
        const ParsedRecord record = settledAt(at_, state_.block);
        const int64_t next = at_ + static_cast<int64_t>(record.length);
        if (record.form == ParsedRecord::Form::EndMark && !tearsAt(at_, next)) {
            if (!meetEndMark(at_)) {
                break;
            }
        } else if (record.length == 0 || record.form == ParsedRecord::Form::Cut) {
            const int64_t streamEnd = at_ + static_cast<int64_t>(view_.at(at_, kLongestRecord).size());
            if (streamEnd == at_ || !nextSense(at_ + 1)) {
                end = streamEnd;
                report(DamageKind::Cut, at_, end,
                       end == at_ ? "the records end without an end mark" : "the last record is cut short");
                cuts.push_back({at_, end});
                break;
            }
            passOver(at_, record);
        } else if (tearsAt(at_, next) || judge(record, state_.block) != Verdict::Sound) {
            if (!passOver(at_, record)) {
                break;
            }
        } else {
            take(at_, record);
            at_ = next;
        }
    }
    finish();
}

void RecordWalk::finish() {
    if (state_.block.samplesOpen || state_.block.eventsOpen) {
        if (damages.empty() || damages.back().offset + damages.back().length < end) {
            report(DamageKind::BlockEndMissing, end, end, "the last recording block has no end");
        }
    }
}

// An end mark is one only where no records follow. Returns whether the walk goes on.
bool RecordWalk::meetEndMark(int64_t offset) {
    const int64_t behind = offset + 2;
    if (view_.at(behind, 1).empty()) {
        end = behind;
        return false;
    }
    if (const std::optional<int64_t> sense = nextSense(behind)) {
        // What the end mark was made from may begin in the record before it.
        int64_t begin = offset;
        if (before_ && !lastIsSettled_) {
            begin = lastOffset_;
            takeBack();
        }
        report(DamageKind::EarlyEndMark, begin, *sense, "an end mark stands before records");
        cuts.push_back({begin, *sense});
        lost_ = true;
        lostBytes_ += *sense - begin;
        at_ = *sense;
        state_.block.timed = false;
        before_.reset();
        return true;
    }
    end = endOfStream(behind);
    report(DamageKind::BehindEnd, behind, end, "bytes that are no records stand behind the end mark");
    cuts.push_back({behind, end});
    return false;
}

// A start of a block comes as the records behind it show that it was.
ParsedRecord RecordWalk::settledAt(int64_t offset, const BlockContext &block) {
    ParsedRecord record = recordAt(offset);
    if (!record.isEvent() || !kBlockStarts.contains(record.code)) {
        return record;
    }
    if (block.settled && block.startedBy != record.code) {
        record.start = record.time = block.reference;
        record.end = block.statedRate;
    } else {
        starts_.settle(record, offset, block.reference);
    }
    if (record.code == REC_STARTSAMPLES) {
        record.status = starts_.contentShown(record, offset);
    }
    return record;
}

// Other events turn into starts and ends of blocks by one wrong bit. As a start they would take the divisors away
// from the samples that follow.
bool RecordWalk::boundaryFits(const ParsedRecord &record, const BlockContext &block) {
    if (record.code == REC_STARTSAMPLES) {
        return (record.status & kSampleEyes) != 0 && !record.hasMessage;
    }
    const bool startsAlone = record.code == REC_STARTEVENTS && block.startedBy == 0;
    const bool undivided = startsAlone && block.samplesOpen && record.gazeDivisor == 0;
    return !undivided && !record.hasMessage;
}

RecordWalk::Verdict RecordWalk::judge(const ParsedRecord &record, const BlockContext &block) {
    if (record.isSample()) {
        const bool near = !record.fullTime || std::abs(since(block.reference, record.time)) <= kLargestLag;
        const bool fits = block.samplesOpen && sampleFits(record.tag, block.content);
        return fits && near ? Verdict::Sound : Verdict::Implausible;
    }
    if (!record.isEvent()) {
        return Verdict::NoRecord;
    }
    if (!kEvents.contains(record.code) || record.repeatsField || !(record.hasStart || record.hasEnd)) {
        return Verdict::Implausible;
    }
    if (kBlockBoundaries.contains(record.code) && !boundaryFits(record, block)) {
        return Verdict::Implausible;
    }
    const int64_t distance = since(block.reference, record.time);
    const bool inBlock = block.samplesOpen || block.eventsOpen;
    const bool mayBeLater = !inBlock || kBlockStarts.contains(record.code);
    const int64_t largestLead = block.timed ? kLargestLead : kLargestLag;
    const bool tooLate = !mayBeLater && distance > largestLead;
    return distance < -kLargestLag || tooLate ? Verdict::Implausible : Verdict::Sound;
}

// Keeps the context up while records are followed.
void RecordWalk::follow(const ParsedRecord &record, BlockContext &block) const {
    block.startedBy = record.isEvent() && kBlockStarts.contains(record.code) ? record.code : 0;
    block.settled = record.settled;
    if (record.isSample()) {
        const uint32_t step = record.fullTime ? 0 : record.time;
        block.sampleTime = record.fullTime ? record.time : block.sampleTime + step;
        block.reference = record.fullTime ? record.time : block.reference + step;
        block.timed = block.timed || record.fullTime;
    } else if (kBlockStarts.contains(record.code)) {
        startBlock(record, block);
    } else {
        if (kBlockEnds.contains(record.code)) {
            (record.code == REC_ENDSAMPLES ? block.samplesOpen : block.eventsOpen) = false;
        }
        // Inside a block its samples tell the time, once it is known.
        if (!block.timed || !block.samplesOpen) {
            block.reference = block.timed ? std::max(block.reference, record.time) : record.time;
        }
        block.timed = true;
    }
}

void RecordWalk::startBlock(const ParsedRecord &record, BlockContext &block) const {
    constexpr double kRateUnit = 1.0 / 65536;
    constexpr double kKeptRate = 500;
    block.statedRate = record.end;
    if (options_.fileRevision != 0 && record.end != 0) {
        block.rate = record.end * kRateUnit;
    } else if (options_.fileRevision == 0 || block.rate != kKeptRate) {
        block.rate = static_cast<double>(kDefaultSampleRate);
    }
    if (record.code == REC_STARTSAMPLES) {
        block.samplesOpen = true;
        block.samplesDivisor = record.gazeDivisor;
        block.content = record.status;
    } else {
        block.eventsOpen = true;
    }
    block.sampleTime = block.reference = record.start;
    block.timed = true;
}

// What is found by searching must not be trusted for its looks.
bool RecordWalk::isKnownForm(const ParsedRecord &record) const {
    return !record.isEvent() || kBlockBoundaries.contains(record.code) ||
           forms_.contains(formOf(record.code, record.fields));
}

// How much a record that may be sound speaks for those around it. The first sample tells nothing of the beat when
// what was before it is lost.
int RecordWalk::beliefIn(const ParsedRecord &record, const BlockContext &block, bool first) {
    if (record.isEvent()) {
        return record.code == REC_STARTSAMPLES ? 3 : 2;
    }
    const bool apart = !record.fullTime && record.time > 2 * 1000 / std::max(block.rate, 1.0) + 2;
    return apart && !first ? 0 : 1;
}

// Whether records that are to be believed begin here.
bool RecordWalk::makesSense(int64_t offset, BlockContext block, bool afterLoss) {
    int belief = 0;
    bool firstSample = true;
    block.timed = block.timed && !afterLoss;
    for (int i = 0; i < kMostLookedAt && belief < kBelieved; ++i) {
        const ParsedRecord record = settledAt(offset, block);
        const int64_t next = offset + static_cast<int64_t>(record.length);
        const bool endMark = record.form == ParsedRecord::Form::EndMark;
        if (i > 0 && (record.length == 0 || (endMark && view_.at(next, 1).empty()))) {
            return belief >= kBelievedAtEnd; // the end of the stream
        }
        if (record.form == ParsedRecord::Form::Cut || judge(record, block) != Verdict::Sound ||
            record.hasUnknownField || tearsAt(offset, next)) {
            return false;
        }
        if (afterLoss && i == 0 && !isKnownForm(record)) {
            return false;
        }
        follow(record, block);
        belief += beliefIn(record, block, firstSample);
        firstSample = firstSample && record.isEvent();
        offset = next;
    }
    return belief >= kBelieved;
}

int64_t RecordWalk::endOfStream(int64_t from) {
    while (const std::size_t more = view_.at(from, kLongestRecord).size()) {
        from += static_cast<int64_t>(more);
    }
    return from;
}

// The next place from which records make sense. A sample that is found by searching may be made of the bytes of
// two, so that it ends where one ends: the place is that behind it.
std::optional<int64_t> RecordWalk::nextSense(int64_t from) {
    while (true) {
        const std::span<const uint8_t> bytes = view_.at(from, kLongestRecord);
        if (bytes.size() < 2) {
            return std::nullopt;
        }
        const uint16_t tag = loadWord(bytes.data());
        const bool worthwhile = isSampleTag(tag)
                                    ? state_.block.samplesOpen && sampleFits(tag, state_.block.content)
                                    : kEvents.contains(static_cast<unsigned>(eventCodeOfTag(tag)));
        if (worthwhile && makesSense(from, state_.block, true)) {
            return isSampleTag(tag) ? from + static_cast<int64_t>(parseRecord(bytes).length) : from;
        }
        ++from;
    }
}

// Leaves out what makes no sense. Returns false when nothing behind it does.
bool RecordWalk::passOver(int64_t offset, const ParsedRecord &record) {
    const int64_t next = offset + static_cast<int64_t>(record.length);
    const bool framed = (record.isEvent() || record.isSample()) && !tearsAt(offset, next);
    // Only where it looks like others of its kind is it one event, and not the halves of two.
    if (framed && record.isEvent() && isKnownForm(record) && makesSense(next, state_.block, false)) {
        report(DamageKind::Implausible, offset, next, "an event that cannot be");
        cuts.push_back({offset, next});
        at_ = next;
        before_.reset();
        return true;
    }
    // Bytes may be missing from the record before it, which then has taken the first bytes of this one.
    int64_t begin = offset;
    if (before_ && !lastIsSettled_) {
        begin = lastOffset_;
        takeBack();
    }
    const LostRange *const lost = lostIn(offset, next);
    const std::optional<int64_t> sense = nextSense(std::max(begin + 1, lost != nullptr ? lost->end : begin));
    const int64_t until = sense ? *sense : endOfStream(begin);
    report(record.form == ParsedRecord::Form::Malformed ? DamageKind::UnreadableRecord : DamageKind::Implausible,
           begin, until, "bytes that are no sound records");
    cuts.push_back({begin, until});
    lost_ = true;
    lostBytes_ += until - begin;
    at_ = until;
    end = until;
    state_.block.timed = false;
    before_.reset();
    waiting_.clear();
    return sense.has_value();
}

// ---- Taking records ----

void RecordWalk::take(int64_t offset, const ParsedRecord &record) {
    before_ = State{state_.block,
                    state_.lastKey,
                    state_.blocks,
                    runs.size(),
                    runs.empty() ? std::nullopt : std::optional(runs.back()),
                    events.size(),
                    starts.size(),
                    waiting_.empty() ? events.size() : waiting_.front()};
    lastOffset_ = offset;
    if (record.isSample()) {
        lastIsSettled_ = false;
        takeSample(offset, record);
    } else {
        checkBlock(offset, record);
        takeEvent(offset, record);
    }
}

void RecordWalk::takeBack() {
    if (!before_) {
        return;
    }
    state_.block = before_->block;
    state_.lastKey = before_->lastKey;
    state_.blocks = before_->blocks;
    runs.resize(before_->runs);
    if (before_->lastRun) {
        runs.back() = *before_->lastRun;
    }
    events.resize(std::min(events.size(), before_->events));
    starts.resize(std::min(starts.size(), before_->starts));
    for (std::size_t event = before_->firstWaiting; event < events.size(); ++event) {
        events[event].run = SeenEvent::kNoRun; // the sample beside it is not there
    }
    waiting_.clear();
    before_.reset();
}

void RecordWalk::takeSample(int64_t offset, const ParsedRecord &record) {
    follow(record, state_.block);
    const uint32_t time = state_.block.sampleTime;
    const bool firstOfBlock = runs.empty() || runs.back().block != state_.blocks;
    const bool repeated = !firstOfBlock && !lost_ && TimeKey::time(state_.lastKey) == time;
    const uint64_t key = TimeKey::of(time, repeated);
    const int64_t next = offset + static_cast<int64_t>(record.length);
    if (firstOfBlock || lost_ || !runs.back().clock.take(time)) {
        if (!firstOfBlock && !lost_) {
            waiting_.clear(); // the samples that they stood beside were not recorded
        }
        SampleRun run{.begin = offset,
                      .firstKey = key,
                      .lostBytes = lostBytes_,
                      .sampleSize = lastSampleSize_,
                      .block = state_.blocks,
                      .isBroken = lost_ && !record.fullTime,
                      .firstOfBlock = firstOfBlock,
                      .fullTime = record.fullTime};
        run.afterBreak = run.isBroken || (!firstOfBlock && !record.fullTime && runs.back().afterBreak);
        run.clock.start(state_.block.rate > 0 ? 1000 / state_.block.rate : 0, time);
        runs.push_back(run);
        lost_ = false;
        lostBytes_ = 0;
    }
    SampleRun &run = runs.back();
    run.end = next;
    run.lastKey = state_.lastKey = key;
    if (!record.fullTime) {
        lastSampleSize_ = static_cast<uint32_t>(record.length);
    }
    for (const uint32_t event : waiting_) {
        if (event < events.size()) {
            events[event].run = static_cast<uint32_t>(runs.size() - 1);
            events[event].sampleKey = key;
        }
    }
    waiting_.clear();
}

void RecordWalk::checkBlock(int64_t offset, const ParsedRecord &record) {
    BlockContext &block = state_.block;
    const bool samples = record.code == REC_STARTSAMPLES || record.code == REC_ENDSAMPLES;
    const bool open = samples ? block.samplesOpen : block.eventsOpen;
    if (kBlockStarts.contains(record.code)) {
        if (open && !lost_) {
            report(DamageKind::BlockEndMissing, offset, offset, "a recording block starts within another");
        }
    } else if (kBlockEnds.contains(record.code) && !open && !lost_) {
        report(DamageKind::Implausible, offset, offset, "a recording block ends that did not start");
    }
}

void RecordWalk::takeEvent(int64_t offset, const ParsedRecord &record) {
    lastIsSettled_ = ++forms_[formOf(record.code, record.fields)] > 1 && !record.hasUnknownField;
    SeenEvent event{.offset = offset,
                    .length = static_cast<uint32_t>(record.length),
                    .time = record.time,
                    .start = record.start,
                    .fields = record.fields,
                    .code = static_cast<uint8_t>(record.code),
                    .eye = static_cast<uint8_t>(eyeOfTag(record.tag)),
                    .hasStart = record.hasStart};
    const bool endsBlock = kBlockEnds.contains(record.code);
    if (endsBlock && !lost_ && !runs.empty() && runs.back().block == state_.blocks && state_.blocks > 0) {
        event.run = static_cast<uint32_t>(runs.size() - 1);
        event.sampleKey = state_.lastKey;
    }
    events.push_back(event);
    const bool startsSamples = record.code == REC_STARTSAMPLES;
    follow(record, state_.block);
    if (startsSamples) {
        ++state_.blocks;
        lost_ = false;
        lostBytes_ = 0;
        waiting_.clear();
        const BlockContext &block = state_.block;
        firstBlock_ = firstBlock_.value_or(block);
        blocksDiffer = blocksDiffer || block.samplesDivisor != firstBlock_->samplesDivisor ||
                       block.content != firstBlock_->content || block.rate != firstBlock_->rate;
    }
    if (kBlockStarts.contains(record.code)) {
        noteStart(offset);
    }
    if (!endsBlock && state_.block.samplesOpen) {
        waiting_.push_back(static_cast<uint32_t>(events.size() - 1));
    }
}

void RecordWalk::noteStart(int64_t offset) {
    const ParsedRecord stated = recordAt(offset);
    starts.push_back({.offset = offset,
                      .length = static_cast<uint32_t>(stated.length),
                      .block = state_.blocks,
                      .code = stated.code,
                      .time = stated.start,
                      .rate = stated.end,
                      .gazeDivisor = stated.gazeDivisor,
                      .velocityDivisor = stated.velocityDivisor,
                      .content = stated.status,
                      .rateShown = state_.block.statedRate,
                      .contentShown = state_.block.content,
                      .reference = before_ ? before_->block.reference : 0});
}

} // namespace trk
