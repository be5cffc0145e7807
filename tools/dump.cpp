#include "dump.h"

#include "damage.h"
#include "progress.h"
#include "tables/delimited.h"
#include "tables/item_columns.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <span>
#include <vector>

namespace tool {

using tables::Item;

namespace {

// Items by their numbers: the first, and one past the last.
struct ItemRange {
    uint32_t first = 0;
    uint32_t end = kBehindLastItem;

    // With it, messages of a log behind the last item belong to the range.
    static constexpr uint32_t kBehindLastItem = std::numeric_limits<uint32_t>::max();
};

ItemRange rangeOf(const DumpOptions &options, const Recording &recording, const tables::Places &places) {
    if (!options.trial) {
        return {};
    }
    if (!places.unmatched().empty()) {
        throw CannotRead(recording.name() + ": " + places.unmatched().front(), kIncomplete);
    }
    const std::vector<tables::Trial> &trials = places.trials();
    if (*options.trial < 1 || *options.trial > trials.size()) {
        reportDamage(recording, DamageReport(recording));
        throw CannotRead(recording.name() + " has no trial " + std::to_string(*options.trial) + ": it has " +
                             std::to_string(trials.size()) + ", counted from 1",
                         kIncomplete);
    }
    const tables::Trial &trial = trials[*options.trial - 1];
    const bool endsTheRecording = trial.end == trk_get_element_count(recording.handle());
    return {trial.first, endsTheRecording ? ItemRange::kBehindLastItem : trial.end};
}

// Places take a handle of their own, without the log.
OpenOptions withoutLog(OpenOptions options) {
    options.mergeLog = false;
    return options;
}

// The items of one recording on their way into the table.
class Dump {
  public:
    Dump(const std::string &path, const DumpOptions &options, const std::vector<tables::ItemColumn> &columns,
         tables::TextOutput &out, TableText &text)
        : options_(options), columns_(columns), indexed_(path, withoutLog(options.open), OnDamage::Refuse),
          places_(indexed_.findPlaces(options.texts)), range_(rangeOf(options, indexed_, places_)),
          recording_(path, options.open, OnDamage::Refuse), file_(tables::utf8(recording_.name())),
          handle_(recording_.handle()), out_(out), text_(text), writer_(out, text.format()),
          rows_(writer_, columns.size()) {}

    // Returns the exit status.
    Status write() {
        Status status = reportDamage(recording_, DamageReport(recording_));
        status = std::max(status, reportUnmatched(indexed_, places_));
        if (options_.raw) {
            trk_get_trial_count(handle_); // the raw data need the trials; not in the middle of the walk
        }
        if (options_.open.mergeLog) {
            walkWithLog();
        } else {
            readMany();
        }
        rows_.flush();
        return std::max(status, reportGaps());
    }

  private:
    void readMany() {
        const unsigned count = trk_get_element_count(handle_);
        Progress progress(std::min(range_.end, count) - std::min(range_.first, count), !out_.isTerminal());
        trkapi::BulkWalk walk(handle_, range_.first, range_.end, options_.kinds, wantsVelocities());
        while (const std::optional<Item> item = walk.next()) {
            see(*item, true);
            progress.step();
        }
        failure_ = walk.failure();
    }

    // The merge goes with a walk, item by item, to the end, to see whether the log is merged at all. Any item can
    // hide a message of the log.
    void walkWithLog() {
        Progress progress(trk_get_element_count(handle_), !out_.isTerminal());
        bool isOver = false;
        trkapi::Walk walk(handle_);
        for (; const std::optional<Item> item = walk.next(); progress.step()) {
            const uint32_t position = trk_get_position(handle_);
            // Messages of the log can lie before the first item.
            const bool isInside =
                !options_.trial || (!isOver && position > range_.first && position <= range_.end);
            isOver = isOver || position >= range_.end;
            see(*item, isInside);
        }
        failure_ = recording_.log().last();
    }

    [[nodiscard]] bool wantsVelocities() const {
        return std::ranges::any_of(columns_, [](const tables::ItemColumn &column) {
            return column.column.name.find("vel_") != std::string::npos;
        });
    }

