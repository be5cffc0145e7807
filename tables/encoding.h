// Texts of recordings as UTF-8.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace tables {

// Text that is not UTF-8 is taken as Latin-1.
[[nodiscard]] std::string utf8(std::string_view text);

class TextDecoder {
  public:
    // Of texts in a character encoding that iconv knows; "" takes them as UTF-8, and as Latin-1 those that are
    // not. Throws std::invalid_argument.
    explicit TextDecoder(const std::string &encoding = "");
    ~TextDecoder();
    TextDecoder(const TextDecoder &) = delete;
    TextDecoder &operator=(const TextDecoder &) = delete;

    // No reader of tables takes zero bytes: they become U+2400.
    [[nodiscard]] std::string decode(std::string_view text);

    // How many texts were not what they were taken for: not UTF-8, or not in the encoding. What could not be
    // converted has become U+FFFD.
    [[nodiscard]] uint64_t doubtful() const { return doubtful_; }

  private:
    struct Converter;

    std::unique_ptr<Converter> converter_;
    uint64_t doubtful_ = 0;
};

} // namespace tables
