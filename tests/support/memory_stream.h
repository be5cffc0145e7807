// An input stream over bytes in memory, with a window of any size, that can be told to fail.
#pragma once

#include "io/input_stream.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
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
        size_t faultAtRead = kNever;
        std::ptrdiff_t fault = -1; // what that read answers: -1 for an error, 0 for the end of the source
        bool lasts = true;         // so do all reads behind it
    };

    // The bytes must outlive the stream.
    explicit MemoryStream(std::string_view bytes) : MemoryStream(bytes, Plan{}) {}
    MemoryStream(std::string_view bytes, const Plan &plan)
        : InputStream(plan.windowSize), bytes_(bytes), plan_(plan) {}

    [[nodiscard]] int64_t sourceSize() override { return static_cast<int64_t>(bytes_.size()); }

  protected:
    std::ptrdiff_t readSource(uint8_t *buffer, size_t size) override {
        const size_t read = reads_++;
        if (plan_.lasts ? read >= plan_.faultAtRead : read == plan_.faultAtRead) {
            return plan_.fault;
        }
        const std::string_view rest = bytes_.substr(std::min(offset_, bytes_.size()));
        const size_t count = rest.copy(reinterpret_cast<char *>(buffer), std::min(size, plan_.longestRead));
        offset_ += count;
        return static_cast<std::ptrdiff_t>(count);
    }

    bool seekSource(int64_t offset) override {
        offset_ = static_cast<size_t>(offset);
        return true;
    }

  private:
    std::string_view bytes_;
    Plan plan_;
    size_t offset_ = 0;
    size_t reads_ = 0;
};

} // namespace trk_test
