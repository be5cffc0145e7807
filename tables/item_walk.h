// The items of a recording, one after the other.
#pragma once

#include "items.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tables {

// Reads many items at a time. Items of an external message log are not among them.
class BulkWalk {
  public:
    // Over the items of some kinds in [first, end); with velocities only when they are wanted.
    BulkWalk(_TRKFILE *handle, uint32_t first, uint32_t end, ItemKinds kinds, bool velocities);
    BulkWalk(const BulkWalk &) = delete; // columns point into it
    BulkWalk &operator=(const BulkWalk &) = delete;
    ~BulkWalk() = default;

    // The next item, valid until the call after; nothing behind the last one. Its record is null when it cannot
    // be read.
    std::optional<Item> next();

    // Of the item that came last.
    [[nodiscard]] uint32_t number() const { return last_; }

    // One of the items that could not be read.
    [[nodiscard]] const std::string &failure() const { return failure_; }

  private:
    // What was read of one kind, with the numbers of the items.
    struct Rows {
        std::vector<unsigned> numbers;
        std::vector<ALLF_DATA> records;
        std::vector<int> codes;
        std::vector<char> isReadable;
        std::size_t next = 0;
    };

    int codeOf(uint32_t number);
    void fill();
    void list(Rows &rows, int code);
    template <class Read> void readRows(Rows &rows, Read read);
    void readSamples();
    void readEvents();
    void readBlocks();

    _TRKFILE *handle_;
    uint32_t number_; // items before it were handed out, or are of other kinds
    uint32_t last_ = 0;
    uint32_t end_;
    uint32_t fillEnd_; // behind the items that were read
    ItemKinds kinds_;
    bool velocities_;
    Rows samples_;
    Rows events_;
    Rows blocks_;
    std::vector<TRK_MESSAGE> messages_;
    std::vector<char> texts_;
    std::string failure_;
};

} // namespace tables
