// The one exception type inside the library.
#pragma once

#include <array>
#include <memory>

namespace trk {

// A message text. Thrown as a heap pointer; whoever catches it takes the ownership:
//
//     catch (TRKException *thrown) {
//         const CaughtException error(thrown);
//
class TRKException {
  public:
    // Texts longer than 1023 characters are cut.
    [[gnu::format(printf, 2, 3)]] explicit TRKException(const char *format, ...);

    [[nodiscard]] const char *text() const { return text_.data(); }

  private:
    std::array<char, 1024> text_{};
};

using CaughtException = std::unique_ptr<TRKException>;

// Every failed typed read ends in this one.
inline constexpr const char *kEndOfFile = "End of file Exception";

[[noreturn]] void throwException(const char *text);

} // namespace trk
