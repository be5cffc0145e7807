#include "encoding.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <iconv.h>
#include <stdexcept>

namespace tables {

namespace {

// Length of the UTF-8 character at the beginning of a text; 0 when there is none.
std::size_t characterLength(std::string_view text) {
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byte(0);
    const std::size_t length = first < 0x80                     ? 1
                               : first >= 0xC2 && first <= 0xDF ? 2
                               : first >= 0xE0 && first <= 0xEF ? 3
                               : first >= 0xF0 && first <= 0xF4 ? 4
                                                                : 0;
    if (length == 0 || length > text.size()) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0U) != 0x80) {
            return 0;
        }
    }
    // Overlong forms, surrogates, and what is beyond the last character.
    const bool wrong = length > 2 && ((first == 0xE0 && byte(1) < 0xA0) || (first == 0xED && byte(1) > 0x9F) ||
                                      (first == 0xF0 && byte(1) < 0x90) || (first == 0xF4 && byte(1) > 0x8F));
    return wrong ? 0 : length;
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

void replaceZeros(std::string &text) {
    constexpr std::string_view kZero = "\u2400";
    for (std::size_t at = 0; (at = text.find('\0', at)) != std::string::npos; at += kZero.size()) {
        text.replace(at, 1, kZero);
    }
}

} // namespace

struct TextDecoder::Converter {
    explicit Converter(const char *encoding) : handle(::iconv_open("UTF-8", encoding)) {}
    ~Converter() {
        if (isOpen()) {
            ::iconv_close(handle);
        }
    }
    Converter(const Converter &) = delete;
    Converter &operator=(const Converter &) = delete;

    [[nodiscard]] bool isOpen() const {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): that is how iconv says it
        return handle != reinterpret_cast<iconv_t>(-1);
    }

    iconv_t handle;
};

TextDecoder::TextDecoder(const std::string &encoding) {
    if (encoding.empty()) {
        return;
    }
    converter_ = std::make_unique<Converter>(encoding.c_str());
    if (!converter_->isOpen()) {
        throw std::invalid_argument("there is no encoding " + encoding +
                                    "; iconv --list shows those that there are");
    }
}

TextDecoder::~TextDecoder() = default;

std::string utf8(std::string_view text) {
    if (isUtf8(text)) {
        return std::string(text);
    }
    std::string result;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x80) {
            result += character;
        } else {
            result += static_cast<char>(0xC0U | (byte >> 6U));
            result += static_cast<char>(0x80U | (byte & 0x3FU));
        }
    }
    return result;
}

std::string TextDecoder::decode(std::string_view text) {
    std::string result;
    if (converter_ == nullptr) {
        doubtful_ += isUtf8(text) ? 0U : 1U;
        result = utf8(text);
        replaceZeros(result);
        return result;
    }
    std::string source(text);
    char *from = source.data();
    std::size_t left = source.size();
    bool isSound = true;
    ::iconv(converter_->handle, nullptr, nullptr, nullptr, nullptr);
    while (true) {
        std::array<char, 1024> buffer;
        char *to = buffer.data();
        std::size_t room = buffer.size();
        // The last call asks for what the encoding holds back.
        const bool isLast = left == 0;
        const std::size_t status =
            ::iconv(converter_->handle, isLast ? nullptr : &from, isLast ? nullptr : &left, &to, &room);
        result.append(buffer.data(), to);
        if (status == static_cast<std::size_t>(-1) && errno != E2BIG) {
            isSound = false;
            result += "\uFFFD";
            left = left > 0 ? left - 1 : 0;
            ++from;
        } else if (isLast) {
            break;
        }
    }
    doubtful_ += isSound ? 0U : 1U;
    replaceZeros(result);
    return result;
}

} // namespace tables
