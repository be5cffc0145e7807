/*
 * The recordings of trkapi.h as C++20 objects: opened and closed by scope, items to loop over, samples as columns.
 * Header only; link with the C library.
 *
 *     trkapi::Recording recording("s07.trk");
 *     for (const trkapi::Item &item : recording) {
 *         if (const FEVENT *event = item.event(); item.code == REC_EFIX) { ... }
 *     }
 *
 * What fails throws trkapi::Error; Recording::open gives a Result instead. In programs that are built without
 * exceptions what would be thrown ends the program: there, open with Recording::open; behind it only want of
 * memory and a column that there is not are left to fail. Units, missing values and rules of the records are those
 * of trkapi.h. A recording is used by one thread at a time; different recordings by any.
 */
#pragma once

#include "trkapi.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace trkapi {

/* ---- Failures ---- */

/* Why a call failed. what() is a sentence for a person. */
class Error : public std::runtime_error {
  public:
    explicit Error(const TRK_ERROR &error) : std::runtime_error(error.text), error_(error) {}

    [[nodiscard]] int code() const noexcept { return error_.code; } /* TRK_ERROR_CODE */
    [[nodiscard]] const TRK_ERROR &details() const noexcept { return error_; }

  private:
    TRK_ERROR error_;
};

/* Throws; in a program without exceptions ends it, with the sentence on standard error. */
[[noreturn]] inline void fail(const TRK_ERROR &error) {
#if defined(__cpp_exceptions)
    throw Error(error);
#else
    std::fprintf(stderr, "trkapi: %s\n", error.text);
    std::abort();
#endif
}

/* A value, or why there is none; used like std::expected. */
template <class T> class [[nodiscard]] Result {
  public:
    Result(T value) : content_(std::in_place_index<0>, std::move(value)) {}
    Result(const TRK_ERROR &error) : content_(std::in_place_index<1>, error) {}

    [[nodiscard]] bool has_value() const noexcept { return content_.index() == 0; }
    [[nodiscard]] explicit operator bool() const noexcept { return has_value(); }

    /* As value(), for who has asked before. */
    [[nodiscard]] T &operator*() & noexcept { return *std::get_if<0>(&content_); }
    [[nodiscard]] T &&operator*() && noexcept { return std::move(*std::get_if<0>(&content_)); }
    [[nodiscard]] const T &operator*() const & noexcept { return *std::get_if<0>(&content_); }
    [[nodiscard]] T *operator->() noexcept { return std::get_if<0>(&content_); }
    [[nodiscard]] const T *operator->() const noexcept { return std::get_if<0>(&content_); }

    /* Fails as Recording's constructor does when there is none. */
    [[nodiscard]] T &value() & {
        demand();
        return **this;
    }
    [[nodiscard]] T &&value() && {
        demand();
        return *std::move(*this);
    }
    [[nodiscard]] const T &value() const & {
        demand();
        return **this;
    }

    /* Only when there is no value. */
    [[nodiscard]] const TRK_ERROR &error() const noexcept { return *std::get_if<1>(&content_); }

  private:
    void demand() const {
        if (!has_value()) {
            fail(error());
        }
    }

    std::variant<T, TRK_ERROR> content_;
};

/* ---- Items ---- */

/* Kinds of items, as a set of bits. */
using Kinds = unsigned;
inline constexpr Kinds kSamples = 1;
inline constexpr Kinds kEvents = 2; /* all but messages */
inline constexpr Kinds kMessages = 4;
inline constexpr Kinds kBlocks = 8; /* starts and ends of recording blocks */
inline constexpr Kinds kAllKinds = kSamples | kEvents | kMessages | kBlocks;

[[nodiscard]] inline Kinds kindOf(int code) noexcept {
    return code == REC_SAMPLE      ? kSamples
           : code == REC_MESSAGE   ? kMessages
           : code == REC_RECORDING ? kBlocks
                                   : kEvents;
}

