// The facts of a recording, for programs.
#pragma once

#include "facts.h"
#include "json.h"

namespace tool {

[[nodiscard]] Json factsJson(const Facts &facts);

} // namespace tool
