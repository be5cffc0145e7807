#include "io/inflate.h"

#include <array>
#include <zlib.h>

namespace trk {

namespace {

constexpr int kChunk = 16384;
constexpr int kFileError = -1;

class Inflater {
  public:
    explicit Inflater(int64_t largest) : initialised_(inflateInit(&stream_)), room_(largest) {}
    ~Inflater() {
        if (initialised_ == Z_OK) {
            inflateEnd(&stream_);
        }
    }
    Inflater(const Inflater &) = delete;
    Inflater &operator=(const Inflater &) = delete;

    [[nodiscard]] int initialised() const { return initialised_; }

    // Inflates one chunk of input to its end. Returns Z_OK when more input is needed, Z_STREAM_END, or an error.
    int inflateChunk(std::array<Bytef, kChunk> &input, int size, std::FILE *destination) {
        stream_.next_in = input.data();
        stream_.avail_in = static_cast<uInt>(size);
        int result = Z_OK;
        do {
            stream_.next_out = output_.data();
            stream_.avail_out = kChunk;
            result = inflate(&stream_, Z_NO_FLUSH);
            if (result == Z_STREAM_ERROR || result == Z_DATA_ERROR || result == Z_MEM_ERROR) {
                return result;
            }
            if (result == Z_NEED_DICT) {
                return Z_DATA_ERROR;
            }
            const std::size_t produced = kChunk - stream_.avail_out;
            room_ -= static_cast<int64_t>(produced);
            if (room_ < 0) {
                return kInflatesTooFar;
            }
            if (std::fwrite(output_.data(), 1, produced, destination) != produced) {
                return kFileError;
            }
        } while (stream_.avail_out == 0);
        // Z_BUF_ERROR only says that the output area was filled exactly and nothing was left to do.
        return result == Z_STREAM_END ? Z_STREAM_END : Z_OK;
    }

  private:
    z_stream stream_{};
    int initialised_;
    int64_t room_; // bytes that may still come
    std::array<Bytef, kChunk> output_;
};

} // namespace

int do_uncompress(InputStream &source, std::FILE *destination, int64_t largest) {
    Inflater inflater(largest);
    if (inflater.initialised() != Z_OK) {
        return inflater.initialised();
    }
    std::array<Bytef, kChunk> input;
    int result = Z_OK;
    while (result == Z_OK) {
        const int size = source.getRawData(input.data(), kChunk);
        if (size < kChunk && source.readFailed()) {
            return kFileError;
        }
        if (size == 0) {
            return Z_DATA_ERROR;
        }
        result = inflater.inflateChunk(input, size, destination);
    }
    return result == Z_STREAM_END ? Z_OK : result;
}

} // namespace trk
