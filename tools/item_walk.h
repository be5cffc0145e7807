// The items of a recording, one after the other.
#pragma once

#include "items.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tool {

// Reads many items at a time. Items of an external message log are not among them.
class BulkWalk {
  public:
    // Over the items [first, end); with velocities only when they are wanted.
    BulkWalk(_TRKFILE *handle, uint32_t first, uint32_t end, bool velocities);
    BulkWalk(const BulkWalk &) = delete; // columns point into it
    BulkWalk &operator=(const BulkWalk &) = delete;
    ~BulkWalk() = default;

    // The next item, valid until the call after; nothing behind the last one. Its record is null when it cannot
    // be read.
    std::optional<Item> next();

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
    uint32_t number_; // of the next item
    uint32_t end_;
    uint32_t fillEnd_; // behind the items that were read
    bool velocities_;
    Rows samples_;
    Rows events_;
    Rows blocks_;
    std::vector<TRK_MESSAGE> messages_;
    std::vector<char> texts_;
    std::string failure_;
};

} // namespace tool
