#include "dump.h"

#include "damage.h"
#include "dump_columns.h"
#include "item_walk.h"
#include "progress.h"
#include "trials.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <span>
#include <vector>

namespace tool {

namespace {

// Items by their numbers: the first, and one past the last.
struct ItemRange {
    uint32_t first;
    uint32_t end;
};

// With it, messages of a log behind the last item belong to the range.
constexpr uint32_t kBehindLastItem = std::numeric_limits<uint32_t>::max();

// Collecting trials moves the read position, uses up the message log and can set the base of moved times: it has a
// handle of its own.
std::optional<ItemRange> rangeOf(const DumpOptions &options) {
    if (!options.trial) {
        return std::nullopt;
    }
    OpenOptions withoutLog = options.open;
    withoutLog.mergeLog = false;
    Recording recording(options.file, withoutLog, OnDamage::Refuse);
    const std::vector<Trial> trials = collectTrials(recording, options.texts);
    if (*options.trial >= trials.size()) {
        reportDamage(recording, DamageReport(recording));
        throw CannotRead(recording.name() + " has no trial " + std::to_string(*options.trial) + ": it has " +
                             std::to_string(trials.size()) + ", counted from 0",
                         kIncomplete);
    }
    const Trial &trial = trials[*options.trial];
    const bool endsTheRecording = trial.end == trk_get_element_count(recording.handle());
    return ItemRange{trial.first, endsTheRecording ? kBehindLastItem : trial.end};
}

class Dump {
  public:
    Dump(const Recording &recording, const DumpOptions &options)
        : options_(options), recording_(recording), handle_(recording.handle()),
          logName_(messageLogName(options.file, options.open)), out_(options.output, {options.file, logName_}),
          columns_(columnsFor(options.kinds)) {}

    void write(const std::optional<ItemRange> &range) {
        writeHeader();
        if (options_.open.mergeLog) {
            walkWithLog(range);
        } else {
            readMany(range.value_or(ItemRange{0, kBehindLastItem}));
        }
        out_.finish();
    }

    // Tells standard error what the table lacks. Returns the exit status.
    [[nodiscard]] Status reportGaps() const {
        const char *const file = recording_.name().c_str();
        if (unreadable_ != 0) {
            std::fprintf(stderr, "trk: %s: %llu %s could not be read (%s)\n", file,
                         static_cast<unsigned long long>(unreadable_), unreadable_ == 1 ? "item" : "items",
                         failure_.c_str());
        }
        const bool lacksLog = options_.open.mergeLog && logMessages_ == 0;
        if (lacksLog) {
            std::fprintf(stderr,
                         "trk: %s: nothing of the message log %s was merged: it lacks a line that pairs "
                         "the clocks or the end line\n",
                         file, escaped(logName_).c_str());
        }
        return unreadable_ == 0 && !lacksLog ? kSound : kIncomplete;
    }

  private:
    void readMany(const ItemRange &range) {
        const unsigned count = trk_get_element_count(handle_);
        Progress progress(std::min(range.end, count) - std::min(range.first, count), !out_.isTerminal());
        BulkWalk walk(handle_, range.first, range.end, options_.kinds == kSamples);
        while (const std::optional<Item> item = walk.next()) {
            see(*item, true);
            progress.step();
        }
        failure_ = walk.failure();
    }

    // The merge goes with a walk, item by item, to the end, to see whether the log is merged at all. Any item can
    // hide a message of the log.
    void walkWithLog(const std::optional<ItemRange> &range) {
        Progress progress(trk_get_element_count(handle_), !out_.isTerminal());
        bool isOver = false;
        for (int code = 0; (code = trk_get_next_data(handle_)) != 0; progress.step()) {
            bool isInside = !isOver;
            if (range && !isOver) {
                const uint32_t position = trk_get_position(handle_);
                isInside = position > range->first && position <= range->end;
                isOver = position >= range->end;
            }
            see(fetchItem(handle_, code), isInside);
        }
        failure_ = recording_.log().last();
    }

    [[nodiscard]] bool isWanted(int code) const { return (kindOf(code) & options_.kinds) != 0; }

    void see(const Item &item, bool isInside) {
        logMessages_ += item.record != nullptr && item.isLogMessage() ? 1U : 0U;
        if (!isInside || !isWanted(item.code)) {
            return;
        }
        if (item.record == nullptr) {
            ++unreadable_;
        } else if (item.time() >= options_.from && item.time() <= options_.to) {
            writeLine(item);
        }
    }

    void writeHeader() {
        for (const Column &column : columns_) {
            out_.text(&column == columns_.data() ? "" : "\t");
            out_.text(column.name);
        }
        if (options_.raw) {
            writeRawHeader(out_);
        }
        out_.character('\n');
    }

    void writeLine(const Item &item) {
        columns_.front().write(out_, item);
        for (const Column &column : columns_.subspan(1)) {
            out_.character('\t');
            column.write(out_, item);
        }
        if (options_.raw) {
            writeRaw(out_, handle_, item);
        }
        out_.character('\n');
    }

    const DumpOptions &options_;
    const Recording &recording_;
    _TRKFILE *handle_;
    std::string logName_;
    TextOutput out_;
    std::span<const Column> columns_;
    std::string failure_; // why the last item that could not be read cannot
    uint64_t unreadable_ = 0;
    uint64_t logMessages_ = 0;
};

} // namespace

const char *const kDumpHelp =
    R"(Units: times ms of the tracker's clock; gaze display pixels; HREF tracker units; raw pupil positions camera
units; pupil sizes tracker units (area or diameter: "pupil_mode" 0 or 1 of the block); velocities ("vel" smooth,
"fvel" fast) degrees per second; resolution pixels per degree; sample_rate samples per second.
"time" is the item's place; ends of blinks, saccades and fixations stand at their end time. Kind
"dummy" is a sample that the tracker lost. A value that is missing or does not apply is "."; a pupil
size, velocity or resolution of an event that is 0 was not recorded. Message texts have \t, \n, \r, \\ and
\xHH in place of control bytes and backslashes. New columns are added at the end.
--log: the texts of the log begin with their time; where the recording's times are moved, theirs are not
always (--keep-times). Left out are lines of the log that pair the clocks, with the message of the
recording that each meets; an item behind such a line that meets none; the last item of the recording when
a message of the log is 2 ms or less away.
--raw: a sample with raw values in its extension words has one set of them, shown for each of its eyes;
pupil_minus_cr is the mended pupil minus 1.02 times the reflection.)";

int dump(const DumpOptions &options) {
    const std::optional<ItemRange> range = rangeOf(options);
    Recording recording(options.file, options.open, OnDamage::Refuse);
    if (options.raw) {
        recording.collectTrials({}); // the raw data need them; not in the middle of the walk
    }
    Dump dump(recording, options);
    const Status damage = reportDamage(recording, DamageReport(recording));
    dump.write(range);
    return std::max(damage, dump.reportGaps());
}

} // namespace tool
