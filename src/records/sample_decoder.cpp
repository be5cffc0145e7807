#include "records/record_reader.h"

#include "records/sample_layout.h"
#include "records/scaling.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace trk {

namespace {

// What a sample reads before its record fills it: fields that a record does not carry never show what was
// decoded before.
void reset(Sample &sample, SampleDetail detail) {
    if (detail == SampleDetail::All) {
        fillEyeData(sample, TRK_FIELD_ABSENT, 0);
        std::ranges::fill(sample.ext_data, uint16_t{0});
    }
    sample.input = sample.ext_type = sample.status = TRK_WORD_ABSENT;
    sample.buttons = 0;
    sample.sort_key = 0;
}

// Bytes that are known to lie in the window.
class WindowSource {
  public:
    static constexpr bool kPassesOverEyeData = false;

    explicit WindowSource(const uint8_t *bytes) : bytes_(bytes) {}
    uint8_t getByte() { return *bytes_++; }
    uint16_t getWord() {
        const uint16_t word = loadWord(bytes_);
        bytes_ += 2;
        return word;
    }
    uint32_t getInt() {
        const uint32_t value = loadInt(bytes_);
        bytes_ += 4;
        return value;
    }
    template <std::size_t kCount> std::array<uint16_t, kCount> getWords() {
        std::array<uint16_t, kCount> words;
        std::memcpy(words.data(), bytes_, sizeof(words));
        for (uint16_t &word : words) {
            word = wordFromBigEndian(word);
        }
        bytes_ += sizeof(words);
        return words;
    }
    void skip(std::ptrdiff_t count) { bytes_ += count; }
    [[nodiscard]] const uint8_t *next() const { return bytes_; }

  private:
    const uint8_t *bytes_;
};

// The same, for a reader that has no use for the eye data.
class SkimmingSource : public WindowSource {
  public:
    static constexpr bool kPassesOverEyeData = true;

    using WindowSource::WindowSource;
};

// Bytes that may lie behind the end of the window.
class StreamSource {
  public:
    static constexpr bool kPassesOverEyeData = false;

    explicit StreamSource(InputStream &stream) : stream_(stream) {}
    uint8_t getByte() { return stream_.getByte(); }
    uint16_t getWord() { return stream_.getWord(); }
    uint32_t getInt() { return stream_.getInt(); }
    template <std::size_t kCount> std::array<uint16_t, kCount> getWords() {
        std::array<uint16_t, kCount> words;
        std::ranges::generate(words, [this] { return stream_.getWord(); });
        return words;
    }

