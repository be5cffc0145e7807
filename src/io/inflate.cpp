#include "io/inflate.h"

#include <array>
#include <zlib.h>

namespace trk {

namespace {

constexpr int kChunk = 16384;

class Inflater {
  public:
    explicit Inflater(int64_t largest) : ready_(inflateInit(&stream_) == Z_OK), room_(largest) {}
    ~Inflater() {
        if (ready_) {
            inflateEnd(&stream_);
        }
    }
    Inflater(const Inflater &) = delete;
    Inflater &operator=(const Inflater &) = delete;

    // Whether zlib got the memory that it needs.
    [[nodiscard]] bool ready() const { return ready_; }
    [[nodiscard]] bool ended() const { return ended_; }

    // Inflates one chunk of input to its end. Done stands for as far as the chunk goes.
    Inflation inflateChunk(std::array<Bytef, kChunk> &input, int size, std::FILE *destination) {
        stream_.next_in = input.data();
        stream_.avail_in = static_cast<uInt>(size);
        do {
            stream_.next_out = output_.data();
            stream_.avail_out = kChunk;
            // Z_BUF_ERROR only says that the output area was filled exactly and nothing was left to do.
            const int result = inflate(&stream_, Z_NO_FLUSH);
            if (result == Z_MEM_ERROR) {
                return Inflation::NoMemory;
            }
            if (result == Z_STREAM_ERROR || result == Z_DATA_ERROR || result == Z_NEED_DICT) {
                return Inflation::Damaged;
            }
            ended_ = result == Z_STREAM_END;
            const std::size_t produced = kChunk - stream_.avail_out;
            room_ -= static_cast<int64_t>(produced);
            if (room_ < 0) {
                return Inflation::TooLarge;
            }
            if (std::fwrite(output_.data(), 1, produced, destination) != produced) {
                return Inflation::FileFailed;
            }
        } while (stream_.avail_out == 0);
        return Inflation::Done;
    }

  private:
    z_stream stream_{};
    bool ready_;
    bool ended_ = false;
    int64_t room_; // bytes that may still come
    std::array<Bytef, kChunk> output_;
};

} // namespace

Inflation inflateTo(std::FILE *destination, InputStream &source, int64_t largest) {
    Inflater inflater(largest);
    if (!inflater.ready()) {
        return Inflation::NoMemory;
    }
    std::array<Bytef, kChunk> input;
    Inflation result = Inflation::Done;
    while (result == Inflation::Done && !inflater.ended()) {
        const int size = source.getRawData(input.data(), kChunk);
        if (size < kChunk && source.readFailed()) {
            return Inflation::FileFailed;
        }
        result = size > 0 ? inflater.inflateChunk(input, size, destination) : Inflation::Damaged;
    }
    return result;
}

} // namespace trk
