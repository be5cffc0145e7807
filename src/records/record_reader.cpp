#include "records/record_reader.h"

#include "base/exception.h"
#include "base/log.h"

namespace trk {

int RecordReader::read_combfile_sample(Sample *out, uint32_t expectedTime, bool capture, SampleDetail detail) {
    if (!capture) {
        return read_combfile_sample_noexcept(out, expectedTime, detail);
    }
    try {
        return read_combfile_sample_noexcept(out, expectedTime, detail);
    } catch (TRKException *thrown) {
        const CaughtException error(thrown);
        print_log("Error %s \n", error->text());
        return kUnreadable;
    }
}

int RecordReader::read_combfile_event(EData &out, bool capture) {
    if (!capture) {
        return read_combfile_event_noexcept(out);
    }
    try {
        return read_combfile_event_noexcept(out);
    } catch (TRKException *thrown) {
        const CaughtException error(thrown);
        print_log("Error %s \n", error->text());
        return kUnreadable;
    }
}

} // namespace trk
