#include "item_columns.h"

#include <array>

namespace tables {

namespace {

constexpr int kMissingInteger = 100000000;

enum RawValue : int {
    kPupilX,
    kPupilY,
    kPupilArea,
    kPupilWidth,
    kPupilHeight,
    kReflectionX,
    kReflectionY,
    kReflectionArea,
    kSecondX,
    kSecondY,
    kSecondArea,
    kDifferenceX,
    kDifferenceY,
};

// In the order of RawValue.
struct RawName {
    const char *name;
    const char *unit;
    const char *description;
    Type type;
};
constexpr auto kNames = std::to_array<RawName>({
    {"raw_pupil_x", "camera pixels", "pupil, horizontal", Type::Float},
    {"raw_pupil_y", "camera pixels", "pupil, vertical", Type::Float},
    {"raw_pupil_area", "camera pixels squared", "area of the pupil", Type::Integer},
    {"raw_pupil_width", "camera pixels", "width of the pupil", Type::Integer},
    {"raw_pupil_height", "camera pixels", "height of the pupil", Type::Integer},
    {"raw_cr_x", "camera pixels", "corneal reflection, horizontal", Type::Float},
    {"raw_cr_y", "camera pixels", "corneal reflection, vertical", Type::Float},
    {"raw_cr_area", "camera pixels squared", "area of the corneal reflection", Type::Integer},
    {"raw_cr2_x", "camera pixels", "second reflection, horizontal", Type::Float},
    {"raw_cr2_y", "camera pixels", "second reflection, vertical", Type::Float},
    {"raw_cr2_area", "camera pixels squared", "area of the second reflection", Type::Integer},
    {"pupil_minus_cr_x", "camera pixels", "mended pupil minus 1.02 times the reflection, horizontal", Type::Float},
    {"pupil_minus_cr_y", "camera pixels", "mended pupil minus 1.02 times the reflection, vertical", Type::Float},
});

// An eye that a sample lacks, and a dummy sample, have values of other samples or other fields in their place.
bool carriesRawData(const FSAMPLE_REC &sample, int eye) {
    const int needed = TRK_SAMPLE_RECORD | (eye == kLeft ? TRK_SAMPLE_LEFT : TRK_SAMPLE_RIGHT) |
                       (sample.pupil_size[eye] < 0 ? TRK_SAMPLE_PUPIL_SIZE : TRK_SAMPLE_EXTENSION);
    return (sample.flags & needed) == needed;
}

using PositionCall = void (*)(_TRKFILE *, FSAMPLE_REC *, int, float[2]);

// A copy of the sample, which the calls may change, and what they say of one of its eyes.
class RawEye {
  public:
    RawEye(_TRKFILE *handle, const FSAMPLE_REC &sample, int eye)
        : handle_(handle), sample_(sample), eye_(eye), isCarried_(carriesRawData(sample, eye)) {}

    Cell value(RawValue value) {
        switch (value) {
        case kPupilX:
        case kPupilY:
            return axis(trk_get_uncorrected_raw_pupil, value - kPupilX);
        case kPupilArea:
            return area(trk_get_uncorrected_raw_pupil, trk_get_uncorrected_pupil_area);
        case kPupilWidth:
        case kPupilHeight:
            return dimension(value - kPupilWidth);
        case kReflectionX:
        case kReflectionY:
            return axis(trk_get_uncorrected_raw_cr, value - kReflectionX);
        case kReflectionArea:
            return area(trk_get_uncorrected_raw_cr, trk_get_uncorrected_cr_area);
        case kSecondX:
        case kSecondY:
            return axis(trk_get_uncorrected_raw_cr2, value - kSecondX);
        case kSecondArea:
            return area(trk_get_uncorrected_raw_cr2, trk_get_uncorrected_cr2_area);
        case kDifferenceX:
        case kDifferenceY:
            // A missing position goes into the difference as a number.
            return isKnown(trk_get_uncorrected_raw_pupil) && isKnown(trk_get_uncorrected_raw_cr)
                       ? Cell(position(trk_get_pupil_cr)[static_cast<std::size_t>(value - kDifferenceX)])
                       : Cell();
        }
        return {};
    }

  private:
    std::array<float, 2> position(PositionCall call) {
        std::array<float, 2> pair{};
        call(handle_, &sample_, eye_, pair.data());
        return pair;
    }
    bool isKnown(PositionCall call) {
        const auto pair = position(call);
        return isCarried_ && pair[0] != MISSING_DATA && pair[1] != MISSING_DATA;
    }
    Cell axis(PositionCall call, int axis) {
        return isKnown(call) ? Cell(position(call)[static_cast<std::size_t>(axis)]) : Cell();
    }
    template <class AreaCall> Cell area(PositionCall call, AreaCall areaCall) {
        return isKnown(call) ? Cell(areaCall(handle_, &sample_, eye_)) : Cell();
    }
    Cell dimension(int axis) {
        std::array<int, 2> pair{};
        trk_get_pupil_dimension(handle_, &sample_, eye_, pair.data());
        const bool isThere = pair[0] != kMissingInteger && isKnown(trk_get_uncorrected_raw_pupil);
        return isThere ? Cell(pair[static_cast<std::size_t>(axis)]) : Cell();
    }

    _TRKFILE *handle_;
    FSAMPLE_REC sample_;
    int eye_;
    bool isCarried_;
};

// `detail` is a RawValue and the eye.
Cell ofEye(const ItemRow &row, int detail) {
    const FSAMPLE_REC *const sample = row.item.sample();
    const int count = static_cast<int>(kNames.size());
    return sample == nullptr
               ? Cell()
               : RawEye(row.handle, *sample, detail / count).value(static_cast<RawValue>(detail % count));
}

Cell reflectionDimension(const ItemRow &row, int axis) {
    if (row.item.sample() == nullptr) {
        return {};
    }
    FSAMPLE_REC sample = *row.item.sample();
    std::array<int, 2> pair{};
    trk_get_cr_dimension(row.handle, &sample, pair.data());
    const bool isSeen = pair[0] != 0 || pair[1] != 0;
    const bool isKnown = isSeen && pair[0] != kMissingInteger && (sample.flags & TRK_SAMPLE_EXTENSION) != 0;
    return isKnown ? Cell(pair[static_cast<std::size_t>(axis)]) : Cell();
}

} // namespace

std::vector<ItemColumn> rawColumns() {
    std::vector<ItemColumn> columns;
    for (const std::string eye : {"left", "right"}) {
        for (const RawName &name : kNames) {
            const int detail = static_cast<int>(columns.size());
            columns.push_back({{name.name + ("_" + eye), name.unit,
                                std::string(name.description) + ", " + eye + " eye", name.type},
                               ofEye,
                               detail});
        }
    }
    for (const char *side : {"width", "height"}) {
        columns.push_back({{std::string("raw_cr_") + side, "camera pixels",
                            std::string(side) + " of the corneal reflection", Type::Integer},
                           reflectionDimension,
                           side[0] == 'w' ? 0 : 1});
    }
    return columns;
}

} // namespace tables
