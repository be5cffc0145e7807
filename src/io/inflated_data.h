// Where inflated data lie: in memory while they are few, else in a temporary file.
#pragma once

#include "io/file_input_stream.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

namespace trk {

// At the second door a recording that inflates to no more needs no temporary file.
inline constexpr int64_t kMostInflatedInMemory = int64_t{64} << 20;

// Memory that is there when it is touched. Empty when there is none to be had.
class Reserve {
  public:
    Reserve() = default;
    explicit Reserve(std::size_t size);
    ~Reserve();
    Reserve(const Reserve &) = delete;
    Reserve &operator=(const Reserve &) = delete;
    Reserve(Reserve &&from) noexcept;
    Reserve &operator=(Reserve &&from) noexcept;

    // Gives back all but the first bytes.
    void cutTo(std::size_t size);

    [[nodiscard]] std::span<uint8_t> bytes() const { return bytes_; }

  private:
    std::span<uint8_t> bytes_;
};

class InflatedData {
  public:
    using FileMaker = std::function<FilePointer()>;

    static constexpr std::size_t kLeastRoom = 16384;

    // Up to `mostInMemory` bytes stay in memory; when more come, all go to a file that `makeFile` gives. With 0
    // it is made at once.
    InflatedData(int64_t mostInMemory, FileMaker makeFile);

    // Where the next bytes go, at least kLeastRoom of them.
    [[nodiscard]] std::span<uint8_t> room() { return memory().subspan(filled_); }

    // `count` bytes were put to the front of the room. Returns false, and sets errno, when the file cannot be
    // written: then it ends with what it could take.
    [[nodiscard]] bool add(std::size_t count);

    // All bytes were added.
    [[nodiscard]] bool finish();

    // Forgets what was added.
    [[nodiscard]] bool clear();

    // A stream over what is here.
    [[nodiscard]] std::unique_ptr<InputStream> read() &&;

  private:
    [[nodiscard]] std::span<uint8_t> memory() { return file_ ? std::span<uint8_t>(buffer_) : reserve_.bytes(); }
    void beginFile();
    bool write(std::span<const uint8_t> from);
    bool moveToFile();

    std::size_t mostInMemory_;
    FileMaker makeFile_;
    Reserve reserve_;
    FilePointer file_;
    std::vector<uint8_t> buffer_; // before the file
    std::size_t filled_ = 0;      // bytes in memory
};

} // namespace trk
