#include "salvage/spliced_stream.h"

#include "trkapi/trkapi.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace trk {

namespace {

constexpr int kTag = 2;
constexpr int kFullTime = 4;
constexpr int kDelta = 1;

} // namespace

SplicedStream::SplicedStream(std::unique_ptr<InputStream> source, const std::vector<KeptPiece> &pieces)
    : source_(std::move(source)) {
    for (const KeptPiece &piece : pieces) {
        Part part{.offset = size_, .begin = piece.begin, .end = piece.end, .sourceBegin = piece.begin};
        if (!piece.instead.empty()) {
            part.made = piece.instead;
            part.begin = piece.end;
        } else if (piece.restamp) {
            source_->seek(piece.begin);
            std::array<uint8_t, kTag> bytes{};
            source_->getRawData(bytes.data(), kTag);
            const uint16_t tag = loadWord(bytes.data());
            const auto full = static_cast<uint16_t>(tag | TRK_SAMPLE_FULL_TIME);
            for (const uint32_t word : {uint32_t{full}, piece.time >> 16, piece.time & 0xFFFF}) {
                part.made.push_back(static_cast<uint8_t>(word >> 8));
                part.made.push_back(static_cast<uint8_t>(word));
            }
            part.begin += kTag + ((tag & TRK_SAMPLE_FULL_TIME) != 0 ? kFullTime : kDelta);
        }
        size_ += part.size();
        parts_.push_back(std::move(part));
    }
}

int64_t SplicedStream::offsetOf(int64_t sourceOffset) const {
    auto part = std::ranges::upper_bound(parts_, sourceOffset, {}, &Part::sourceBegin);
    if (part == parts_.begin()) {
        return 0;
    }
    --part;
    const int64_t into = sourceOffset > part->begin ? static_cast<int64_t>(part->made.size()) +
                                                          std::min(sourceOffset, part->end) - part->begin
                                                    : 0;
    return part->offset + into;
}

// Reads on in a part, up to its end. Returns the number of bytes, or -1 when the source cannot be read.
int64_t SplicedStream::readPart(const Part &part, uint8_t *buffer, int64_t room) {
    const int64_t into = at_ - part.offset;
    const auto made = static_cast<int64_t>(part.made.size());
    if (into < made) {
        const int64_t count = std::min(room, made - into);
        std::memcpy(buffer, part.made.data() + into, static_cast<std::size_t>(count));
        return count;
    }
    const int64_t from = part.begin + into - made;
    if (source_->position() != from && source_->seek(from) != 0) {
        return -1;
    }
    const int read = source_->getRawData(buffer, static_cast<int>(std::min(room, part.end - from)));
    return read == 0 && source_->readFailed() ? -1 : read;
}

std::ptrdiff_t SplicedStream::readSource(uint8_t *buffer, std::size_t size) {
    std::size_t done = 0;
    while (done < size && part_ < parts_.size()) {
        const Part &part = parts_[part_];
        if (at_ - part.offset >= part.size()) {
            ++part_;
            continue;
        }
        const int64_t read = readPart(part, buffer + done, static_cast<int64_t>(size - done));
        if (read <= 0) {
            return done > 0 ? static_cast<std::ptrdiff_t>(done) : static_cast<std::ptrdiff_t>(read);
        }
        at_ += read;
        done += static_cast<std::size_t>(read);
    }
    return static_cast<std::ptrdiff_t>(done);
}

bool SplicedStream::seekSource(int64_t offset) {
    at_ = offset;
    const auto part = std::ranges::upper_bound(parts_, offset, {}, &Part::offset);
    part_ = part == parts_.begin() ? 0 : static_cast<std::size_t>(part - parts_.begin()) - 1;
    return true;
}

} // namespace trk
