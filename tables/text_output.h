// Text written to a file descriptor through one large buffer.
#pragma once

#include "gzip.h"
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

namespace tables {

// Backslashes, tabs, line ends and all other control bytes as \\, \t, \n, \r and \xHH; other bytes as they are.
[[nodiscard]] std::string escaped(std::string_view text);

// Rounded to so many decimals.
[[nodiscard]] std::string fixedPoint(double value, int decimals);

class OutputError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Throws an OutputError for errno's value.
[[noreturn]] void failToWrite(const std::string &name, int error);

// Makes a folder, with those above it that are not there. Throws OutputError.
void makeFolder(const std::string &path);

// Whoever read the output wants no more of it: the end of the work, and no failure.
struct OutputClosed {};

enum class Packing : uint8_t { None, Gzip };

class TextOutput {
  public:
    static constexpr std::string_view kStandardOutput = "-";

    // Writes the file `path`, which is there whole or not at all, or standard output. Never replaces one of the
    // files `inputs`. Throws OutputError.
    TextOutput(const std::string &path, const std::vector<std::string> &inputs, Packing packing = Packing::None);

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

    [[nodiscard]] bool isTerminal() const;

    void flush() { flush(false); }

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
    void flush(bool isLast);
    void write(std::string_view bytes);

    std::string name_;
    std::optional<WholeFile> file_;
    int descriptor_ = STDOUT_FILENO;
    std::optional<Gzip> gzip_;
    std::vector<char> packed_;
    std::vector<char> buffer_;
    std::size_t used_ = 0;
};

} // namespace tables
