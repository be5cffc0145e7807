// Reads stretches of the input in bulk and compares them with a walk that fetches every item.
#include "fuzz_support.h"

#include "support/bulk.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    constexpr int kStretches = 4;
    static trk_fuzz::MemoryFile file;
    trk_fuzz::Input input(data, size);
    trk_fuzz::Options options(input);
    options.loadEvents = options.loadEvents & TRK_EVENTS_ALL;
    trk_fuzz::Input picks = input;
    const char *const path = file.write(options.file(input.rest()));
    const trk_fuzz::Handle whole = trk_fuzz::open(path, options);
    const trk_fuzz::Handle recording = trk_fuzz::open(path, options);
    if (!whole || trk_get_element_count(whole.get()) > trk_fuzz::kMostItems) {
        return 0;
    }
    std::vector<trk_test::Item> items;
    while (const int code = trk_get_next_data(whole.get())) {
        items.push_back(trk_test::itemOf(code, trk_get_float_data(whole.get())));
    }
    const auto below = [&picks](size_t limit) {
        return static_cast<unsigned>(picks.take<uint16_t>() % (limit + 1));
    };
    for (int i = 0; i < kStretches; ++i) {
        const unsigned first = below(items.size());
        const unsigned end = first + below(items.size() - first);
        trk_test::BulkComparison comparison(recording.get(), items, i % 2 == 0, 1 + below(700));
        const std::string difference = comparison.difference(first, end);
        trk_fuzz::require(difference.empty(), difference.c_str());
    }
    return 0;
}
