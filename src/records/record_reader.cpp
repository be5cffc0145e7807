#include "records/record_reader.h"

#include "base/exception.h"
#include "base/log.h"
#include "records/codes.h"

namespace trk {

int RecordReader::next_combfile_item(uint16_t *out) {
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

// Takes the pending tag word, fetching one when none is pending; leaves it pending when it is of the other kind.
int RecordReader::takePendingTag(bool wantSample, uint16_t &tagWord) {
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

int RecordReader::read_combfile_sample(Sample *out, uint32_t expectedTime, bool capture, SampleDetail detail) {
    if (!capture) {
        return read_combfile_sample_noexcept(out, expectedTime, detail);
    }
    try {
        return read_combfile_sample_noexcept(out, expectedTime, detail);
    } catch (TRKException *thrown) {
        const CaughtException error(thrown);
        print_log("Error %s \n", error->text());
        return kUnreadable;
    }
}

int RecordReader::read_combfile_event(EData &out, bool capture) {
    if (!capture) {
        return read_combfile_event_noexcept(out);
    }
    try {
        return read_combfile_event_noexcept(out);
    } catch (TRKException *thrown) {
        const CaughtException error(thrown);
        print_log("Error %s \n", error->text());
        return kUnreadable;
    }
}

} // namespace trk
