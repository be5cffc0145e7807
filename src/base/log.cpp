#include "base/log.h"

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <utility>

namespace trk {

namespace {

constexpr std::size_t kLineCapacity = 500;
using Line = std::array<char, kLineCapacity>;

std::atomic<TRK_LOG_FUNCTION> logFunction{nullptr};

// Read at every call with a handle: worth the faster of the ways to reach it.
[[gnu::tls_model("initial-exec")]] thread_local const LogReceiver *receiverInForce = nullptr;

[[gnu::format(printf, 1, 0)]] Line formatted(const char *format, va_list arguments) {
    Line line{};
    std::vsnprintf(line.data(), line.size(), format, arguments);
    return line;
}

void receive(const LogReceiver &receiver, const Line &line) {
    if (receiver.function != nullptr) {
        receiver.function(receiver.user, line.data());
    }
}

} // namespace

LogScope::LogScope(const LogReceiver *receiver) : outer_(std::exchange(receiverInForce, receiver)) {}

LogScope::~LogScope() { receiverInForce = outer_; }

void logLine(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const Line line = formatted(format, arguments);
    va_end(arguments);

    if (receiverInForce != nullptr) {
        receive(*receiverInForce, line);
    } else if (const TRK_LOG_FUNCTION hook = logFunction.load()) {
        hook(line.data());
    } else {
        std::printf("%s", line.data());
    }
}

void setLogFunction(TRK_LOG_FUNCTION function) { logFunction.store(function); }

void printText(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    if (receiverInForce != nullptr) {
        receive(*receiverInForce, formatted(format, arguments));
    } else {
        std::vprintf(format, arguments);
    }
    va_end(arguments);
}

void flushStreams() {
    if (receiverInForce == nullptr) {
        std::fflush(nullptr);
    }
}

} // namespace trk
