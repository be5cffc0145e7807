// The one exception type inside the library. Thrown by value, caught by const reference.
#pragma once

#include "trkapi/trkapi.h"

namespace trk {

class TRKException {
  public:
    // The text is a literal: throwing takes no memory for it. `systemError` is an errno, or 0.
    explicit constexpr TRKException(const char *text, TRK_ERROR_CODE code = TRK_ERROR_DAMAGED, int systemError = 0)
        : text_(text), code_(code), systemError_(systemError) {}

    [[nodiscard]] const char *text() const { return text_; }
    [[nodiscard]] TRK_ERROR_CODE code() const { return code_; }
    [[nodiscard]] int systemError() const { return systemError_; }

  private:
    const char *text_;
    TRK_ERROR_CODE code_;
    int systemError_;
};

// Every failed typed read ends in this one.
inline constexpr const char *kEndOfFile = "End of file Exception";

} // namespace trk