/*
 * An item of a recording. sample(), recording() and event() give null for an item of another kind, and for one
 * that cannot be read: that has no record.
 */
struct Item {
    int code = 0; /* REC_*; 0 when it cannot be told */
    const ALLF_DATA *record = nullptr;
    uint32_t number = 0; /* in the recording, from 0; of a message of an external log, that of an item beside it */

    [[nodiscard]] const FSAMPLE_REC *sample() const noexcept {
        return record != nullptr && code == REC_SAMPLE ? &record->sample : nullptr;
    }
    [[nodiscard]] const FRECORDING *recording() const noexcept {
        return record != nullptr && code == REC_RECORDING ? &record->recording : nullptr;
    }
    [[nodiscard]] const FEVENT *event() const noexcept {
        return record != nullptr && code != REC_SAMPLE && code != REC_RECORDING ? &record->event : nullptr;
    }

    /* Made in place of a lost sample, with TRK_OPEN_CHECK_AND_FILL. */
    [[nodiscard]] bool isDummySample() const noexcept {
        return sample() != nullptr && (sample()->flags & TRK_SAMPLE_RECORD) == 0;
    }
    /* Made from a line of the external message log: no record of the recording stands behind it. */
    [[nodiscard]] bool isLogMessage() const noexcept {
        return code == REC_MESSAGE && event() != nullptr && (event()->read_flags & TRK_EVENT_AT_START) == 0;
    }

    /* The bytes of a message; empty for all else. They can hold zero bytes, and need be no UTF-8. */
    [[nodiscard]] std::string_view text() const noexcept {
        const TRK_MESSAGE *const message = event() == nullptr ? nullptr : event()->message;
        if (message == nullptr) {
            return {};
        }
        const std::string_view text(message->text, std::min<std::size_t>(message->length, sizeof message->text));
        // The length of a log message is that of the line, of which no more than a part is there.
        return isLogMessage() ? text.substr(0, text.find('\0')) : text;
    }

    /* Where the item stands among the others, ms: ends of blinks, saccades and fixations at their end, all other
       events at their start. 0 for what cannot be read. */
    [[nodiscard]] uint32_t time() const noexcept {
        if (sample() != nullptr) {
            return sample()->time;
        }
        if (recording() != nullptr) {
            return recording()->time;
        }
        const bool isEnd = code == REC_EBLINK || code == REC_ESACC || code == REC_EFIX;
        return event() == nullptr ? 0 : isEnd ? event()->end_time : event()->start_time;
    }
};

/*
 * Items one by one: what trk_get_next_data and trk_get_float_data deliver, messages of an external log among them.
 * The record of an item stays as it is until the next one is asked for.
 */
class Walk {
  public:
    /* From where the recording stands. */
    explicit Walk(_TRKFILE *handle) noexcept : handle_(handle) {}

    std::optional<Item> next() noexcept {
        const int code = trk_get_next_data(handle_);
        if (code == 0) {
            return std::nullopt;
        }
        const unsigned position = trk_get_position(handle_);
        return fetched(code, position == 0 ? 0 : position - 1);
    }

    /* A certain item; the walk goes on behind it. Null record when there is none. Messages of an external log that
       stand before it are passed over, and do not come again. */
    Item at(uint32_t number) noexcept {
        if (trk_goto_item(handle_, number) != 0) {
            return {};
        }
        int code = trk_get_next_data(handle_);
        while (code != 0 && trk_get_position(handle_) <= number) {
            code = trk_get_next_data(handle_);
        }
        // The merge leaves out some items: then what was stepped to is the one behind.
        return trk_get_position(handle_) == number + 1 ? fetched(code, number) : Item{};
    }

