#include "json.h"

namespace tables {

void writeJson(TextOutput &out, const Json &json) {
    constexpr int kIndent = 2;
    out.text(json.dump(kIndent));
    out.text("\n");
}

} // namespace tables
