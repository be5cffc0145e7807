// Compiling this is the test.
#include <trkapi/trkapi.hpp>

std::size_t saccades(const char *path);

std::size_t saccades(const char *path) {
    auto recording = trkapi::Recording::open(path);
    std::size_t count = 0;
    if (recording) {
        for (const trkapi::Item &item : *recording) {
            count += item.code == REC_ESACC ? 1 : 0;
        }
        trkapi::SampleReader reader(recording->handle(), {TRK_COLUMN_TIME_EXACT});
        count += reader.next() ? reader.doubles(0).size() : recording->trials().size();
    }
    return count;
}
