#include "bulk/bulk_reader.h"

#include "base/numeric.h"
#include "records/codes.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace trk {

namespace {

template <class Number> Number fieldOf(const Sample &sample, const SampleColumn &column) {
    Number value;
    std::memcpy(&value, reinterpret_cast<const unsigned char *>(&sample) + column.description.record_offset,
                sizeof(value));
    return value;
}

} // namespace

BulkReader::BulkReader(const WalkSource &source, bool indexIsComplete)
    : source_(source), stretches_(mapBlocks(source_.index, indexIsComplete)), rows_(source_.stream, source_.index),
      columns_(rows_, source_.times.offset()),
      eventsStandAlone_(std::ranges::all_of(
          stretches_, [](const Stretch &stretch) { return stretch.plain || stretch.samples == 0; })) {}

Stretch &BulkReader::stretchOf(ItemNumber item) {
    return *(std::ranges::upper_bound(stretches_, item, {}, &Stretch::begin) - 1);
}

// Whether a stretch is fresh also in how its samples are decoded: its own start must say it.
bool BulkReader::isFresh(Stretch &stretch) {
    if (!stretch.fresh || stretch.gazeDivisor != 0) {
        return stretch.fresh;
    }
    RecordReader reader(source_.stream, source_.fileRevision, source_.cutMessageOffsets);
    DecodingState unknown;
    unknown.gazeDivisor = std::numeric_limits<float>::quiet_NaN();
    reader.setState(unknown);
    FEVENT event;
    for (ItemNumber number = stretch.begin; number < stretch.firstSample && stretch.fresh; ++number) {
        const Item &item = source_.index[number];
        stretch.fresh = !kBlockStarts.contains(item.code()) || readEventAt(reader, item, event);
    }
    stretch.gazeDivisor = reader.state().gazeDivisor;
    stretch.fresh = stretch.fresh && !std::isnan(stretch.gazeDivisor);
    stretch.plain = stretch.plain && stretch.fresh;
    return stretch.fresh;
}

// The first sample of [item, end), or the end.
ItemNumber BulkReader::nextSample(ItemNumber item, ItemNumber end) const {
    while (item < end && !source_.index[item].isSample()) {
        ++item;
    }
    return item;
}

// What a reading that broke off for want of memory leaves behind is not gone on from.
template <class Read> BulkResult BulkReader::guard(Read read) {
    try {
        return read();
    } catch (...) {
        walk_.reset();
        events_.reset();
        rows_.forget();
        throw;
    }
}

BulkResult BulkReader::readSamples(ItemNumber first, const SampleRequest &request) {
    return guard([&] { return samplesFrom(first, request); });
}

BulkResult BulkReader::readEvents(ItemNumber first, ItemNumber end, const EventPlaces &places) {
    return guard([&] { return eventsFrom(first, end, places); });
}

BulkResult BulkReader::samplesFrom(ItemNumber first, const SampleRequest &request) {
    BulkResult result{.item = first};
    while (!result.unreadable && result.rows < request.rows) {
        result.item = nextSample(result.item, request.end);
        if (result.item >= request.end) {
            return result;
        }
        Stretch &stretch = stretchOf(result.item);
        if (!readDirectly(stretch, request, result)) {
            walkOver(stretch, request, result);
        }
    }
    if (!result.unreadable) {
        result.item = nextSample(result.item, request.end);
    }
    return result;
}

// Returns false where only a walk gives the right values; what was read until then is right.
bool BulkReader::readDirectly(Stretch &stretch, const SampleRequest &request, BulkResult &result) {
    if (!isFresh(stretch) || !stretch.plain) {
        return false;
    }
    const FRECORDING &block = source_.index.recordingOf(source_.index[stretch.begin]);
    const VelocityModel model(source_.trackerModel, truncateTo<int>(block.sample_rate));
    if (request.wantsVelocities() && !model.standInARow(stretch.spacing)) {
        return false;
    }
    const ItemNumber end = std::min(request.end, stretch.end);
    while (result.item < end && result.rows < request.rows) {
        const auto most =
            static_cast<std::size_t>(std::min<int64_t>(request.rows - result.rows, int64_t{RunRows::kRows}));
        if (!rows_.take(stretch, result.item, end, most, request.wantsVelocities(), stretch.gazeDivisor)) {
            stretch.plain = false;
            return false;
        }
        columns_.put(stretch.block, request, model, fixedResolutionOf(source_.config), result.rows);
        result.rows += static_cast<int64_t>(rows_.count());
        result.item = rows_.next();
    }
    return true;
}

