// Opens the input as a recording and walks it, every item fetched.
#include "fuzz_support.h"

#include <vector>

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static trk_fuzz::MemoryFile file;
    trk_fuzz::Input input(data, size);
    trk_fuzz::Options options(input);
    const trk_fuzz::Handle recording = trk_fuzz::open(file.write(options.file(input.rest())), options);
    if (!recording) {
        return 0;
    }
    _TRKFILE *const handle = recording.get();
    std::vector<char> text(static_cast<size_t>(trk_get_preamble_text_length(handle)));
    trk_get_preamble_text(handle, text.data(), static_cast<int>(text.size()));
    trk_fuzz::require(text.back() == '\0', "the preamble ends");
    trk_fuzz::walk(handle, options.loadEvents);
    return 0;
}
