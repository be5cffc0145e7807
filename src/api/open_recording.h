// What happens once in the life of an open recording.
#pragma once

#include "api/trk_file.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace trk {

// What the open call was asked for.
struct OpenRequest {
    using StreamOpener = std::function<std::unique_ptr<InputStream>(const char *path)>;

    OpenRequest(const char *path, int openFlags, int loadEvents, int loadSamples, const CONFIG *config);

    // Through the second door.
    OpenRequest(const char *path, const TRK_OPEN_OPTIONS &options);

    const char *path;
    const CONFIG *config;                         // the caller's; may be null
    CONFIG ownConfig{MISSING_DATA, MISSING_DATA}; // when it is the handle's
    bool repair;
    bool strict;
    bool tolerant;
    bool salvage = false;
    bool keepTimes;
    bool cutMessageOffsets;
    bool loadEvents;
    bool mergeMessageLog;
    bool loadSamples;
    bool quiet = false;            // through the second door
    LogReceiver log{};             // when it is
    std::string messageLog{};      // file name; empty: the usual one
    std::string temporaryFolder{}; // empty: the system's way to make a temporary file
    int64_t mostInMemory = 0;      // bytes of a compressed recording that need no temporary file
    StreamOpener openStream;       // of the recording file; tests put streams of their own here
};

// Where an open that failed had got to.
struct OpenProgress {
    int64_t offset = -1; // in the record stream
    int64_t size = 0;    // of the recording file; 0 when not known
    Inflation inflation{};
    std::string unreadableLog{}; // the message log that was asked for and cannot be read
};

// Opens the recording, indexes, orders and repairs it. Throws a TRKException on failure.
std::unique_ptr<TRKFile> openRecording(const OpenRequest &request, OpenProgress &progress);
std::unique_ptr<TRKFile> openRecording(const OpenRequest &request);

} // namespace trk
