#include "records/event_data.h"

#include "base/log.h"
#include "records/codes.h"

namespace trk {

void EData::process_event() const {
    if (type < 0 || !isEventCode(static_cast<unsigned>(type))) {
        print_log(">>>>> FILE STRUCTURE ERROR: UNKNOWN EVENT (%d)\n", type);
    }
}

} // namespace trk
