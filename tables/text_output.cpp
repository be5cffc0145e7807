#include "text_output.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace tables {

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

void failToWrite(const std::string &name, int error) {
    throw OutputError(escaped(name) + " cannot be written: " + std::strerror(error));
}

void makeFolder(const std::string &path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error) {
        throw OutputError("the folder " + escaped(path) + " cannot be made: " + error.message());
    }
}

TextOutput::TextOutput(const std::string &path, const std::vector<std::string> &inputs, Packing packing)
    : name_(path == kStandardOutput ? "standard output" : path), buffer_(kCapacity) {
    if (packing == Packing::Gzip) {
        gzip_.emplace();
    }
    if (path == kStandardOutput) {
        return;
    }
    if (std::ranges::any_of(inputs, [&path](const std::string &input) { return isSameFile(path, input); })) {
        throw OutputError(escaped(name_) + " is an input: choose another output");
    }
    try {
        descriptor_ = file_.emplace(path).descriptor();
    } catch (const std::system_error &error) {
        failToWrite(name_, error.code().value());
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

bool TextOutput::isTerminal() const { return ::isatty(descriptor_) == 1; }

void TextOutput::finish() {
    flush(true);
    try {
        if (file_) {
            file_->finish();
        }
    } catch (const std::system_error &error) {
        failToWrite(name_, error.code().value());
    }
}

void TextOutput::flush(bool isLast) {
    const std::string_view bytes(buffer_.data(), used_);
    if (gzip_) {
        gzip_->compress(bytes, isLast, packed_);
        write({packed_.data(), packed_.size()});
    } else {
        write(bytes);
    }
    used_ = 0;
}

void TextOutput::write(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor_, bytes.data(), bytes.size());
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EPIPE) {
            throw OutputClosed{};
        } else if (errno != EINTR) {
            failToWrite(name_, errno);
        }
    }
}

} // namespace tables
