// Repairs of eye events that a recording delivers in awkward places. They change index entries only.
#pragma once

#include "index/item_index.h"

namespace trk {

// Moves eye events that lie between the end of a recording block and the start of the next onto the nearer of
// the two: ends back to the end of the block, starts forward to the start of the next.
// Returns how many.
uint32_t moveEyeEventsOutsideBlocks(ItemIndex &index);

// Joins several blinks of an eye within one of its saccades: the first start and the last end stay.
// Returns how many blinks are no more.
uint32_t joinBlinksInsideSaccades(ItemIndex &index);

// Marks the samples inside blinks, per eye.
void markSamplesInsideBlinks(ItemIndex &index);

} // namespace trk
