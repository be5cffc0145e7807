// The exported calls that read many items at once.
#include "api/guard.h"
#include "api/open_errors.h"
#include "bulk/columns.h"
#include "bulk/event_columns.h"
#include "bulk/output_column.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <vector>

using trk::BulkResult;
using trk::OutputColumn;
using trk::TRKFile;

namespace {

constexpr int64_t kFailed = -1;
constexpr int kKnownReadFlags = TRK_READ_NAN;

// Makes the outputs of columns that are all in order; else says why one is not.
bool makeOutputs(const TRK_COLUMN *columns, std::size_t count, int flags, std::vector<OutputColumn> &outputs,
                 TRK_ERROR &error) {
    if (columns == nullptr && count > 0) {
        trk::say(error, TRK_ERROR_ARGUMENT, "the columns are null");
        return false;
    }
    for (std::size_t i = 0; i < count; ++i) {
        const TRK_COLUMN &place = columns[i];
        const trk::SampleColumn *const column = trk::columnOf(place.id);
        if (column == nullptr) {
            trk::say(error, TRK_ERROR_ARGUMENT, "column %zu has the unknown id %d", i, place.id);
        } else if (OutputColumn::sizeOf(place.type) == 0) {
            trk::say(error, TRK_ERROR_ARGUMENT, "column %zu (%s) has the unknown type %d", i,
                     column->description.name, place.type);
        } else if (!OutputColumn::holds(place.type, *column)) {
            trk::say(error, TRK_ERROR_ARGUMENT, "column %zu (%s): its type does not hold all of its values", i,
                     column->description.name);
        } else if (place.data == nullptr) {
            trk::say(error, TRK_ERROR_ARGUMENT, "column %zu (%s) has no address", i, column->description.name);
        } else {
            outputs.emplace_back(*column, place, (flags & TRK_READ_NAN) != 0);
            continue;
        }
        return false;
    }
    return true;
}

// Makes a call that reads up to an item, and tells how it ended. What the body returns false for is told already.
template <class Body>
int64_t read(_TRKFILE *handle, unsigned end, int64_t rows, TRK_ERROR *told, Body body) noexcept {
    TRK_ERROR unwanted;
    TRK_ERROR &error = told != nullptr ? *told : unwanted;
    error = trk::noError();
    if (handle == nullptr || rows < 0) {
        trk::say(error, TRK_ERROR_ARGUMENT,
                 handle == nullptr ? "the handle is null" : "the rows are fewer than 0");
        return kFailed;
    }
    // What is said on the way is said of a walk that nobody makes.
    const trk::LogReceiver nobody;
    const trk::LogScope quiet(&nobody);
    try {
        BulkResult result;
        if (!body(trk::fileOf(handle), error, result)) {
            return kFailed;
        }
        const bool isOver = !result.unreadable && result.item >= std::min(end, trk::fileOf(handle).itemCount());
        error.item = isOver ? end : result.item;
        if (result.unreadable) {
            trk::say(error, TRK_ERROR_DAMAGED, "item %u cannot be read: go on from the next one", result.item);
        }
        return result.rows;
    } catch (...) {
        error.system_error = ENOMEM;
        trk::say(error, TRK_ERROR_MEMORY, "not enough memory to read");
        return kFailed;
    }
}

template <class Column> int describe(const Column *column, TRK_COLUMN_DESCRIPTION *description) {
    if (column == nullptr || description == nullptr) {
        return -1;
    }
    *description = column->description;
    return 0;
}

} // namespace

int trk_describe_column(int id, TRK_COLUMN_DESCRIPTION *description) noexcept {
    return describe(trk::columnOf(id), description);
}

int trk_describe_event_column(int id, TRK_COLUMN_DESCRIPTION *description) noexcept {
    return describe(trk::eventColumnOf(id), description);
}

int trk_get_event_column(const FEVENT *events, int64_t count, int id, double *values) noexcept {
    const trk::EventColumn *const column = trk::eventColumnOf(id);
    if (column == nullptr || events == nullptr || values == nullptr || count < 0) {
        return -1;
    }
    std::transform(events, events + count, values,
                   [column](const FEVENT &event) { return column->value(event, *column); });
    return 0;
}

int64_t trk_count_items(_TRKFILE *handle, unsigned first, unsigned end, int code) noexcept {
    return handle == nullptr ? kFailed : trk::fileOf(handle).countItems(first, end, code);
}

int64_t trk_list_items(_TRKFILE *handle, unsigned first, unsigned end, int code, unsigned *items,
                       int64_t rows) noexcept {
    return handle == nullptr || items == nullptr || rows < 0
               ? kFailed
               : trk::fileOf(handle).listItems(first, end, code, items, rows);
}

int64_t trk_read_samples(_TRKFILE *handle, unsigned first, unsigned end, const TRK_COLUMN *columns,
                         size_t column_count, int64_t rows, int flags, TRK_ERROR *error) noexcept {
    return read(handle, end, rows, error, [&](TRKFile &file, TRK_ERROR &problem, BulkResult &result) {
        if ((flags & ~kKnownReadFlags) != 0) {
            trk::say(problem, TRK_ERROR_ARGUMENT, "unknown flags 0x%X", static_cast<unsigned>(flags));
            return false;
        }
        std::vector<OutputColumn> outputs;
        if (!makeOutputs(columns, column_count, flags, outputs, problem)) {
            return false;
        }
        result = file.bulk().readSamples(first, {outputs, std::min(end, file.itemCount()), rows});
        return true;
    });
}

int64_t trk_read_events(_TRKFILE *handle, unsigned first, unsigned end, FEVENT *events, int64_t rows, char *texts,
                        size_t texts_size, int64_t *text_offsets, TRK_ERROR *error) noexcept {
    return read(handle, end, rows, error, [&](TRKFile &file, TRK_ERROR &, BulkResult &result) {
        result = file.bulk().readEvents(first, std::min(end, file.itemCount()),
                                        {events, rows, texts, texts_size, text_offsets});
        return true;
    });
}
