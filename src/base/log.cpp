#include "base/log.h"

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace trk {

namespace {

constexpr std::size_t kLineCapacity = 500;

std::atomic<TRK_LOG_FUNCTION> logFunction{nullptr};

} // namespace

void logLine(const char *format, ...) {
    std::array<char, kLineCapacity> line{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line.data(), line.size(), format, arguments);
    va_end(arguments);

    if (const TRK_LOG_FUNCTION hook = logFunction.load()) {
        hook(line.data());
    } else {
        std::printf("%s", line.data());
    }
}

void setLogFunction(TRK_LOG_FUNCTION function) { logFunction.store(function); }

void printText(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
}

void flushStreams() { std::fflush(nullptr); }

} // namespace trk