// The walk, before an item. It begins at the last fresh stretch unless it already is on the way from there.
Walk &BulkReader::walkTo(ItemNumber item) {
    ItemNumber begin = 0;
    for (auto stretch = std::ranges::upper_bound(stretches_, item, {}, &Stretch::begin);
         stretch != stretches_.begin() && begin == 0;) {
        --stretch;
        begin = isFresh(*stretch) ? stretch->begin : 0;
    }
    if (!walk_ || walk_->delivery().itemsPassed() < begin || walk_->delivery().itemsPassed() > item) {
        walk_ = std::make_unique<Walk>(source_);
        walk_->delivery().goTo(begin);
    }
    while (walk_->delivery().itemsPassed() < item) {
        walk_->next();
    }
    return *walk_;
}

void BulkReader::walkOver(const Stretch &stretch, const SampleRequest &request, BulkResult &result) {
    const ItemNumber end = std::min(request.end, stretch.end);
    Walk &walk = walkTo(result.item);
    for (; result.item < end && result.rows < request.rows; ++result.item) {
        const ALLF_DATA *const record = walk.next();
        if (!source_.index[result.item].isSample()) {
            continue;
        }
        if (record == nullptr) {
            result.unreadable = true;
            return;
        }
        const bool isInside = walk.delivery().currentRecording() != nullptr;
        putRecord(request, result.rows++, result.item, isInside ? stretch.block : 0, record->sample);
    }
}

void BulkReader::putRecord(const SampleRequest &request, int64_t row, ItemNumber number, uint32_t block,
                           const Sample &sample) const {
    const Item &item = source_.index[number];
    for (const OutputColumn &out : request.columns) {
        const SampleColumn &column = out.column();
        const auto put = [&](auto value) { out.put(row, &value, 1); };
        const bool absent =
            out.wantsNan() && column.needed != 0 && !carries(column, sample.flags, sample.ext_type);
        switch (column.source) {
        case ColumnSource::Item:
            put(number);
            break;
        case ColumnSource::Block:
            put(block);
            break;
        case ColumnSource::Time:
            put(sample.time);
            break;
        case ColumnSource::TimeExact:
            put(exactTime(item.key, source_.times.offset()));
            break;
        case ColumnSource::Dummy:
            put(static_cast<uint8_t>((sample.flags & TRK_SAMPLE_RECORD) == 0));
            break;
        case ColumnSource::Eyes:
            put(eyesIn(sample.flags));
            break;
        case ColumnSource::InBlink:
            put(static_cast<uint8_t>(hidesGaze(item.type, column.place)));
            break;
        case ColumnSource::Word:
            if (absent) {
                put(TRK_FIELD_ABSENT);
            } else {
                put(fieldOf<uint16_t>(sample, column));
            }
            break;
        case ColumnSource::PupilSize:
            put(absent ? TRK_FIELD_ABSENT : fieldOf<float>(sample, column));
            break;
        default:
            put(fieldOf<float>(sample, column));
        }
    }
}

// An event as a walk over all items would deliver it; null when it cannot be read. Starts and ends of eye events
// are paired in the order of the walk, so that all before it must have been fetched.
ALLF_DATA *BulkReader::eventAt(ItemNumber number) {
    if (!events_ || events_->delivery().itemsPassed() > number) {
        events_ = std::make_unique<Walk>(source_);
    }
    while (events_->delivery().itemsPassed() < number) {
        const ItemNumber next = events_->delivery().itemsPassed();
        if (eventsStandAlone_ && source_.index[next].isSample()) {
            events_->delivery().goTo(next + 1);
        } else {
            events_->next();
        }
    }
    return events_->next();
}

BulkResult BulkReader::eventsFrom(ItemNumber first, ItemNumber end, const EventPlaces &places) {
    BulkResult result{.item = first};
    std::size_t used = 0;
    const auto noteOffset = [&] {
        if (places.textOffsets != nullptr) {
            places.textOffsets[result.rows] = static_cast<int64_t>(used);
        }
    };
    noteOffset();
    for (; result.item < end; ++result.item) {
        if (!kEvents.contains(source_.index[result.item].code())) {
            continue;
        }
        if (result.rows == places.rows) {
            return result;
        }
        const ALLF_DATA *const record = eventAt(result.item);
        if (record == nullptr) {
            result.unreadable = true;
            return result;
        }
        FEVENT event = record->event;
        if (places.texts != nullptr && event.message != nullptr) {
            const std::size_t length = event.message->length;
            if (places.textsSize - used < length + 1) {
                return result;
            }
            std::memcpy(places.texts + used, event.message->text, length);
            places.texts[used + length] = '\0';
            used += length + 1;
        }
        event.message = nullptr;
        if (places.events != nullptr) {
            places.events[result.rows] = event;
        }
        ++result.rows;
        noteOffset();
    }
    return result;
}

} // namespace trk
