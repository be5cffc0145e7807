#include "api/trk_file.h"

#include "base/exception.h"
#include "index/consistency.h"
#include "io/file_input_stream.h"
#include "io/inflate.h"

#include <memory>
#include <utility>

namespace trk {

namespace {

constexpr int kCheckMask = TRK_OPEN_CHECK | TRK_OPEN_CHECK_AND_FILL;

// Inflates the rest of the stream into an anonymous temporary file. A damaged stream is not reported here: the
// scan then finds what could be inflated.
std::unique_ptr<InputStream> inflateToTemporaryFile(InputStream &compressed) {
    FilePointer temporary(std::tmpfile());
    if (!temporary) {
        throwException("Failed to create temp file \n");
    }
    do_uncompress(compressed, temporary.get());
    return std::make_unique<FileInputStream>(std::move(temporary));
}

} // namespace

OpenRequest::OpenRequest(const char *pathName, int openFlags, int loadEventsFlags, int loadSamplesFlag,
                         const CONFIG *callersConfig)
    : path(pathName != nullptr ? pathName : ""), config(callersConfig),
      checkConsistency((openFlags & kCheckMask) != 0), strict((openFlags & kCheckMask) == TRK_OPEN_CHECK_AND_FILL),
      tolerant((openFlags & TRK_OPEN_TOLERANT) != 0), keepTimes((openFlags & TRK_OPEN_KEEP_TIMES) != 0),
      cutMessageOffsets((openFlags & TRK_OPEN_MESSAGE_OFFSETS) != 0), loadEvents(loadEventsFlags != 0),
      loadSamples(loadSamplesFlag != 0) {}

TRKFile::TRKFile(const OpenRequest &request)
    : reader_(request.cutMessageOffsets), preamble_(openContainer(request.path)), facts_(preScan(request)),
      queue_(index_), batchReader_(reader_, index_, queue_, request.strict),
      velocity_(queue_, preamble_.trackerModel),
      itemReader_(reader_, index_, queue_, batchReader_, velocity_, request.config),
      delivery_(itemReader_, index_, request.strict),
      times_(request.keepTimes, facts_.firstSampleTime, facts_.lastSampleTime) {
    if (request.checkConsistency) {
        checkConsistency(index_, request.strict);
    }
}

Preamble TRKFile::openContainer(const char *path) {
    std::unique_ptr<InputStream> stream = std::make_unique<FileInputStream>(path);
    const ContainerVariant variant = readMagicLine(*stream);
    Preamble preamble = readPreamble(*stream);
    if (variant == ContainerVariant::Compressed) {
        stream = inflateToTemporaryFile(*stream);
    }
    reader_.setStream(std::move(stream));
    reader_.setPreambleFacts(preamble.done, preamble.revision);
    return preamble;
}

PrescanFacts TRKFile::preScan(const OpenRequest &request) {
    const PrescanOptions options{.tolerant = request.tolerant,
                                 .fillGaps = request.strict,
                                 .loadEvents = request.loadEvents,
                                 .loadSamples = request.loadSamples};
    return Prescan(reader_, index_, options).run();
}

void TRKFile::gotoIndex(int index) {
    if (index >= 0 && static_cast<std::size_t>(index) < index_.size()) {
        delivery_.setCurrentIndex(static_cast<uint32_t>(index));
    }
}

ALLF_DATA *TRKFile::getFloatData() {
    ALLF_DATA *const record = delivery_.getFloatData();
    // Before the first step nothing was decoded, and there is nothing to adjust.
    if (record != nullptr && delivery_.walkStarted()) {
        times_.adjustTimes(delivery_.currentItem(), *record);
    }
    return record;
}

} // namespace trk
