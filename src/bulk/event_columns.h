// The columns of events: what each holds, and when a record carries it.
#pragma once

#include "trkapi/trkapi.h"

namespace trk {

struct EventColumn {
    TRK_COLUMN_DESCRIPTION description;
    double (*value)(const FEVENT &event, const EventColumn &column);
    int part = 0;     // of its read_flags: the part of the event (start, end, average) that the value is of
    int quantity = 0; // and the bits one of which says that this quantity was recorded
};

// The column with an id; null when there is none.
[[nodiscard]] const EventColumn *eventColumnOf(int id);

} // namespace trk
