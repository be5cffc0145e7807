// A decoded event.
#pragma once

#include "trkapi/trkapi.h"

namespace trk {

struct EData : FEVENT {
    EData() : FEVENT{} {}

    // Reports an event whose type is not an event code; it is delivered all the same.
    void process_event() const;
};

} // namespace trk
