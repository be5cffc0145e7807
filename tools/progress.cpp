#include "progress.h"

#include <algorithm>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace tool {

namespace {

constexpr std::chrono::milliseconds kQuietStart{1000};
constexpr std::chrono::milliseconds kRedraw{200};
constexpr std::size_t kBarWidth = 40;
constexpr std::string_view kClearLine = "\r\033[K";

// A bar that cannot be drawn is no reason to fail.
void draw(std::string_view text) {
    [[maybe_unused]] const ssize_t ignored = ::write(STDERR_FILENO, text.data(), text.size());
}

} // namespace

Progress::Progress(uint64_t total, bool wanted)
    : total_(std::max<uint64_t>(total, 1)), enabled_(wanted && ::isatty(STDERR_FILENO) == 1),
      next_(std::chrono::steady_clock::now() + kQuietStart) {}

Progress::~Progress() { hide(); }

void Progress::hide() {
    if (std::exchange(shown_, false)) {
        draw(kClearLine);
    }
}

void Progress::look() {
    const auto now = std::chrono::steady_clock::now();
    if (now < next_) {
        return;
    }
    next_ = now + kRedraw;
    shown_ = true;
    const uint64_t done = std::min(done_, total_);
    const std::size_t filled = done * kBarWidth / total_;
    draw(std::string(kClearLine) + '[' + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "] " +
         std::to_string(done * 100 / total_) + " %");
}

} // namespace tool
