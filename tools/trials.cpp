#include "trials.h"

#include "damage.h"
#include "items.h"
#include "text_output.h"

#include <cstdio>
#include <string_view>

namespace tool {

namespace {

bool endsWithItsBlock(const TRIAL &header) { return header.duration == 0 && header.end_time > header.start_time; }

// Whether an item is of the kind that a text names, and holds it.
bool matches(const Recording &recording, uint32_t position, const std::optional<std::string> &text) {
    _TRKFILE *const handle = recording.handle();
    if (!text || trk_goto_item(handle, position) != 0) {
        return false;
    }
    const Item item = fetchItem(handle, trk_get_next_data(handle));
    if (item.record == nullptr || item.code != REC_MESSAGE || item.event()->message == nullptr) {
        return item.code == REC_INPUT;
    }
    return std::string_view(item.event()->message->text).find(*text) != std::string_view::npos;
}

void warnOfUnmatched(const Recording &recording, const char *place, const std::optional<std::string> &text,
                     bool wasSeen) {
    if (text && !wasSeen) {
        std::fprintf(stderr, "trk: %s: nothing %s a trial by \"%s\"\n", recording.name().c_str(), place,
                     escaped(*text).c_str());
    }
}

void writeTrial(TextOutput &out, std::size_t number, const Trial &trial) {
    const TRIAL &header = trial.header;
    const FRECORDING *const recording = header.recording;
    out.number(number);
    out.cell(header.start_time);
    out.cell(header.end_time);
    out.cell(header.duration, !endsWithItsBlock(header));
    out.cell(trial.first);
    out.cell(trial.end - trial.first);
    out.character('\t');
    out.text(recording == nullptr ? kMissing : eyeName(recording->eye));
    out.cell(recording == nullptr ? 0.0F : recording->sample_rate, recording != nullptr);
    out.character('\n');
}

} // namespace

const char *const kTrialsHelp =
    R"("trial" and "first_item" count from 0, items as dump writes them; "items" is the number of items from the
first to the one that ended the trial (a start of the next trial is none of them). "start", "end" and
"duration" are ms of the tracker's clock, never moved; "sample_rate" is samples per second. "duration" is "."
for a trial that ended with its recording block for want of an end of its own. "eye" and "sample_rate" are
those of the recording block in force when it ended.
Messages with !V in them start and end nothing. --start inPut_type_N --end M takes input values N and M.)";

std::vector<Trial> collectTrials(Recording &recording, const TrialTexts &texts) {
    _TRKFILE *const handle = recording.handle();
    std::vector<Trial> trials(static_cast<std::size_t>(recording.collectTrials(texts)));
    bool sawStart = false;
    bool sawEnd = false;
    for (int i = 0; Trial & trial : trials) {
        trk_jump_to_trial(handle, i);
        trk_get_trial_header(handle, &trial.header);
        trk_get_trial_range(handle, i++, &trial.first, &trial.end);
        sawStart = sawStart || matches(recording, trial.first, texts.start);
        sawEnd = sawEnd || matches(recording, trial.end - 1, texts.end);
    }
    warnOfUnmatched(recording, "starts", texts.start, sawStart);
    warnOfUnmatched(recording, "ends", texts.end, sawEnd);
    return trials;
}

int trials(const TrialsOptions &options) {
    Recording recording(options.file, options.open, OnDamage::Refuse);
    const Status status = reportDamage(recording, DamageReport(recording));
    TextOutput out(std::string(TextOutput::kStandardOutput), {});
    out.text("trial\tstart\tend\tduration\tfirst_item\titems\teye\tsample_rate\n");
    std::size_t number = 0;
    for (const Trial &trial : collectTrials(recording, options.texts)) {
        writeTrial(out, number++, trial);
    }
    out.finish();
    return status;
}

} // namespace tool
