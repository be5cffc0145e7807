// The lower layer of the recording writer: raw words, byte by byte, valid or not. docs/recording-format.md
// explains them. What a sound recording holds is checked by the upper layer, recorder.h.
//
//     RecordingWriter writer;
//     writer.startBlock({.time = 1000, .rate = 500});
//     writer.sample(1000, {960, 540}).sample(1002, {961, 540});
//     writer.event(EventRecord(REC_EBLINK, LeftEye).times(1000, 1040));
//     writer.message(1003, "TRIALID 1").endBlock(1004).end();
//     const Bytes file = writer.plain();
//
// All numbers are given as they stand in the file: gaze 960 under a gaze divisor of 10 reads 96.0. Times are
// milliseconds. What does not fit its field is cut to the field's width. Codes of events are the REC_* codes,
// flags of samples the TRK_SAMPLE_* bits of trkapi.h. Nothing here fails but for want of memory (std::bad_alloc),
// and all results are values of their own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace trkwriter::raw {

using Bytes = std::string;

// ---- Bytes: big-endian numbers appended to a byte string ----

void putByte(Bytes &bytes, unsigned value);
void putWord(Bytes &bytes, unsigned value);
void putInt(Bytes &bytes, uint32_t value);

// ---- Container ----

inline constexpr std::string_view kMagicCombfile = "QM_OPTICORE_COMBFILE\n";
inline constexpr std::string_view kMagicPlain = "QM_OPTICORE_7200FILE\n";
inline constexpr std::string_view kMagicCompressed = "QM_OPTICORE_7200FILE ZIP\n";
inline constexpr std::string_view kPreambleEnd = "ENDP:\n";

// A preamble with VERSION and SOURCE lines, then `moreLines` (each with its "\n"), then the end line. Revision 0
// leaves out the VERSION line. The source "V2" makes tracker model 2, "LX" model 3 and any other model 1.
Bytes preamble(int revision = 5, std::string_view source = "LX", std::string_view moreLines = "");

// `stream` as one zlib stream.
Bytes deflated(std::string_view stream);

// ---- Samples ----

inline constexpr int kMissingWord = 0x8000;

// Eyes that a sample, an event or a recording block is about; the values are the bits of the tag word.
enum Eyes : unsigned { NoEye = 0, LeftEye = 0x8000, RightEye = 0x4000, BothEyes = 0xC000 };

struct Position {
    int x = 0;
    int y = 0;
};
struct EyePositions {
    Position left;
    Position right;
};
struct EyeWords {
    int left = 0;
    int right = 0;
};
// The low four bits of the header say how many words the reader takes; `words` may hold more or fewer.
struct ExtensionBlock {
    unsigned header = 0;
    std::vector<int> words;
};
// Empty content makes the length byte that ends a list.
struct SkipBlock {
    unsigned kind = 0;
    Bytes content;
};
using SkipList = std::vector<SkipBlock>;

enum class TimeForm { Automatic, Full, Delta };

// A group of fields is written when it is set, and then for the eyes in `eyes`.
struct SampleRecord {
    uint32_t time = 0;
    Eyes eyes = LeftEye;
    std::optional<EyePositions> pupil{};
    std::optional<EyePositions> href{};
    std::optional<EyePositions> gaze{};
    std::optional<Position> resolution{};
    std::optional<EyeWords> pupilSize{};
    std::optional<int> status{};
    std::optional<int> input{};
    std::optional<int> buttons{};
    std::optional<ExtensionBlock> extension{};
    std::optional<SkipList> skipList1{};
    std::optional<SkipList> skipList2{};
    TimeForm timeForm = TimeForm::Automatic; // Automatic: a delta byte wherever one serves
    // Tag word to write in place of the one that fits the fields. Its bit 0x2000 then decides on the time form.
    std::optional<unsigned> flags{};
};

// ---- Events ----

// Field tags of an event body, by the value that follows them.
struct IntField {
    unsigned tag;
};
struct WordField {
    unsigned tag;
};
struct PairField {
    unsigned tag;
};

inline constexpr IntField kStartTime{0x21}, kEndTime{0x41};
inline constexpr PairField kStartRaw{0x28}, kStartHref{0x29}, kStartGaze{0x2A}, kStartResolution{0x2B};
inline constexpr PairField kEndRaw{0x48}, kEndHref{0x49}, kEndGaze{0x4A}, kEndResolution{0x4B};
inline constexpr PairField kAverageRaw{0x68}, kAverageHref{0x69}, kAverageGaze{0x6A};
inline constexpr WordField kStartPupilSize{0x30}, kEndPupilSize{0x51}, kAveragePupilSize{0x72};
inline constexpr WordField kStartVelocity{0x33}, kEndVelocity{0x53}, kAverageVelocity{0x73}, kPeakVelocity{0x93};
inline constexpr WordField kAuxWord1{0x55}, kAuxWord2{0x56}, kStatusWord{0xB4};
inline constexpr unsigned kMessageTag = 0x5E;

