// An input stream over bytes in memory, with a window of any size, that can be told to fail.
#pragma once

#include "io/input_stream.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>

namespace trk_test {

class MemoryStream final : public trk::InputStream {
  public:
    static constexpr size_t kNever = std::numeric_limits<size_t>::max();

    // Reads of the source are counted from 0, over the life of the stream.
    struct Plan {
        size_t windowSize = kDefaultWindowSize;
        size_t longestRead = kNever; // reads return at most so many bytes
        size_t failAtRead = kNever;  // the read that answers with an error
        size_t endAtRead = kNever;   // the read that answers with the end of the source
        bool lasts = true;           // so do all reads behind it
        bool seekable = true;
        bool knowsSize = true;
        size_t *reads = nullptr; // receives the number of reads so far; must outlive the stream
    };

    // The bytes must outlive the stream.
    explicit MemoryStream(std::string_view bytes) : MemoryStream(bytes, Plan{}) {}
    MemoryStream(std::string_view bytes, const Plan &plan)
        : InputStream(plan.windowSize), bytes_(bytes), plan_(plan) {}

    [[nodiscard]] int64_t sourceSize() override {
        return plan_.knowsSize ? static_cast<int64_t>(bytes_.size()) : 0;
    }

  protected:
    std::ptrdiff_t readSource(uint8_t *buffer, size_t size) override {
        const size_t read = reads_++;
        if (plan_.reads != nullptr) {
            *plan_.reads = reads_;
        }
        if (isDue(read, plan_.failAtRead)) {
            return -1;
        }
        if (isDue(read, plan_.endAtRead)) {
            return 0;
        }
        const std::string_view rest = bytes_.substr(std::min(offset_, bytes_.size()));
        const size_t count = std::min({size, rest.size(), plan_.longestRead});
        if (count > 0) {
            std::memcpy(buffer, rest.data(), count);
        }
        offset_ += count;
        return static_cast<std::ptrdiff_t>(count);
    }

    bool seekSource(int64_t offset) override {
        if (plan_.seekable) {
            offset_ = static_cast<size_t>(offset);
        }
        return plan_.seekable;
    }

  private:
    [[nodiscard]] bool isDue(size_t read, size_t at) const { return plan_.lasts ? read >= at : read == at; }

    std::string_view bytes_;
    Plan plan_;
    size_t offset_ = 0;
    size_t reads_ = 0;
};

} // namespace trk_test
