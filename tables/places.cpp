#include "places.h"

#include "items.h"
#include "text_output.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <system_error>

namespace tables {

namespace {

constexpr std::string_view kInputPrefix = "inPut_type_";

// The input value that a trial text asks for, or -1. The library takes what is longer for 0, which nobody meant.
int inputOf(std::string_view text) {
    constexpr std::size_t kLongest = 3;
    text.remove_prefix(text.starts_with(kInputPrefix) ? kInputPrefix.size() : 0);
    int value = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && text.size() <= kLongest ? value : -1;
}

// Whether an item is one that a trial text speaks of: a message that holds it or, with trials by input values, an
// input of its value.
bool matches(const Item &item, const std::string &text, bool byInput) {
    return byInput ? item.event() != nullptr && item.code == REC_INPUT && item.event()->aux_word1 == inputOf(text)
                   : item.record != nullptr && item.code == REC_MESSAGE &&
                         item.text().find(text) != std::string_view::npos;
}

bool occurs(_TRKFILE *handle, const std::string &text, bool byInput) {
    trkapi::BulkWalk walk(handle, 0, trk_get_element_count(handle), kEvents | kMessages, false);
    while (const std::optional<Item> item = walk.next()) {
        if (matches(*item, text, byInput)) {
            return true;
        }
    }
    return false;
}

// The number, from 1, of the last one that begins at an item or before it, unless it ends there.
template <class Entry> uint32_t numberOf(const std::vector<Entry> &entries, uint32_t item) {
    const auto behind = std::ranges::upper_bound(entries, item, {}, &Entry::first);
    return behind != entries.begin() && item < std::prev(behind)->end
               ? static_cast<uint32_t>(behind - entries.begin())
               : 0;
}

} // namespace

Places::Places(trkapi::Recording &recording, const TrialTexts &texts) {
    findTrials(recording, texts);
    findBlocks(recording.handle());
}

uint32_t Places::blockOf(uint32_t item) const { return numberOf(blocks_, item); }
uint32_t Places::trialOf(uint32_t item) const { return numberOf(trials_, item); }

uint32_t Places::firstBlockIn(uint32_t first, uint32_t end) const {
    const auto found = std::ranges::upper_bound(blocks_, first, {}, &Block::end);
    return found == blocks_.end() || found->first >= end ? 0 : static_cast<uint32_t>(found - blocks_.begin()) + 1;
}

bool Places::hasFastBlock() const {
    return std::ranges::any_of(blocks_,
                               [](const Block &block) { return block.start.sample_rate > kFastestDistinctRate; });
}

void Places::findBlocks(_TRKFILE *handle) {
    const unsigned all = trk_get_element_count(handle);
    std::vector<unsigned> marks(static_cast<std::size_t>(trk_count_items(handle, 0, all, REC_RECORDING)));
    trk_list_items(handle, 0, all, REC_RECORDING, marks.data(), static_cast<int64_t>(marks.size()));
    bool isOpen = false;
    for (const unsigned mark : marks) {
        const Item item = trkapi::Walk(handle).at(mark);
        if (item.record == nullptr) {
            continue;
        }
        const FRECORDING &recording = *item.recording();
        if (recording.state == TRK_BLOCK_START) {
            if (isOpen) {
                blocks_.back().end = mark;
            }
            blocks_.push_back({recording, mark, all, recording.time, false});
        } else if (isOpen) {
            blocks_.back().end = mark + 1;
            blocks_.back().endTime = recording.time;
            blocks_.back().hasEnd = true;
        }
        isOpen = recording.state == TRK_BLOCK_START;
    }
}

void Places::findTrials(trkapi::Recording &recording, const TrialTexts &texts) {
    _TRKFILE *const handle = recording.handle();
    const bool byInput = texts.start && texts.start->starts_with(kInputPrefix);
    bool sawStart = false;
    bool sawEnd = false;
    for (const trkapi::Trial &found : recording.trials(texts.start, texts.end)) {
        Trial &trial = trials_.emplace_back(Trial{.header = found.header, .first = found.first, .end = found.end});
        if (trial.header.recording != nullptr) {
            trial.block = *trial.header.recording;
        }
        const Item start = trkapi::Walk(handle).at(trial.first);
        if (start.record != nullptr && start.code == REC_MESSAGE) {
            trial.text = start.text();
            trial.hasText = true;
        }
        sawStart = sawStart || (texts.start && matches(start, *texts.start, byInput));
        sawEnd = sawEnd || (texts.end && matches(trkapi::Walk(handle).at(trial.end - 1), *texts.end, byInput));
    }
    const auto demand = [&](const std::optional<std::string> &text, bool wasSeen, const char *does) {
        if (text && text->empty()) {
            unmatched_.push_back(std::string("an empty text ") + does + " no trial");
        } else if (text && !wasSeen && !occurs(handle, *text, byInput)) {
            unmatched_.push_back(std::string("nothing ") + does + " a trial by \"" + escaped(*text) + "\"");
        }
    };
    demand(texts.start, sawStart, "starts");
    demand(texts.end, sawEnd, "ends");
    if (!unmatched_.empty()) {
        trials_.clear(); // they are the recording blocks, which nobody asked for
    }
}

} // namespace tables
