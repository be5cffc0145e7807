// Reads one record at a time: tag word, then the sample or event behind it.
#pragma once

#include "io/input_stream.h"
#include "records/codes.h"
#include "records/decoding_state.h"
#include "records/sample.h"

#include <cstdint>

namespace trk {

enum class RecordKind { EndMark, EventRecord, SampleRecord };

// The head of a record.
struct RecordHead {
    RecordKind kind = RecordKind::EndMark;
    uint16_t tag = 0;     // tag word
    int64_t position = 0; // of the body in the stream
};

// How much of a sample a reader wants. The scan has no use for eye data, which then reads anything.
enum class SampleDetail { All, Scan };

// Whoever decodes the start of a recording block with a reader changes how the samples that are decoded with it
// afterwards read. Readers of one stream each have a decoding state of their own.
class RecordReader {
  public:
    // With `cutMessageOffsets`, a number before a message text is taken off the text and off the event's time.
    RecordReader(InputStream &stream, uint16_t fileRevision, bool cutMessageOffsets)
        : stream_(&stream), fileRevision_(fileRevision), cutMessageOffsets_(cutMessageOffsets) {}

    [[nodiscard]] InputStream &stream() { return *stream_; }
    [[nodiscard]] const DecodingState &state() const { return state_; }
    void setState(const DecodingState &state) { state_ = state; }

    // Reads the next tag word; the stream then stands before the body. At the end of the stream the answer is a
    // sample that cannot be read, so that a stream without end mark ends in the failure of a record.
    RecordHead next() {
        if (stream_->eof()) {
            return {RecordKind::SampleRecord, 0, stream_->position()};
        }
        const uint16_t tag = stream_->getWord();
        const RecordKind kind = tag == 0           ? RecordKind::EndMark
                                : isSampleTag(tag) ? RecordKind::SampleRecord
                                                   : RecordKind::EventRecord;
        return {kind, tag, stream_->position()};
    }

    // Puts the stream before the body of a record. Returns whether the source can be positioned.
    bool seekTo(int64_t position) { return stream_->seek(position) == 0; }

    // Decodes the body of a sample with this tag word. `expectedTime` is the time that the item index knows for
    // it, or 0 when reading sequentially. Returns false at the end of the stream. A record that is cut short
    // throws "End of file Exception" and leaves `out` half filled.
    [[nodiscard]] bool readSample(uint16_t tag, Sample &out, uint32_t expectedTime,
                                  SampleDetail detail = SampleDetail::All);

    // Decodes the body of an event likewise. Returns false also for a message that is too long. The start of a
    // recording block changes the decoding state. `out.message` points into a buffer of this reader that the next
    // message overwrites.
    [[nodiscard]] bool readEvent(uint16_t tag, FEVENT &out);

  private:
    class EventDecoder;

    InputStream *stream_;
    DecodingState state_;
    TRK_MESSAGE message_{};
    uint16_t fileRevision_;
    bool cutMessageOffsets_;
};

} // namespace trk
