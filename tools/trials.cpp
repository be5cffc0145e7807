#include "trials.h"

#include "damage.h"
#include "tables/recording_tables.h"

#include <algorithm>
#include <cstdio>

namespace tool {

const char *const kTrialsHelp =
    R"(Trials and blocks count from 1, items from 0, as dump writes them. The items of a trial go from the one
that starts it to the one that ends it; a start of the next trial is none of them. "start" and "end" are ms of
the tracker's clock, never moved; "own_end" is 0 for a trial that ended with its recording block for want of an
end of its own. "eyes" and "sample_rate" are those of the recording block in force when it ended. "gaze_missing"
is the share of the samples of an eye without gaze, from 0 to 1, lost samples and blinks among them; means are
over those that are there. What an eye that was not recorded lacks is missing. --variable gives a column for
each name that messages in trials tell: the first group of the pattern is the name, the second the value; the
last one in a trial counts.
Messages with !V in them start and end nothing. --start inPut_type_N --end M takes input values N and M.
A text that occurs nowhere is an error, and there is no table.)";

int trials(const TrialsOptions &options) {
    if (options.table.wantsList()) {
        const std::vector<tables::Column> columns = tables::TrialTable::fixedColumns();
        return listColumns(columns, tables::firstPlaces(columns.size()));
    }
    Recording recording(options.file, options.open, OnDamage::Refuse);
    const Status damage = reportDamage(recording, DamageReport(recording));
    const tables::Places places = recording.findPlaces(options.texts);
    if (const Status status = reportUnmatched(recording, places); status != kSound) {
        return status;
    }
    tables::TextOutput out(options.output, {options.file});
    TableText text(options.table, out);
    tables::Source source{recording.handle(), places, text.decoder()};
    tables::TrialTable table(source, options.variable);
    writeTable(table, options.table, text, out);
    out.finish();
    return std::max({damage, text.reportDoubtful(), reportUnreadable(recording, source.unreadable)});
}

} // namespace tool
