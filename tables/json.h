// JSON, as files and as text.
#pragma once

#include "text_output.h"

#include <nlohmann/json.hpp>

namespace tables {

using Json = nlohmann::ordered_json;

// Over several lines, with a line end behind. Texts must be UTF-8.
void writeJson(TextOutput &out, const Json &json);

} // namespace tables