  private:
    // A line of the message log that pairs the clocks can come in the place of another item: that item is then
    // lost, and the message is what was fetched. No sample or recording block has these bytes where an event has
    // its type and flags.
    Item fetched(int code, uint32_t number) noexcept {
        const ALLF_DATA *const record = code == 0 ? nullptr : trk_get_float_data(handle_);
        const bool isLogMessage =
            record != nullptr && record->event.type == REC_MESSAGE && record->event.read_flags == 0;
        return {isLogMessage ? REC_MESSAGE : code, record, number};
    }

    _TRKFILE *handle_;
};

/*
 * Items some thousands at a time, several times as fast as a walk. Messages of an external log are not among them.
 * Moves the read position. The record of an item stays as it is until the next one is asked for.
 */
class BulkWalk {
  public:
    /* Over the items of some kinds in [first, end), which may lie past the last; velocities of samples only when
       they are wanted, else what TRK_FIELD_ABSENT and zeros are in their place. */
    explicit BulkWalk(_TRKFILE *handle, uint32_t first = 0, uint32_t end = std::numeric_limits<uint32_t>::max(),
                      Kinds kinds = kAllKinds, bool velocities = false)
        : handle_(handle), number_(first), end_(std::min(end, trk_get_element_count(handle))), fillEnd_(first),
          kinds_(kinds), velocities_(velocities) {
        // Times of late recording blocks are counted from the item that is fetched first: the first one of all.
        if (trk_goto_item(handle_, 0) == 0 && trk_get_next_data(handle_) != 0) {
            trk_get_float_data(handle_);
        }
    }
    BulkWalk(const BulkWalk &) = delete; // columns point into it
    BulkWalk &operator=(const BulkWalk &) = delete;
    ~BulkWalk() = default;

    /* Nothing behind the last one. An item that cannot be read has no record. */
    std::optional<Item> next() {
        while (number_ < end_) {
            if (number_ == fillEnd_) {
                fill();
            }
            Rows *nearest = nullptr;
            for (Rows *const rows : {&samples_, &events_, &blocks_}) {
                if (rows->next < rows->numbers.size() &&
                    (nearest == nullptr || rows->numbers[rows->next] < nearest->numbers[nearest->next])) {
                    nearest = rows;
                }
            }
            const uint32_t number = nearest == nullptr ? fillEnd_ : nearest->numbers[nearest->next];
            if (kinds_ == kAllKinds && number != number_) {
                if (trk_goto_item(handle_, number_) != 0) { // messages of an external log were counted
                    end_ = number_;
                    break;
                }
                failure_ = "item " + std::to_string(number_) + " is of a kind that is not known";
                const uint32_t unknown = number_++;
                return Item{codeOf(unknown), nullptr, unknown};
            }
            number_ = number;
            if (nearest == nullptr) {
                continue;
            }
            const std::size_t row = nearest->next++;
            ++number_;
            if ((kindOf(nearest->codes[row]) & kinds_) != 0) {
                return Item{nearest->codes[row], nearest->isReadable[row] != 0 ? &nearest->records[row] : nullptr,
                            number};
            }
        }
        return std::nullopt;
    }

    /* Names one of the items that could not be read. */
    [[nodiscard]] const std::string &failure() const noexcept { return failure_; }

  private:
    static constexpr uint32_t kItemsAtOnce = 8192;
    static constexpr int kAnyEvent = 0;

    /* What was read of one kind, with the numbers of the items. */
    struct Rows {
        std::vector<unsigned> numbers;
        std::vector<ALLF_DATA> records;
        std::vector<int> codes;
        std::vector<char> isReadable;
        std::size_t next = 0;
    };

    int codeOf(uint32_t number) noexcept {
        return trk_goto_item(handle_, number) == 0 ? trk_get_next_data(handle_) : 0;
    }

    void fill() {
        fillEnd_ = std::min(end_, number_ + kItemsAtOnce);
        if ((kinds_ & kSamples) != 0) {
            list(samples_, REC_SAMPLE);
            readSamples();
        }
        if ((kinds_ & (kEvents | kMessages)) != 0) {
            list(events_, kAnyEvent);
            readEvents();
        }
        if ((kinds_ & kBlocks) != 0) {
            list(blocks_, REC_RECORDING);
            readBlocks();
        }
    }

