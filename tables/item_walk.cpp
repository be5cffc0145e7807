#include "item_walk.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace tables {

namespace {

constexpr uint32_t kItemsAtOnce = 8192;
constexpr int kAllEvents = 0;

std::vector<TRK_COLUMN> recordColumns(bool velocities, ALLF_DATA *records) {
    std::vector<TRK_COLUMN> columns;
    TRK_COLUMN_DESCRIPTION column;
    for (int id = 1; trk_describe_column(id, &column) == 0; ++id) {
        if (column.record_offset >= 0 && (velocities || column.velocity == 0)) {
            columns.push_back(
                {id, column.type, reinterpret_cast<char *>(records) + column.record_offset, sizeof(ALLF_DATA)});
        }
    }
    return columns;
}

} // namespace

BulkWalk::BulkWalk(_TRKFILE *handle, uint32_t first, uint32_t end, ItemKinds kinds, bool velocities)
    : handle_(handle), number_(first), end_(std::min(end, trk_get_element_count(handle))), fillEnd_(first),
      kinds_(kinds), velocities_(velocities) {
    // Times of late recording blocks are counted from the item that is fetched first: the first one of all.
    if (trk_goto_item(handle_, 0) == 0 && trk_get_next_data(handle_) != 0) {
        trk_get_float_data(handle_);
    }
}

std::optional<Item> BulkWalk::next() {
    while (number_ < end_) {
        if (number_ == fillEnd_) {
            fill();
        }
        Rows *nearest = nullptr;
        for (Rows *const rows : {&samples_, &events_, &blocks_}) {
            if (rows->next < rows->numbers.size() &&
                (nearest == nullptr || rows->numbers[rows->next] < nearest->numbers[nearest->next])) {
                nearest = rows;
            }
        }
        const uint32_t number = nearest == nullptr ? fillEnd_ : nearest->numbers[nearest->next];
        if (kinds_ == kAllKinds && number != number_) {
            last_ = number_++;
            failure_ = "item " + std::to_string(last_) + " is of a kind that is not known";
            return Item{codeOf(last_), nullptr};
        }
        number_ = number;
        if (nearest == nullptr) {
            continue;
        }
        const std::size_t row = nearest->next++;
        last_ = number_++;
        if ((kindOf(nearest->codes[row]) & kinds_) != 0) {
            return Item{nearest->codes[row], nearest->isReadable[row] != 0 ? &nearest->records[row] : nullptr};
        }
    }
    return std::nullopt;
}

int BulkWalk::codeOf(uint32_t number) {
    return trk_goto_item(handle_, number) == 0 ? trk_get_next_data(handle_) : 0;
}

void BulkWalk::fill() {
    fillEnd_ = std::min(end_, number_ + kItemsAtOnce);
    if ((kinds_ & kSamples) != 0) {
        list(samples_, REC_SAMPLE);
        readSamples();
    }
    if ((kinds_ & (kEvents | kMessages)) != 0) {
        list(events_, kAllEvents);
        readEvents();
    }
    if ((kinds_ & kRecordings) != 0) {
        list(blocks_, REC_RECORDING);
        readBlocks();
    }
}

void BulkWalk::list(Rows &rows, int code) {
    rows.numbers.resize(kItemsAtOnce);
    const int64_t count = trk_list_items(handle_, number_, fillEnd_, code, rows.numbers.data(), kItemsAtOnce);
    rows.numbers.resize(static_cast<std::size_t>(std::max<int64_t>(count, 0)));
    rows.records.resize(rows.numbers.size());
    rows.isReadable.assign(rows.numbers.size(), 1);
    rows.codes.assign(rows.numbers.size(), code);
    rows.next = 0;
}

// Calls read(row, first item, error) from row to row, over the items that cannot be read, until all were read.
template <class Read> void BulkWalk::readRows(Rows &rows, Read read) {
    uint32_t first = number_;
    for (std::size_t row = 0; row < rows.numbers.size();) {
        TRK_ERROR error;
        const int64_t count = read(row, first, &error);
        if (count < 0) {
            throw std::runtime_error(error.text);
        }
        row += static_cast<std::size_t>(count);
        if (error.code != TRK_OK) {
            failure_ = "item " + std::to_string(error.item);
            rows.codes[row] = codeOf(static_cast<uint32_t>(error.item));
            rows.isReadable[row++] = 0;
            first = static_cast<uint32_t>(error.item) + 1;
        } else {
            first = static_cast<uint32_t>(error.item);
        }
    }
}

void BulkWalk::readSamples() {
    readRows(samples_, [this](std::size_t row, uint32_t first, TRK_ERROR *error) {
        const std::vector<TRK_COLUMN> columns = recordColumns(velocities_, samples_.records.data() + row);
        return trk_read_samples(handle_, first, fillEnd_, columns.data(), columns.size(),
                                static_cast<int64_t>(samples_.records.size() - row), 0, error);
    });
}

void BulkWalk::readEvents() {
    messages_.resize(events_.numbers.size());
    texts_.resize(events_.numbers.size() * sizeof(TRK_MESSAGE::text));
    std::vector<FEVENT> records(events_.numbers.size());
    std::vector<int64_t> offsets(records.size() + 1);
    readRows(events_, [&](std::size_t row, uint32_t first, TRK_ERROR *error) {
        const int64_t count =
            trk_read_events(handle_, first, fillEnd_, records.data(), static_cast<int64_t>(records.size() - row),
                            texts_.data(), texts_.size(), offsets.data(), error);
        for (std::size_t i = 0; i < static_cast<std::size_t>(std::max<int64_t>(count, 0)); ++i) {
            FEVENT &event = events_.records[row + i].event;
            event = records[i];
            events_.codes[row + i] = event.type;
            const auto size = static_cast<std::size_t>(offsets[i + 1] - offsets[i]);
            if (size > 0) {
                TRK_MESSAGE &message = messages_[row + i];
                message.length = static_cast<uint16_t>(size - 1);
                std::memcpy(message.text, texts_.data() + offsets[i], std::min(size, sizeof(message.text)));
                event.message = &message;
            }
        }
        return count;
    });
}

void BulkWalk::readBlocks() {
    for (std::size_t row = 0; row < blocks_.numbers.size(); ++row) {
        trk_goto_item(handle_, blocks_.numbers[row]);
        trk_get_next_data(handle_);
        const ALLF_DATA *const record = trk_get_float_data(handle_);
        blocks_.isReadable[row] = record != nullptr ? 1 : 0;
        if (record != nullptr) {
            blocks_.records[row] = *record;
        }
    }
}

} // namespace tables
