// A progress bar on standard error.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tool {

// Appears when the work takes longer than a second, and only on a terminal.
class Progress {
  public:
    // `wanted` is false when the output goes to a terminal itself, where a bar would spoil it.
    Progress(uint64_t total, bool wanted);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void step() {
        // Asking the clock costs more than a step.
        constexpr uint64_t kStepsBetweenLooks = 4096;
        if (++done_ % kStepsBetweenLooks == 0 && enabled_) {
            look();
        }
    }

    // Of work whose parts others do: how much of it is done by now.
    void show(uint64_t done) {
        done_ = done;
        if (enabled_) {
            look();
        }
    }

    // Takes the bar away, before a line is written to standard error.
    void hide();

  private:
    void look();

    uint64_t total_;
    uint64_t done_ = 0;
    bool enabled_;
    bool shown_ = false;
    std::chrono::steady_clock::time_point next_;
};

} // namespace tool
