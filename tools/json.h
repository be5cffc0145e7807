// What the commands say, for programs.
#pragma once

#include "damage.h"
#include "tables/encoding.h"
#include "tables/text_output.h"

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>

namespace tool {

using Json = nlohmann::ordered_json;

[[nodiscard]] std::string_view statusName(const DamageReport &report);
[[nodiscard]] Json damagesJson(const DamageReport &report);
[[nodiscard]] Json repairsJson(const DamageReport &report);
[[nodiscard]] Json lossJson(const DamageReport &report);

// Over several lines, with a line end behind.
void writeJson(tables::TextOutput &out, const Json &json);

// A recording that cannot be read.
[[nodiscard]] Json failureJson(const std::string &path, const CannotRead &failure);

} // namespace tool