    void see(const Item &item, bool isInside) {
        logMessages_ += item.isLogMessage() ? 1U : 0U;
        if (!isInside || (tables::kindOf(item.code) & options_.kinds) == 0) {
            return;
        }
        if (item.record == nullptr) {
            ++unreadable_;
        } else if (item.time() >= options_.from && item.time() <= options_.to) {
            addRow(item);
        }
    }

    void addRow(const Item &item) {
        tables::addRow(columns_, {item, places_, file_, handle_, text_.decoder(), rows_.withRoom()});
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
                         file, tables::escaped(messageLogName(recording_.path(), options_.open)).c_str());
        }
        return unreadable_ == 0 && !lacksLog ? kSound : kIncomplete;
    }

    const DumpOptions &options_;
    const std::vector<tables::ItemColumn> &columns_;
    Recording indexed_;
    tables::Places places_;
    ItemRange range_;
    Recording recording_;
    std::string file_;
    _TRKFILE *handle_;
    tables::TextOutput &out_;
    TableText &text_;
    tables::DelimitedWriter writer_;
    tables::RowsTo rows_;
    std::string failure_; // names one of the items that could not be read
    uint64_t unreadable_ = 0;
    uint64_t logMessages_ = 0;
};

std::vector<std::string> inputsOf(const DumpOptions &options) {
    std::vector<std::string> inputs = options.files;
    for (const std::string &file : options.files) {
        inputs.push_back(messageLogName(file, options.open));
    }
    return inputs;
}

} // namespace

const char *const kDumpHelp =
    R"(Units: times ms of the tracker's clock; gaze display pixels; HREF tracker units; raw pupil positions
camera units; pupil sizes tracker units (area or diameter: "pupil_mode" 0 or 1 of the block); velocities ("vel"
smooth, "fvel" fast) degrees per second; resolution pixels per degree; sample_rate samples per second.
"time" is the item's place; ends of blinks, saccades and fixations stand at their end time. Kind
"dummy" is a sample that the tracker lost. A value that is missing or does not apply is "."; a pupil size of 0
is missing, and so is a velocity or resolution of an event that is 0: it was not recorded. Blocks and trials
count from 1. New columns are added at the end; --columns help lists all, with those that are not there by
default.
A text that holds a tab, a quote or a line end is quoted, with quotes inside doubled: the common readers give it
back.
A button event tells its number, its state (1 pressed) and the state of all buttons, where the tracker writes
them into its two words as the recordings of our own writer have them.
--log: the texts of the log begin with their time. Left out are lines of the log that pair the clocks, with the
message of the recording that each meets; an item behind such a line that meets none; the last item of the
recording when a message of the log is 2 ms or less away.
--raw: a sample with raw values in its extension words has one set of them, shown for each of its eyes;
pupil_minus_cr is the mended pupil minus 1.02 times the reflection.)";

int dump(const DumpOptions &options) {
    const bool isOne = options.files.size() == 1;
    const tables::ColumnChoice choice{options.kinds, options.raw, !isOne, options.table.columns};
    if (options.table.wantsList()) {
        const tables::ItemColumns columns(choice);
        return listColumns(columns.descriptions(), tables::firstPlaces(columns.byDefault));
    }
    const std::vector<tables::ItemColumn> columns = tables::chooseColumns(choice);
    tables::TextOutput out(options.output, inputsOf(options));
    TableText text(options.table, out);
    std::vector<tables::Column> names(columns.size());
    std::ranges::transform(columns, names.begin(), &tables::ItemColumn::column);
    bool hasHeader = false;
    Status status = kSound;
    for (const std::string &path : options.files) {
        try {
            Dump dump(path, options, columns, out, text);
            if (!std::exchange(hasHeader, true)) {
                tables::DelimitedWriter(out, text.format()).writeHeader(names);
            }
            status = std::max(status, dump.write());
        } catch (const CannotRead &failure) {
            if (isOne) {
                throw;
            }
            std::fprintf(stderr, "trk: %s\n", failure.what());
            status = std::max(status, failure.status());
        }
    }
    out.finish();
    return std::max(status, text.reportDoubtful());
}

} // namespace tool
