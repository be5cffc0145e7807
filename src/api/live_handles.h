// The open recordings of the process.
#pragma once

#include "api/trk_file.h"

#include <memory>

namespace trk {

// Keeps an open recording until it is taken back; returns its handle.
_TRKFILE *keepHandle(std::unique_ptr<TRKFile> file);

// Takes back what keepHandle kept; null for anything but a live handle.
std::unique_ptr<TRKFile> takeHandle(const _TRKFILE *handle);

} // namespace trk