// The same tags by what they mean in a start of a recording block.
inline constexpr IntField kBlockRate{0x41};
inline constexpr PairField kBlockMode{0x4B};
inline constexpr WordField kBlockGazeDivisor{0x30}, kBlockVelocityDivisor{0x51}, kBlockFactor1{0x56},
    kBlockFactor2{0x93}, kBlockValue{0x72}, kBlockContent{0xB4}, kBlockEventContent{0x55};

// One event record: the tag word, then fields in the order of the calls, then the zero byte that ends the body.
class EventRecord {
  public:
    explicit EventRecord(int type, Eyes eye = NoEye, unsigned parseFlags = 0);

    EventRecord &set(IntField field, uint32_t value);
    EventRecord &set(WordField field, int value);
    EventRecord &set(PairField field, int first, int second);
    EventRecord &startTime(uint32_t time) { return set(kStartTime, time); }
    EventRecord &endTime(uint32_t time) { return set(kEndTime, time); }
    EventRecord &times(uint32_t start, uint32_t end) { return startTime(start).endTime(end); }
    // `length` is the length word to write in place of the text's own.
    EventRecord &message(std::string_view text, std::optional<unsigned> length = {});
    EventRecord &raw(std::string_view bytes);
    // Leaves out the zero byte that ends the body.
    EventRecord &unterminated();

    Bytes bytes() const;

  private:
    Bytes bytes_;
    bool terminated_ = true;
};

// ---- Recording blocks ----

// A field that is empty is left out of the record. `content` holds the sample flags of the field groups, without
// the eyes; `eventContent` is the status word of a start of events.
struct BlockStart {
    uint32_t time = 0;
    std::optional<double> rate = 1000.0; // samples per second
    Eyes eyes = LeftEye;
    std::optional<int> gazeDivisor = 1;
    std::optional<int> velocityDivisor = 1;
    std::optional<int> modeWord = 0x0111; // mode byte, filter level, low bits
    std::optional<int> pupilMode = 1;
    std::optional<unsigned> content = 0x0500;
    std::optional<unsigned> eventContent = 0x1FFF;
    unsigned parseFlags = 0;
};

EventRecord startSamples(const BlockStart &block);
EventRecord startEvents(const BlockStart &block);
EventRecord endSamples(uint32_t time, Eyes eye = LeftEye);
EventRecord endEvents(uint32_t time, Eyes eye = LeftEye);

// ---- The recording ----

class RecordingWriter {
  public:
    explicit RecordingWriter(Bytes preambleText = preamble()) : preamble_(std::move(preambleText)) {}

    // Writes a time stamp as a delta byte to the sample before, or in full, as the record wants it.
    RecordingWriter &sample(const SampleRecord &record);
    // Left eye, gaze and pupil size.
    RecordingWriter &sample(uint32_t time, Position gaze = {}, int pupilSize = 1000);
    RecordingWriter &event(const EventRecord &record) { return raw(record.bytes()); }
    RecordingWriter &message(uint32_t time, std::string_view text);
    RecordingWriter &startSamples(const BlockStart &block) { return event(raw::startSamples(block)); }
    RecordingWriter &startEvents(const BlockStart &block) { return event(raw::startEvents(block)); }
    RecordingWriter &startBlock(const BlockStart &block) { return startSamples(block).startEvents(block); }
    RecordingWriter &endSamples(uint32_t time) { return event(raw::endSamples(time)); }
    RecordingWriter &endEvents(uint32_t time) { return event(raw::endEvents(time)); }
    RecordingWriter &endBlock(uint32_t time) { return endSamples(time).endEvents(time); }
    // The zero tag word that ends the record stream; nothing writes it unasked.
    RecordingWriter &end();
    RecordingWriter &raw(std::string_view bytes);
    // Forgets the records so far, which the caller has put elsewhere; delta times go on from them.
    void dropRecords() { stream_.clear(); }

    // The record stream so far; its size is the position of the next record in it.
    const Bytes &records() const { return stream_; }
    // What stands before the record stream in a file.
    Bytes head(std::string_view magic) const { return Bytes(magic) + preamble_; }
    // The whole file.
    Bytes plain(std::string_view magic = kMagicCombfile) const { return head(magic) + stream_; }
    Bytes compressed(std::string_view magic = kMagicCompressed) const { return head(magic) + deflated(stream_); }

  private:
    Bytes preamble_;
    Bytes stream_;
    std::optional<uint32_t> lastSampleTime_;
};

} // namespace trkwriter::raw
