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

SplicedStream::SplicedStream(std::unique_ptr<InputStream> source, std::vector<KeptPiece> pieces)
    : source_(std::move(source)) {
    for (const KeptPiece &piece : pieces) {
        Part part{.offset = size_, .begin = piece.begin, .end = piece.end, .sourceBegin = piece.begin};
        if (piece.restamp) {
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

std::ptrdiff_t SplicedStream::readSource(uint8_t *buffer, std::size_t size) {
    std::size_t done = 0;
    while (done < size && part_ < parts_.size()) {
        const Part &part = parts_[part_];
        int64_t into = at_ - part.offset;
        const auto made = static_cast<int64_t>(part.made.size());
        const auto room = static_cast<int64_t>(size - done);
        int64_t read = 0;
        if (into < made) {
            read = std::min(room, made - into);
            std::memcpy(buffer + done, part.made.data() + into, static_cast<std::size_t>(read));
        } else if (into < part.size()) {
            const int64_t from = part.begin + into - made;
            if (source_->position() != from && source_->seek(from) != 0) {
                return done > 0 ? static_cast<std::ptrdiff_t>(done) : -1;
            }
            read = source_->getRawData(buffer + done, static_cast<int>(std::min(room, part.end - from)));
            if (read == 0) {
                return done > 0 ? static_cast<std::ptrdiff_t>(done) : source_->readFailed() ? -1 : 0;
            }
        }
        at_ += read;
        done += static_cast<std::size_t>(read);
        if (at_ - part.offset >= part.size()) {
            ++part_;
        }
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
