#include "records/record_reader.h"

#include "base/exception.h"
#include "base/log.h"
#include "base/numeric.h"
#include "records/codes.h"
#include "records/event_fields.h"
#include "records/scaling.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

namespace trk {

namespace {

// A block that names no rate keeps this one, and only this one, from the block before it: else the later blocks of
// a recording that states 500 once would count as 250.
constexpr float kKeptSampleRate = 500.0F;
constexpr float kRateUnit = 1.0F / 65536; // rates are 16.16 fixed point

// A number before a message text is a time offset when it stands in the first bytes, is short and is small.
constexpr std::size_t kOffsetSearchLength = 20;
constexpr std::size_t kLongestOffset = 7;
constexpr int kLargestOffset = 999;

// The value's integer part as the 16 bits that it was read from.
uint16_t lowWord(float value) { return static_cast<uint16_t>(truncateTo<int32_t>(value)); }

void cutMessageOffset(FEVENT &event, TRK_MESSAGE &message) {
    const char *const text = message.text;
    std::size_t start = 0;
    while (start < kOffsetSearchLength && text[start] == ' ') {
        ++start;
    }
    std::array<char, kLongestOffset + 1> digits{};
    std::size_t copied = 0;
    while (copied < kLongestOffset && text[start + copied] != ' ' && text[start + copied] != '\0') {
        digits[copied] = text[start + copied];
        ++copied;
    }
    const auto offset = static_cast<int>(std::strtol(digits.data(), nullptr, 10)); // at most 7 digits
    if (offset == 0 || std::abs(offset) > kLargestOffset) {
        return;
    }
    if (static_cast<int>(copied) >= message.length - 1) {
        return; // the number is all of the text
    }
    event.start_time -= static_cast<uint32_t>(offset);
    // Leading blanks go with the number but still count in the length, as in what was exported before.
    message.length = static_cast<uint16_t>(message.length - copied);
    const std::size_t removed = start + copied;
    std::memmove(message.text, message.text + removed, sizeof(message.text) - removed);
    std::memset(message.text + sizeof(message.text) - removed, 0, removed);
}

} // namespace

// Decodes one event body. Lives for one record.
class RecordReader::EventDecoder {
  public:
    EventDecoder(RecordReader &reader, FEVENT &out, uint16_t tag)
        : stream_(*reader.stream_), state_(reader.state_), message_(reader.message_),
          fileRevision_(reader.fileRevision_), cutMessageOffsets_(reader.cutMessageOffsets_), out_(out),
          type_(eventCodeOfTag(tag)), startsBlock_(kBlockStarts.contains(static_cast<unsigned>(type_))) {
        out_ = {};
        out_.eye = eyeOfTag(tag);
        out_.parse_flags = parseFlagsOfTag(tag);
    }

    bool decode() {
        while (const uint8_t fieldTag = stream_.getByte()) {
            if (fieldTag != EventField::Message) {
                readField(fieldTag);
            } else if (!readMessage()) {
                return false;
            }
        }
        if (!startTimeRead_ && endTimeRead_) {
            out_.start_time = out_.end_time;
        }
        out_.read_flags = readFlags_;
        out_.type = type_;
        applyType();
        return true;
    }

  private:
    float plain() { return plainValue(stream_.getWord()); }
    float missingMarked() { return missingMarkedValue(stream_.getWord()); }
    float scaledG() { return ScaledValue(state_.gazeDivisor)(stream_.getWord()); }
    float scaledV() { return ScaledValue(state_.velocityDivisor)(stream_.getWord()); }
    void carries(int flags) { readFlags_ = static_cast<uint16_t>(readFlags_ | flags); }

    void readField(uint8_t fieldTag);
    bool readMessage();
    void applyType();
    void startBlock();
    void applySampleRate();

