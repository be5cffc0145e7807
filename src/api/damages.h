// What is wrong with a recording, as the interface tells it.
#pragma once

#include "index/item_index.h"
#include "index/prescan.h"
#include "index/repair.h"
#include "io/inflate.h"
#include "salvage/spliced_stream.h"
#include "salvage/survey.h"

#include <vector>

namespace trk {

// Looks over the records of an open recording. Adds what became known of it when it was inflated.
[[nodiscard]] Survey surveyRecording(InputStream &stream, int64_t recordsBegin, uint16_t revision,
                                     const Inflation *inflation);

// Damages in the order of the stream, then repairs. `spliced` is the stream that the items of the index were read
// from when it is not the one that was surveyed, else null.
[[nodiscard]] std::vector<TRK_DAMAGE> listDamages(const Survey &survey, const RepairCounts &repairs,
                                                  const FilledGaps &gaps, const ItemIndex &index,
                                                  const SplicedStream *spliced);

} // namespace trk
