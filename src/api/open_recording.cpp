#include "api/open_recording.h"

#include "base/exception.h"
#include "base/log.h"
#include "index/prescan.h"
#include "index/repair.h"
#include "io/file_input_stream.h"
#include "io/inflate.h"

#include <cstdio>
#include <string>
#include <utility>

namespace trk {

namespace {

constexpr int kCheckMask = TRK_OPEN_CHECK | TRK_OPEN_CHECK_AND_FILL;

MessageLog openMessageLog(const OpenRequest &request) {
    const std::string name = request.mergeMessageLog ? extraMessageFileFor(request.path) : "";
    if (name.empty()) {
        return {};
    }
    printText("Log file name %s \n", name.c_str());
    return MessageLog(name);
}

// Inflates the rest of the stream into an anonymous temporary file. A damaged stream is not reported here: the
// scan then finds what could be inflated.
std::unique_ptr<InputStream> inflateToTemporaryFile(InputStream &compressed) {
    FilePointer temporary(std::tmpfile());
    if (!temporary) {
        throw TRKException("Failed to create temp file \n");
    }
    // Chunks are large; a buffer would only hide how much of them a full disk has taken.
    std::setvbuf(temporary.get(), nullptr, _IONBF, 0);
    if (inflateTo(temporary.get(), compressed) == Inflation::TooLarge) {
        throw TRKException("Compressed data inflate beyond the largest recording");
    }
    return std::make_unique<FileInputStream>(std::move(temporary));
}

} // namespace

OpenRequest::OpenRequest(const char *pathName, int openFlags, int loadEventsFlags, int loadSamplesFlag,
                         const CONFIG *callersConfig)
    : path(pathName != nullptr ? pathName : ""), config(callersConfig), repair((openFlags & kCheckMask) != 0),
      strict((openFlags & kCheckMask) == TRK_OPEN_CHECK_AND_FILL), tolerant((openFlags & TRK_OPEN_TOLERANT) != 0),
      keepTimes((openFlags & TRK_OPEN_KEEP_TIMES) != 0),
      cutMessageOffsets((openFlags & TRK_OPEN_MESSAGE_OFFSETS) != 0), loadEvents(loadEventsFlags != 0),
      mergeMessageLog((loadEventsFlags & TRK_EVENTS_MESSAGE_LOG) != 0), loadSamples(loadSamplesFlag != 0),
      openStream([](const char *name) { return std::make_unique<FileInputStream>(name); }) {}

std::unique_ptr<TRKFile> openRecording(const OpenRequest &request) {
    // Whatever becomes of the recording, its log is read first: it takes its descriptor and says its lines.
    MessageLog messageLog = openMessageLog(request);
    std::unique_ptr<InputStream> stream = request.openStream(request.path);
    const ContainerVariant variant = readMagicLine(*stream);
    Preamble preamble = readPreamble(*stream);
    if (variant == ContainerVariant::Compressed) {
        stream = inflateToTemporaryFile(*stream);
    }
    RecordReader reader(*stream, preamble.revision, request.cutMessageOffsets);
    ItemIndex index;
    const PrescanFacts facts = Prescan(reader, index,
                                       {.tolerant = request.tolerant,
                                        .fillGaps = request.strict,
                                        .loadEvents = request.loadEvents,
                                        .loadSamples = request.loadSamples})
                                   .run();
    if (request.repair) {
        repairIndex(index, request.strict);
    }
    return std::make_unique<TRKFile>(RecordingParts{std::move(messageLog), std::move(stream), std::move(preamble),
                                                    reader, std::move(index), facts},
                                     DeliveryOptions{request.config, request.strict, request.keepTimes});
}

} // namespace trk
