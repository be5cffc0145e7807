#include "delivery/log_merge.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace trk {

namespace {

constexpr uint64_t kBehindLastItem = std::numeric_limits<uint64_t>::max();
constexpr uint64_t kNear = 2; // ms
constexpr std::size_t kLongestText = 260;
constexpr const char *kSyncMark = "TRACKER_TIME";

constexpr bool liesBefore(uint64_t earlier, uint64_t later) { return earlier < later && later - earlier > kNear; }

} // namespace

LogMerge::LogMerge(Delivery &delivery, const ItemIndex &index, MessageLog &log)
    : delivery_(delivery), index_(index), log_(log), logCursor_(log.loadEyeLog() ? 0 : -1) {}

int LogMerge::getNextDataMergeWithLog() {
    deliveredLogMsg_ = -1;
    logMsgPending_ = false;
    return getNextDataWLogInternal();
}

ALLF_DATA *LogMerge::getFloatDataMergeWithLog() {
    if (deliveredLogMsg_ >= 1) {
        return &eventBuffer_;
    }
    if (!logMsgPending_) {
        return delivery_.getFloatData();
    }
    logMsgPending_ = false;
    getEyeLogMsg();
    return &eventBuffer_;
}

int LogMerge::getNextDataWLogInternal() {
    while (true) {
        const uint32_t item = delivery_.currentIndex();
        const int message = logCursor_;
        if (message < 0 || message >= log_.getNumOfLogMsg()) {
            return delivery_.step();
        }
        const uint64_t time = itemTime(item);
        const uint64_t logTime = log_.messages()[static_cast<std::size_t>(message)].time;
        if (liesBefore(time, logTime)) {
            return delivery_.step();
        }
        logCursor_ = message + 1;
        if (liesBefore(logTime, time)) {
            return chooseLogMessage();
        }

        // The two lie within 2 ms of each other: look at both.
        bool fileSync = false;
        const bool itemSeen = lookAhead(item, fileSync);
        const bool logSync = getEyeLogMsg().find(kSyncMark) != std::string::npos;
        deliveredLogMsg_ = -1;
        if (!itemSeen) {
            // The last item of the file is not looked at, and is skipped, on purpose.
            delivery_.setCurrentIndex(item + 1);
            return chooseLogMessage();
        }
        if (fileSync && logSync) {
            delivery_.setCurrentIndex(item + 1); // neither is delivered
            continue;
        }
        if (fileSync) {
            fileSyncSeen(time, item + 1);
            if (time >= logTime) {
                return chooseLogMessage();
            }
            logCursor_ = message; // the message waits, the file's sync message is dropped
            delivery_.setCurrentIndex(item + 1);
            continue;
        }
        if (logSync) {
            logSyncSeen(logTime, item);
            if (time >= logTime) {
                logMsgPending_ = true; // the log's sync line is consumed
                continue;
            }
        } else if (time >= logTime) {
            return chooseLogMessage();
        }
        logCursor_ = message;
        return delivery_.step();
    }
}

// The time of an item; behind the last one the largest there is.
uint64_t LogMerge::itemTime(uint32_t item) const {
    return item < index_.size() ? index_.effectiveKey(index_[item]) >> 1 : kBehindLastItem;
}

// Decodes an item that is not the last one. Returns false when there is none to be had.
bool LogMerge::lookAhead(uint32_t item, bool &fileSync) {
    if (std::size_t{item} + 1 >= index_.size()) {
        return false;
    }
    const ALLF_DATA *const record = delivery_.peek(item);
    fileSync = record != nullptr && index_[item].code() == REC_MESSAGE && record->event.message != nullptr &&
               std::strstr(record->event.message->text, kSyncMark) != nullptr;
    return record != nullptr;
}

int LogMerge::chooseLogMessage() {
    logMsgPending_ = true;
    return REC_MESSAGE;
}

// Builds the message before the cursor.
const std::string &LogMerge::getEyeLogMsg() {
    const auto number = static_cast<std::size_t>(logCursor_ - 1);
    messageBuffer_ = log_.textOf(number);
    message_ = {};
    message_.length = static_cast<uint16_t>(messageBuffer_.size()); // of the whole text, on purpose
    messageBuffer_.copy(message_.text, kLongestText);
    eventBuffer_ = {};
    eventBuffer_.event = {};
    eventBuffer_.event.type = REC_MESSAGE;
    eventBuffer_.event.start_time = static_cast<uint32_t>(log_.messages()[number].time);
    eventBuffer_.event.message = &message_;
    deliveredLogMsg_ = logCursor_;
    return messageBuffer_;
}

void LogMerge::fileSyncSeen(uint64_t time, uint32_t item) {
    const uint64_t distance = std::max(sync_.sync_time, time) - std::min(sync_.sync_time, time);
    if (sync_.sync_state == SyncPairing::LogWaits && distance < kNear) {
        paired(item);
    } else if (sync_.sync_state == SyncPairing::Idle) {
        sync_.sync_state = SyncPairing::FileWaits;
        sync_.sync_time = time;
    }
}

void LogMerge::logSyncSeen(uint64_t time, uint32_t item) {
    const uint64_t sinceWaiting = time - sync_.sync_time;
    const uint64_t distance = std::min(sinceWaiting, 0 - sinceWaiting);
    if (sync_.sync_state == SyncPairing::Idle) {
        sync_.sync_state = SyncPairing::LogWaits;
        sync_.sync_time = time;
    } else if (sync_.sync_state == SyncPairing::FileWaits ? distance < kNear : sinceWaiting < kNear) {
        paired(item); // a second line of the log counts only behind the first, on purpose
    }
}

void LogMerge::paired(uint32_t item) {
    sync_.sync_state = SyncPairing::Idle;
    sync_.sync_time = 0;
    sync_.sync_item_index = static_cast<int>(item);
    sync_.sync_log_index = logCursor_;
}

} // namespace trk