    void list(Rows &rows, int code) {
        rows.numbers.resize(kItemsAtOnce);
        const int64_t count =
            trk_list_items(handle_, number_, fillEnd_, code, rows.numbers.data(), kItemsAtOnce);
        rows.numbers.resize(static_cast<std::size_t>(std::max<int64_t>(count, 0)));
        rows.records.resize(rows.numbers.size());
        rows.isReadable.assign(rows.numbers.size(), 1);
        rows.codes.assign(rows.numbers.size(), code);
        rows.next = 0;
    }

    /* Calls read(row, first item, error) from row to row, over the items that cannot be read, until all were. */
    template <class Read> void readRows(Rows &rows, Read read) {
        uint32_t first = number_;
        for (std::size_t row = 0; row < rows.numbers.size();) {
            TRK_ERROR error;
            const int64_t count = read(row, first, &error);
            if (count < 0) {
                fail(error);
            }
            row += static_cast<std::size_t>(count);
            first = static_cast<uint32_t>(error.item);
            if (error.code != TRK_OK) {
                failure_ = "item " + std::to_string(first);
                rows.codes[row] = codeOf(first);
                rows.isReadable[row++] = 0;
                ++first;
            }
        }
    }

    void readSamples() {
        std::vector<TRK_COLUMN> columns;
        readRows(samples_, [&](std::size_t row, uint32_t first, TRK_ERROR *error) {
            columns.clear();
            TRK_COLUMN_DESCRIPTION column;
            char *const records = reinterpret_cast<char *>(samples_.records.data() + row);
            for (int id = 1; trk_describe_column(id, &column) == 0; ++id) {
                if (column.record_offset >= 0 && (velocities_ || column.velocity == 0)) {
                    columns.push_back({id, column.type, records + column.record_offset, sizeof(ALLF_DATA)});
                }
            }
            return trk_read_samples(handle_, first, fillEnd_, columns.data(), columns.size(),
                                    static_cast<int64_t>(samples_.records.size() - row), 0, error);
        });
    }

    void readEvents() {
        messages_.resize(events_.numbers.size());
        texts_.resize(events_.numbers.size() * sizeof(TRK_MESSAGE::text));
        std::vector<FEVENT> records(events_.numbers.size());
        std::vector<int64_t> offsets(records.size() + 1);
        readRows(events_, [&](std::size_t row, uint32_t first, TRK_ERROR *error) {
            const int64_t count = trk_read_events(handle_, first, fillEnd_, records.data(),
                                                  static_cast<int64_t>(records.size() - row), texts_.data(),
                                                  texts_.size(), offsets.data(), error);
            for (std::size_t i = 0; i < static_cast<std::size_t>(std::max<int64_t>(count, 0)); ++i) {
                FEVENT &event = events_.records[row + i].event;
                event = records[i];
                events_.codes[row + i] = event.type;
                const auto size = static_cast<std::size_t>(offsets[i + 1] - offsets[i]);
                if (size > 0) {
                    TRK_MESSAGE &message = messages_[row + i];
                    message.length = static_cast<uint16_t>(size - 1);
                    std::memcpy(message.text, texts_.data() + offsets[i], std::min(size, sizeof(message.text)));
                    event.message = &message;
                }
            }
            return count;
        });
    }

    void readBlocks() {
        Walk walk(handle_);
        for (std::size_t row = 0; row < blocks_.numbers.size(); ++row) {
            const Item item = walk.at(blocks_.numbers[row]);
            blocks_.isReadable[row] = item.record != nullptr ? 1 : 0;
            if (item.record != nullptr) {
                blocks_.records[row] = *item.record;
            }
        }
    }

