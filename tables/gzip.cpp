#include "gzip.h"

#include <new>

#if TRKAPI_WITH_ISAL
#include <array>
#include <isa-l/igzip_lib.h>
#else
#include <zlib.h>
#endif

namespace tables {

namespace {

constexpr std::size_t kPiece = std::size_t{64} * 1024;

} // namespace

#if TRKAPI_WITH_ISAL

struct Gzip::Stream {
    isal_zstream state{};
    std::array<uint8_t, ISAL_DEF_LVL1_LARGE> level{};
};

Gzip::Gzip() : stream_(std::make_unique<Stream>()) {
    isal_deflate_init(&stream_->state);
    stream_->state.gzip_flag = IGZIP_GZIP;
    stream_->state.level = 1;
    stream_->state.level_buf = stream_->level.data();
    stream_->state.level_buf_size = static_cast<uint32_t>(stream_->level.size());
}

void Gzip::compress(std::string_view bytes, bool isLast, std::vector<char> &out) {
    isal_zstream &state = stream_->state;
    std::string input(bytes); // ISA-L takes what it may change
    state.next_in = reinterpret_cast<uint8_t *>(input.data());
    state.avail_in = static_cast<uint32_t>(input.size());
    state.end_of_stream = isLast ? 1 : 0;
    state.flush = NO_FLUSH;
    out.clear();
    do {
        const std::size_t used = out.size();
        out.resize(used + kPiece);
        state.next_out = reinterpret_cast<uint8_t *>(out.data() + used);
        state.avail_out = kPiece;
        isal_deflate(&state);
        out.resize(out.size() - state.avail_out);
    } while (state.avail_out == 0 || state.avail_in != 0 || (isLast && state.internal_state.state != ZSTATE_END));
}

#else

struct Gzip::Stream {
    Stream() {
        constexpr int kGzipWindow = 15 + 16;
        constexpr int kMemory = 8;
        constexpr int kFast = 2;
        if (deflateInit2(&state, kFast, Z_DEFLATED, kGzipWindow, kMemory, Z_DEFAULT_STRATEGY) != Z_OK) {
            throw std::bad_alloc();
        }
    }
    ~Stream() { deflateEnd(&state); }
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;

    z_stream state{};
};

Gzip::Gzip() : stream_(std::make_unique<Stream>()) {}

void Gzip::compress(std::string_view bytes, bool isLast, std::vector<char> &out) {
    z_stream &state = stream_->state;
    std::string input(bytes); // zlib takes what it may change
    state.next_in = reinterpret_cast<Bytef *>(input.data());
    state.avail_in = static_cast<uInt>(input.size());
    out.clear();
    do {
        const std::size_t used = out.size();
        out.resize(used + kPiece);
        state.next_out = reinterpret_cast<Bytef *>(out.data() + used);
        state.avail_out = kPiece;
        deflate(&state, isLast ? Z_FINISH : Z_NO_FLUSH);
        out.resize(out.size() - state.avail_out);
    } while (state.avail_out == 0);
}

#endif

Gzip::~Gzip() = default;

} // namespace tables
