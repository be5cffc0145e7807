#include "measures/raw_data.h"

#include "base/numeric.h"
#include "records/block_facts.h"

#include <algorithm>
#include <cmath>

namespace trk {

namespace {

// The packed encoding lays unsigned words into signed fields of the file.
constexpr float kPackedOffset = 32700.0F;
constexpr float kFineStep = 1.0F / 256;
constexpr double kFineStepsOfExtension = 250.0; // per pixel

// Extension words.
constexpr std::size_t kPupilOffsets = 0;
constexpr std::size_t kCrOffsets = 2;
constexpr std::size_t kPupilArea = 4;
constexpr std::size_t kCrArea = 5;
constexpr std::size_t kPupilDimension = 6;
constexpr std::size_t kCrDimension = 7;

// Extension words of a second CR.
constexpr std::size_t kSecondCrFractions = 2;
constexpr std::size_t kSecondCrArea = 3;
constexpr std::size_t kSecondCrWords = 4;

// Extension types that carry a second CR: one for both eyes, or one for each.
constexpr uint16_t kOneSecondCr = 196;
constexpr uint16_t kTwoSecondCrs = 200;

// This value of pi is part of the method.
constexpr double kPi = 3.14159;
constexpr double kCrWeight = 1.02;
constexpr float kMendingMargin = 3.0F;
constexpr int kMendingIterations = 5;

constexpr Point kMissingPoint{MISSING_DATA, MISSING_DATA};

bool isMissing(Point point) { return point.x == MISSING_DATA || point.y == MISSING_DATA; }

int16_t signedWord(uint16_t word) { return static_cast<int16_t>(word); }

int highByte(uint16_t word) { return static_cast<int8_t>(word >> 8); }
int lowByte(uint16_t word) { return word & 0xFF; }

int secondByte(int64_t word) { return static_cast<int>(word >> 8 & 0xFF); }

// Sixteenths of a pixel in the field, and sixteenths of these in four bits of a packed word.
Point packedPosition(float x, float y, int64_t word) {
    const auto coordinate = [](float field, int64_t bits) {
        return ((field + kPackedOffset) * 16.0F + static_cast<float>(bits & 0xF)) * kFineStep;
    };
    return {coordinate(x, word >> 4), coordinate(y, word)};
}

// Centre of the camera window.
std::array<double, 2> windowCentre(BlockLookup &blocks, const Sample &sample) {
    const FRECORDING *const block = blocks.blockAt(sample.time);
    const auto width = static_cast<int32_t>(block != nullptr ? block->window_size1 : kCameraWindowWidth);
    const auto height = static_cast<int32_t>(block != nullptr ? block->window_size2 : kCameraWindowHeight);
    const int left = (sample.input & 0x1FF) * 4;
    const int top = (sample.input >> 9) * 8;
    return {width * 0.5 + left, height * 0.5 + top};
}

// Computations are in double precision, but whatever is kept is a float.
double kept(double value) { return static_cast<double>(static_cast<float>(value)); }
double wide(float value) { return static_cast<double>(value); }

struct Disc {
    double x;
    double y;
    double area;
};

} // namespace

RawEyeData::RawEyeData(BlockLookup &blocks, const Sample &sample, int eye)
    : blocks_(blocks), sample_(sample), eye_(eye == 1 ? 1 : 0) {
    const float size = sample_.pupil_size[eye_];
    if (size <= -kPackedOffset) {
        encoding_ = Encoding::None;
    } else if (size < 0) {
        encoding_ = Encoding::Packed;
    }
}

float RawEyeData::prescaler() {
    if (!prescaler_) {
        const FRECORDING *const block = blocks_.blockAt(sample_.time);
        prescaler_ = block != nullptr ? block->gaze_prescaler : 0.0F;
    }
    return *prescaler_;
}

// Single precision gives back every word that was divided by one of the prescalers in use.
int64_t RawEyeData::packedWord(float gaze) { return truncateTo<int64_t>(gaze * prescaler() + kPackedOffset); }

Point RawEyeData::extensionPosition(const uint16_t *fineOffsets) {
    const auto [x, y] = windowCentre(blocks_, sample_);
    return {static_cast<float>(x + signedWord(fineOffsets[0]) / kFineStepsOfExtension),
            static_cast<float>(y + signedWord(fineOffsets[1]) / kFineStepsOfExtension)};
}

unsigned RawEyeData::pupilArea() const {
    switch (encoding_) {
    case Encoding::None:
        return 0;
    case Encoding::Packed:
        return truncateTo<unsigned>(sample_.pupil_size[eye_] + kPackedOffset);
    case Encoding::Extension:
        break;
    }
    return sample_.ext_data[kPupilArea];
}

Point RawEyeData::pupil() {
    if (pupilArea() == 0) {
        return kMissingPoint;
    }
    if (encoding_ == Encoding::Extension) {
        return extensionPosition(&sample_.ext_data[kPupilOffsets]);
    }
    const Point fields{sample_.pupil_x[eye_], sample_.pupil_y[eye_]};
    const float gaze = sample_.gaze_x[eye_];
    if (isMissing(fields) || gaze == MISSING_DATA) {
        return kMissingPoint;
    }
    return packedPosition(fields.x, fields.y, packedWord(gaze));
}

unsigned RawEyeData::crArea() {
    // Also for an eye without raw data, whose resolution then stands for an area.
    if (encoding_ != Encoding::Extension) {
        const float resolution = eye_ == 1 ? sample_.res_y : sample_.res_x;
        return truncateTo<unsigned>(std::floor(prescaler() * resolution + 0.5F));
    }
    return sample_.ext_data[kCrArea];
}

Point RawEyeData::cr() {
    if (encoding_ == Encoding::None || crArea() == 0) {
        return kMissingPoint;
    }
    if (encoding_ == Encoding::Extension) {
        return extensionPosition(&sample_.ext_data[kCrOffsets]);
    }
    const Point fields{sample_.href_x[eye_], sample_.href_y[eye_]};
    const float gaze = sample_.gaze_y[eye_];
    if (isMissing(fields) || gaze == MISSING_DATA) {
        return kMissingPoint;
    }
    return packedPosition(fields.x, fields.y, packedWord(gaze));
}

// The words of this eye's second CR; null where the sample has none.
const uint16_t *RawEyeData::secondCrWords() const {
    const bool forEach = sample_.ext_type == kTwoSecondCrs;
    if (encoding_ == Encoding::Extension || (!forEach && sample_.ext_type != kOneSecondCr)) {
        return nullptr;
    }
    return &sample_.ext_data[forEach && eye_ == 1 ? kSecondCrWords : 0];
}

unsigned RawEyeData::secondCrArea() const {
    const uint16_t *const words = secondCrWords();
    return words != nullptr ? words[kSecondCrArea] : 0;
}

Point RawEyeData::secondCr() const {
    if (secondCrArea() == 0) {
        return kMissingPoint;
    }
    const uint16_t *const words = secondCrWords();
    const uint16_t fractions = words[kSecondCrFractions];
    return {static_cast<float>(signedWord(words[0])) + static_cast<float>(highByte(fractions)) * kFineStep,
            static_cast<float>(signedWord(words[1])) + static_cast<float>(lowByte(fractions)) * kFineStep};
}

std::array<int, 2> RawEyeData::pupilDimension() {
    if (pupilArea() == 0) {
        return {0, 0};
    }
    if (encoding_ == Encoding::Extension) {
        const uint16_t word = sample_.ext_data[kPupilDimension];
        return {lowByte(word), highByte(word)};
    }
    const Point gaze{sample_.gaze_x[eye_], sample_.gaze_y[eye_]};
    if (isMissing(gaze)) {
        return {kMissingInteger, kMissingInteger};
    }
    return {secondByte(packedWord(gaze.y)), secondByte(packedWord(gaze.x))};
}

Point RawEyeData::pupilMinusCr() {
    Point mended = pupil();
    const Point reflection = cr();
    unsigned area = pupilArea();
    mendPupil(mended, area, reflection, static_cast<float>(crArea()), kMendingMargin, kMendingIterations);
    return {static_cast<float>(wide(mended.x) - kCrWeight * wide(reflection.x)),
            static_cast<float>(wide(mended.y) - kCrWeight * wide(reflection.y))};
}

std::array<int, 2> crDimension(const Sample &sample) {
    // There the word is the area of a second CR.
    if (sample.ext_type == kTwoSecondCrs) {
        return {kMissingInteger, kMissingInteger};
    }
    const uint16_t word = sample.ext_data[kCrDimension];
    return {lowByte(word), highByte(word)};
}

std::array<int, 2> windowPosition(BlockLookup &blocks, const Sample &sample) {
    const auto [x, y] = windowCentre(blocks, sample);
    return {static_cast<int>(truncateTo<unsigned>(x)), static_cast<int>(truncateTo<unsigned>(y))};
}

void mendPupil(Point &pupil, unsigned &pupilArea, Point cr, float crArea, float margin, int iterations) {
    if (crArea < 1.0F || pupilArea == 0 || isMissing(pupil) || isMissing(cr)) {
        return;
    }
    const Disc seen{wide(pupil.x), wide(pupil.y), kept(pupilArea)};
    const double radius = kept(std::sqrt(wide(crArea) / kPi) + wide(margin));
    const Disc covering{wide(cr.x), wide(cr.y), kept(radius * radius * kPi)};

    // How far a pupil reaches into the covering disc, as a fraction of that disc's diameter.
    const auto overlap = [&covering, radius](const Disc &disc) {
        const double distance = kept(std::hypot(disc.x - covering.x, disc.y - covering.y));
        return kept((std::sqrt(disc.area / kPi) - (distance - radius)) * 0.5 / radius);
    };
    double share = overlap(seen);
    if (share < 0) {
        return;
    }

    const double total = kept(covering.area + seen.area);
    const Disc both{kept((covering.area * covering.x + seen.x * seen.area) / total),
                    kept((covering.area * covering.y + seen.y * seen.area) / total), total};
    const auto blend = [&seen, &both](double k) {
        return Disc{kept(both.x * k + seen.x * (1 - k)), kept(both.y * k + seen.y * (1 - k)),
                    kept(both.area * k + (1 - k) * seen.area)};
    };
    share = std::min(share, 1.0);
    Disc mended = blend(share);
    for (int pass = 1; pass < iterations && share > 0; ++pass) {
        share = std::clamp(overlap(mended), 0.0, 1.0);
        mended = blend(share);
    }
    pupil = {static_cast<float>(mended.x), static_cast<float>(mended.y)};
    pupilArea = truncateTo<unsigned>(mended.area);
}

} // namespace trk
