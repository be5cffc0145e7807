#include "trials.h"

#include "items.h"
#include "text_output.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace tool {

namespace {

constexpr std::string_view kInputPrefix = "inPut_type_";
constexpr std::string_view kIgnoredMessage = "!V";
constexpr std::size_t kLongestNumber = 3;

// The input value that a trial text asks for.
uint16_t inputValue(std::string_view text) {
    const bool isNumber = !text.empty() && text.size() <= kLongestNumber;
    return isNumber ? static_cast<uint16_t>(std::strtol(std::string(text).c_str(), nullptr, 10)) : uint16_t{0};
}

bool endsWithItsBlock(const TRIAL &header) { return header.duration == 0 && header.end_time > header.start_time; }

bool isBlockMark(const Item &item, int state) {
    return item.code == REC_RECORDING && item.recording()->state == state;
}

// Which items start and end trials. The library tells when a trial ended, but not which of the items of that time
// ended it.
class TrialRule {
  public:
    explicit TrialRule(const TrialTexts &texts) : texts_(texts) {
        if (texts.start && texts.start->find(kInputPrefix) != std::string::npos) {
            code_ = REC_INPUT;
            startValue_ = inputValue(texts.start->substr(kInputPrefix.size()));
            endValue_ = inputValue(texts.end.value_or(""));
        } else if (texts.start || texts.end) {
            code_ = REC_MESSAGE;
        }
    }

    [[nodiscard]] bool concerns(int code) const { return code == code_ || code == REC_RECORDING; }

    [[nodiscard]] bool isStart(const Item &item) const {
        return code_ != REC_RECORDING && matches(item, texts_.start, startValue_);
    }

    [[nodiscard]] bool isEnd(const Item &item) const {
        return code_ == REC_RECORDING ? isBlockMark(item, TRK_BLOCK_END)
                                      : matches(item, texts_.end, endValue_) && !isStart(item);
    }

  private:
    [[nodiscard]] bool matches(const Item &item, const std::optional<std::string> &part, uint16_t value) const {
        if (item.code != code_ || code_ == REC_INPUT) {
            return item.code == code_ && item.event()->aux_word1 == value;
        }
        if (!part || item.event()->message == nullptr) {
            return false;
        }
        const std::string_view text(item.event()->message->text);
        return text.find(*part) != std::string_view::npos && text.find(kIgnoredMessage) == std::string_view::npos;
    }

    const TrialTexts &texts_;
    int code_ = REC_RECORDING;
    uint16_t startValue_ = 0;
    uint16_t endValue_ = 0;
};

// One walk over all trials.
class EndFinder {
  public:
    EndFinder(_TRKFILE *handle, const TrialTexts &texts, uint32_t firstItem)
        : handle_(handle), rule_(texts), position_(firstItem) {}

    // One past the last item of the trial behind which the next one starts at item `next`.
    uint32_t endOf(const Trial &trial, uint32_t next) {
        blockEnd_ = 0;
        uint32_t end = 0;
        for (int code = 0; position_ < next && (code = trk_get_next_data(handle_)) != 0;) {
            ++position_;
            if (!rule_.concerns(code)) {
                continue;
            }
            const Item item = fetchItem(handle_, code);
            if (item.record == nullptr) {
                continue;
            }
            sawStart |= rule_.isStart(item);
            sawEnd |= rule_.isEnd(item);
            if (end == 0 && position_ > trial.first + 1) {
                end = endAt(item, trial);
            }
            if (isBlockMark(item, TRK_BLOCK_START)) {
                blockStart_ = position_;
            } else if (isBlockMark(item, TRK_BLOCK_END) &&
                       item.recording()->sort_key / 2 == trial.header.end_time) {
                blockEnd_ = position_;
            }
        }
        if (end == 0 && endsWithItsBlock(trial.header)) {
            end = blockEnd_;
        }
        return end != 0 ? end : position_;
    }

    // Whether any item started or ended a trial.
    bool sawStart = false;
    bool sawEnd = false;

  private:
    // One past the trial's last item when this item shows it, else 0. The start of a trial that the library drops,
    // as the last one without an end, still ends the one before.
    [[nodiscard]] uint32_t endAt(const Item &item, const Trial &trial) const {
        // Before its recording block a trial cannot end. A block at the very first item counts for the trial that
        // starts there only.
        if (blockStart_ == 0 || (blockStart_ == 1 && trial.first != 0)) {
            return 0;
        }
        if (rule_.isEnd(item)) {
            return position_;
        }
        if (rule_.isStart(item)) {
            return position_ - 1;
        }
        return isBlockMark(item, TRK_BLOCK_START) && endsWithItsBlock(trial.header) ? blockEnd_ : 0;
    }

    _TRKFILE *handle_;
    TrialRule rule_;
    uint32_t position_;       // items passed
    uint32_t blockStart_ = 0; // one past the last start of a recording block
    uint32_t blockEnd_ = 0;   // one past the last end of one at which the trial can have ended
};

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
first to the one that ended the trial (a start of the next trial is none of them). "start" and "end" are ms
of the tracker's clock, never moved. "duration" is "." for a trial that ended with its recording block for
want of an end of its own. "eye" and "sample_rate" are those of the recording block in force when it ended.
Messages with !V in them start and end nothing. --start inPut_type_N --end M takes input values N and M.)";

uint32_t readPosition(_TRKFILE *handle) {
    BOOKMARK bookmark{kBehindLastItem};
    if (trk_set_bookmark(handle, &bookmark) == 0) {
        trk_free_bookmark(handle, &bookmark);
    }
    return bookmark.item_position;
}

std::vector<Trial> collectTrials(Recording &recording, const TrialTexts &texts) {
    _TRKFILE *const handle = recording.handle();
    std::vector<Trial> trials(static_cast<std::size_t>(recording.collectTrials(texts)));
    for (Trial &trial : trials) {
        trk_goto_next_trial(handle);
        trk_get_trial_header(handle, &trial.header);
        trial.first = readPosition(handle);
    }
    if (trials.empty()) {
        return trials;
    }
    trk_jump_to_trial(handle, 0);
    EndFinder finder(handle, texts, trials.front().first);
    for (std::size_t i = 0; i < trials.size(); ++i) {
        trials[i].end = finder.endOf(trials[i], i + 1 < trials.size() ? trials[i + 1].first : kBehindLastItem);
    }
    warnOfUnmatched(recording, "starts", texts.start, finder.sawStart);
    warnOfUnmatched(recording, "ends", texts.end, finder.sawEnd);
    return trials;
}

int trials(const TrialsOptions &options) {
    Recording recording(options.file, options.open, OnDamage::Refuse);
    TextOutput out(std::string(TextOutput::kStandardOutput), {});
    out.text("trial\tstart\tend\tduration\tfirst_item\titems\teye\tsample_rate\n");
    std::size_t number = 0;
    for (const Trial &trial : collectTrials(recording, options.texts)) {
        writeTrial(out, number++, trial);
    }
    out.finish();
    return EXIT_SUCCESS;
}

} // namespace tool
