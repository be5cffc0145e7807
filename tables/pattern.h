// Regular expressions on UTF-8 text.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace tables {

// A pattern of Perl's kind with two groups, for the name and the value of a variable. \w takes letters of all
// languages.
class VariablePattern {
  public:
    // Throws std::invalid_argument.
    explicit VariablePattern(const std::string &text);
    ~VariablePattern();
    VariablePattern(const VariablePattern &) = delete;
    VariablePattern &operator=(const VariablePattern &) = delete;

    // Name and value where a text matches. Throws std::invalid_argument for a search that takes too many steps.
    [[nodiscard]] std::optional<std::pair<std::string, std::string>> find(const std::string &text) const;

  private:
    struct Compiled;

    std::string pattern_;
    std::unique_ptr<Compiled> compiled_;
};

} // namespace tables
