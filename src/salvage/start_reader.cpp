#include "salvage/start_reader.h"

#include "records/block_facts.h"
#include "records/codes.h"
#include "salvage/sample_clock.h"

#include <algorithm>

namespace trk {

namespace {

constexpr std::size_t kSamplesOfBeat = 400; // in so many, rates of 500 and 501 differ by more than a millisecond
constexpr std::size_t kSamplesThatShow = 8; // so many of one content are no accident
constexpr int kEventsPassedOver = 48;

// Starts closer than this mislead nobody who looks at the records behind them, ms.
constexpr uint32_t kCloseTogether = 1000;

// How many of the samples keep the beat of a rate, 16.16 fixed point.
int samplesInBeat(const std::vector<ParsedRecord> &samples, uint32_t rate) {
    constexpr double kPeriodUnit = 65536.0 * 1000;
    const double period = rate != 0 ? kPeriodUnit / rate : 1000.0 / static_cast<double>(kDefaultSampleRate);
    SampleClock clock;
    uint32_t time = 0;
    clock.start(period, time);
    int kept = 0;
    for (std::size_t i = 1; i < samples.size() && !samples[i].fullTime; ++i) {
        time += samples[i].time;
        if (clock.take(time)) {
            ++kept;
        } else {
            clock.start(period, time);
        }
    }
    return kept;
}

// A block starts before its first sample, and not long before it.
uint32_t likelierStart(uint32_t a, uint32_t b, uint32_t firstSample) {
    if ((a <= firstSample) != (b <= firstSample)) {
        return a <= firstSample ? a : b;
    }
    return a <= firstSample ? std::max(a, b) : std::min(a, b);
}

} // namespace

// The first samples behind `offset`, no more than `count`, with the events between them passed over.
std::vector<ParsedRecord> StartReader::samplesFrom(int64_t offset, std::size_t count) {
    std::vector<ParsedRecord> samples;
    for (int events = 0; events < kEventsPassedOver && samples.size() < count;) {
        const ParsedRecord record = parseRecord(view_.at(offset, kLongestRecord));
        if (record.isSample()) {
            samples.push_back(record);
        } else if (!record.isEvent() || !kEvents.contains(record.code) || kBlockEnds.contains(record.code)) {
            break;
        }
        events += record.isEvent() ? 1 : 0;
        offset += static_cast<int64_t>(record.length);
    }
    return samples;
}

bool StartReader::isFar(uint32_t start, uint32_t sample) {
    constexpr uint32_t kLongestWait = 600'000;
    return std::max(start, sample) - std::min(start, sample) > kLongestWait;
}

void StartReader::settleAlone(ParsedRecord &record, int64_t behind, uint32_t reference) {
    const std::vector<ParsedRecord> first = samplesFrom(behind, 1);
    if (record.code == REC_STARTSAMPLES && !first.empty() && first.front().fullTime &&
        isFar(record.start, first.front().time) && first.front().time >= reference) {
        record.start = record.time = first.front().time;
    }
}

void StartReader::settle(ParsedRecord &record, int64_t offset, uint32_t reference) {
    const int64_t behind = offset + static_cast<int64_t>(record.length);
    const ParsedRecord twin = parseRecord(view_.at(behind, kLongestRecord));
    if (!twin.isEvent() || !kBlockStarts.contains(twin.code) || twin.code == record.code) {
        return settleAlone(record, behind, reference);
    }
    const uint32_t apart = std::max(record.start, twin.start) - std::min(record.start, twin.start);
    if (apart <= kCloseTogether && record.end == twin.end) {
        return;
    }
    const std::vector<ParsedRecord> samples =
        samplesFrom(behind + static_cast<int64_t>(twin.length), kSamplesOfBeat);
    if (record.end != twin.end) {
        const int own = samplesInBeat(samples, record.end);
        const int other = samplesInBeat(samples, twin.end);
        if (own == other) {
            return;
        }
        record.end = other > own ? twin.end : record.end;
    }
    if (apart > kCloseTogether) {
        const bool told = !samples.empty() && samples.front().fullTime;
        record.time = told ? likelierStart(record.start, twin.start, samples.front().time)
                           : std::max(reference, std::min(record.start, twin.start));
        record.start = record.time;
    }
    record.settled = true;
}

uint16_t StartReader::contentShown(const ParsedRecord &record, int64_t offset) {
    const uint16_t announced = record.status;
    const int64_t behind = offset + static_cast<int64_t>(record.length);
    const std::vector<ParsedRecord> first = samplesFrom(behind, 1);
    if (announced == 0 || first.empty() || sampleFits(first.front().tag, announced)) {
        return announced;
    }
    const std::vector<ParsedRecord> samples = samplesFrom(behind, kSamplesThatShow);
    const auto shown = static_cast<uint16_t>((announced & ~kSteadyContent) |
                                             (first.front().tag & (kSteadyContent | kAnnouncedContent)));
    const bool agreed =
        samples.size() == kSamplesThatShow && std::ranges::all_of(samples, [=](const auto &sample) {
            return sampleFits(sample.tag, shown) && !sampleFits(sample.tag, announced);
        });
    return agreed ? shown : announced;
}

} // namespace trk
