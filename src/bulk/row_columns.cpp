#include "bulk/row_columns.h"

#include "delivery/delivery.h"

namespace trk {

namespace {

constexpr std::size_t kFirst = SampleRows::kFirst;

LaneMask lanesOf(std::span<const OutputColumn> columns, ColumnSource source) {
    LaneMask lanes = 0;
    for (const OutputColumn &out : columns) {
        lanes |= out.column().source == source ? LaneMask{1} << out.column().place : 0;
    }
    return lanes;
}

// The positions that velocities come from: on the HREF plane both axes, for the resolution.
LaneMask positionsFor(LaneMask velocities) {
    LaneMask needed = velocities;
    for (std::size_t eye = 0; eye < kEyes; ++eye) {
        const LaneMask bothAxes = LaneMask{0b101} << (Lanes::kHref + eye);
        needed |= (velocities & bothAxes) != 0 ? bothAxes : 0;
    }
    return needed;
}

} // namespace

SampleRequest::SampleRequest(std::span<const OutputColumn> outputs, ItemNumber endItem, int64_t mostRows)
    : columns(outputs), end(endItem), rows(mostRows), smoothed(lanesOf(outputs, ColumnSource::Smoothed)),
      fast(lanesOf(outputs, ColumnSource::Fast)) {}

double exactTime(uint64_t key, uint32_t offset) {
    const auto moved = static_cast<double>(TimeKey::time(key) - offset);
    return moved + static_cast<double>(key % TimeKey::kPerMillisecond) / TimeKey::kPerMillisecond;
}

uint8_t eyesIn(uint16_t flags) {
    return static_cast<uint8_t>(((flags & TRK_SAMPLE_LEFT) != 0 ? TRK_EYE_LEFT : 0) |
                                ((flags & TRK_SAMPLE_RIGHT) != 0 ? TRK_EYE_RIGHT : 0));
}

void RowColumns::put(uint32_t block, const SampleRequest &request, const VelocityModel &model,
                     FixedResolution fixed, int64_t row) {
    for (const OutputColumn &out : request.columns) {
        putColumn(block, out, row);
    }
    if (request.wantsVelocities() && rows_.count() > 0) {
        putVelocities(request, model, fixed, row);
    }
}

template <class Number, class ValueAt>
void RowColumns::putEach(const OutputColumn &out, int64_t row, ValueAt valueAt) const {
    std::array<Number, RunRows::kRows> values;
    for (std::size_t i = 0; i < rows_.count(); ++i) {
        values[i] = static_cast<Number>(valueAt(kFirst + i));
    }
    out.put(row, values.data(), rows_.count());
}

void RowColumns::putColumn(uint32_t block, const OutputColumn &out, int64_t row) {
    const SampleColumn &column = out.column();
    switch (column.source) {
    case ColumnSource::Item:
        return putEach<uint32_t>(out, row, [&](std::size_t i) { return rows_.numbers()[i]; });
    case ColumnSource::Block:
        return putEach<uint32_t>(out, row, [&](std::size_t) { return block; });
    case ColumnSource::Time:
        return putEach<uint32_t>(out, row,
                                 [&](std::size_t i) { return TimeKey::time(rows_.keys()[i]) - offset_; });
    case ColumnSource::TimeExact:
        return putEach<double>(out, row, [&](std::size_t i) { return exactTime(rows_.keys()[i], offset_); });
    case ColumnSource::Dummy:
        return putEach<uint8_t>(out, row,
                                [&](std::size_t i) { return (rows_.tags()[i] & TRK_SAMPLE_RECORD) == 0; });
    case ColumnSource::Eyes:
        return putEach<uint8_t>(out, row, [&](std::size_t i) { return eyesIn(rows_.tags()[i]); });
    case ColumnSource::InBlink:
        return putEach<uint8_t>(out, row,
                                [&](std::size_t i) { return hidesGaze(rows_.types()[i], column.place); });
    case ColumnSource::Position:
        return putPositions(out, row);
    case ColumnSource::PupilSize:
        return putPupilSizes(out, row);
    case ColumnSource::Resolution:
        return out.put(row, &rows_.resolution(column.place)[kFirst], rows_.count());
    case ColumnSource::Word: {
        if (column.description.id == TRK_COLUMN_FLAGS) {
            return putEach<uint16_t>(out, row, [&](std::size_t i) {
                return deliveredFlags(rows_.keys()[i], rows_.tags()[i], TimeKey::time(rows_.keys()[i]));
            });
        }
        return putWords(out, row);
    }
    case ColumnSource::Smoothed:
    case ColumnSource::Fast:
        return; // with the other velocities
    }
}

// A size that is carried on from a sample before is none of this one.
void RowColumns::putPupilSizes(const OutputColumn &out, int64_t row) {
    const SampleRows::Column<float> &sizes = rows_.pupilSizes(out.column().place);
    if (!out.wantsNan()) {
        return out.put(row, &sizes[kFirst], rows_.count());
    }
    putEach<float>(out, row, [&](std::size_t i) {
        return carries(out.column(), rows_.tags()[i], 0) ? sizes[i] : TRK_FIELD_ABSENT;
    });
}

void RowColumns::putWords(const OutputColumn &out, int64_t row) {
    SampleRows::Column<uint16_t> words;
    rows_.words(out.column(), words);
    if (!out.wantsNan()) {
        return out.put(row, &words[kFirst], rows_.count());
    }
    SampleRows::Column<uint16_t> extensionTypes;
    rows_.words(*columnOf(TRK_COLUMN_EXT_TYPE), extensionTypes);
    // As a float no word looks like the mark of an absent one.
    putEach<float>(out, row, [&](std::size_t i) {
        return carries(out.column(), rows_.tags()[i], extensionTypes[i]) ? static_cast<float>(words[i])
                                                                         : TRK_FIELD_ABSENT;
    });
}

// Gaze is hidden in blinks.
void RowColumns::putPositions(const OutputColumn &out, int64_t row) {
    const std::size_t lane = out.column().place;
    const SampleRows::Column<float> &positions = rows_.positions(lane);
    if (lane >= Lanes::kHref || !rows_.hidesAnyGaze()) {
        return out.put(row, &positions[kFirst], rows_.count());
    }
    putEach<float>(out, row, [&](std::size_t i) {
        return hidesGaze(rows_.types()[i], lane % kEyes) ? MISSING_DATA : positions[i];
    });
}

void RowColumns::putVelocities(const SampleRequest &request, const VelocityModel &model, FixedResolution fixed,
                               int64_t row) {
    rows_.fillRun(positionsFor(request.smoothed | request.fast), run_);
    RunVelocity velocity(model, fixed);
    velocity.setRows(run_);
    LaneVelocities lane;
    for (std::size_t place = 0; place < Lanes::kCount; ++place) {
        if (!hasLane(request.smoothed | request.fast, place)) {
            continue;
        }
        velocity.compute(place, rows_.count(), lane);
        for (const OutputColumn &out : request.columns) {
            if (out.column().place == place && out.column().source == ColumnSource::Smoothed) {
                out.put(row, lane.smoothed.data(), rows_.count());
            } else if (out.column().place == place && out.column().source == ColumnSource::Fast) {
                out.put(row, lane.fast.data(), rows_.count());
            }
        }
    }
}

} // namespace trk
