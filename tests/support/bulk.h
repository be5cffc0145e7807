// Compares what is read in bulk with a walk that fetched every item.
#pragma once

#include "support/walk.h"

#include <array>
#include <bit>
#include <cstdint>
#include <optional>
#include <utility>

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

// `items` are those of a whole walk over the recording, or its beginning. Returns what differs in [first, end), or
// nothing. `room` is how many rows are read a call.
inline std::optional<std::string> bulkDifference(_TRKFILE *handle, const std::vector<Item> &items, unsigned first,
                                                 unsigned end, bool velocities, size_t room) {
    const auto differs = [](const char *what, size_t item) {
        return std::optional<std::string>(std::string(what) + " at item " + std::to_string(item));
    };
    const std::vector<TRK_COLUMN_DESCRIPTION> fields = recordColumns(velocities);
    std::vector<FSAMPLE_REC> records(room);
    std::vector<unsigned> numbers(room);
    std::vector<FEVENT> events(room);
    std::vector<int64_t> offsets(room + 1);
    std::vector<char> texts(room * 501);
    std::vector<TRK_COLUMN> columns{{TRK_COLUMN_ITEM, TRK_TYPE_UINT32, numbers.data(), 0}};
    for (const TRK_COLUMN_DESCRIPTION &field : fields) {
        columns.push_back({field.id, field.type, reinterpret_cast<char *>(records.data()) + field.record_offset,
                           sizeof(FSAMPLE_REC)});
    }
    TRK_ERROR error{};
    const auto isSample = [&items](size_t i) { return items[i].code == REC_SAMPLE; };
    const auto isEvent = [&items](size_t i) { // of a kind that is known
        const int code = items[i].code;
        return (code >= REC_EVENT1 && code <= REC_EVENT10) ||
               (code >= REC_STARTSAMPLES && code <= REC_ENDEVENTS) || code == REC_MESSAGE || code == REC_BUTTON ||
               code == REC_INPUT;
    };
    const auto check = [&](auto isWanted, auto read, auto isSame) -> std::optional<std::string> {
        for (size_t next = first; next < end;) {
            const int64_t rows = read(static_cast<unsigned>(next));
            if (rows < 0) {
                return differs("no reading", next);
            }
            for (size_t row = 0; row < static_cast<size_t>(rows); ++row, ++next) {
                next = std::find_if(
                           items.begin() + static_cast<ptrdiff_t>(next), items.end(),
                           [&](const Item &item) { return isWanted(static_cast<size_t>(&item - items.data())); }) -
                       items.begin();
                if (next >= end || !items[next].fetched || !isSame(row, next)) {
                    return differs("another value", next);
                }
            }
            for (; next < static_cast<size_t>(error.item); ++next) {
                if (isWanted(next)) {
                    return differs("an item left out", next);
                }
            }
            if (error.code == TRK_ERROR_DAMAGED && items[next].fetched) {
                return differs("an item that can be read", next);
            }
            next += error.code == TRK_ERROR_DAMAGED ? 1 : 0;
        }
        return std::nullopt;
    };
    const auto samples = check(
        isSample,
        [&](unsigned next) {
            return trk_read_samples(handle, next, end, columns.data(), columns.size(), static_cast<int64_t>(room),
                                    0, &error);
        },
        [&](size_t row, size_t item) {
            const auto *const read = reinterpret_cast<const char *>(&records[row]);
            const auto *const walked = reinterpret_cast<const char *>(&items[item].record);
            return numbers[row] == item && std::ranges::all_of(fields, [&](const TRK_COLUMN_DESCRIPTION &field) {
                       const size_t size = field.type == TRK_TYPE_UINT16 ? 2 : 4;
                       return std::memcmp(read + field.record_offset, walked + field.record_offset, size) == 0;
                   });
        });
    if (samples) {
        return samples;
    }
    return check(
        isEvent,
        [&](unsigned next) {
            return trk_read_events(handle, next, end, events.data(), static_cast<int64_t>(room), texts.data(),
                                   texts.size(), offsets.data(), &error);
        },
        [&](size_t row, size_t item) {
            const auto begin = static_cast<size_t>(offsets[row]);
            const auto length = static_cast<size_t>(offsets[row + 1]) - begin;
            Item read{items[item].code, true, {}, {texts.data() + begin, length == 0 ? 0 : length - 1}};
            read.record.event = events[row];
            return read == items[item];
        });
}

} // namespace trk_test