    _TRKFILE *handle_;
    uint32_t number_; // items before it were handed out, or are of other kinds
    uint32_t end_;
    uint32_t fillEnd_; // behind the items that were read
    Kinds kinds_;
    bool velocities_;
    Rows samples_;
    Rows events_;
    Rows blocks_;
    std::vector<TRK_MESSAGE> messages_;
    std::vector<char> texts_;
    std::string failure_;
};

/* ---- Columns of samples ---- */

/*
 * Samples some thousands at a time, as columns of numbers. What is missing is NaN.
 *
 *     trkapi::SampleReader reader(recording.handle(), {TRK_COLUMN_TIME_EXACT, TRK_COLUMN_GAZE_X_LEFT});
 *     while (reader.next()) {
 *         std::span<const double> times = reader.doubles(0);
 *         std::span<const float> gaze = reader.floats(1);
 *     }
 */
class SampleReader {
  public:
    /* The columns are TRK_COLUMN_IDs, the items [first, end), where end may lie past the last. Fails for an id
       that is none. */
    SampleReader(_TRKFILE *handle, std::span<const int> columns, uint32_t first = 0,
                 uint32_t end = std::numeric_limits<uint32_t>::max())
        : handle_(handle), next_(first), end_(std::min(end, trk_get_element_count(handle))),
          columns_(columns.size()) {
        for (std::size_t i = 0; i < columns.size(); ++i) {
            TRK_COLUMN_DESCRIPTION description;
            if (trk_describe_column(columns[i], &description) != 0) {
                TRK_ERROR error{TRK_ERROR_ARGUMENT, 0, -1, "", -1};
                std::snprintf(error.text, sizeof error.text, "there is no column %d", columns[i]);
                fail(error);
            }
            Values &values = columns_[i];
            // A word as a float can be missing.
            if (description.type == TRK_TYPE_FLOAT || description.type == TRK_TYPE_UINT16) {
                values.singles.resize(kRowsAtOnce);
                places_.push_back({columns[i], TRK_TYPE_FLOAT, values.singles.data(), 0});
            } else {
                values.doubles.resize(kRowsAtOnce);
                places_.push_back({columns[i], TRK_TYPE_DOUBLE, values.doubles.data(), 0});
            }
        }
    }
    SampleReader(_TRKFILE *handle, std::initializer_list<int> columns, uint32_t first = 0,
                 uint32_t end = std::numeric_limits<uint32_t>::max())
        : SampleReader(handle, std::span(columns.begin(), columns.size()), first, end) {}
    SampleReader(const SampleReader &) = delete; // places point into the columns, which move with it
    SampleReader &operator=(const SampleReader &) = delete;
    SampleReader(SampleReader &&) = default;
    SampleReader &operator=(SampleReader &&) = default;
    ~SampleReader() = default;

    /* Replaces the rows by the next ones; false when there are none. Goes over samples that cannot be read. */
    bool next() {
        rows_ = 0;
        while (rows_ == 0 && next_ < end_) {
            TRK_ERROR error;
            const int64_t count =
                trk_read_samples(handle_, next_, end_, places_.data(), places_.size(),
                                 static_cast<int64_t>(kRowsAtOnce), TRK_READ_NAN, &error);
            if (count < 0) {
                fail(error);
            }
            rows_ = static_cast<std::size_t>(count);
            next_ = static_cast<uint32_t>(error.item);
            if (error.code != TRK_OK) {
                ++unreadable_;
                ++next_;
            }
        }
        return rows_ != 0;
    }

    [[nodiscard]] std::size_t rows() const noexcept { return rows_; }

