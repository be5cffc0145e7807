// What stands around each exported call.
#pragma once

#include "api/trk_file.h"
#include "base/log.h"

#include <type_traits>

namespace trk {

inline constexpr const char *kOutOfMemory = "Out of memory\n";

// Nothing is thrown through a C interface: a call that cannot go on, for want of memory, gives `onFailure`. The
// line in the log needs no memory.
template <class Body, class Result = std::invoke_result_t<Body>>
Result guarded(std::type_identity_t<Result> onFailure, Body body) noexcept {
    try {
        return body();
    } catch (...) {
        logLine("%s", kOutOfMemory);
        return onFailure;
    }
}

[[nodiscard]] inline TRKFile &fileOf(_TRKFILE *handle) { return *reinterpret_cast<TRKFile *>(handle); }

// The same for a call with a handle. What is said meanwhile goes where the handle wants it.
template <class Body, class Result = std::invoke_result_t<Body, TRKFile &>>
Result with(_TRKFILE *handle, std::type_identity_t<Result> onFailure, Body body) noexcept {
    TRKFile &file = fileOf(handle);
    const LogScope scope(file.log());
    return guarded(onFailure, [&]() -> Result { return body(file); });
}

} // namespace trk
