#include "info_json.h"

#include <string>

namespace tool {

namespace {

Json itemsJson(const RecordingSummary &summary) {
    return {{"all", summary.items()},
            {"samples", summary.countOf(REC_SAMPLE)},
            {"dummy_samples", summary.dummySamples},
            {"repeated_times", summary.repeatedTimes},
            {"messages", summary.countOf(REC_MESSAGE)},
            {"eye_events", summary.countOf(REC_EVENT1, REC_EVENT10)},
            {"button_events", summary.countOf(REC_BUTTON)},
            {"input_events", summary.countOf(REC_INPUT)},
            {"samples_with_input", summary.samplesWithInput},
            {"unreadable", summary.unreadable}};
}

Json eyeJson(const RecordingSummary &summary, tables::Eye eye) {
    const EyeSamples &samples = summary.eyeSamples[eye];
    Json entry{{"samples", samples.count},
               {"with_gaze", samples.withGaze},
               {"gaze_missing", samples.gazeMissing},
               {"inside_blinks", samples.insideBlink}};
    for (std::size_t kind = 0; kind < kEyeEventNames.size(); ++kind) {
        const EyeEvents &events = summary.eyeEvents[kind][eye];
        entry[std::string(kEyeEventNames[kind])] = {{"starts", events.starts},
                                                    {"ends", events.ends},
                                                    {"timed", events.timed},
                                                    {"duration", events.duration}};
    }
    return entry;
}

Json blocksJson(const RecordingSummary &summary) {
    Json list = Json::array();
    for (const BlockSummary &block : summary.blocks) {
        list.push_back({{"block", list.size() + 1},
                        {"start", block.start},
                        {"end", block.end},
                        {"end_is_lost", block.endIsLost},
                        {"eyes", tables::eyeName(block.eyes)},
                        {"sample_rate", block.sampleRate},
                        {"samples", block.samples},
                        {"events", block.events},
                        {"records", tables::recordTypeName(block.recordType)},
                        {"samples_hold", tables::contentNames(block.content)}});
    }
    return list;
}

Json messageLogJson(const LogFacts &log) {
    Json entry{{"file", tables::utf8(log.name)}};
    if (!log.failure.empty()) {
        entry["error"] = tables::utf8(log.failure);
    } else {
        entry.update({{"messages", log.messages}, {"merged", log.merged}, {"items_left_out", log.replaced}});
    }
    return entry;
}

} // namespace

Json factsJson(const Facts &facts) {
    _TRKFILE *const handle = facts.recording.handle();
    Json preamble = Json::array();
    for (const std::string &line : facts.preamble) {
        preamble.push_back(tables::utf8(line));
    }
    Json log = Json::array();
    for (const LogLines::Group &group : facts.recording.log().groups()) {
        log.push_back({{"count", group.count}, {"first", tables::utf8(group.first)}});
    }
    return {{"file", tables::utf8(facts.recording.path())},
            {"status", statusName(facts.damage)},
            {"container", facts.container()},
            {"tracker_model", trk_get_pupilon_revision(handle)},
            {"file_revision", trk_get_revision(handle)},
            {"preamble", preamble},
            {"items", itemsJson(facts.summary)},
            {"eyes",
             {{"left", eyeJson(facts.summary, tables::kLeft)}, {"right", eyeJson(facts.summary, tables::kRight)}}},
            {"blocks", blocksJson(facts.summary)},
            {"trials", facts.places.trials().size()},
            {"message_log", messageLogJson(facts.messageLog)},
            {"damages", damagesJson(facts.damage)},
            {"lost", lossJson(facts.damage)},
            {"repairs", repairsJson(facts.damage)},
            {"log", log}};
}

} // namespace tool
