#include "recording_tables.h"

#include <algorithm>
#include <numeric>

namespace tables {

// ---- Samples ----

SampleTable::Choice::Choice(const Places &places) {
    TRK_COLUMN_DESCRIPTION description;
    int id = 1;
    for (; trk_describe_column(id, &description) == 0; ++id) {
        all.push_back({description.name, description.unit, description.description, typeOf(description)});
    }
    const std::size_t trial = all.size();
    all.push_back({"trial", "", "number of the trial, from 1", Type::Integer});
    all.push_back({"trial_time", "ms", "time from the start of the trial", Type::Double});

    const auto add = [this](int column) { byDefault.push_back(static_cast<std::size_t>(column) - 1); };
    add(TRK_COLUMN_TIME);
    if (places.hasFastBlock()) {
        add(TRK_COLUMN_TIME_EXACT);
    }
    add(TRK_COLUMN_BLOCK);
    byDefault.push_back(trial);
    for (int column = TRK_COLUMN_GAZE_X_LEFT; column <= TRK_COLUMN_PUPIL_SIZE_RIGHT; ++column) {
        add(column);
    }
}

SampleTable::SampleTable(Source &source, std::string_view columns)
    : source_(source), item_(placeOf(TRK_COLUMN_ITEM)), time_(placeOf(TRK_COLUMN_TIME_EXACT)) {
    const Choice choice(source.places);
    const std::size_t trial = choice.all.size() - 2;
    for (const std::size_t chosen :
         columns.empty() ? choice.byDefault : selectColumns(choice.all, choice.byDefault, columns)) {
        columns_.push_back(choice.all[chosen]);
        if (chosen < trial) {
            parts_.push_back({From::Library, placeOf(static_cast<int>(chosen) + 1)});
        } else {
            parts_.push_back({chosen == trial ? From::Trial : From::TrialTime});
        }
    }
    reader_ = std::make_unique<trkapi::SampleReader>(source.handle, ids_);
}

std::size_t SampleTable::placeOf(int id) {
    const auto known = std::ranges::find(ids_, id);
    if (known != ids_.end()) {
        return static_cast<std::size_t>(known - ids_.begin());
    }
    ids_.push_back(id);
    return ids_.size() - 1;
}

void SampleTable::read(Rows &rows) {
    rows.clear();
    while (!rows.isFull()) {
        if (row_ == reader_->rows()) {
            row_ = 0;
            const uint64_t before = reader_->unreadable();
            const bool isThere = reader_->next();
            source_.unreadable += reader_->unreadable() - before;
            if (!isThere) {
                return;
            }
        }
        const auto item = static_cast<uint32_t>(reader_->value(item_, row_));
        const uint32_t trial = source_.places.trialOf(item);
        for (std::size_t i = 0; Cell & cell : rows.add()) {
            const Part &part = parts_[i];
            const Type type = columns_[i++].type;
            if (part.from == From::Library) {
                const double value = reader_->value(part.place, row_);
                if (value != 0 || ids_[part.place] != TRK_COLUMN_BLOCK) {
                    cell = cellOf(value, type);
                }
            } else if (trial != 0) {
                const uint32_t start = source_.places.trials()[trial - 1].header.start_time;
                cell = part.from == From::Trial ? Cell(trial) : Cell(reader_->value(time_, row_) - start);
            }
        }
        ++row_;
    }
}

// ---- Events and messages ----

EventTable::EventTable(Source &source) : EventTable(source, kEvents, wholeEventColumns(), isWholeEvent) {}

EventTable::EventTable(Source &source, ItemKinds kinds, std::vector<ItemColumn> columns,
                       bool (*isWanted)(const Item &))
    : source_(source), items_(std::move(columns)), isWanted_(isWanted),
      walk_(source.handle, 0, trk_get_element_count(source.handle), kinds, false) {
    for (const ItemColumn &column : items_) {
        descriptions_.push_back(column.column);
    }
}

void EventTable::read(Rows &rows) {
    rows.clear();
    while (!rows.isFull()) {
        const std::optional<Item> item = walk_.next();
        if (!item) {
            return;
        }
        if (!isWanted_(*item)) {
            continue;
        }
        if (item->record == nullptr) {
            ++source_.unreadable;
        } else {
            addRow(items_, {*item, source_.places, {}, source_.handle, source_.decoder, rows});
        }
    }
}

MessageTable::MessageTable(Source &source)
    : EventTable(source, kMessages, textColumns(), [](const Item &) { return true; }) {}

// ---- Tables in memory ----

void ListTable::read(Rows &rows) {
    rows.clear();
    for (; next_ < list_.size() && !rows.isFull(); ++next_) {
        std::ranges::copy(list_[next_], rows.add().begin());
    }
}

BlockTable::BlockTable(Source &source) {
    columns_ = {
        {"block", "", "number of the recording block, from 1", Type::Integer},
        {"first_item", "", "number of its first item, from 0", Type::Integer},
        {"last_item", "", "number of its last item", Type::Integer},
        {"start", "ms", "start of the block", Type::Integer},
        {"end", "ms", "end of the block; missing where the recording has none", Type::Integer},
        {"duration", "ms", "end minus start", Type::Integer},
        {"eyes", "", "left, right, both or none", Type::Text},
        {"sample_rate", "Hz", "samples per second", Type::Float},
        {"samples", "", "number of samples, those among them that stand for lost ones", Type::Integer},
        {"events", "", "number of events, messages among them; marks of the block are none", Type::Integer},
        {"messages", "", "number of messages", Type::Integer},
        {"record_type", "", "what the block's records are", Type::Text},
        {"pupil_mode", "", "pupil sizes are 0 area, 1 diameter", Type::Integer},
        {"filter_level", "", "level of the tracker's filter", Type::Integer}};
    constexpr int kAllEvents = 0;
    for (uint32_t number = 1; const Block &block : source.places.blocks()) {
        const auto count = [&](int code) { return trk_count_items(source.handle, block.first, block.end, code); };
        int64_t events = count(kAllEvents);
        for (const int mark : {REC_STARTSAMPLES, REC_ENDSAMPLES, REC_STARTEVENTS, REC_ENDEVENTS}) {
            events -= count(mark);
        }
        const uint32_t start = block.start.time;
        list_.push_back({Cell(number++), Cell(block.first), Cell(block.end - 1), Cell(start),
                         block.hasEnd ? Cell(block.endTime) : Cell(),
                         block.hasEnd ? Cell(int64_t{block.endTime} - start) : Cell(),
                         Cell(eyeName(block.start.eye)), Cell(block.start.sample_rate), Cell(count(REC_SAMPLE)),
                         Cell(events), Cell(count(REC_MESSAGE)), Cell(recordTypeName(block.start.record_type)),
                         Cell(block.start.pupil_mode), Cell(block.start.filter_level)});
    }
}

} // namespace tables
