// The order of items in time.
#pragma once

#include <cstdint>

namespace trk {

// Items are ordered by keys, which count half milliseconds: twice the time, and 1 more for a sample that repeats
// the time of the one before it, as every other one does at 2000 samples per second.
struct TimeKey {
    static constexpr uint64_t kPerMillisecond = 2;
    static constexpr uint64_t kPerSecond = 1000 * kPerMillisecond;

    // The largest distance of two samples, 250 a second, that is taken for a regular one.
    static constexpr uint64_t kLargestSpacing = 8;

    [[nodiscard]] static constexpr uint64_t of(uint32_t time) { return kPerMillisecond * time; }
    [[nodiscard]] static constexpr uint64_t of(uint32_t time, bool repeated) {
        return of(time) + (repeated ? 1 : 0);
    }
    [[nodiscard]] static constexpr uint32_t time(uint64_t key) {
        return static_cast<uint32_t>(key / kPerMillisecond);
    }
};

} // namespace trk
