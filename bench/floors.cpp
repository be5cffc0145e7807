#include "floors.h"

#include "trkapi/trkapi.h"

#include <array>
#include <zlib.h>

namespace trk_bench {

namespace {

// Reads without looking where the memory ends: a floor may.
class Cursor {
  public:
    explicit Cursor(std::string_view bytes)
        : begin_(reinterpret_cast<const uint8_t *>(bytes.data())), next_(begin_), end_(begin_ + bytes.size()) {}

    [[nodiscard]] bool atEnd() const { return next_ >= end_; }
    [[nodiscard]] int64_t position() const { return next_ - begin_; }
    uint8_t byte() { return *next_++; }
    uint16_t word() {
        const auto value = static_cast<uint16_t>(next_[0] << 8 | next_[1]);
        next_ += 2;
        return value;
    }
    uint32_t number() {
        const uint32_t high = word();
        return high << 16 | word();
    }
    float value() { return static_cast<float>(static_cast<int16_t>(word())); }
    void skip(int count) { next_ += count; }

  private:
    const uint8_t *begin_;
    const uint8_t *next_;
    const uint8_t *end_;
};

constexpr float kDivisor = 10.0F;

float scaled(Cursor &cursor) {
    const uint16_t word = cursor.word();
    return word == 0x8000 ? MISSING_DATA : static_cast<float>(static_cast<int16_t>(word)) / kDivisor;
}

template <class Read> void pair(Cursor &cursor, uint16_t flags, float (&x)[2], float (&y)[2], Read read) {
    if ((flags & TRK_SAMPLE_LEFT) != 0) {
        x[0] = read(cursor);
        y[0] = read(cursor);
    }
    if ((flags & TRK_SAMPLE_RIGHT) != 0) {
        x[1] = read(cursor);
        y[1] = read(cursor);
    }
}

uint32_t decodeSample(Cursor &cursor, uint16_t flags, uint32_t lastTime, FSAMPLE_REC &sample) {
    const auto plain = [](Cursor &from) { return from.value(); };
    sample.flags = flags;
    sample.time = (flags & TRK_SAMPLE_FULL_TIME) != 0 ? cursor.number() : lastTime + cursor.byte();
    if ((flags & TRK_SAMPLE_PUPIL_POSITION) != 0) {
        pair(cursor, flags, sample.pupil_x, sample.pupil_y, plain);
    }
    if ((flags & TRK_SAMPLE_HREF) != 0) {
        pair(cursor, flags, sample.href_x, sample.href_y, plain);
    }
    if ((flags & TRK_SAMPLE_GAZE) != 0) {
        pair(cursor, flags, sample.gaze_x, sample.gaze_y, scaled);
    }
    if ((flags & TRK_SAMPLE_RESOLUTION) != 0) {
        sample.res_x = scaled(cursor);
        sample.res_y = scaled(cursor);
    }
    if ((flags & TRK_SAMPLE_PUPIL_SIZE) != 0) {
        sample.pupil_size[0] = (flags & TRK_SAMPLE_LEFT) != 0 ? cursor.value() : TRK_FIELD_ABSENT;
        sample.pupil_size[1] = (flags & TRK_SAMPLE_RIGHT) != 0 ? cursor.value() : TRK_FIELD_ABSENT;
    }
    sample.status = (flags & TRK_SAMPLE_STATUS) != 0 ? cursor.word() : uint16_t{TRK_WORD_ABSENT};
    sample.input = (flags & TRK_SAMPLE_INPUT) != 0 ? cursor.word() : uint16_t{TRK_WORD_ABSENT};
    sample.buttons = (flags & TRK_SAMPLE_BUTTONS) != 0 ? cursor.word() : uint16_t{0};
    if ((flags & TRK_SAMPLE_EXTENSION) != 0) {
        sample.ext_type = cursor.byte();
        for (int i = 0; i < (sample.ext_type & 0x0F); ++i) {
            sample.ext_data[i] = cursor.word();
        }
    }
    return sample.time;
}

// Reads the fields of an event by the sizes of their values; returns its start time.
uint32_t decodeEvent(Cursor &cursor) {
    uint32_t start = 0;
    while (const uint8_t field = cursor.byte()) {
        switch (field) {
        case 0x21:
            start = cursor.number();
            break;
        case 0x41:
        case 0x28:
        case 0x29:
        case 0x2A:
        case 0x2B:
        case 0x48:
        case 0x49:
        case 0x4A:
        case 0x4B:
        case 0x68:
        case 0x69:
        case 0x6A:
            cursor.skip(4);
            break;
        case 0x5E:
            cursor.skip(cursor.word());
            break;
        default:
            cursor.skip(2);
            break;
        }
    }
    return start;
}

} // namespace

std::vector<FloorItem> walkRecords(std::string_view records) {
    constexpr std::size_t kLikelyRecordSize = 40;
    std::vector<FloorItem> items;
    items.reserve(records.size() / kLikelyRecordSize);
    Cursor cursor(records);
    FSAMPLE_REC sample{};
    uint32_t time = 0;
    while (!cursor.atEnd()) {
        const uint16_t tag = cursor.word();
        const int64_t position = cursor.position();
        if (tag == 0) {
            break;
        }
        if ((tag & TRK_SAMPLE_RECORD) != 0) {
            time = decodeSample(cursor, tag, time, sample);
            items.push_back({position, REC_SAMPLE, tag, uint64_t{2} * time});
        } else {
            const auto type = static_cast<uint16_t>(tag >> 8 & 0x3F);
            items.push_back({position, type, tag, uint64_t{2} * decodeEvent(cursor)});
        }
    }
    return items;
}

double decodeBatch(std::string_view records, int samples) {
    Cursor cursor(records);
    static std::array<FSAMPLE_REC, 512> queue;
    uint32_t time = 0;
    double sum = 0;
    for (int i = 0; i < samples && !cursor.atEnd();) {
        const uint16_t tag = cursor.word();
        if ((tag & TRK_SAMPLE_RECORD) != 0) {
            FSAMPLE_REC &sample = queue[static_cast<std::size_t>(i++)];
            sample = {};
            time = decodeSample(cursor, tag, time, sample);
            sum += static_cast<double>(sample.gaze_x[0]);
        } else {
            decodeEvent(cursor);
        }
    }
    return sum;
}

GazeColumns::GazeColumns(std::size_t rows) : time(rows), flags(rows) {
    for (auto &column : gaze) {
        column.resize(rows);
    }
    for (auto &column : pupilSize) {
        column.resize(rows);
    }
}

namespace {

// The rest of a sample behind its time.
void decodeGaze(Cursor &cursor, uint16_t tag, GazeColumns &columns, std::size_t row) {
    const auto has = [tag](int flag) { return (tag & flag) != 0; };
    const auto sizeOf = [&has](int flag, int size) { return has(flag) ? size : 0; };
    const int eyes = sizeOf(TRK_SAMPLE_LEFT, 1) + sizeOf(TRK_SAMPLE_RIGHT, 1);
    cursor.skip(sizeOf(TRK_SAMPLE_PUPIL_POSITION, 4 * eyes) + sizeOf(TRK_SAMPLE_HREF, 4 * eyes));
    for (std::size_t eye = 0; eye < 2; ++eye) {
        const bool present = has(TRK_SAMPLE_GAZE) && has(eye == 0 ? TRK_SAMPLE_LEFT : TRK_SAMPLE_RIGHT);
        columns.gaze[2 * eye][row] = present ? scaled(cursor) : TRK_FIELD_ABSENT;
        columns.gaze[2 * eye + 1][row] = present ? scaled(cursor) : TRK_FIELD_ABSENT;
    }
    cursor.skip(sizeOf(TRK_SAMPLE_RESOLUTION, 4));
    for (std::size_t eye = 0; eye < 2; ++eye) {
        const bool present = has(TRK_SAMPLE_PUPIL_SIZE) && has(eye == 0 ? TRK_SAMPLE_LEFT : TRK_SAMPLE_RIGHT);
        columns.pupilSize[eye][row] = present ? cursor.value() : TRK_FIELD_ABSENT;
    }
    cursor.skip(sizeOf(TRK_SAMPLE_STATUS, 2) + sizeOf(TRK_SAMPLE_INPUT, 2) + sizeOf(TRK_SAMPLE_BUTTONS, 2));
    if (has(TRK_SAMPLE_EXTENSION)) {
        cursor.skip(2 * (cursor.byte() & 0x0F));
    }
}

} // namespace

std::size_t decodeColumns(std::string_view records, GazeColumns &columns) {
    Cursor cursor(records);
    uint32_t time = 0;
    std::size_t row = 0;
    while (!cursor.atEnd()) {
        const uint16_t tag = cursor.word();
        if (tag == 0) {
            break;
        }
        if ((tag & TRK_SAMPLE_RECORD) == 0) {
            decodeEvent(cursor);
            continue;
        }
        time = (tag & TRK_SAMPLE_FULL_TIME) != 0 ? cursor.number() : time + cursor.byte();
        columns.time[row] = time;
        columns.flags[row] = tag;
        decodeGaze(cursor, tag, columns, row);
        ++row;
    }
    return row;
}

std::size_t inflateToNowhere(std::string_view compressed) {
    std::array<Bytef, 16384> output;
    z_stream stream{};
    inflateInit(&stream);
    std::string input(compressed);
    stream.next_in = reinterpret_cast<Bytef *>(input.data());
    stream.avail_in = static_cast<uInt>(compressed.size());
    std::size_t size = 0;
    int result = Z_OK;
    while (result == Z_OK) {
        stream.next_out = output.data();
        stream.avail_out = static_cast<uInt>(output.size());
        result = inflate(&stream, Z_NO_FLUSH);
        size += output.size() - stream.avail_out;
    }
    inflateEnd(&stream);
    return size;
}

} // namespace trk_bench
