// Inflates a stream, damaged or not, by zlib alone and with the faster inflater first, and compares the two.
#include "fuzz_support.h"

#include "io/inflate.h"
#include "support/memory_stream.h"

#include <algorithm>
#include <zlib.h>

namespace {

using trk_fuzz::Bytes;

// Bits of the first byte.
enum Choices : unsigned { kResume = 1, kCompress = 2, kFlush = 4 };

Bytes compressed(std::string_view plain, bool flush) {
    constexpr size_t kFlushEvery = 100;
    Bytes stream(compressBound(static_cast<uLong>(plain.size())) + plain.size() + 64, '\0');
    z_stream zlib{};
    deflateInit(&zlib, 1);
    zlib.next_out = reinterpret_cast<Bytef *>(stream.data());
    zlib.avail_out = static_cast<uInt>(stream.size());
    do {
        const std::string_view part = plain.substr(0, flush ? kFlushEvery : plain.size());
        plain.remove_prefix(part.size());
        Bytes input(part); // zlib reads from what it may write to
        zlib.next_in = reinterpret_cast<Bytef *>(input.data());
        zlib.avail_in = static_cast<uInt>(input.size());
        deflate(&zlib, plain.empty() ? Z_FINISH : Z_FULL_FLUSH);
    } while (!plain.empty());
    stream.resize(zlib.total_out);
    deflateEnd(&zlib);
    return stream;
}

Bytes makeStream(trk_fuzz::Input &input, unsigned choices) {
    if ((choices & kCompress) == 0) {
        return Bytes(input.rest());
    }
    const Bytes damages(input.text(size_t{3} * (input.take<uint8_t>() & 7U)));
    Bytes stream = compressed(input.rest(), (choices & kFlush) != 0);
    for (trk_fuzz::Input damage(damages); !damage.empty() && !stream.empty();) {
        const size_t place = damage.take<uint16_t>() % stream.size();
        if (const auto bits = damage.take<uint8_t>()) {
            stream[place] = static_cast<char>(stream[place] ^ bits);
        } else {
            stream.resize(place); // cut
        }
    }
    return stream;
}

struct Inflated {
    trk::Inflation how;
    Bytes bytes;

    [[nodiscard]] bool complains() const { return how.end != trk::InflationEnd::Done || !how.tears.empty(); }
};

Inflated inflated(const Bytes &stream, const trk::InflationOptions &options) {
    trk_test::MemoryStream source(stream, {.windowSize = 64});
    trk::InflatedData data(trk::kMostInflatedInMemory, [] { return trk::FilePointer(std::tmpfile()); });
    Inflated result{inflateTo(data, source, options), {}};
    const auto content = std::move(data).read();
    result.bytes.resize(static_cast<size_t>(content->sourceSize()));
    content->getRawData(result.bytes.data(), static_cast<int>(result.bytes.size()));
    return result;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    trk_fuzz::Input input(data, size);
    const unsigned choices = input.take<uint8_t>();
    const Bytes stream = makeStream(input, choices);
    const bool resume = (choices & kResume) != 0;
    const Inflated exact = inflated(stream, {.resume = resume, .fast = false});
    const Inflated fast = inflated(stream, {.resume = resume});
    trk_fuzz::require(fast.how.resumes == resume, "what was asked for is told");
    if (!fast.complains() && exact.complains()) {
        // zlib refuses codes that nothing was written in. The checksum tells that all is there.
        trk_fuzz::require(fast.bytes.starts_with(exact.bytes) || resume, "what zlib gives is part of it");
        return 0;
    }
    trk_fuzz::require(fast.how.end == exact.how.end && fast.how.inflated == exact.how.inflated, "both end alike");
    trk_fuzz::require(fast.how.consumed == exact.how.consumed, "both read as much");
    trk_fuzz::require(fast.how.behind == exact.how.behind, "both leave as much");
    trk_fuzz::require(fast.bytes == exact.bytes, "both give the same");
    trk_fuzz::require(fast.how.tears == exact.how.tears, "both tear alike");
    trk_fuzz::require(!fast.complains() || fast.how.fresh == exact.how.fresh, "both resume alike");
    return 0;
}
