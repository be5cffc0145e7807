// Big-endian typed reads over a source of bytes, through one read window.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace trk {

inline uint16_t wordFromBigEndian(uint16_t word) {
    return std::endian::native == std::endian::little ? static_cast<uint16_t>(word << 8 | word >> 8) : word;
}

inline uint16_t loadWord(const uint8_t *bytes) { return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]); }

inline uint32_t loadInt(const uint8_t *bytes) {
    return static_cast<uint32_t>(loadWord(bytes)) << 16 | loadWord(bytes + 2);
}

// Reads are pointer moves inside the window; only a refill reaches the source. What a caller can observe is
// that of plain buffered file reading: a short read consumes what there was, end of file is known only after a
// read has hit it, and seeking forgets it.
class InputStream {
  public:
    static constexpr std::size_t kDefaultWindowSize = std::size_t{256} * 1024;

    explicit InputStream(std::size_t windowSize = kDefaultWindowSize);
    virtual ~InputStream() = default;
    InputStream(const InputStream &) = delete;
    InputStream &operator=(const InputStream &) = delete;

    // The stream's own idea of the current byte offset. It differs from the source's after a line with zero
    // bytes in it was read as a text, and after a seek that failed.
    [[nodiscard]] int64_t position() const { return sourcePosition() + positionSkew_; }

    // The source's, from its start: what a seek goes to.
    [[nodiscard]] int64_t sourcePosition() const { return windowOffset_ + (cursor_ - windowBegin_); }

    [[nodiscard]] bool eof() const { return endOfFile_; }

    // Reads up to `count` bytes; returns the number read.
    int getRawData(void *buffer, int count);

    // Returns 0 on success. position() becomes the requested one in any case.
    int seek(int64_t position);

    // Reads one line of at most size - 1 characters, the line end kept. Returns the length of the text, which a
    // zero byte in the line ends early, or -1 when nothing could be read.
    int getTerminatedString(char *buffer, int size);

    // Typed reads. A short read is logged, consumes what there was and throws "End of file Exception".
    uint8_t getByte() {
        if (cursor_ != windowEnd_) [[likely]] {
            return *cursor_++;
        }
        return getByteAtWindowEnd();
    }

    uint16_t getWord() {
        if (windowEnd_ - cursor_ >= 2) [[likely]] {
            const uint16_t word = loadWord(cursor_);
            cursor_ += 2;
            return word;
        }
        return getWordAtWindowEnd();
    }

    uint32_t getInt() {
        if (windowEnd_ - cursor_ >= 4) [[likely]] {
            const uint32_t value = loadInt(cursor_);
            cursor_ += 4;
            return value;
        }
        return getIntAtWindowEnd();
    }

    // The next bytes when at least `count` of them lie in the window, else null. Reading them this way does not
    // consume them.
    [[nodiscard]] const uint8_t *peek(std::ptrdiff_t count) const {
        return windowEnd_ - cursor_ >= count ? cursor_ : nullptr;
    }

    // Consumes peeked bytes; `next` lies in the window.
    void consumeTo(const uint8_t *next) { cursor_ = next; }

    // Number of bytes from the start of the source to its end, or 0 when that is not known.
    [[nodiscard]] virtual int64_t sourceSize() = 0;

    // True after the source could not be read for another reason than its end.
    [[nodiscard]] bool readFailed() const { return sourceFailed_; }

    // The errno of that.
    [[nodiscard]] int systemError() const { return systemError_; }

  protected:
    // Reads up to `size` bytes at the source's position; 0 at the end, -1 and errno on an error.
    virtual std::ptrdiff_t readSource(uint8_t *buffer, std::size_t size) = 0;

    // The same, but the source may have `begin` point at bytes of its own, more than `size` of them too.
    virtual std::ptrdiff_t lendSource(const uint8_t *&begin, std::size_t size) {
        begin = window_.data();
        return readSource(window_.data(), size);
    }

    // Positions the source at an offset from its start. Returns whether that succeeded.
    virtual bool seekSource(int64_t offset) = 0;

  private:
    bool refill();
    template <class Read> std::ptrdiff_t fromSource(Read read);
    std::ptrdiff_t readPastWindow(uint8_t *destination, std::size_t size);
    uint8_t getByteAtWindowEnd();
    uint16_t getWordAtWindowEnd();
    uint32_t getIntAtWindowEnd();

    std::vector<uint8_t> window_;
    const uint8_t *windowBegin_; // the valid bytes of the window
    const uint8_t *windowEnd_;
    const uint8_t *cursor_;    // next byte to deliver, in [windowBegin_, windowEnd_]
    int64_t windowOffset_ = 0; // source offset of the window's first byte
    int64_t positionSkew_ = 0; // position() - sourcePosition()
    std::size_t nextBlock_;    // size of the next refill
    bool endOfFile_ = false;
    bool sourceEnded_ = false; // the source has nothing behind the window
    bool sourceFailed_ = false;
    int systemError_ = 0;
};

} // namespace trk
