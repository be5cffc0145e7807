#include "delivery/log_merge.h"

#include <cstring>
#include <limits>

namespace trk {

namespace {

constexpr uint64_t kBehindLastItem = std::numeric_limits<uint64_t>::max();
constexpr uint64_t kNear = 2; // ms
constexpr std::size_t kLongestText = 260;

constexpr bool liesBefore(uint64_t earlier, uint64_t later) { return earlier < later && later - earlier > kNear; }

bool pairsClocks(const ALLF_DATA &record, const Item &item) {
    return item.code() == REC_MESSAGE && record.event.message != nullptr &&
           std::strstr(record.event.message->text, kClockPairingMark) != nullptr;
}

} // namespace

int LogMerge::step() {
    fetched_ = Fetched::TheItem;
    while (log_.isMergeable() && messagesPassed_ < log_.messages().size()) {
        const ItemNumber item = delivery_.itemsPassed();
        const uint64_t time = itemTime(item);
        const uint64_t messageTime = log_.messages()[messagesPassed_].time;
        if (liesBefore(time, messageTime)) {
            break;
        }
        ++messagesPassed_;
        if (liesBefore(messageTime, time)) {
            return stepToMessage();
        }
        if (const std::optional<int> code = stepNearMessage(item, time, messageTime)) {
            return *code;
        }
    }
    return delivery_.step();
}

ALLF_DATA *LogMerge::fetch() {
    if (fetched_ == Fetched::TheItem) {
        return delivery_.fetch();
    }
    if (fetched_ == Fetched::TheMessage) {
        buildMessage();
        fetched_ = Fetched::BuiltMessage;
    }
    return &buffer_;
}

// Decides between an item and the message before the place in the log, which lie within 2 ms of each other.
// Returns the code of what was stepped to, or nothing where one of them is left out and the next are to be looked
// at.
std::optional<int> LogMerge::stepNearMessage(ItemNumber item, uint64_t time, uint64_t messageTime) {
    // The last item is not looked at, and gives way to the message, be it what it may.
    const ALLF_DATA *const record = item + 1 < index_.size() ? delivery_.peek(item) : nullptr;
    const bool messagePairs = buildMessage().find(kClockPairingMark) != std::string::npos;
    if (record == nullptr) {
        delivery_.goTo(item + 1);
        return stepToMessage();
    }
    const bool itemPairs = pairsClocks(*record, index_[item]);
    const bool messageIsFirst = time >= messageTime;
    if (itemPairs && messagePairs) { // one moment, told twice
        delivery_.goTo(item + 1);
        return std::nullopt;
    }
    if (messageIsFirst && messagePairs) {
        // The line of the log is left out, but for a caller who fetches the item that comes in its place: he gets
        // the line, and loses the item.
        fetched_ = Fetched::TheMessage;
        return std::nullopt;
    }
    if (messageIsFirst) {
        return stepToMessage();
    }
    --messagesPassed_; // the message waits
    if (itemPairs) {
        delivery_.goTo(item + 1); // the item is left out
        return std::nullopt;
    }
    return delivery_.step();
}

// The time of an item; behind the last one the largest there is.
uint64_t LogMerge::itemTime(ItemNumber item) const {
    return item < index_.size() ? index_.effectiveKey(index_[item]) / TimeKey::kPerMillisecond : kBehindLastItem;
}

int LogMerge::stepToMessage() {
    fetched_ = Fetched::TheMessage;
    return REC_MESSAGE;
}

// Builds the message before the place in the log, and returns its text.
const std::string &LogMerge::buildMessage() {
    const std::size_t number = messagesPassed_ - 1;
    text_ = log_.textOf(number);
    message_ = {};
    message_.length = static_cast<uint16_t>(text_.size()); // of the whole text: tells that it was cut
    text_.copy(message_.text, kLongestText);
    buffer_ = {};
    buffer_.event = {};
    buffer_.event.type = REC_MESSAGE;
    buffer_.event.start_time = static_cast<uint32_t>(log_.messages()[number].time);
    buffer_.event.message = &message_;
    return text_;
}

} // namespace trk
