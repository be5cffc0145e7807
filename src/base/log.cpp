#include "base/log.h"

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace trk {

namespace {

constexpr std::size_t kLineCapacity = 500;

std::atomic<TRK_LOG_FUNCTION> logfcn{nullptr};

} // namespace

int print_log(const char *format, ...) {
    std::array<char, kLineCapacity> line{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line.data(), line.size(), format, arguments);
    va_end(arguments);

    if (const TRK_LOG_FUNCTION hook = logfcn.load()) {
        hook(line.data());
    } else {
        std::printf("%s", line.data());
    }
    return 0;
}

void setLogFunction(TRK_LOG_FUNCTION function) { logfcn.store(function); }

} // namespace trk
