#include "io/inflate.h"

#include "io/fast_inflater.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>
#include <zlib.h>

namespace trk {

namespace {

constexpr int kChunk = 16384;
static_assert(kChunk <= InflatedData::kLeastRoom);

class Inflater {
  public:
    // Takes the source to end behind `most` bytes.
    Inflater(InputStream &source, int64_t most, InflatedData &destination, const InflationOptions &options)
        : source_(source), most_(most), destination_(destination), options_(options),
          ready_(inflateInit(&stream_) == Z_OK) {}
    ~Inflater() {
        if (ready_) {
            inflateEnd(&stream_);
        }
    }
    Inflater(const Inflater &) = delete;
    Inflater &operator=(const Inflater &) = delete;

    Inflation run() {
        result_.resumes = options_.resume;
        result_.end = ready_ ? inflateAll() : InflationEnd::NoMemory;
        if (result_.end != InflationEnd::DestinationFailed && !destination_.finish()) {
            result_.end = failedToWrite();
        }
        return std::move(result_);
    }

  private:
    InflationEnd inflateAll() {
        while (true) {
            const bool drained = stream_.avail_out != 0 || result_.inflated == 0;
            if (stream_.avail_in == 0 && drained && !fill()) {
                result_.cut = readEnd_ == InflationEnd::Damaged && result_.tears.empty();
                return readEnd_;
            }
            // Always as much, whatever room there is: a damage takes with it what it came in one go with.
            stream_.next_out = destination_.room().data();
            stream_.avail_out = kChunk;
            const int status = inflate(&stream_, options_.resume ? Z_BLOCK : Z_NO_FLUSH);
            if (const std::optional<InflationEnd> end = take(status)) {
                return *end;
            }
        }
    }

    // Takes what came. Returns how it all ends, when it does.
    std::optional<InflationEnd> take(int status) {
        if (status == Z_MEM_ERROR) {
            return InflationEnd::NoMemory;
        }
        // Z_BUF_ERROR only says that the output area was filled exactly and nothing was left to do.
        const bool sound = status == Z_OK || status == Z_STREAM_END || status == Z_BUF_ERROR;
        // What came in one go with a damage counts only for those who look closely at it.
        const InflationEnd written = sound || options_.resume ? write() : InflationEnd::Done;
        if (written != InflationEnd::Done || status == Z_STREAM_END) {
            result_.behind = bytesBehind(source_, stream_.avail_in);
            return written;
        }
        if (sound) {
            noteFlush();
            return std::nullopt;
        }
        const InflationEnd damage = damageOf(status);
        return options_.resume && damage == InflationEnd::Damaged && resume() ? std::nullopt
                                                                              : std::optional(damage);
    }

    // The next chunk of input.
    bool fill() {
        const auto wanted = static_cast<int>(std::min<int64_t>(kChunk, most_ - result_.consumed));
        const int size = source_.getRawData(input_.data(), wanted);
        stream_.next_in = input_.data();
        stream_.avail_in = static_cast<uInt>(size);
        result_.consumed += size;
        if (size < wanted && source_.readFailed()) {
            result_.systemError = source_.systemError();
            readEnd_ = InflationEnd::SourceFailed;
            return false;
        }
        return size > 0;
    }

    InflationEnd write() {
        const std::size_t produced = kChunk - stream_.avail_out;
        if (result_.inflated + static_cast<int64_t>(produced) > options_.largest) {
            return InflationEnd::TooLarge;
        }
        result_.inflated += static_cast<int64_t>(produced);
        return destination_.add(produced) ? InflationEnd::Done : failedToWrite();
    }

    InflationEnd failedToWrite() {
        result_.systemError = errno;
        return InflationEnd::DestinationFailed;
    }

    [[nodiscard]] InflationEnd damageOf(int status) const {
        const bool checksum = status == Z_DATA_ERROR && stream_.msg != nullptr &&
                              std::string_view(stream_.msg) == "incorrect data check";
        return checksum ? InflationEnd::WrongChecksum : InflationEnd::Damaged;
    }

    // A full flush ends in an empty block that is stored: its length and the complement.
    void noteFlush() {
        constexpr int kBetweenBlocks = 128;
        constexpr std::ptrdiff_t kMark = 4;
        const Bytef *const end = stream_.next_in;
        if (options_.resume && (stream_.data_type & kBetweenBlocks) != 0 && end - input_.data() >= kMark &&
            end[-4] == 0 && end[-3] == 0 && end[-2] == 0xFF && end[-1] == 0xFF &&
            (result_.fresh.empty() || result_.fresh.back() != result_.inflated)) {
            result_.fresh.push_back(result_.inflated);
        }
    }

    // Finds the next place to take up again.
    bool resume() {
        while (inflateSync(&stream_) != Z_OK) {
            if (stream_.avail_in == 0 && !fill()) {
                return false;
            }
        }
        result_.tears.push_back(result_.inflated);
        result_.fresh.push_back(result_.inflated);
        return true;
    }

    InputStream &source_;
    int64_t most_;
    InflatedData &destination_;
    InflationOptions options_;
    z_stream stream_{};
    bool ready_;
    InflationEnd readEnd_ = InflationEnd::Damaged; // when nothing is left to read
    Inflation result_;
    std::array<Bytef, kChunk> input_;
};

} // namespace

Inflation inflateTo(InflatedData &destination, InputStream &source, const InflationOptions &options) {
    int64_t most = std::numeric_limits<int64_t>::max();
#if TRKAPI_WITH_ISAL
    if (options.fast) {
        const int64_t begin = source.sourcePosition();
        FastInflation fast = inflateFast(destination, source, options);
        if (fast.result) {
            fast.result->resumes = options.resume;
            return std::move(*fast.result);
        }
        // Where it ended is where it ends, though it may say otherwise when it is asked again.
        most = fast.ended.value_or(most);
        if (source.seek(begin) != 0) {
            return {.end = InflationEnd::SourceFailed, .systemError = errno};
        }
        if (!destination.clear()) {
            return {.end = InflationEnd::DestinationFailed, .systemError = errno};
        }
    }
#endif
    return Inflater(source, most, destination, options).run();
}

} // namespace trk
