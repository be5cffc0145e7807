// One value of a table.
#pragma once

#include <concepts>
#include <cstdint>
#include <string_view>

namespace tables {

// Missing, or a number, or a text in UTF-8 that somebody else keeps.
class Cell {
  public:
    enum class Kind : uint8_t { Missing, Integer, Float, Double, Text };

    Cell() = default; // missing
    Cell(std::integral auto value) : kind_(Kind::Integer), integer_(static_cast<int64_t>(value)) {}
    Cell(float value) : kind_(Kind::Float), float_(value) {}
    Cell(double value) : kind_(Kind::Double), double_(value) {}
    Cell(std::string_view text)
        : kind_(Kind::Text), size_(static_cast<uint32_t>(text.size())), text_(text.data()) {}
    Cell(const char *text) : Cell(std::string_view(text)) {}

    [[nodiscard]] Kind kind() const { return kind_; }
    [[nodiscard]] bool isMissing() const { return kind_ == Kind::Missing; }

    // Each of these only for a cell of its kind.
    [[nodiscard]] int64_t integer() const { return integer_; }
    [[nodiscard]] float single() const { return float_; }
    [[nodiscard]] double real() const { return double_; }
    [[nodiscard]] std::string_view text() const { return {text_, size_}; }

    // A number of any kind; not for texts.
    [[nodiscard]] double number() const {
        return kind_ == Kind::Integer ? static_cast<double>(integer_) : kind_ == Kind::Float ? float_ : double_;
    }

  private:
    Kind kind_ = Kind::Missing;
    uint32_t size_ = 0;
    union {
        int64_t integer_ = 0;
        float float_;
        double double_;
        const char *text_;
    };
};

} // namespace tables
