// A recording with an extra message log, both from the input: flags, choices, length of the log, log, recording.
#include "fuzz_support.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static trk_fuzz::MemoryFile file;
    static trk_fuzz::MemoryFile log;
    trk_fuzz::Input input(data, size);
    trk_fuzz::Options options(input);
    options.loadEvents |= TRK_EVENTS_MESSAGE_LOG;
    trk_set_extra_message_file(log.write(input.text(input.take<uint16_t>())));
    if (const auto recording = trk_fuzz::open(file.write(options.file(input.rest())), options)) {
        trk_fuzz::walk(recording.get(), options.loadEvents);
        const int pastEnd = trk_get_next_data(recording.get());
        trk_fuzz::require(pastEnd == 0, "nothing follows the end");
        trk_get_float_data(recording.get());
    }
    return 0;
}
