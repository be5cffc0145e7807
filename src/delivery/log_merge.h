// Delivers the messages of the extra message log among the items of the recording.
#pragma once

#include "delivery/delivery.h"
#include "delivery/message_log.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace trk {

class LogMerge {
  public:
    LogMerge(Delivery &delivery, const ItemIndex &index, MessageLog &log)
        : delivery_(delivery), index_(index), log_(log) {}

    // Steps to the next item or message. Returns its code, or 0 when there is none.
    int step();

    // Fetches what was stepped to; null when it cannot be had.
    ALLF_DATA *fetch();

  private:
    // What a fetch gives: the item, or the log message before the place in the log, to be built or built already.
    enum class Fetched { TheItem, TheMessage, BuiltMessage };

    [[nodiscard]] uint64_t itemTime(ItemNumber item) const;
    std::optional<int> stepNearMessage(ItemNumber item, uint64_t time, uint64_t messageTime);
    int stepToMessage();
    const std::string &buildMessage();

    Delivery &delivery_;
    const ItemIndex &index_;
    MessageLog &log_;
    std::size_t messagesPassed_ = 0; // the place in the log
    Fetched fetched_ = Fetched::TheItem;
    std::string text_; // of the message last built
    TRK_MESSAGE message_{};
    ALLF_DATA buffer_{};
};

} // namespace trk