    /* A column by its place among those asked for: floats for measurements and words, doubles for numbers that a
       float does not hold (items, times, ...); empty for one of the other type. Until the next rows are read. */
    [[nodiscard]] std::span<const float> floats(std::size_t column) const noexcept {
        const auto &values = columns_[column].singles;
        return {values.data(), values.empty() ? 0 : rows_};
    }
    [[nodiscard]] std::span<const double> doubles(std::size_t column) const noexcept {
        const auto &values = columns_[column].doubles;
        return {values.data(), values.empty() ? 0 : rows_};
    }
    /* Of either type. */
    [[nodiscard]] double value(std::size_t column, std::size_t row) const noexcept {
        const Values &values = columns_[column];
        return values.singles.empty() ? values.doubles[row] : static_cast<double>(values.singles[row]);
    }

    /* Samples that could not be read, so far. */
    [[nodiscard]] uint64_t unreadable() const noexcept { return unreadable_; }

  private:
    static constexpr std::size_t kRowsAtOnce = 8192;

    struct Values {
        std::vector<float> singles;
        std::vector<double> doubles;
    };

    _TRKFILE *handle_;
    uint32_t next_;
    uint32_t end_;
    std::size_t rows_ = 0;
    std::vector<Values> columns_;
    std::vector<TRK_COLUMN> places_;
    uint64_t unreadable_ = 0;
};

/* ---- Recordings ---- */

/* How to open a recording: TRK_OPEN_OPTIONS, with what it points to. */
struct Options {
    int flags = TRK_OPEN_CHECK;                      /* TRK_OPEN_* bits */
    int events = TRK_EVENTS_ALL;                     /* TRK_EVENTS_* */
    bool samples = true;                             /* false: none are delivered */
    std::optional<CONFIG> resolution = {};           /* fixed, pixels per degree */
    std::optional<std::string> messageLog = {};      /* none: the usual name beside the recording */
    std::optional<std::string> temporaryFolder = {}; /* none: the system's */
    std::function<void(std::string_view)> log = {};  /* receives diagnostic lines; what it throws is lost */
};

/* A trial: the items [first, end). The first is the message that started it, or a recording block. */
struct Trial {
    TRIAL header{};
    uint32_t first = 0;
    uint32_t end = 0;
};

/*
 * An open recording, closed when it goes. All it needs is with it, so that it can be moved; what it was moved from
 * can be assigned to and destroyed, no more. Iterators, walks and readers of a recording must not outlive it. The
 * calls of trkapi.h take its handle().
 */
class Recording {
  public:
    /* Fails when it cannot be opened; a damaged one opens with TRK_OPEN_TOLERANT or _SALVAGE in the flags. */
    explicit Recording(const std::string &path, const Options &options = {})
        : Recording(open(path, options).value()) {}

    /* The same, as a value or the reason why there is none. */
    static Result<Recording> open(const std::string &path, const Options &options = {}) {
        auto log = std::make_unique<std::function<void(std::string_view)>>(options.log);
        TRK_OPEN_OPTIONS all;
        trk_default_options(&all);
        all.flags = options.flags;
        all.events = options.events;
        all.samples = options.samples ? 1 : 0;
        all.config = options.resolution.value_or(all.config);
        all.message_log = options.messageLog ? options.messageLog->c_str() : nullptr;
        all.temporary_folder = options.temporaryFolder ? options.temporaryFolder->c_str() : nullptr;
        if (*log) {
            all.log = say;
            all.user = log.get();
        }
        TRK_ERROR error;
        _TRKFILE *const handle = trk_open(path.c_str(), &all, &error);
        if (handle == nullptr) {
            return error;
        }
        return Recording(handle, std::move(log), (options.events & TRK_EVENTS_MESSAGE_LOG) != 0);
    }

    [[nodiscard]] _TRKFILE *handle() const noexcept { return handle_.get(); }

    /* Number of items, and of the messages of a merged log, which have no number of their own. */
    [[nodiscard]] uint32_t size() const noexcept { return trk_get_element_count(handle()); }

