#include "trkwriter/raw.h"

#include "trkapi/trkapi.h"

#include <cmath>
#include <new>
#include <zlib.h>

namespace trkwriter::raw {

namespace {

constexpr uint32_t kLargestDelta = 255;
constexpr double kFixedPointOne = 65536.0;

void putPosition(Bytes &bytes, const Position &position) {
    putWord(bytes, static_cast<unsigned>(position.x));
    putWord(bytes, static_cast<unsigned>(position.y));
}

void putEyes(Bytes &bytes, Eyes eyes, const std::optional<EyePositions> &positions) {
    if (positions && (eyes & LeftEye) != 0) {
        putPosition(bytes, positions->left);
    }
    if (positions && (eyes & RightEye) != 0) {
        putPosition(bytes, positions->right);
    }
}

void putEyes(Bytes &bytes, Eyes eyes, const std::optional<EyeWords> &words) {
    if (words && (eyes & LeftEye) != 0) {
        putWord(bytes, static_cast<unsigned>(words->left));
    }
    if (words && (eyes & RightEye) != 0) {
        putWord(bytes, static_cast<unsigned>(words->right));
    }
}

void putOptionalWord(Bytes &bytes, const std::optional<int> &word) {
    if (word) {
        putWord(bytes, static_cast<unsigned>(*word));
    }
}

void putExtension(Bytes &bytes, const ExtensionBlock &extension) {
    putByte(bytes, extension.header);
    for (const int word : extension.words) {
        putWord(bytes, static_cast<unsigned>(word));
    }
}

void putSkipList(Bytes &bytes, const SkipList &list) {
    for (const SkipBlock &block : list) {
        putByte(bytes, static_cast<unsigned>(block.content.size()));
        putByte(bytes, block.kind);
        bytes += block.content;
    }
    putByte(bytes, 0);
}

unsigned sampleTagWord(const SampleRecord &record, bool fullTime) {
    unsigned word = static_cast<unsigned>(TRK_SAMPLE_RECORD) | static_cast<unsigned>(record.eyes);
    const auto add = [&word](bool present, unsigned bit) { word |= present ? bit : 0U; };
    add(fullTime, TRK_SAMPLE_FULL_TIME);
    add(record.pupil.has_value(), TRK_SAMPLE_PUPIL_POSITION);
    add(record.href.has_value(), TRK_SAMPLE_HREF);
    add(record.gaze.has_value(), TRK_SAMPLE_GAZE);
    add(record.resolution.has_value(), TRK_SAMPLE_RESOLUTION);
    add(record.pupilSize.has_value(), TRK_SAMPLE_PUPIL_SIZE);
    add(record.status.has_value(), TRK_SAMPLE_STATUS);
    add(record.input.has_value(), TRK_SAMPLE_INPUT);
    add(record.buttons.has_value(), TRK_SAMPLE_BUTTONS);
    add(record.extension.has_value(), TRK_SAMPLE_EXTENSION);
    add(record.skipList1.has_value(), TRK_SAMPLE_SKIP_LIST1);
    add(record.skipList2.has_value(), TRK_SAMPLE_SKIP_LIST2);
    return word;
}

EventRecord startOfBlock(int type, const BlockStart &block) {
    EventRecord record(type, block.eyes, block.parseFlags);
    record.startTime(block.time);
    if (block.gazeDivisor) {
        record.set(kBlockGazeDivisor, *block.gazeDivisor);
    }
    if (block.velocityDivisor) {
        record.set(kBlockVelocityDivisor, *block.velocityDivisor);
    }
    if (block.rate) {
        record.set(kBlockRate, static_cast<uint32_t>(std::llround(*block.rate * kFixedPointOne)));
    }
    if (block.modeWord) {
        record.set(kBlockMode, *block.modeWord, 0);
    }
    if (block.pupilMode) {
        record.set(kBlockFactor1, *block.pupilMode);
    }
    return record;
}

// A start of events names its eyes with the two bits exchanged.
unsigned exchangedEyes(Eyes eyes) { return ((eyes & LeftEye) >> 1) | ((eyes & RightEye) << 1); }

} // namespace

void putByte(Bytes &bytes, unsigned value) { bytes.push_back(static_cast<char>(value & 0xFF)); }

void putWord(Bytes &bytes, unsigned value) {
    const char both[] = {static_cast<char>(value >> 8 & 0xFF), static_cast<char>(value & 0xFF)};
    bytes.append(both, sizeof(both));
}

void putInt(Bytes &bytes, uint32_t value) {
    putWord(bytes, value >> 16);
    putWord(bytes, value);
}

Bytes preamble(int revision, std::string_view source, std::string_view moreLines) {
    Bytes text = "DATE: Mon Jan  5 09:30:00 2026\n";
    if (revision != 0) {
        text += "VERSION: PUPILON V2 " + std::to_string(revision) + "\n";
    }
    return text.append("SOURCE: PUPILON ").append(source).append("\n").append(moreLines).append(kPreambleEnd);
}

Bytes deflated(std::string_view stream) {
    uLongf size = compressBound(stream.size());
    Bytes result(size, '\0');
    if (compress2(reinterpret_cast<Bytef *>(result.data()), &size, reinterpret_cast<const Bytef *>(stream.data()),
                  stream.size(), Z_BEST_SPEED) != Z_OK) {
        throw std::bad_alloc(); // nothing else can go wrong
    }
    result.resize(size);
    return result;
}

EventRecord::EventRecord(int type, Eyes eye, unsigned parseFlags) {
    putWord(bytes_, eye | (static_cast<unsigned>(type) & 0x3F) << 8 | (parseFlags & 0xFE));
}

EventRecord &EventRecord::set(IntField field, uint32_t value) {
    putByte(bytes_, field.tag);
    putInt(bytes_, value);
    return *this;
}

EventRecord &EventRecord::set(WordField field, int value) {
    putByte(bytes_, field.tag);
    putWord(bytes_, static_cast<unsigned>(value));
    return *this;
}

EventRecord &EventRecord::set(PairField field, int first, int second) {
    putByte(bytes_, field.tag);
    putPosition(bytes_, {first, second});
    return *this;
}

EventRecord &EventRecord::message(std::string_view text, std::optional<unsigned> length) {
    putByte(bytes_, kMessageTag);
    putWord(bytes_, length.value_or(static_cast<unsigned>(text.size())));
    return raw(text);
}

EventRecord &EventRecord::raw(std::string_view bytes) {
    bytes_ += bytes;
    return *this;
}

EventRecord &EventRecord::unterminated() {
    terminated_ = false;
    return *this;
}

Bytes EventRecord::bytes() const { return terminated_ ? bytes_ + '\0' : bytes_; }

EventRecord startSamples(const BlockStart &block) {
    EventRecord record = startOfBlock(REC_STARTSAMPLES, block);
    if (block.content) {
        record.set(kBlockContent, static_cast<int>(block.eyes | *block.content));
    }
    return record;
}

EventRecord startEvents(const BlockStart &block) {
    EventRecord record = startOfBlock(REC_STARTEVENTS, block);
    record.set(kBlockEventContent, static_cast<int>(exchangedEyes(block.eyes)));
    if (block.eventContent) {
        record.set(kBlockContent, static_cast<int>(*block.eventContent));
    }
    return record;
}

EventRecord endSamples(uint32_t time, Eyes eye) { return EventRecord(REC_ENDSAMPLES, eye).startTime(time); }

EventRecord endEvents(uint32_t time, Eyes eye) { return EventRecord(REC_ENDEVENTS, eye).startTime(time); }

RecordingWriter &RecordingWriter::sample(const SampleRecord &record) {
    const uint32_t delta = record.time - lastSampleTime_.value_or(0);
    bool fullTime = record.timeForm == TimeForm::Full ||
                    (record.timeForm == TimeForm::Automatic && (!lastSampleTime_ || delta > kLargestDelta));
    if (record.flags) {
        fullTime = (*record.flags & TRK_SAMPLE_FULL_TIME) != 0;
    }
    lastSampleTime_ = record.time;

    putWord(stream_, record.flags.value_or(sampleTagWord(record, fullTime)));
    if (fullTime) {
        putInt(stream_, record.time);
    } else {
        putByte(stream_, delta);
    }
    putEyes(stream_, record.eyes, record.pupil);
    putEyes(stream_, record.eyes, record.href);
    putEyes(stream_, record.eyes, record.gaze);
    if (record.resolution) {
        putPosition(stream_, *record.resolution);
    }
    putEyes(stream_, record.eyes, record.pupilSize);
    putOptionalWord(stream_, record.status);
    putOptionalWord(stream_, record.input);
    putOptionalWord(stream_, record.buttons);
    if (record.extension) {
        putExtension(stream_, *record.extension);
    }
    if (record.skipList1) {
        putSkipList(stream_, *record.skipList1);
    }
    if (record.skipList2) {
        putSkipList(stream_, *record.skipList2);
    }
    return *this;
}

RecordingWriter &RecordingWriter::sample(uint32_t time, Position gaze, int pupilSize) {
    return sample({.time = time, .gaze = EyePositions{gaze, {}}, .pupilSize = EyeWords{pupilSize, 0}});
}

RecordingWriter &RecordingWriter::message(uint32_t time, std::string_view text) {
    return event(EventRecord(REC_MESSAGE).startTime(time).message(text));
}

RecordingWriter &RecordingWriter::end() {
    putWord(stream_, 0);
    return *this;
}

RecordingWriter &RecordingWriter::raw(std::string_view bytes) {
    stream_ += bytes;
    return *this;
}

} // namespace trkwriter::raw
