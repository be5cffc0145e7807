// Compares what is read in bulk with a walk that fetched every item.
#pragma once

#include "support/walk.h"

#include <array>
#include <bit>
#include <cstdint>
#include <optional>
#include <utility>

namespace trk_test {

using BulkColumn = std::pair<int, size_t>; // a column and its field

inline std::vector<BulkColumn> recordColumns(bool velocities) {
    std::vector<BulkColumn> columns{{TRK_COLUMN_TIME, offsetof(FSAMPLE_REC, time)},
                                    {TRK_COLUMN_FLAGS, offsetof(FSAMPLE_REC, flags)},
                                    {TRK_COLUMN_INPUT, offsetof(FSAMPLE_REC, input)},
                                    {TRK_COLUMN_BUTTONS, offsetof(FSAMPLE_REC, buttons)},
                                    {TRK_COLUMN_STATUS, offsetof(FSAMPLE_REC, status)},
                                    {TRK_COLUMN_EXT_TYPE, offsetof(FSAMPLE_REC, ext_type)},
                                    {TRK_COLUMN_RES_X, offsetof(FSAMPLE_REC, res_x)},
                                    {TRK_COLUMN_RES_Y, offsetof(FSAMPLE_REC, res_y)},
                                    {TRK_COLUMN_PUPIL_SIZE_LEFT, offsetof(FSAMPLE_REC, pupil_size)},
                                    {TRK_COLUMN_PUPIL_SIZE_RIGHT, offsetof(FSAMPLE_REC, pupil_size) + 4}};
    const auto pairs = [&columns](int id, size_t x, size_t y) { // x left, y left, x right, y right
        columns.insert(columns.end(), {{id, x}, {id + 1, y}, {id + 2, x + 4}, {id + 3, y + 4}});
    };
    pairs(TRK_COLUMN_GAZE_X_LEFT, offsetof(FSAMPLE_REC, gaze_x), offsetof(FSAMPLE_REC, gaze_y));
    pairs(TRK_COLUMN_HREF_X_LEFT, offsetof(FSAMPLE_REC, href_x), offsetof(FSAMPLE_REC, href_y));
    pairs(TRK_COLUMN_PUPIL_X_LEFT, offsetof(FSAMPLE_REC, pupil_x), offsetof(FSAMPLE_REC, pupil_y));
    for (int i = 0; i < 8; ++i) {
        columns.emplace_back(TRK_COLUMN_EXT_DATA_1 + i,
                             offsetof(FSAMPLE_REC, ext_data) + 2 * static_cast<size_t>(i));
    }
    if (velocities) {
        pairs(TRK_COLUMN_GAZE_VEL_X_LEFT, offsetof(FSAMPLE_REC, gaze_vel_x), offsetof(FSAMPLE_REC, gaze_vel_y));
        pairs(TRK_COLUMN_HREF_VEL_X_LEFT, offsetof(FSAMPLE_REC, href_vel_x), offsetof(FSAMPLE_REC, href_vel_y));
        pairs(TRK_COLUMN_PUPIL_VEL_X_LEFT, offsetof(FSAMPLE_REC, pupil_vel_x), offsetof(FSAMPLE_REC, pupil_vel_y));
        pairs(TRK_COLUMN_GAZE_FVEL_X_LEFT, offsetof(FSAMPLE_REC, gaze_fvel_x), offsetof(FSAMPLE_REC, gaze_fvel_y));
        pairs(TRK_COLUMN_HREF_FVEL_X_LEFT, offsetof(FSAMPLE_REC, href_fvel_x), offsetof(FSAMPLE_REC, href_fvel_y));
        pairs(TRK_COLUMN_PUPIL_FVEL_X_LEFT, offsetof(FSAMPLE_REC, pupil_fvel_x),
              offsetof(FSAMPLE_REC, pupil_fvel_y));
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
    const std::vector<BulkColumn> fields = recordColumns(velocities);
    std::vector<FSAMPLE_REC> records(room);
    std::vector<unsigned> numbers(room);
    std::vector<FEVENT> events(room);
    std::vector<int64_t> offsets(room + 1);
    std::vector<char> texts(room * 501);
    std::vector<TRK_COLUMN> columns{{TRK_COLUMN_ITEM, TRK_TYPE_UINT32, numbers.data(), 0}};
    for (const auto &[id, offset] : fields) {
        TRK_COLUMN_DESCRIPTION description;
        trk_describe_column(id, &description);
        columns.push_back(
            {id, description.type, reinterpret_cast<char *>(records.data()) + offset, sizeof(FSAMPLE_REC)});
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
            return numbers[row] == item && std::ranges::all_of(fields, [&](const BulkColumn &field) {
                       const bool isWord = field.first == TRK_COLUMN_FLAGS || field.first >= TRK_COLUMN_INPUT;
                       return std::memcmp(read + field.second, walked + field.second, isWord ? 2 : 4) == 0;
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