  private:
    InputStream &stream_;
};

template <class Source>
uint32_t readTime(Source &source, uint16_t flags, uint32_t expectedTime, uint32_t &timeBase) {
    if ((flags & TRK_SAMPLE_FULL_TIME) != 0) {
        timeBase = source.getInt();
    } else {
        const uint32_t delta = source.getByte();
        if (expectedTime != 0 && timeBase + delta != expectedTime) {
            // A reader that jumped here knows the time from the index; anchor the following deltas on it.
            timeBase = expectedTime - delta;
        }
        timeBase += delta;
    }
    return timeBase;
}

template <class Source, class Convert>
[[gnu::always_inline]] inline void readPositions(Source &source, uint16_t flags, float (&x)[kEyes],
                                                 float (&y)[kEyes], Convert convert) {
    constexpr uint16_t kBothEyes = TRK_SAMPLE_LEFT | TRK_SAMPLE_RIGHT;
    if ((flags & kBothEyes) == kBothEyes) {
        const auto values = convertAll(source.template getWords<std::size_t{2} * kEyes>(), convert);
        x[0] = values[0];
        y[0] = values[1];
        x[1] = values[2];
        y[1] = values[3];
    } else if ((flags & kBothEyes) != 0) {
        const auto values = convertAll(source.template getWords<2>(), convert);
        const int eye = (flags & TRK_SAMPLE_LEFT) != 0 ? 0 : 1;
        x[eye] = values[0];
        y[eye] = values[1];
    }
}

template <class Source> void readPupilSizes(Source &source, Sample &out) {
    for (int eye = 0; eye < kEyes; ++eye) {
        out.pupil_size[eye] =
            (out.flags & kEyePresent[eye]) != 0 ? plainValue(source.getWord()) : TRK_FIELD_ABSENT;
    }
}

template <class Source> void readExtension(Source &source, Sample &out) {
    out.ext_type = source.getByte();
    const std::size_t words = extensionWordCount(out.ext_type);
    for (std::size_t i = 0; i < words; ++i) {
        out.ext_data[i] = source.getWord();
    }
}

template <class Source> void readEyeData(Source &source, Sample &out, float gazeDivisor) {
    const uint16_t flags = out.flags;
    const auto plain = [](uint16_t word) { return plainValue(word); };
    if ((flags & TRK_SAMPLE_PUPIL_POSITION) != 0) {
        readPositions(source, flags, out.pupil_x, out.pupil_y, plain);
    }
    if ((flags & TRK_SAMPLE_HREF) != 0) {
        readPositions(source, flags, out.href_x, out.href_y, plain);
    }
    const ScaledValue scaled(gazeDivisor);
    if ((flags & TRK_SAMPLE_GAZE) != 0) {
        readPositions(source, flags, out.gaze_x, out.gaze_y, scaled);
    }
    if ((flags & TRK_SAMPLE_RESOLUTION) != 0) {
        const auto resolution = convertAll(source.template getWords<2>(), scaled);
        out.res_x = resolution[0];
        out.res_y = resolution[1];
    }
    if ((flags & TRK_SAMPLE_PUPIL_SIZE) != 0) {
        readPupilSizes(source, out);
    }
}

// All of the record but the skip lists, in the order of the file.
template <class Source>
void readFixedPart(Source &source, Sample &out, uint32_t expectedTime, DecodingState &state) {
    const uint16_t flags = out.flags;
    out.time = readTime(source, flags, expectedTime, state.sampleTimeBase);
    if constexpr (Source::kPassesOverEyeData) {
        source.skip(kEyeDataSizes[flags >> 8]);
    } else {
        readEyeData(source, out, state.gazeDivisor);
    }
    if ((flags & TRK_SAMPLE_STATUS) != 0) {
        out.status = source.getWord();
    }
    if ((flags & TRK_SAMPLE_INPUT) != 0) {
        out.input = source.getWord();
    }
    if ((flags & TRK_SAMPLE_BUTTONS) != 0) {
        out.buttons = source.getWord();
    }
    if ((flags & TRK_SAMPLE_EXTENSION) != 0) {
        readExtension(source, out);
    }
}

// Reads it from the window, when all of it is there.
template <class Source>
bool readFixedPartFromWindow(InputStream &stream, Sample &out, uint32_t expectedTime, DecodingState &state) {
    const uint8_t *const bytes = stream.peek(kLargestFixedPart);
    if (bytes == nullptr) {
        return false;
    }
    Source source(bytes);
    readFixedPart(source, out, expectedTime, state);
    stream.consumeTo(source.next());
    return true;
}

// Groups of length byte, kind byte and content, ended by a length of 0; their contents are not kept.
void skipBlocks(InputStream &stream) {
    while (const uint8_t length = stream.getByte()) {
        stream.getByte();
        for (int i = 0; i < length; ++i) {
            stream.getByte();
        }
    }
}

} // namespace

bool RecordReader::readSample(uint16_t tag, Sample &out, uint32_t expectedTime, SampleDetail detail) {
    if (stream_->eof()) {
        return false;
    }
    reset(out, detail);
    out.flags = tag;

    InputStream &stream = *stream_;
    const bool read = detail == SampleDetail::Scan
                          ? readFixedPartFromWindow<SkimmingSource>(stream, out, expectedTime, state_)
                          : readFixedPartFromWindow<WindowSource>(stream, out, expectedTime, state_);
    if (!read) {
        StreamSource source(stream);
        readFixedPart(source, out, expectedTime, state_);
    }
    if ((tag & TRK_SAMPLE_SKIP_LIST1) != 0) {
        skipBlocks(stream);
    }
    if ((tag & TRK_SAMPLE_SKIP_LIST2) != 0) {
        skipBlocks(stream);
    }
    return true;
}

} // namespace trk
