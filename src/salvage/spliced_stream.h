// The kept pieces of a stream as one stream.
#pragma once

#include "io/input_stream.h"
#include "salvage/survey.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace trk {

// Readers of it see a sound recording: stretches that were left out are not there, a sample whose time its
// predecessors no longer tell carries it in full, and a start of a block states what its block shows.
class SplicedStream final : public InputStream {
  public:
    SplicedStream(std::unique_ptr<InputStream> source, const std::vector<KeptPiece> &pieces);

    // Where a byte of the source stands here; of one that is left out, where what follows it does.
    [[nodiscard]] int64_t offsetOf(int64_t sourceOffset) const;

    [[nodiscard]] int64_t sourceSize() override { return size_; }

  protected:
    std::ptrdiff_t readSource(uint8_t *buffer, std::size_t size) override;
    bool seekSource(int64_t offset) override;

  private:
    // Bytes made here, then a stretch of the source.
    struct Part {
        int64_t offset = 0; // in this stream
        std::vector<uint8_t> made{};
        int64_t begin = 0; // in the source, behind the bytes that the made ones stand for
        int64_t end = 0;
        int64_t sourceBegin = 0; // with them

        [[nodiscard]] int64_t size() const { return static_cast<int64_t>(made.size()) + end - begin; }
    };

    int64_t readPart(const Part &part, uint8_t *buffer, int64_t room);

    std::unique_ptr<InputStream> source_;
    std::vector<Part> parts_;
    int64_t size_ = 0;
    int64_t at_ = 0;
    std::size_t part_ = 0; // that `at_` lies in
};

} // namespace trk
