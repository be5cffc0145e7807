// Reads one record at a time: tag word, then the sample or event behind it.
#pragma once

#include "io/input_stream.h"
#include "records/codes.h"
#include "records/decoding_state.h"
#include "records/event_data.h"
#include "records/sample.h"

#include <cstdint>
#include <memory>

namespace trk {

// What next_combfile_item found.
enum RecordKind : int { kEndOfRecords = -1, kEventRecord = 0, kSampleRecord = 1, kPreambleUnfinished = 2 };

// Results of the decoders below 0.
inline constexpr int kUnreadable = -1;
inline constexpr int kOtherKindPending = -2;

// How much of a sample a reader wants. The scan has no use for eye data, which then reads anything.
enum class SampleDetail { All, Scan };

class RecordReader {
  public:
    // The stream may be set later; until then, nothing can be read.
    explicit RecordReader(bool cutMessageOffsets = false) : cutMessageOffsets_(cutMessageOffsets) {}

    void setStream(std::unique_ptr<InputStream> stream) { stream_ = std::move(stream); }
    void setPreambleFacts(bool done, uint16_t revision) {
        preambleDone_ = done;
        fileRevision_ = revision;
    }

    [[nodiscard]] InputStream &stream() { return *stream_; }
    [[nodiscard]] DecodingState &state() { return state_; }
    [[nodiscard]] const DecodingState &state() const { return state_; }

    // Reads the next tag word, which the decoder called next picks up. For a sample `out` receives the word, for
    // an event its upper byte. At the end of the stream the answer is kSampleRecord on purpose: the decoder that
    // follows then fails.
    int next_combfile_item(uint16_t *out) {
        if (!streamReady()) {
            return kEndOfRecords;
        }
        if (stream_->eof()) {
            return kSampleRecord;
        }
        if (!preambleDone_) {
            return kPreambleUnfinished;
        }
        const uint16_t tagWord = stream_->getWord();
        state_.lastTagWord = tagWord;
        if (tagWord == 0) {
            return kEndOfRecords;
        }
        const bool sample = isSampleTag(tagWord);
        if (out != nullptr) {
            *out = sample ? tagWord : static_cast<uint16_t>(tagWord >> 8);
        }
        return sample ? kSampleRecord : kEventRecord;
    }

    // Decodes the pending sample, or the next one when no tag word is pending. `expectedTime` is the time that
    // the item index knows for it, or 0 when reading sequentially. Returns 0, kUnreadable or kOtherKindPending.
    // A record that is cut short throws "End of file Exception" and leaves `out` half filled.
    int read_combfile_sample_noexcept(Sample *out, uint32_t expectedTime, SampleDetail detail = SampleDetail::All);

    // The same; with `capture`, exceptions are logged and answered with kUnreadable.
    int read_combfile_sample(Sample *out, uint32_t expectedTime, bool capture,
                             SampleDetail detail = SampleDetail::All);

    // Decodes the pending or next event likewise. The start and end of a recording block change the decoding
    // state. `out.message` points into a buffer of this reader that the next message overwrites.
    int read_combfile_event_noexcept(EData &out);
    int read_combfile_event(EData &out, bool capture);

  private:
    class EventDecoder;

    [[nodiscard]] bool streamReady() const { return stream_ != nullptr; }

    // Takes the pending tag word, fetching one when none is pending; one of the other kind stays pending.
    int takePendingTag(bool wantSample, uint16_t &tagWord) {
        if (state_.lastTagWord == 0 && next_combfile_item(nullptr) == kEndOfRecords) {
            return kUnreadable;
        }
        tagWord = state_.lastTagWord;
        if (isSampleTag(tagWord) != wantSample) {
            return kOtherKindPending;
        }
        state_.lastTagWord = 0;
        return 0;
    }

    std::unique_ptr<InputStream> stream_;
    DecodingState state_;
    TRK_MESSAGE message_{};
    uint16_t fileRevision_ = 0;
    bool preambleDone_ = false;
    bool cutMessageOffsets_;
};

} // namespace trk
