#include "api/open_recording.h"

#include "base/exception.h"
#include "base/log.h"
#include "index/prescan.h"
#include "index/repair.h"
#include "io/file_input_stream.h"
#include "io/inflate.h"
#include "io/temporary_file.h"

#include <cerrno>
#include <new>
#include <string>
#include <utility>

namespace trk {

namespace {

constexpr int kCheckMask = TRK_OPEN_CHECK | TRK_OPEN_CHECK_AND_FILL;

// A log that cannot be read is left out; at the second door, whoever asks for it is told.
MessageLog openMessageLog(const OpenRequest &request, OpenProgress &progress) {
    if (!request.mergeMessageLog) {
        return {};
    }
    const std::string name = !request.messageLog.empty() ? request.messageLog
                             : request.quiet             ? messageLogBeside(request.path)
                                                         : extraMessageFileFor(request.path);
    if (name.empty()) {
        return {};
    }
    printText("Log file name %s \n", name.c_str());
    MessageLog log(name);
    if (request.quiet && !log.isOpen()) {
        progress.unreadableLog = name;
        throw TRKException("The message log cannot be read", TRK_ERROR_FILE, errno);
    }
    return log;
}

// What is larger than that when it is compressed needs a file in any case: data that cannot be compressed take
// nine bits a byte at most.
int64_t mostInMemory(const OpenRequest &request, int64_t compressedSize) {
    return compressedSize > request.mostInMemory / 8 * 9 ? 0 : request.mostInMemory;
}

// A stream that inflates no further is no failure here: the scan then finds what could be inflated. But at the
// second door what the surroundings are to blame for is told from damage.
void checkInflation(const Inflation &inflation, const OpenRequest &request) {
    if (inflation.end == InflationEnd::TooLarge) {
        throw TRKException("Compressed data inflate beyond the largest recording", TRK_ERROR_TOO_LARGE);
    }
    if (!request.quiet) {
        return;
    }
    switch (inflation.end) {
    case InflationEnd::NoMemory:
        throw std::bad_alloc();
    case InflationEnd::SourceFailed:
        throw TRKException("The compressed recording cannot be read", TRK_ERROR_FILE, inflation.systemError);
    case InflationEnd::DestinationFailed:
        throw TRKException("The temporary file cannot be written", TRK_ERROR_TEMPORARY_FILE,
                           inflation.systemError);
    default:
        return;
    }
}

// At the second door, a source that cannot be read is no damage either, however much can be had of it.
void checkSource(InputStream &stream, const RecordingParts &parts, const OpenRequest &request) {
    if (request.quiet && stream.readFailed()) {
        throw TRKException("The recording cannot be read",
                           parts.compressed ? TRK_ERROR_TEMPORARY_FILE : TRK_ERROR_FILE, stream.systemError());
    }
}

void scan(RecordingParts &parts, const OpenRequest &request, OpenProgress &progress) {
    InputStream &stream = *parts.stream;
    RecordReader reader(stream, parts.preamble.revision, request.cutMessageOffsets);
    try {
        parts.facts = Prescan(reader, parts.index,
                              {.tolerant = request.tolerant,
                               .fillGaps = request.strict,
                               .loadEvents = request.loadEvents,
                               .loadSamples = request.loadSamples})
                          .run();
    } catch (const TRKException &) {
        progress.offset = stream.position();
        checkSource(stream, parts, request);
        throw;
    }
    checkSource(stream, parts, request);
    parts.decodingState = reader.state();
    parts.everythingIsIndexed = request.loadEvents && request.loadSamples;
    if (request.repair) {
        parts.repairs = repairIndex(parts.index, request.strict);
    }
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

OpenRequest::OpenRequest(const char *pathName, const TRK_OPEN_OPTIONS &options)
    : OpenRequest(pathName, options.flags, options.events, options.samples, nullptr) {
    if (options.config.velocity_param_1 != 0) {
        ownConfig = options.config;
    }
    salvage = (options.flags & TRK_OPEN_SALVAGE) != 0;
    tolerant = tolerant || salvage;
    quiet = true;
    mostInMemory = kMostInflatedInMemory;
    log = {options.log, options.user};
    messageLog = options.message_log != nullptr ? options.message_log : "";
    temporaryFolder = options.temporary_folder != nullptr ? options.temporary_folder : defaultTemporaryFolder();
}

std::unique_ptr<TRKFile> openRecording(const OpenRequest &request, OpenProgress &progress) {
    // Whatever becomes of the recording, its log is read first: it takes its descriptor and says its lines.
    RecordingParts parts;
    parts.messageLog = openMessageLog(request, progress);
    parts.stream = request.openStream(request.path);
    progress.size = parts.stream->sourceSize();
    parts.compressed = readMagicLine(*parts.stream) == ContainerVariant::Compressed;
    parts.preamble = readPreamble(*parts.stream);
    if (parts.compressed) {
        InflatedData inflated(mostInMemory(request, progress.size - parts.stream->sourcePosition()),
                              [&request] { return openTemporaryFile(request.temporaryFolder); });
        parts.inflation = progress.inflation = inflateTo(inflated, *parts.stream, {.resume = request.salvage});
        checkInflation(parts.inflation, request);
        parts.stream = std::move(inflated).read();
    }
    parts.recordsBegin = parts.stream->position();
    if (request.salvage) {
        parts.survey =
            surveyRecording(*parts.stream, parts.recordsBegin, parts.preamble.revision, parts.inflationIfAny());
        auto spliced = std::make_unique<SplicedStream>(std::move(parts.stream), parts.survey->kept);
        parts.spliced = spliced.get();
        parts.stream = std::move(spliced);
    }
    scan(parts, request, progress);
    return std::make_unique<TRKFile>(
        std::move(parts), DeliveryOptions{request.config, request.ownConfig, request.strict, request.keepTimes,
                                          request.cutMessageOffsets, request.quiet, request.log});
}

std::unique_ptr<TRKFile> openRecording(const OpenRequest &request) {
    OpenProgress progress;
    return openRecording(request, progress);
}

} // namespace trk
