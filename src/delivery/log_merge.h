// Delivers the messages of the extra message log among the items of the recording.
#pragma once

#include "delivery/delivery.h"
#include "delivery/message_log.h"

#include <cstdint>
#include <string>

namespace trk {

class LogMerge {
  public:
    LogMerge(Delivery &delivery, const ItemIndex &index, MessageLog &log);

    // Steps to the next item or message. Returns its code, or 0 when there is none.
    int getNextDataMergeWithLog();

    // Fetches what was stepped to; null when it cannot be had.
    ALLF_DATA *getFloatDataMergeWithLog();

    // What the pairing of sync lines has seen. Nothing in the merge goes by it.
    struct SyncPairing {
        enum State { Idle, FileWaits, LogWaits };

        State sync_state = Idle;
        uint64_t sync_time = 0; // of the waiting one
        int sync_item_index = 0;
        int sync_log_index = 0;
    };
    [[nodiscard]] const SyncPairing &syncPairing() const { return sync_; }

  private:
    int getNextDataWLogInternal();
    [[nodiscard]] uint64_t itemTime(uint32_t item) const;
    [[nodiscard]] bool lookAhead(uint32_t item, bool &fileSync);
    const std::string &getEyeLogMsg();
    int chooseLogMessage();
    void fileSyncSeen(uint64_t time, uint32_t item);
    void logSyncSeen(uint64_t time, uint32_t item);
    void paired(uint32_t item);

    Delivery &delivery_;
    const ItemIndex &index_;
    MessageLog &log_;
    int logCursor_;              // the next message to merge; -1: none
    bool logMsgPending_ = false; // the last step chose a message that was not built yet
    int deliveredLogMsg_ = -1;   // number of the message last built by a fetch, from 1
    std::string messageBuffer_;  // its text
    SyncPairing sync_;
    TRK_MESSAGE message_{};
    ALLF_DATA eventBuffer_{};
};

} // namespace trk
