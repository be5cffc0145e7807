#include "io/input_stream.h"

#include "base/exception.h"
#include "base/log.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace trk {

namespace {

// After a jump the first refill is small, about what one batch of samples takes; sequential reading from there
// doubles it up to the whole window.
constexpr std::size_t kBlockAfterJump = std::size_t{32} * 1024;

// Reads of this size do without the window.
constexpr int kLargeRead = 64 * 1024;

} // namespace

InputStream::InputStream(std::size_t windowSize)
    : window_(windowSize), windowBegin_(window_.data()), windowEnd_(windowBegin_), cursor_(windowBegin_),
      nextBlock_(windowSize) {}

bool InputStream::refill() {
    const uint8_t *begin = nullptr;
    const std::ptrdiff_t read = fromSource([&] { return lendSource(begin, nextBlock_); });
    if (read <= 0) {
        return false;
    }
    windowOffset_ += windowEnd_ - windowBegin_;
    cursor_ = windowBegin_ = begin;
    windowEnd_ = begin + read;
    nextBlock_ = std::min(2 * nextBlock_, window_.size());
    return true;
}

// Asks the source for bytes and notes when it has none.
template <class Read> std::ptrdiff_t InputStream::fromSource(Read read) {
    if (sourceEnded_ || sourceFailed_) {
        return 0;
    }
    const std::ptrdiff_t count = read();
    sourceEnded_ = count == 0;
    sourceFailed_ = count < 0;
    systemError_ = sourceFailed_ ? errno : systemError_;
    return count;
}

// Reads what lies behind the window straight to where it is wanted, and leaves the window empty.
std::ptrdiff_t InputStream::readPastWindow(uint8_t *destination, std::size_t size) {
    const std::ptrdiff_t read = fromSource([&] { return readSource(destination, size); });
    if (read > 0) {
        windowOffset_ += windowEnd_ - windowBegin_ + read;
        cursor_ = windowBegin_ = windowEnd_ = window_.data();
    }
    return read;
}

int InputStream::getRawData(void *buffer, int count) {
    auto *destination = static_cast<uint8_t *>(buffer);
    int missing = std::max(count, 0);
    while (missing > 0) {
        int part = 0;
        if (cursor_ == windowEnd_ && missing >= kLargeRead) {
            part = static_cast<int>(readPastWindow(destination, static_cast<std::size_t>(missing)));
        } else if (cursor_ != windowEnd_ || refill()) {
            part = static_cast<int>(std::min<std::ptrdiff_t>(missing, windowEnd_ - cursor_));
            std::memcpy(destination, cursor_, static_cast<std::size_t>(part));
            cursor_ += part;
        }
        if (part <= 0) {
            endOfFile_ = sourceEnded_;
            break;
        }
        destination += part;
        missing -= part;
    }
    return std::max(count, 0) - missing;
}

int InputStream::seek(int64_t position) {
    const int64_t windowSize = windowEnd_ - windowBegin_;
    const bool inWindow = position >= windowOffset_ && position - windowOffset_ <= windowSize;
    if (!inWindow) {
        if (position < 0 || !seekSource(position)) {
            positionSkew_ = position - sourcePosition();
            return -1;
        }
        windowEnd_ = windowBegin_;
        windowOffset_ = position;
        nextBlock_ = std::min(kBlockAfterJump, window_.size());
        sourceEnded_ = sourceFailed_ = false;
    }
    cursor_ = windowBegin_ + (position - windowOffset_);
    positionSkew_ = 0;
    endOfFile_ = false;
    return 0;
}

int InputStream::getTerminatedString(char *buffer, int size) {
    int count = 0;
    while (count < size - 1) {
        if (cursor_ == windowEnd_ && !refill()) {
            endOfFile_ = sourceEnded_;
            break;
        }
        const char character = static_cast<char>(*cursor_++);
        buffer[count++] = character;
        if (character == '\n') {
            break;
        }
    }
    if (count == 0) {
        return -1;
    }
    buffer[count] = '\0';
    const auto length = static_cast<int>(std::strlen(buffer));
    positionSkew_ += length - count;
    return length;
}

uint8_t InputStream::getByteAtWindowEnd() {
    uint8_t value = 0;
    if (getRawData(&value, 1) != 1) {
        logLine("error reading trk file 11\n");
        throw TRKException(kEndOfFile);
    }
    return value;
}

uint16_t InputStream::getWordAtWindowEnd() {
    std::array<uint8_t, 2> bytes{};
    const int read = getRawData(bytes.data(), 2);
    if (read != 2) {
        logLine("error reading trk file 7a r = %d \n", read);
        throw TRKException(kEndOfFile);
    }
    return loadWord(bytes.data());
}

uint32_t InputStream::getIntAtWindowEnd() {
    std::array<uint8_t, 4> bytes{};
    if (getRawData(bytes.data(), 4) != 4) {
        logLine("error reading trk file 9\n");
        throw TRKException(kEndOfFile);
    }
    return loadInt(bytes.data());
}

} // namespace trk
