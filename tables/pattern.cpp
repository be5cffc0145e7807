#include "pattern.h"

#include "text_output.h"

#define PCRE2_CODE_UNIT_WIDTH 8 // NOLINT(cppcoreguidelines-macro-usage): so the library is told
#include <array>
#include <cstddef>
#include <new>
#include <pcre2.h>
#include <stdexcept>

namespace tables {

namespace {

constexpr std::size_t kGroups = 2;
constexpr uint32_t kMostSteps = 1000000; // in one search: some hundredths of a second

std::string reasonOf(int error) {
    std::array<PCRE2_UCHAR, 256> reason{};
    pcre2_get_error_message(error, reason.data(), reason.size());
    return reinterpret_cast<const char *>(reason.data());
}

} // namespace

struct VariablePattern::Compiled {
    Compiled() = default;
    ~Compiled() {
        pcre2_match_data_free(match);
        pcre2_match_context_free(context);
        pcre2_code_free(code);
    }
    Compiled(const Compiled &) = delete;
    Compiled &operator=(const Compiled &) = delete;

    pcre2_code *code = nullptr;
    pcre2_match_context *context = nullptr;
    pcre2_match_data *match = nullptr;
};

VariablePattern::VariablePattern(const std::string &text)
    : pattern_(text), compiled_(std::make_unique<Compiled>()) {
    int error = 0;
    PCRE2_SIZE place = 0;
    compiled_->code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(),
                                    PCRE2_UTF | PCRE2_UCP | PCRE2_DOTALL, &error, &place, nullptr);
    if (compiled_->code == nullptr) {
        throw std::invalid_argument("the pattern " + text + " is no regular expression, at character " +
                                    std::to_string(place + 1) + ": " + reasonOf(error));
    }
    uint32_t groups = 0;
    pcre2_pattern_info(compiled_->code, PCRE2_INFO_CAPTURECOUNT, &groups);
    if (groups != kGroups) {
        throw std::invalid_argument("the pattern " + text +
                                    " needs two groups in parentheses, for name and value");
    }
    compiled_->context = pcre2_match_context_create(nullptr);
    compiled_->match = pcre2_match_data_create_from_pattern(compiled_->code, nullptr);
    if (compiled_->context == nullptr || compiled_->match == nullptr) {
        throw std::bad_alloc();
    }
    pcre2_set_match_limit(compiled_->context, kMostSteps);
}

VariablePattern::~VariablePattern() = default;

std::optional<std::pair<std::string, std::string>> VariablePattern::find(const std::string &text) const {
    const int found = pcre2_match(compiled_->code, reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(), 0, 0,
                                  compiled_->match, compiled_->context);
    if (found == PCRE2_ERROR_NOMATCH) {
        return std::nullopt;
    }
    if (found < 0) { // too many steps: its variable would be missing without a word
        throw std::invalid_argument("the pattern " + pattern_ + " cannot be searched for in the message \"" +
                                    escaped(text) + "\": " + reasonOf(found));
    }
    const PCRE2_SIZE *const ends = pcre2_get_ovector_pointer(compiled_->match);
    const auto group = [&](std::size_t number) {
        const PCRE2_SIZE begin = ends[2 * number];
        return begin == PCRE2_UNSET ? std::string() : text.substr(begin, ends[2 * number + 1] - begin);
    };
    return std::pair(group(1), group(2));
}

} // namespace tables
