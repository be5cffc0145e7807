#include "json.h"

#include <cmath>
#include <cstddef>

namespace tool {

namespace {

// Length of the UTF-8 character at the beginning of a text; 0 when there is none.
std::size_t characterLength(std::string_view text) {
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byte(0);
    const std::size_t length = first < 0x80                     ? 1
                               : first >= 0xC2 && first <= 0xDF ? 2
                               : first >= 0xE0 && first <= 0xEF ? 3
                               : first >= 0xF0 && first <= 0xF4 ? 4
                                                                : 0;
    if (length == 0 || length > text.size()) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0U) != 0x80) {
            return 0;
        }
    }
    // Overlong forms, surrogates, and what is beyond the last character.
    const bool wrong = length > 2 && ((first == 0xE0 && byte(1) < 0xA0) || (first == 0xED && byte(1) > 0x9F) ||
                                      (first == 0xF0 && byte(1) < 0x90) || (first == 0xF4 && byte(1) > 0x8F));
    return wrong ? 0 : length;
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

Json entryJson(const TRK_DAMAGE &entry) {
    return {{"kind", damageName(entry.kind)}, {"code", entry.kind}, {"text", utf8(entry.text)}};
}

} // namespace

std::string utf8(std::string_view text) {
    if (isUtf8(text)) {
        return std::string(text);
    }
    std::string result;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x80) {
            result += character;
        } else {
            result += static_cast<char>(0xC0U | (byte >> 6U));
            result += static_cast<char>(0x80U | (byte & 0x3FU));
        }
    }
    return result;
}

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
    Json entry{{"file", utf8(path)}, {"status", error.code == TRK_ERROR_DAMAGED ? "damaged" : "not readable"}};
    entry["error"] = {{"code", error.code}, {"system_error", error.system_error}, {"text", utf8(failure.what())}};
    return entry;
}

} // namespace tool
