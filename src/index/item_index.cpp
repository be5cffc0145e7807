#include "index/item_index.h"

#include "base/large_pages.h"
#include "base/numeric.h"
#include "index/item_order.h"

#include <algorithm>
#include <new>

namespace trk {

namespace {

constexpr std::size_t kLargestWholeSort = 20000;
constexpr std::size_t kChunk = 13500;
constexpr std::size_t kChunkOverlap = 3000;
constexpr std::size_t kFirstCapacity = 4096;
constexpr std::size_t kInsertionRun = 16;
constexpr double kRoomForDenserParts = 1.25;
constexpr std::size_t kLargestGrowth = 16;
constexpr std::size_t kManyItems = 300000; // a large page more or less does not count beside them

// A stable merge sort for items that are nearly in order. It never leaves its bounds, whatever the rule says, and
// moves an item only where the rule asks for it one way and not the other.
class StableSorter {
  public:
    explicit StableSorter(const ItemIndex &index) : index_(index) {}

    void sort(std::span<Item> items) {
        if (items.size() <= kInsertionRun) {
            insertionSort(items);
            return;
        }
        const std::size_t half = items.size() / 2;
        sort(items.first(half));
        sort(items.subspan(half));
        merge(items, half);
    }

    [[nodiscard]] bool isSorted(std::span<const Item> items) const {
        return std::ranges::adjacent_find(items, [this](const Item &a, const Item &b) {
                   return mustPrecede(index_, b, a);
               }) == items.end();
    }

  private:
    void insertionSort(std::span<Item> items) const {
        for (std::size_t i = 1; i < items.size(); ++i) {
            const Item item = items[i];
            std::size_t place = i;
            while (place > 0 && mustPrecede(index_, item, items[place - 1])) {
                items[place] = items[place - 1];
                --place;
            }
            if (place != i) {
                items[place] = item;
            }
        }
    }

    void merge(std::span<Item> items, std::size_t half) {
        // What stands before the first item of the right half already is in place.
        std::size_t place = half;
        while (place > 0 && mustPrecede(index_, items[half], items[place - 1])) {
            --place;
        }
        if (place == half) {
            return;
        }
        left_.assign(items.begin() + static_cast<std::ptrdiff_t>(place),
                     items.begin() + static_cast<std::ptrdiff_t>(half));
        std::size_t left = 0;
        std::size_t right = half;
        while (left < left_.size()) {
            if (right < items.size() && mustPrecede(index_, items[right], left_[left])) {
                items[place++] = items[right++];
            } else {
                items[place++] = left_[left++];
            }
        }
    }

    const ItemIndex &index_;
    std::vector<Item> left_;
};

} // namespace

void ItemIndex::appendRecordingBlock(const FRECORDING &recording) {
    recordings_.push_back(recording);
    append({0, REC_RECORDING, 0, recordings_.size() - 1});
}

// Takes the items so far as a sample of those to come. Memory that is reserved and never used costs nothing, an
// index that is copied to a larger place again and again does; but no file may make the guess run away.
void ItemIndex::makeRoom(int64_t scanned, int64_t total, std::size_t most) {
    const std::size_t least = std::max(kFirstCapacity, items_.size() + items_.size() / 2);
    std::size_t guess = least;
    if (!items_.empty() && scanned > 0 && total > scanned) {
        const double density = static_cast<double>(items_.size()) / static_cast<double>(scanned);
        const double expected = density * static_cast<double>(total) * kRoomForDenserParts;
        guess =
            std::clamp(truncateTo<std::size_t>(expected), least, std::max(least, kLargestGrowth * items_.size()));
    }
    try {
        items_.reserve(std::min(guess, most));
        if (items_.capacity() >= kManyItems) {
            useLargePages(items_.data(), items_.capacity() * sizeof(Item));
        }
    } catch (const std::bad_alloc &) {
        items_.reserve(std::min(least, most));
    }
}

void ItemIndex::sortItems() {
    if (inOrder_) {
        return;
    }
    StableSorter sorter(*this);
    const std::span<Item> all(items_);
    const std::size_t size = all.size();
    bool changed = false;
    std::size_t begin = 0;
    std::size_t end = size <= kLargestWholeSort ? size : kChunk;
    while (true) {
        const auto chunk = all.subspan(begin, end - begin);
        if (!sorter.isSorted(chunk)) {
            sorter.sort(chunk);
            changed = true;
        }
        if (end == size) {
            break;
        }
        begin = end - kChunkOverlap;
        end = std::min(begin + kChunk, size);
    }
    inOrder_ = !changed;
}

} // namespace trk
