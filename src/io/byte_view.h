// Bytes of a stream by their offset, in any order.
#pragma once

#include "io/input_stream.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace trk {

// Moves the stream's position at will.
class ByteView {
  public:
    explicit ByteView(InputStream &stream) : stream_(stream) {}

    // At least `count` bytes from `offset` on, fewer only at the end of the stream, and nothing behind it. Valid
    // until the next call.
    [[nodiscard]] std::span<const uint8_t> at(int64_t offset, std::size_t count) {
        if (offset < begin_ || offset + static_cast<int64_t>(count) > end()) [[unlikely]] {
            load(offset, count);
        }
        return offset >= begin_ && offset < end() ? std::span<const uint8_t>(bytes_).first(filled_).subspan(
                                                        static_cast<std::size_t>(offset - begin_))
                                                  : std::span<const uint8_t>();
    }

  private:
    static constexpr std::size_t kBlock = std::size_t{1} << 20;
    static constexpr int64_t kKeptBefore = int64_t{1} << 16; // readers step back a little now and then

    [[nodiscard]] int64_t end() const { return begin_ + static_cast<int64_t>(filled_); }

    void load(int64_t offset, std::size_t count) {
        const bool wholeEndIsHere = atEnd_ && offset >= begin_;
        if (wholeEndIsHere) {
            return;
        }
        bytes_.resize(kBlock + count);
        begin_ = offset > kKeptBefore ? offset - kKeptBefore : 0;
        stream_.seek(begin_);
        filled_ = static_cast<std::size_t>(stream_.getRawData(bytes_.data(), static_cast<int>(bytes_.size())));
        atEnd_ = filled_ < bytes_.size();
    }

    InputStream &stream_;
    std::vector<uint8_t> bytes_;
    int64_t begin_ = 0;
    std::size_t filled_ = 0;
    bool atEnd_ = false; // the stream ends with what is here
};

} // namespace trk
