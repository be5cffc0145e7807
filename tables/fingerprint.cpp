#include "fingerprint.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <vector>
#include <zlib.h>

namespace tables {

std::string fingerprintOf(const std::string &path) {
    constexpr std::streamoff kPart = std::streamoff{64} * 1024;
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const std::streamoff size = file.tellg();
    if (!file || size < 0) {
        return {};
    }
    uLong sum = crc32(0, nullptr, 0);
    std::vector<char> bytes(static_cast<std::size_t>(kPart));
    for (const std::streamoff begin : {std::streamoff{0}, std::max<std::streamoff>(size - kPart, 0)}) {
        file.clear();
        file.seekg(begin);
        file.read(bytes.data(), kPart);
        sum = crc32(sum, reinterpret_cast<const Bytef *>(bytes.data()), static_cast<uInt>(file.gcount()));
    }
    std::array<char, 40> text{};
    const int length = std::snprintf(text.data(), text.size(), "%jd-%08lx", static_cast<intmax_t>(size), sum);
    return {text.data(), static_cast<std::size_t>(length)};
}

bool isNewerThan(const std::string &file, const std::string &other) {
    std::error_code none;
    const auto time = std::filesystem::last_write_time(file, none);
    return !none && time >= std::filesystem::last_write_time(other, none);
}

} // namespace tables
