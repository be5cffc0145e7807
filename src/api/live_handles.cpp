#include "api/live_handles.h"

#include <mutex>
#include <unordered_map>
#include <utility>

namespace trk {

namespace {

struct LiveHandles {
    std::mutex mutex;
    std::unordered_map<const void *, std::unique_ptr<TRKFile>> files;
};

// Never destroyed, so that handles can be closed from other destructors at the end of the process.
LiveHandles &liveHandles() {
    static auto *const handles = std::make_unique<LiveHandles>().release();
    return *handles;
}

} // namespace

_TRKFILE *keepHandle(std::unique_ptr<TRKFile> file) {
    TRKFile *const address = file.get();
    LiveHandles &live = liveHandles();
    const std::scoped_lock lock(live.mutex);
    live.files.emplace(address, std::move(file));
    return reinterpret_cast<_TRKFILE *>(address);
}

std::unique_ptr<TRKFile> takeHandle(const _TRKFILE *handle) {
    LiveHandles &live = liveHandles();
    const std::scoped_lock lock(live.mutex);
    auto entry = live.files.extract(handle);
    return entry.empty() ? nullptr : std::move(entry.mapped());
}

} // namespace trk
