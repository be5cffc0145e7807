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
    // How much is read at once, and how much of what lies before stays for readers that step back now and then.
    static constexpr std::size_t kLargeBlock = std::size_t{1} << 20;
    static constexpr int64_t kFarBack = int64_t{1} << 16;

    explicit ByteView(InputStream &stream, std::size_t block = kLargeBlock, int64_t keptBefore = kFarBack)
        : stream_(stream), block_(block), keptBefore_(keptBefore) {}

    // At least `count` bytes from `offset` on, fewer only at the end of the stream, and nothing behind it. Valid
    // until the next call.
    [[nodiscard]] std::span<const uint8_t> at(int64_t offset, std::size_t count) {
        if (offset < begin_ || offset + static_cast<int64_t>(count) > end()) [[unlikely]] {
            // A stream that has them in memory lends them.
            const bool isThere = stream_.seek(offset) == 0;
            if (const uint8_t *const bytes =
                    isThere ? stream_.peek(static_cast<std::ptrdiff_t>(count)) : nullptr) {
                return {bytes, count};
            }
            load(offset, count);
        }
        return offset >= begin_ && offset < end() ? std::span<const uint8_t>(bytes_).first(filled_).subspan(
                                                        static_cast<std::size_t>(offset - begin_))
                                                  : std::span<const uint8_t>();
    }

  private:
    [[nodiscard]] int64_t end() const { return begin_ + static_cast<int64_t>(filled_); }

    void load(int64_t offset, std::size_t count) {
        const bool wholeEndIsHere = atEnd_ && offset >= begin_;
        if (wholeEndIsHere) {
            return;
        }
        if (bytes_.size() < block_ + count) {
            bytes_.resize(block_ + count);
        }
        begin_ = offset > keptBefore_ ? offset - keptBefore_ : 0;
        stream_.seek(begin_);
        filled_ = static_cast<std::size_t>(stream_.getRawData(bytes_.data(), static_cast<int>(bytes_.size())));
        atEnd_ = filled_ < bytes_.size();
    }

    InputStream &stream_;
    std::size_t block_;
    int64_t keptBefore_;
    std::vector<uint8_t> bytes_;
    int64_t begin_ = 0;
    std::size_t filled_ = 0;
    bool atEnd_ = false; // the stream ends with what is here
};

} // namespace trk
