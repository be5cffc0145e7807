#include "facts.h"

#include "progress.h"

#include <algorithm>

namespace tool {

namespace {

// `items` are those of the recording itself.
LogFacts messageLogFacts(const Recording &alone, uint64_t items) {
    OpenOptions options = alone.options();
    options.mergeLog = true;
    LogFacts facts;
    facts.name = messageLogName(alone.path(), options);
    try {
        const Recording recording(alone.path(), options, OnDamage::ShowIntactPart);
        _TRKFILE *const handle = recording.handle();
        facts.messages = trk_get_element_count(handle) - items;
        if (facts.messages == 0) {
            return facts;
        }
        uint64_t steps = 0;
        Progress progress(items, true);
        trkapi::Walk walk(handle);
        for (; const std::optional<tables::Item> item = walk.next(); progress.step()) {
            ++steps;
            facts.merged += item->isLogMessage() ? 1U : 0U;
        }
        facts.endIsMissing = facts.merged == 0 && steps == items;
        facts.replaced = items + facts.merged - steps;
    } catch (const CannotRead &failure) {
        facts.failure = failure.what();
    }
    return facts;
}

} // namespace

std::vector<std::string> preambleLines(_TRKFILE *handle) {
    std::string text(static_cast<std::size_t>(std::max(trk_get_preamble_text_length(handle), 1)), '\0');
    trk_get_preamble_text(handle, text.data(), static_cast<int>(text.size()));
    text.resize(text.find('\0'));
    constexpr std::string_view kMark = "** ";
    std::vector<std::string> lines;
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        lines.emplace_back(line.starts_with(kMark) ? line.substr(kMark.size()) : line);
    }
    return lines;
}

Facts gatherFacts(const Recording &recording, const DamageReport &damage, const tables::Places &places) {
    _TRKFILE *const handle = recording.handle();
    Facts facts{recording, damage, {}, places, {}, preambleLines(handle)};
    {
        Progress progress(trk_get_element_count(handle), true);
        trkapi::BulkWalk walk(handle);
        for (std::optional<tables::Item> item; (item = walk.next()); progress.step()) {
            item->record == nullptr ? facts.summary.addUnreadable(item->code) : facts.summary.add(*item);
        }
    }
    facts.messageLog = messageLogFacts(recording, facts.summary.items());
    return facts;
}

} // namespace tool
