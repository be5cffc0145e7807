// Opens the input through the second door, with salvage or without, lists its damages and walks it.
#include "fuzz_support.h"

#include <algorithm>

namespace {

constexpr int kBothChecks = TRK_OPEN_CHECK | TRK_OPEN_CHECK_AND_FILL;
// Of the flags that the input chooses, these two together stand for salvage.
constexpr int kSalvage = TRK_OPEN_TOLERANT | TRK_OPEN_KEEP_TIMES;

void checkDamages(_TRKFILE *handle) {
    TRK_DAMAGE damage{};
    int64_t reached = 0;
    for (int i = 0; trk_get_damage(handle, i, &damage) == 0; ++i) {
        const bool repair = damage.kind >= TRK_REPAIR_DROPPED_SAMPLES;
        trk_fuzz::require(damage.text[0] != '\0' && damage.count > 0 && damage.length >= 0, "a damage is told");
        trk_fuzz::require(repair || damage.offset >= reached, "damages stand in order");
        trk_fuzz::require(damage.item <= trk_get_element_count(handle), "a damage lies before an item");
        reached = repair ? reached : damage.offset;
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static trk_fuzz::MemoryFile file;
    trk_fuzz::Input input(data, size);
    trk_fuzz::Options chosen(input);
    chosen.flags &= (chosen.flags & kBothChecks) == kBothChecks ? ~TRK_OPEN_CHECK : ~0;
    chosen.loadEvents = std::min(chosen.loadEvents & 3, int{TRK_EVENTS_ALL});
    const char *const path = file.write(chosen.file(input.rest()));
    const bool salvage = (chosen.flags & kSalvage) == kSalvage;

    TRK_OPEN_OPTIONS options;
    trk_default_options(&options);
    options.flags = chosen.flags | (salvage ? int{TRK_OPEN_SALVAGE} : 0);
    options.events = chosen.loadEvents;
    options.samples = chosen.loadSamples;
    options.config = chosen.config;
    TRK_ERROR error{};
    const trk_fuzz::Handle recording(trk_open(path, &options, &error), &trk_close_file);
    trk_fuzz::require((recording != nullptr) == (error.code == TRK_OK), "an error is told");
    trk_fuzz::require((error.text[0] != '\0') == (error.code != TRK_OK), "an error has a text");
    if (!salvage) {
        const trk_fuzz::Handle plain = trk_fuzz::open(path, chosen);
        const unsigned items = recording ? trk_get_element_count(recording.get()) : 0;
        trk_fuzz::require(!plain || (recording && items == trk_get_element_count(plain.get())),
                          "both doors open alike");
    }
    if (recording && trk_get_element_count(recording.get()) <= trk_fuzz::kMostItems) {
        checkDamages(recording.get());
        trk_fuzz::walk(recording.get(), chosen.loadEvents);
    }
    return 0;
}
