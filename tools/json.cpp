#include "json.h"

#include <cmath>

namespace tool {

namespace {

Json entryJson(const TRK_DAMAGE &entry) {
    return {{"kind", damageName(entry.kind)}, {"code", entry.kind}, {"text", tables::utf8(entry.text)}};
}

} // namespace

std::string_view statusName(const DamageReport &report) {
    return report.isDamaged() ? "damaged" : report.repairs().empty() ? "sound" : "repaired";
}

Json damagesJson(const DamageReport &report) {
    Json list = Json::array();
    for (const TRK_DAMAGE &damage : report.damages()) {
        Json entry = entryJson(damage);
        entry.update(
            {{"offset", damage.offset}, {"length", damage.length}, {"item", damage.item}, {"time", damage.time}});
        list.push_back(std::move(entry));
    }
    return list;
}

Json repairsJson(const DamageReport &report) {
    Json list = Json::array();
    for (const TRK_DAMAGE &repair : report.repairs()) {
        Json entry = entryJson(repair);
        entry["count"] = repair.count;
        if (repair.kind == TRK_REPAIR_FILLED_GAPS) {
            entry["samples_each"] = repair.length;
        }
        list.push_back(std::move(entry));
    }
    return list;
}

Json lossJson(const DamageReport &report) {
    const std::optional<Loss> &loss = report.loss();
    if (!loss) {
        return nullptr;
    }
    if (!loss->isEstimated) {
        return {{"bytes", loss->bytes}, {"items", nullptr}, {"seconds", nullptr}};
    }
    return {{"bytes", loss->bytes}, {"items", std::llround(loss->items)}, {"seconds", loss->seconds}};
}

Json failureJson(const std::string &path, const CannotRead &failure) {
    const TRK_ERROR &error = failure.error();
    Json entry{{"file", tables::utf8(path)},
               {"status", error.code == TRK_ERROR_DAMAGED ? "damaged" : "not readable"}};
    entry["error"] = {
        {"code", error.code}, {"system_error", error.system_error}, {"text", tables::utf8(failure.what())}};
    return entry;
}

} // namespace tool
