// Text written to a file descriptor through one large buffer.
#pragma once

#include "whole_file.h"

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace tool {

// Stands for a value that is missing or does not apply.
inline constexpr std::string_view kMissing = ".";

// Backslashes, tabs, line ends and all other control bytes as \\, \t, \n, \r and \xHH; other bytes as they are.
[[nodiscard]] std::string escaped(std::string_view text);

// Rounded to so many decimals.
[[nodiscard]] std::string fixedPoint(double value, int decimals);

class OutputError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Whoever read the output wants no more of it: the end of the work, and no failure.
struct OutputClosed {};

class TextOutput {
  public:
    static constexpr std::string_view kStandardOutput = "-";

    // Writes the file `path`, which is there whole or not at all, or standard output. Never replaces one of the
    // files `inputs`. Throws OutputError.
    TextOutput(const std::string &path, const std::vector<std::string> &inputs);

    void text(std::string_view text);

    void character(char value) {
        reserve(1);
        buffer_[used_++] = value;
    }

    // Floats in the shortest form that reads back as the same value.
    template <typename Number>
    requires std::integral<Number> || std::floating_point<Number>
    void number(Number value) {
        reserve(kLongestNumber);
        char *const start = buffer_.data() + used_;
        used_ += static_cast<std::size_t>(std::to_chars(start, start + kLongestNumber, value).ptr - start);
    }

    // A further cell of a line.
    template <typename Number> void cell(Number value, bool isKnown = true) {
        character('\t');
        if (isKnown) {
            number(value);
        } else {
            text(kMissing);
        }
    }

    // A flag word, 0x and four digits.
    void flagWord(uint16_t value);

    [[nodiscard]] bool isTerminal() const;

    void flush();

    // Writes what is left and gives a file its name. What is not finished is lost. Throws OutputError or
    // OutputClosed.
    void finish();

  private:
    static constexpr std::size_t kCapacity = std::size_t{1} << 20;
    static constexpr std::size_t kLongestNumber = 32;

    void reserve(std::size_t size) {
        if (kCapacity - used_ < size) {
            flush();
        }
    }
    [[noreturn]] void fail(int error) const;

    std::string name_;
    std::optional<WholeFile> file_;
    int descriptor_ = STDOUT_FILENO;
    std::vector<char> buffer_;
    std::size_t used_ = 0;
};

} // namespace tool
