// What the commands say, for programs.
#pragma once

#include "damage.h"
#include "tables/encoding.h"
#include "tables/json.h"

#include <string>
#include <string_view>

namespace tool {

using tables::Json;

[[nodiscard]] std::string_view statusName(const DamageReport &report);
[[nodiscard]] Json damagesJson(const DamageReport &report);
[[nodiscard]] Json repairsJson(const DamageReport &report);
[[nodiscard]] Json lossJson(const DamageReport &report);

// A recording that cannot be read.
[[nodiscard]] Json failureJson(const std::string &path, const CannotRead &failure);

} // namespace tool
