#include "text_output.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace tool {

namespace {

constexpr std::string_view kHexDigits = "0123456789abcdef";

bool isSameFile(const std::string &first, const std::string &second) {
    struct stat a {};
    struct stat b {};
    return ::stat(first.c_str(), &a) == 0 && ::stat(second.c_str(), &b) == 0 && a.st_dev == b.st_dev &&
           a.st_ino == b.st_ino;
}

} // namespace

std::string escaped(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (character == '\\') {
            result += "\\\\";
        } else if (character == '\t') {
            result += "\\t";
        } else if (character == '\n') {
            result += "\\n";
        } else if (character == '\r') {
            result += "\\r";
        } else if (byte < 0x20 || byte == 0x7F) {
            result += {'\\', 'x', kHexDigits[byte >> 4U], kHexDigits[byte & 0xFU]};
        } else {
            result += character;
        }
    }
    return result;
}

std::string fixedPoint(double value, int decimals) {
    // Room for every double: 309 digits, sign, point and decimals.
    std::array<char, 400> digits{};
    const auto end =
        std::to_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::fixed, decimals);
    return {digits.data(), end.ptr};
}

TextOutput::TextOutput(const std::string &path, const std::vector<std::string> &inputs)
    : name_(path == kStandardOutput ? "standard output" : path), buffer_(kCapacity) {
    if (path == kStandardOutput) {
        return;
    }
    if (std::ranges::any_of(inputs, [&path](const std::string &input) { return isSameFile(path, input); })) {
        throw OutputError(escaped(name_) + " is an input: choose another output");
    }
    try {
        descriptor_ = file_.emplace(path).descriptor();
    } catch (const std::system_error &error) {
        fail(error.code().value());
    }
}

void TextOutput::text(std::string_view text) {
    while (!text.empty()) {
        reserve(1);
        const std::size_t size = std::min(text.size(), kCapacity - used_);
        std::memcpy(buffer_.data() + used_, text.data(), size);
        used_ += size;
        text.remove_prefix(size);
    }
}

void TextOutput::flagWord(uint16_t value) {
    text("0x");
    for (int shift = 12; shift >= 0; shift -= 4) {
        character(kHexDigits[(value >> shift) & 0xF]);
    }
}

bool TextOutput::isTerminal() const { return ::isatty(descriptor_) == 1; }

void TextOutput::finish() {
    flush();
    try {
        if (file_) {
            file_->finish();
        }
    } catch (const std::system_error &error) {
        fail(error.code().value());
    }
}

void TextOutput::flush() {
    for (std::size_t done = 0; done < used_;) {
        const ssize_t written = ::write(descriptor_, buffer_.data() + done, used_ - done);
        if (written >= 0) {
            done += static_cast<std::size_t>(written);
        } else if (errno == EPIPE) {
            throw OutputClosed{};
        } else if (errno != EINTR) {
            fail(errno);
        }
    }
    used_ = 0;
}

void TextOutput::fail(int error) const {
    throw OutputError(escaped(name_) + " cannot be written: " + std::strerror(error));
}

} // namespace tool
