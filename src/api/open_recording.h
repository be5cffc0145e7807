// What happens once in the life of an open recording.
#pragma once

#include "api/trk_file.h"

#include <functional>
#include <memory>

namespace trk {

// What the open call was asked for.
struct OpenRequest {
    using StreamOpener = std::function<std::unique_ptr<InputStream>(const char *path)>;

    OpenRequest(const char *path, int openFlags, int loadEvents, int loadSamples, const CONFIG *config);

    const char *path;
    const CONFIG *config; // the caller's; may be null
    bool repair;
    bool strict;
    bool tolerant;
    bool keepTimes;
    bool cutMessageOffsets;
    bool loadEvents;
    bool mergeMessageLog;
    bool loadSamples;
    StreamOpener openStream; // of the recording file; tests put streams of their own here
};

// Opens the recording, indexes, orders and repairs it. Throws a TRKException on failure.
std::unique_ptr<TRKFile> openRecording(const OpenRequest &request);

} // namespace trk
