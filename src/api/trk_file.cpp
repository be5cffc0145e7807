#include "api/trk_file.h"

#include "base/exception.h"
#include "index/consistency.h"
#include "io/file_input_stream.h"
#include "io/inflate.h"
#include "navigation/time_search.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <utility>

namespace trk {

namespace {

constexpr int kFailed = -1;
constexpr int kCheckMask = TRK_OPEN_CHECK | TRK_OPEN_CHECK_AND_FILL;

// Inflates the rest of the stream into an anonymous temporary file. A damaged stream is not reported here: the
// scan then finds what could be inflated.
std::unique_ptr<InputStream> inflateToTemporaryFile(InputStream &compressed) {
    FilePointer temporary(std::tmpfile());
    if (!temporary) {
        throwException("Failed to create temp file \n");
    }
    // Chunks are large; a buffer would only hide how much of them a full disk has taken.
    std::setvbuf(temporary.get(), nullptr, _IONBF, 0);
    if (do_uncompress(compressed, temporary.get()) == kInflatesTooFar) {
        throwException("Compressed data inflate beyond the largest recording");
    }
    return std::make_unique<FileInputStream>(std::move(temporary));
}

} // namespace

OpenRequest::OpenRequest(const char *pathName, int openFlags, int loadEventsFlags, int loadSamplesFlag,
                         const CONFIG *callersConfig)
    : path(pathName != nullptr ? pathName : ""), config(callersConfig),
      checkConsistency((openFlags & kCheckMask) != 0), strict((openFlags & kCheckMask) == TRK_OPEN_CHECK_AND_FILL),
      tolerant((openFlags & TRK_OPEN_TOLERANT) != 0), keepTimes((openFlags & TRK_OPEN_KEEP_TIMES) != 0),
      cutMessageOffsets((openFlags & TRK_OPEN_MESSAGE_OFFSETS) != 0), loadEvents(loadEventsFlags != 0),
      mergeMessageLog((loadEventsFlags & TRK_EVENTS_MESSAGE_LOG) != 0), loadSamples(loadSamplesFlag != 0),
      openStream([](const char *name) { return std::make_unique<FileInputStream>(name); }) {}

TRKFile::TRKFile(const OpenRequest &request)
    : messageLog_(openMessageLog(request)), reader_(request.cutMessageOffsets), preamble_(openContainer(request)),
      facts_(preScan(request)), queue_(index_), batchReader_(reader_, index_, queue_, request.strict),
      velocity_(queue_, preamble_.trackerModel),
      itemReader_(reader_, index_, queue_, batchReader_, velocity_, request.config),
      delivery_(itemReader_, index_, request.strict), merge_(delivery_, index_, messageLog_),
      times_(request.keepTimes, facts_.firstSampleTime, facts_.lastSampleTime), trials_(index_, *this) {
    if (request.checkConsistency) {
        checkConsistency(index_, request.strict);
    }
}

MessageLog TRKFile::openMessageLog(const OpenRequest &request) {
    MessageLog log;
    if (request.mergeMessageLog) {
        log.setEyeLogFileName(extraMessageFileFor(request.path));
        log.openEyeLogFile();
    }
    return log;
}

Preamble TRKFile::openContainer(const OpenRequest &request) {
    std::unique_ptr<InputStream> stream = request.openStream(request.path);
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

ALLF_DATA *TRKFile::getFloatData() {
    ALLF_DATA *const record = merge_.getFloatDataMergeWithLog();
    // Before the first step nothing was decoded, and there is nothing to adjust.
    if (record != nullptr && !delivery_.isUndecoded(record)) {
        times_.adjustTimes(delivery_.currentItem(), *record);
    }
    return record;
}

std::size_t TRKFile::elementCount() const {
    return index_.size() + static_cast<std::size_t>(std::max(messageLog_.getNumOfLogMsg(), 0));
}

int TRKFile::goTo(std::optional<uint32_t> position) {
    if (!position) {
        return kFailed;
    }
    delivery_.setCurrentIndex(*position);
    return 0;
}

int TRKFile::setTrialIdentifier(char *startText, char *endText) {
    trials_.setTrialIdentifier(startText, endText);
    return 0;
}

int TRKFile::getTrialHeaders(TRIAL *header) {
    const TRKTrial *const trial = header != nullptr ? trials_.getTrialHeaders() : nullptr;
    if (trial == nullptr) {
        return kFailed;
    }
    *header = {trial->recording, trial->duration, trial->start_time, trial->end_time};
    return 0;
}

int TRKFile::setBookMark(BOOKMARK *bookmark) {
    const uint32_t position = delivery_.currentIndex();
    if (bookmark == nullptr || position >= index_.size()) {
        return kFailed;
    }
    if (bookmarks_.set(position)) {
        bookmark->item_position = position;
    }
    return 0;
}

int TRKFile::removeBookMark(const BOOKMARK *bookmark) {
    return bookmark != nullptr && bookmarks_.remove(bookmark->item_position) ? 0 : kFailed;
}

int TRKFile::gotoBookMark(const BOOKMARK *bookmark) {
    return bookmark != nullptr ? goTo(bookmarks_.go(bookmark->item_position)) : kFailed;
}

void TRKFile::gotoIndex(int index) {
    if (index >= 0 && static_cast<std::size_t>(index) < index_.size()) {
        delivery_.setCurrentIndex(static_cast<uint32_t>(index));
    }
    trials_.arrivedAt(index);
}

ALLF_DATA *TRKFile::getSampleCloseToTime(uint32_t key) {
    const int found = findIndex(index_, key, 0, static_cast<int>(index_.size()));
    if (found < 1) {
        return nullptr; // a sample that is the very first item is not delivered, on purpose
    }
    ALLF_DATA *const record = delivery_.read(static_cast<std::size_t>(found));
    if (record != nullptr) {
        times_.adjustTimes(delivery_.currentItem(), *record);
    }
    return record;
}

float TRKFile::getGazePrescaler(uint32_t time) {
    const FRECORDING *const recording = trials_.recordingAt(time);
    return recording != nullptr ? recording->gaze_prescaler : 0.0F;
}

int TRKFile::getWindowSize(uint32_t time, int &first, int &second) {
    if (const FRECORDING *const recording = trials_.recordingAt(time)) {
        first = static_cast<int>(recording->window_size1);
        second = static_cast<int>(recording->window_size2);
    }
    return 0;
}

} // namespace trk
