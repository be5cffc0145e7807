#include "io/fast_inflater.h"

#if TRKAPI_WITH_ISAL

#include <array>
#include <cerrno>
#include <isa-l/igzip_lib.h>
#include <memory>
#include <span>

namespace trk {

namespace {

// The same pieces as zlib's, so that both have read as much when they end. Larger ones gain nothing.
constexpr int kChunk = 16384;

class FastInflater {
  public:
    FastInflater(InflatedData &destination, InputStream &source, const InflationOptions &options)
        : destination_(destination), source_(source), options_(options) {
        isal_inflate_init(&state_);
        state_.crc_flag = ISAL_ZLIB;
    }

    // How it ended; nothing where zlib has to say: at a damage of any kind, and where the source ends early.
    std::optional<InflationEnd> run() {
        constexpr int kLargestWindow = 7;
        if (!fill()) {
            return readEnd_;
        }
        // ISA-L takes any, zlib does not.
        if (input_[0] >> 4 > kLargestWindow) {
            return std::nullopt;
        }
        while (state_.block_state != ISAL_BLOCK_FINISH) {
            if (state_.avail_in == 0 && drained_ && !fill()) {
                return readEnd_;
            }
            const std::span<uint8_t> room = destination_.room();
            state_.next_out = room.data();
            state_.avail_out = static_cast<uint32_t>(room.size());
            const uint32_t before = state_.avail_in;
            const int status = isal_inflate(&state_);
            const std::size_t produced = room.size() - state_.avail_out;
            drained_ = state_.avail_out != 0;
            const bool stuck = produced == 0 && before != 0 && state_.avail_in == before;
            if (status != ISAL_DECOMP_OK || (stuck && state_.block_state != ISAL_BLOCK_FINISH)) {
                return std::nullopt;
            }
            if (const InflationEnd taken = take(produced); taken != InflationEnd::Done) {
                return taken;
            }
        }
        result.behind = bytesBehind(source_, state_.avail_in + static_cast<uint32_t>(state_.read_in_length) / 8);
        return destination_.finish() ? InflationEnd::Done : failedToWrite();
    }

    Inflation result;
    std::optional<int64_t> ended;

  private:
    bool fill() {
        const int size = source_.getRawData(input_.data(), kChunk);
        state_.next_in = input_.data();
        state_.avail_in = static_cast<uint32_t>(size);
        result.consumed += size;
        if (size < kChunk && source_.readFailed()) {
            result.systemError = source_.systemError();
            // The source might not be read a second time. What came of it must do.
            readEnd_ = destination_.finish() ? InflationEnd::SourceFailed : failedToWrite();
            return false;
        }
        if (size < kChunk) {
            ended = result.consumed;
        }
        return size > 0;
    }

    InflationEnd take(std::size_t produced) {
        if (result.inflated + static_cast<int64_t>(produced) > options_.largest) {
            return InflationEnd::TooLarge;
        }
        result.inflated += static_cast<int64_t>(produced);
        return destination_.add(produced) ? InflationEnd::Done : failedToWrite();
    }

    InflationEnd failedToWrite() {
        result.systemError = errno;
        return InflationEnd::DestinationFailed;
    }

    InflatedData &destination_;
    InputStream &source_;
    InflationOptions options_;
    inflate_state state_{};
    bool drained_ = true;                 // nothing waits for more room
    std::optional<InflationEnd> readEnd_; // when nothing is left to read
    std::array<uint8_t, kChunk> input_;
};

} // namespace

FastInflation inflateFast(InflatedData &destination, InputStream &source, const InflationOptions &options) {
    const auto inflater = std::make_unique<FastInflater>(destination, source, options);
    const std::optional<InflationEnd> end = inflater->run();
    FastInflation fast{.ended = inflater->ended};
    if (end) {
        inflater->result.end = *end;
        fast.result = std::move(inflater->result);
    }
    return fast;
}

} // namespace trk

#endif
