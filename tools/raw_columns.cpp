#include "dump_columns.h"

#include <array>

namespace tool {

namespace {

// In the order of writeEye.
constexpr auto kNamesOfEye = std::to_array<std::string_view>(
    {"raw_pupil_x", "raw_pupil_y", "raw_pupil_area", "raw_pupil_width", "raw_pupil_height", "raw_cr_x", "raw_cr_y",
     "raw_cr_area", "raw_cr2_x", "raw_cr2_y", "raw_cr2_area", "pupil_minus_cr_x", "pupil_minus_cr_y"});

constexpr int kMissingInteger = 100000000;

// An eye that a sample lacks, and a dummy sample, have values of other samples or other fields in their place.
bool carriesRawData(const FSAMPLE_REC &sample, Eye eye) {
    const int needed = TRK_SAMPLE_RECORD | (eye == kLeft ? TRK_SAMPLE_LEFT : TRK_SAMPLE_RIGHT) |
                       (sample.pupil_size[eye] < 0 ? TRK_SAMPLE_PUPIL_SIZE : TRK_SAMPLE_EXTENSION);
    return (sample.flags & needed) == needed;
}

template <typename Number> struct Pair {
    std::array<Number, 2> values{};
    bool isKnown = false;
};

template <typename Number> void write(TextOutput &out, const Pair<Number> &pair) {
    out.cell(pair.values[0], pair.isKnown);
    out.cell(pair.values[1], pair.isKnown);
}

void writeEye(TextOutput &out, _TRKFILE *handle, FSAMPLE_REC &sample, Eye side) {
    const bool isCarried = carriesRawData(sample, side);
    const int eye = static_cast<int>(side);
    const auto positionOf = [&](void (*call)(_TRKFILE *, FSAMPLE_REC *, int, float[2])) {
        Pair<float> pair;
        call(handle, &sample, eye, pair.values.data());
        pair.isKnown = isCarried && pair.values[0] != MISSING_DATA && pair.values[1] != MISSING_DATA;
        return pair;
    };
    const Pair pupil = positionOf(trk_get_uncorrected_raw_pupil);
    const Pair reflection = positionOf(trk_get_uncorrected_raw_cr);
    const Pair second = positionOf(trk_get_uncorrected_raw_cr2);
    // A missing position goes into the difference as a number.
    Pair difference = positionOf(trk_get_pupil_cr);
    difference.isKnown = pupil.isKnown && reflection.isKnown;
    Pair<int> dimension;
    trk_get_pupil_dimension(handle, &sample, eye, dimension.values.data());
    dimension.isKnown = pupil.isKnown && dimension.values[0] != kMissingInteger;

    write(out, pupil);
    out.cell(trk_get_uncorrected_pupil_area(handle, &sample, eye), pupil.isKnown);
    write(out, dimension);
    write(out, reflection);
    out.cell(trk_get_uncorrected_cr_area(handle, &sample, eye), reflection.isKnown);
    write(out, second);
    out.cell(trk_get_uncorrected_cr2_area(handle, &sample, eye), second.isKnown);
    write(out, difference);
}

} // namespace

void writeRawHeader(TextOutput &out) {
    for (const std::string_view side : {"_left", "_right"}) {
        for (const std::string_view name : kNamesOfEye) {
            out.character('\t');
            out.text(name);
            out.text(side);
        }
    }
    out.text("\traw_cr_width\traw_cr_height");
}

void writeRaw(TextOutput &out, _TRKFILE *handle, const Item &item) {
    FSAMPLE_REC sample = item.sample() == nullptr ? FSAMPLE_REC{} : *item.sample();
    writeEye(out, handle, sample, kLeft);
    writeEye(out, handle, sample, kRight);
    Pair<int> dimension;
    trk_get_cr_dimension(handle, &sample, dimension.values.data());
    const bool isSeen = dimension.values[0] != 0 || dimension.values[1] != 0;
    dimension.isKnown =
        isSeen && dimension.values[0] != kMissingInteger && (sample.flags & TRK_SAMPLE_EXTENSION) != 0;
    write(out, dimension);
}

} // namespace tool
