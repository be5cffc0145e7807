// Which recording blocks can be read without what lies before them.
#pragma once

#include "index/item_index.h"

#include <cstdint>
#include <vector>

namespace trk {

// The items from a start of recording block to the next one. What lies before the first start is a stretch, too.
struct Stretch {
    ItemNumber begin = 0; // its first item
    ItemNumber end = 0;   // behind its last one
    ItemNumber firstSample = 0;
    uint32_t samples = 0;
    uint32_t block = 0; // the number of its recording block, from 1; 0 before the first

    // A walk that comes from the first item and one that begins here deliver the same samples from here on.
    bool fresh = false;
    // Its samples can be decoded one by one from where the index has them: a walk reads them in the order of the
    // stream, with one state of the decoder, into a window that holds nothing else and is not emptied on the way.
    bool plain = false;
    // Distance of the keys of all its samples, when they stand at one by which a window finds them; else 0.
    uint64_t spacing = 0;
    float gazeDivisor = 0; // that its start sets; 0: nobody has looked yet
};

// Looks over an index. Every item is in one stretch, in order. The index is complete when all records were
// indexed, no sample was dropped and no end mark was passed over.
[[nodiscard]] std::vector<Stretch> mapBlocks(const ItemIndex &index, bool isComplete);

} // namespace trk