    /* All damages and repairs. Reads a damaged recording once more, at the first time. */
    [[nodiscard]] std::vector<TRK_DAMAGE> damages() const {
        std::vector<TRK_DAMAGE> all;
        TRK_DAMAGE damage;
        while (trk_get_damage(handle(), static_cast<int>(all.size()), &damage) == 0) {
            all.push_back(damage);
        }
        return all;
    }

    /* The trials from messages with one text to messages with another; each recording block without texts, and
       when no message holds the first. Moves the read position. */
    [[nodiscard]] std::vector<Trial> trials(std::optional<std::string> start = {},
                                            std::optional<std::string> end = {}) {
        const auto pointer = [](std::optional<std::string> &text) { return text ? text->data() : nullptr; };
        if (start || end || texts_) {
            auto texts = std::make_unique<Texts>(std::move(start), std::move(end));
            trk_set_trial_identifier(handle(), pointer(texts->first), pointer(texts->second));
            texts_ = std::move(texts);
        }
        std::vector<Trial> all(static_cast<std::size_t>(std::max(trk_get_trial_count(handle()), 0)));
        for (int number = 0; Trial & trial : all) {
            trk_jump_to_trial(handle(), number);
            trk_get_trial_header(handle(), &trial.header);
            trk_get_trial_range(handle(), number++, &trial.first, &trial.end);
        }
        return all;
    }

    /* One item, and the walk goes on behind it. The record stays as it is until the next one is read. */
    [[nodiscard]] Item at(uint32_t number) const noexcept { return Walk(handle()).at(number); }

    class Iterator {
      public:
        using iterator_concept = std::input_iterator_tag;
        using difference_type = std::ptrdiff_t;
        using value_type = Item;

        Iterator() = default;
        explicit Iterator(std::shared_ptr<BulkWalk> walk) : bulk_(std::move(walk)) { ++*this; }
        explicit Iterator(_TRKFILE *handle) : walk_(handle) { ++*this; }

        const Item &operator*() const noexcept { return *item_; }
        const Item *operator->() const noexcept { return &*item_; }
        Iterator &operator++() {
            item_ = bulk_ ? bulk_->next() : walk_->next();
            return *this;
        }
        void operator++(int) { ++*this; }
        bool operator==(std::default_sentinel_t /*end*/) const noexcept { return !item_; }

      private:
        std::shared_ptr<BulkWalk> bulk_;
        std::optional<Walk> walk_; // where the message log is merged, which bulk calls do not show
        std::optional<Item> item_;
    };

    /* Each item in order, with velocities, messages of a merged log among them: in the first loop, a log is gone
       through once. One loop at a time; an item stays as it is until the next. */
    [[nodiscard]] Iterator begin() const {
        if (mergesLog_) {
            trk_goto_item(handle(), 0);
            return Iterator(handle());
        }
        return Iterator(
            std::make_shared<BulkWalk>(handle(), 0, std::numeric_limits<uint32_t>::max(), kAllKinds, true));
    }
    [[nodiscard]] static std::default_sentinel_t end() noexcept { return {}; }

  private:
    using Log = std::function<void(std::string_view)>;
    using Texts = std::pair<std::optional<std::string>, std::optional<std::string>>;

    struct Closer {
        void operator()(_TRKFILE *handle) const noexcept { trk_close_file(handle); }
    };

    Recording(_TRKFILE *handle, std::unique_ptr<Log> log, bool mergesLog)
        : log_(std::move(log)), mergesLog_(mergesLog), handle_(handle) {}

    static void say(void *log, const char *text) {
#if defined(__cpp_exceptions)
        try {
            (*static_cast<Log *>(log))(text);
        } catch (...) { // not through the library
        }
#else
        (*static_cast<Log *>(log))(text);
#endif
    }

    std::unique_ptr<Log> log_;     // the library keeps a pointer to it,
    std::unique_ptr<Texts> texts_; // and to these
    bool mergesLog_;
    std::unique_ptr<_TRKFILE, Closer> handle_;
};

} // namespace trkapi
