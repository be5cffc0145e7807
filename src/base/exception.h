// The one exception type inside the library. Thrown by value, caught by const reference.
#pragma once

namespace trk {

class TRKException {
  public:
    // The text is a literal: throwing takes no memory for it.
    explicit constexpr TRKException(const char *text) : text_(text) {}

    [[nodiscard]] const char *text() const { return text_; }

  private:
    const char *text_;
};

// Every failed typed read ends in this one.
inline constexpr const char *kEndOfFile = "End of file Exception";

} // namespace trk
