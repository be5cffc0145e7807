// Compares what is read in bulk with a walk that fetched every item.
#pragma once

#include "support/walk.h"

#include <cstdint>
#include <string>
#include <vector>

namespace trk_test {

// All columns that have a field in the record.
inline std::vector<TRK_COLUMN_DESCRIPTION> recordColumns(bool velocities) {
    std::vector<TRK_COLUMN_DESCRIPTION> columns;
    TRK_COLUMN_DESCRIPTION column;
    for (int id = 1; trk_describe_column(id, &column) == 0; ++id) {
        if (column.record_offset >= 0 && (velocities || column.velocity == 0)) {
            columns.push_back(column);
        }
    }
    return columns;
}

// One recording, and the items of a whole walk over it. Reads `room` rows a call.
class BulkComparison {
  public:
    BulkComparison(_TRKFILE *handle, const std::vector<Item> &items, bool velocities, size_t room)
        : handle_(handle), items_(items), fields_(recordColumns(velocities)), records_(room), numbers_(room),
          events_(room), offsets_(room + 1), texts_(room * 501) {
        columns_.push_back({TRK_COLUMN_ITEM, TRK_TYPE_UINT32, numbers_.data(), 0});
        for (const TRK_COLUMN_DESCRIPTION &field : fields_) {
            columns_.push_back({field.id, field.type,
                                reinterpret_cast<char *>(records_.data()) + field.record_offset,
                                sizeof(FSAMPLE_REC)});
        }
    }

    // What differs in [first, end), or nothing.
    std::string difference(size_t first, size_t end) {
        const auto readSamples = [&](unsigned next, unsigned last) {
            return trk_read_samples(handle_, next, last, columns_.data(), columns_.size(), room(), 0, &error_);
        };
        const auto readEvents = [&](unsigned next, unsigned last) {
            return trk_read_events(handle_, next, last, events_.data(), room(), texts_.data(), texts_.size(),
                                   offsets_.data(), &error_);
        };
        std::string text = compare(first, end, &BulkComparison::isSample, readSamples, &BulkComparison::sampleIs);
        return text.empty() ? compare(first, end, &BulkComparison::isEvent, readEvents, &BulkComparison::eventIs)
                            : text;
    }

  private:
    int64_t room() const { return static_cast<int64_t>(records_.size()); }
    bool isSample(size_t item) const { return items_[item].code == REC_SAMPLE; }
    bool isEvent(size_t item) const { // of a kind that is known
        const int code = items_[item].code;
        return (code >= REC_EVENT1 && code <= REC_EVENT10) ||
               (code >= REC_STARTSAMPLES && code <= REC_ENDEVENTS) || code == REC_MESSAGE || code == REC_BUTTON ||
               code == REC_INPUT;
    }

    bool sampleIs(size_t row, size_t item) const {
        const auto *const read = reinterpret_cast<const char *>(&records_[row]);
        const auto *const walked = reinterpret_cast<const char *>(&items_[item].record);
        return numbers_[row] == item && std::ranges::all_of(fields_, [&](const TRK_COLUMN_DESCRIPTION &field) {
                   const size_t size = field.type == TRK_TYPE_UINT16 ? 2 : 4;
                   return std::memcmp(read + field.record_offset, walked + field.record_offset, size) == 0;
               });
    }

    bool eventIs(size_t row, size_t item) const {
        const auto begin = static_cast<size_t>(offsets_[row]);
        const auto length = static_cast<size_t>(offsets_[row + 1]) - begin;
        Item read{items_[item].code, true, {}, {texts_.data() + begin, length == 0 ? 0 : length - 1}};
        read.record.event = events_[row];
        return read == items_[item];
    }

    // From `next` on, over what is not wanted.
    size_t wanted(size_t next, size_t end, bool (BulkComparison::*isWanted)(size_t) const) const {
        while (next < end && !(this->*isWanted)(next)) {
            ++next;
        }
        return next;
    }

    template <class Read>
    std::string compare(size_t next, size_t end, bool (BulkComparison::*isWanted)(size_t) const, Read read,
                        bool (BulkComparison::*isSame)(size_t, size_t) const) {
        const auto at = [](const char *what, size_t item) { return what + (" at item " + std::to_string(item)); };
        while (next < end) {
            const int64_t rows = read(static_cast<unsigned>(next), static_cast<unsigned>(end));
            if (rows < 0) {
                return at("no reading", next);
            }
            for (size_t row = 0; row < static_cast<size_t>(rows); ++row, ++next) {
                next = wanted(next, end, isWanted);
                if (next >= end || !items_[next].fetched || !(this->*isSame)(row, next)) {
                    return at("another value", next);
                }
            }
            const auto reached = static_cast<size_t>(error_.item);
            if (wanted(next, reached, isWanted) < reached) {
                return at("an item left out", next);
            }
            const bool unreadable = error_.code == TRK_ERROR_DAMAGED;
            if (unreadable && items_[reached].fetched) {
                return at("an item that can be read", reached);
            }
            next = std::max(next, reached) + (unreadable ? 1 : 0);
        }
        return {};
    }

    _TRKFILE *handle_;
    const std::vector<Item> &items_;
    std::vector<TRK_COLUMN_DESCRIPTION> fields_;
    std::vector<FSAMPLE_REC> records_;
    std::vector<unsigned> numbers_;
    std::vector<FEVENT> events_;
    std::vector<int64_t> offsets_;
    std::vector<char> texts_;
    std::vector<TRK_COLUMN> columns_;
    TRK_ERROR error_{};
};

} // namespace trk_test
