#include "salvage/record_parser.h"

#include "io/input_stream.h"
#include "records/codes.h"
#include "records/event_fields.h"
#include "records/sample_layout.h"

#include <algorithm>
#include <array>

namespace trk {

namespace {

// Walks over the bytes of a record.
class Cursor {
  public:
    explicit Cursor(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    [[nodiscard]] std::size_t passed() const { return passed_; }
    [[nodiscard]] bool failed() const { return failed_; }

    bool has(std::size_t count) {
        failed_ = failed_ || bytes_.size() - passed_ < count;
        return !failed_;
    }
    void skip(std::size_t count) { passed_ += has(count) ? count : 0; }
    uint8_t byte() { return has(1) ? bytes_[passed_++] : uint8_t{0}; }
    uint16_t word() {
        passed_ += has(2) ? 2 : 0;
        return failed_ ? uint16_t{0} : loadWord(&bytes_[passed_ - 2]);
    }
    uint32_t integer() {
        passed_ += has(4) ? 4 : 0;
        return failed_ ? 0 : loadInt(&bytes_[passed_ - 4]);
    }

  private:
    std::span<const uint8_t> bytes_;
    std::size_t passed_ = 0;
    bool failed_ = false;
};

void skipList(Cursor &cursor) {
    while (const uint8_t length = cursor.byte()) {
        cursor.skip(std::size_t{1} + length);
    }
}

void parseSample(Cursor &cursor, ParsedRecord &record) {
    const uint16_t tag = record.tag;
    record.form = ParsedRecord::Form::Sample;
    record.fullTime = (tag & TRK_SAMPLE_FULL_TIME) != 0;
    record.time = record.fullTime ? cursor.integer() : cursor.byte();
    cursor.skip(kEyeDataSizes[tag >> 8]);
    for (const uint16_t word : {TRK_SAMPLE_STATUS, TRK_SAMPLE_INPUT, TRK_SAMPLE_BUTTONS}) {
        cursor.skip((tag & word) != 0 ? 2 : 0);
    }
    if ((tag & TRK_SAMPLE_EXTENSION) != 0) {
        cursor.skip(2 * extensionWordCount(cursor.byte()));
    }
    for (const uint16_t list : {TRK_SAMPLE_SKIP_LIST1, TRK_SAMPLE_SKIP_LIST2}) {
        if ((tag & list) != 0) {
            skipList(cursor);
        }
    }
}

void parseField(Cursor &cursor, uint8_t field, ParsedRecord &record) {
    const std::size_t size = kEventFieldSizes[field];
    if (field == EventField::StartTime) {
        record.hasStart = true;
        record.start = cursor.integer();
    } else if (field == EventField::EndTime) {
        record.hasEnd = true;
        record.end = cursor.integer();
    } else if (field == EventField::Status) {
        record.status = cursor.word();
    } else if (field == EventField::StartPupilSize) {
        record.gazeDivisor = cursor.word();
    } else if (field == EventField::EndPupilSize) {
        record.velocityDivisor = cursor.word();
    } else if (size != 0) {
        cursor.skip(size);
    } else {
        record.hasUnknownField = true;
    }
}

void parseEvent(Cursor &cursor, ParsedRecord &record) {
    constexpr uint32_t kDigestFactor = 0x01000193; // of FNV-1
    record.form = ParsedRecord::Form::Event;
    record.code = static_cast<unsigned>(eventCodeOfTag(record.tag));
    record.fields = parseFlagsOfTag(record.tag);
    std::array<uint64_t, 4> seen{};
    while (const uint8_t field = cursor.byte()) {
        uint64_t &group = seen[field / 64];
        const uint64_t bit = uint64_t{1} << field % 64;
        record.repeatsField = record.repeatsField || (group & bit) != 0;
        group |= bit;
        record.fields = (record.fields ^ field) * kDigestFactor;
        if (field != EventField::Message) {
            parseField(cursor, field, record);
            continue;
        }
        record.hasMessage = true;
        const std::size_t length = cursor.word();
        if (length > kLongestMessage) {
            record.form = ParsedRecord::Form::Malformed;
            return;
        }
        cursor.skip(length);
    }
    const bool startsBlock = kBlockStarts.contains(record.code);
    if (!record.hasStart && record.hasEnd && !startsBlock) {
        record.start = record.end;
    }
    record.time = startsBlock || !record.hasEnd ? record.start : std::max(record.start, record.end);
}

} // namespace

std::vector<uint8_t> withField(std::span<const uint8_t> event, uint8_t field, uint32_t value) {
    std::vector<uint8_t> bytes(event.begin(), event.end());
    std::size_t at = 2;
    while (at + 1 < bytes.size() && bytes[at] != field) {
        at += std::size_t{1} + kEventFieldSizes[bytes[at]];
    }
    const std::size_t size = kEventFieldSizes[field];
    if (at + 1 + size >= bytes.size()) {
        at = bytes.size() - 1; // the event's end
        bytes.insert(bytes.end() - 1, 1 + size, field);
    }
    for (std::size_t i = size; i > 0; --i, value >>= 8) {
        bytes[at + i] = static_cast<uint8_t>(value);
    }
    return bytes;
}

ParsedRecord parseRecord(std::span<const uint8_t> bytes) {
    Cursor cursor(bytes.first(std::min(bytes.size(), kLongestRecord)));
    ParsedRecord record;
    record.tag = cursor.word();
    if (cursor.failed()) {
        return record;
    }
    if (record.tag == 0) {
        record.form = ParsedRecord::Form::EndMark;
    } else if (isSampleTag(record.tag)) {
        parseSample(cursor, record);
    } else {
        parseEvent(cursor, record);
    }
    record.length = cursor.passed();
    if (cursor.failed()) {
        record.form = bytes.size() < kLongestRecord ? ParsedRecord::Form::Cut : ParsedRecord::Form::Malformed;
    }
    return record;
}

} // namespace trk