    InputStream &stream_;
    DecodingState &state_;
    TRK_MESSAGE &message_;
    uint16_t fileRevision_;
    bool cutMessageOffsets_;
    FEVENT &out_;
    int16_t type_;
    bool startsBlock_;
    uint16_t readFlags_ = 0;
    bool startTimeRead_ = false;
    bool endTimeRead_ = false;
    bool auxWord2Read_ = false;
    bool peakVelocityRead_ = false;
};

void RecordReader::EventDecoder::readField(uint8_t fieldTag) {
    switch (fieldTag) {
    case EventField::StartTime:
        out_.start_time = stream_.getInt();
        startTimeRead_ = true;
        return carries(TRK_EVENT_AT_START);
    case EventField::EndTime:
        out_.end_time = stream_.getInt();
        endTimeRead_ = true;
        return carries(TRK_EVENT_END_TIME);
    // A raw pair goes to the gaze fields, which raw recordings have no other use for; its second value also to an
    // HREF x field.
    case EventField::StartRaw:
        out_.start_gaze_x = plain();
        out_.start_gaze_y = out_.start_href_x = plain();
        return carries(TRK_EVENT_RAW | TRK_EVENT_START_POSITION);
    case EventField::StartHref:
        out_.start_href_x = missingMarked();
        out_.start_href_y = missingMarked();
        return carries(TRK_EVENT_HREF | TRK_EVENT_START_POSITION);
    case EventField::StartGaze:
        out_.start_gaze_x = scaledG();
        out_.start_gaze_y = scaledG();
        return carries(TRK_EVENT_GAZE | TRK_EVENT_START_POSITION);
    case EventField::StartResolution:
        out_.start_res_x = scaledG();
        out_.start_res_y = scaledG();
        return carries(TRK_EVENT_RESOLUTION | TRK_EVENT_AT_START);
    case EventField::StartPupilSize:
        out_.start_pupil_size = plain();
        return carries(TRK_EVENT_PUPIL_SIZE | TRK_EVENT_AT_START);
    case EventField::StartVelocity:
        out_.start_velocity = scaledV();
        return carries(TRK_EVENT_VELOCITY | TRK_EVENT_AT_START);
    case EventField::EndRaw:
        out_.end_gaze_x = plain();
        out_.end_gaze_y = out_.end_href_x = plain();
        return carries(TRK_EVENT_RAW | TRK_EVENT_END_POSITION);
    case EventField::EndHref:
        out_.end_href_x = missingMarked();
        out_.end_href_y = missingMarked();
        return carries(TRK_EVENT_HREF | TRK_EVENT_END_POSITION);
    case EventField::EndGaze:
        out_.end_gaze_x = scaledG();
        out_.end_gaze_y = scaledG();
        return carries(TRK_EVENT_GAZE | TRK_EVENT_END_POSITION);
    case EventField::EndResolution:
        out_.end_res_x = startsBlock_ ? plain() : scaledG();
        out_.end_res_y = startsBlock_ ? plain() : scaledG();
        return carries(TRK_EVENT_RESOLUTION | TRK_EVENT_AT_END);
    case EventField::EndPupilSize:
        out_.end_pupil_size = plain();
        return carries(TRK_EVENT_PUPIL_SIZE | TRK_EVENT_AT_END);
    case EventField::EndVelocity:
        out_.end_velocity = scaledV();
        return carries(TRK_EVENT_VELOCITY | TRK_EVENT_AT_END);
    case EventField::AuxWord1:
        out_.aux_word1 = stream_.getWord();
        return;
    case EventField::AuxWord2:
        out_.aux_word2 = stream_.getWord();
        auxWord2Read_ = true;
        return;
    case EventField::AverageRaw:
        out_.avg_gaze_x = out_.avg_href_x = plain();
        out_.avg_gaze_y = out_.start_href_x = plain();
        return carries(TRK_EVENT_RAW | TRK_EVENT_AVERAGE_POSITION);
    case EventField::AverageHref:
        out_.avg_href_x = missingMarked();
        out_.avg_href_y = missingMarked();
        return carries(TRK_EVENT_HREF | TRK_EVENT_AVERAGE_POSITION);
    case EventField::AverageGaze:
        out_.avg_gaze_x = scaledG();
        out_.avg_gaze_y = scaledG();
        return carries(TRK_EVENT_GAZE | TRK_EVENT_AVERAGE_POSITION);
    case EventField::AveragePupilSize:
        out_.avg_pupil_size = plain();
        return carries(TRK_EVENT_PUPIL_SIZE | TRK_EVENT_AT_AVERAGE);
    case EventField::AverageVelocity:
        out_.avg_velocity = scaledV();
        return carries(TRK_EVENT_VELOCITY | TRK_EVENT_AT_AVERAGE);
    case EventField::PeakVelocity:
        if (startsBlock_) {
            stream_.getWord(); // a factor of the block that nothing goes by
        } else {
            out_.peak_velocity = scaledV();
        }
        peakVelocityRead_ = true;
        return carries(TRK_EVENT_VELOCITY | TRK_EVENT_AT_AVERAGE);
    case EventField::Status:
        out_.status_word = stream_.getWord();
        return carries(TRK_EVENT_STATUS);
    default:
        // An unknown field is skipped by its tag alone: nothing tells how long its value is.
        return;
    }
}

// Returns false for a message that is too long; the rest of the body then stays unread.
bool RecordReader::EventDecoder::readMessage() {
    const uint16_t length = stream_.getWord();
    if (length > kLongestMessage) {
        return false;
    }
    message_ = {};
    message_.length = length;
    if (stream_.getRawData(message_.text, length) != length) {
        logLine("error reading trk file 12\n");
        throw TRKException(kEndOfFile);
    }
    out_.message = &message_;
    return true;
}

void RecordReader::EventDecoder::applyType() {
    if (startsBlock_) {
        startBlock();
    } else if (kBlockEnds.contains(static_cast<unsigned>(type_))) {
        // The end of a block that names no end time lies where it starts.
        out_.end_time = endTimeRead_ ? out_.end_time : out_.start_time;
    } else if (type_ == REC_MESSAGE && cutMessageOffsets_ && out_.message != nullptr) {
        cutMessageOffset(out_, message_);
    }
}

void RecordReader::EventDecoder::startBlock() {
    state_.gazeDivisor = out_.start_pupil_size;
    state_.velocityDivisor = out_.end_pupil_size;
    if (!auxWord2Read_) {
        out_.aux_word2 = 1;
    }
    if (!peakVelocityRead_) {
        out_.peak_velocity = 1.0F;
    }
    if (fileRevision_ == 0) {
        state_.sampleRate = out_.avg_velocity = kDefaultSampleRate;
        state_.recordingMode = kModeWithoutRevision;
        state_.filterLevel = kFilterWithoutRevision;
    } else {
        applySampleRate();
        const uint16_t modeWord = lowWord(out_.end_res_x);
        state_.recordingMode = static_cast<int16_t>(modeWord >> 8);
        state_.filterLevel = static_cast<int16_t>(modeWord >> 4 & 0x0F);
    }
    out_.end_time = out_.start_time;
}

void RecordReader::EventDecoder::applySampleRate() {
    if (out_.end_time != 0) {
        state_.sampleRate = out_.avg_velocity = static_cast<float>(out_.end_time) * kRateUnit;
    } else if (state_.sampleRate != kKeptSampleRate) {
        if (state_.sampleRate > kKeptSampleRate) {
            logLine("Possible miss handle! sample per second is %f resetting to 250 \n",
                    static_cast<double>(state_.sampleRate));
        }
        state_.sampleRate = out_.avg_velocity = kDefaultSampleRate;
    }
}

bool RecordReader::readEvent(uint16_t tag, FEVENT &out) {
    if (stream_->eof()) {
        out = {};
        logLine(" bad status  1\n");
        return false;
    }
    return EventDecoder(*this, out, tag).decode();
}

} // namespace trk
