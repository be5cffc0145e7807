// What the camera measured behind a sample: pupil, corneal reflections (CR) and camera window.
#pragma once

#include "records/sample.h"

#include <array>
#include <cstdint>
#include <optional>

namespace trk {

// Knows the recording blocks of a file by time.
class BlockLookup {
  public:
    virtual ~BlockLookup() = default;

    // Null for a time in no block.
    virtual const FRECORDING *blockAt(uint32_t time) = 0;
};

// A position in camera pixels.
struct Point {
    float x;
    float y;
};

// The measurements of one eye, which the tracker packs into fields of the sample or into its extension words. Any
// other eye than 1 counts as the left one. Refers to the sample: both must live while it is asked.
class RawEyeData {
  public:
    RawEyeData(BlockLookup &blocks, const Sample &sample, int eye);

    // 0 without raw data.
    [[nodiscard]] unsigned pupilArea() const;
    [[nodiscard]] unsigned crArea();
    [[nodiscard]] unsigned secondCrArea() const;

    // MISSING_DATA in both where there is none.
    [[nodiscard]] Point pupil();
    [[nodiscard]] Point cr();
    [[nodiscard]] Point secondCr() const;

    // 0 in both without raw data, kMissingInteger in both for a packed eye without gaze.
    [[nodiscard]] std::array<int, 2> pupilDimension();

    // Pupil minus 1.02 x CR, the pupil mended where the CR covers it. MISSING_DATA is like any number here.
    [[nodiscard]] Point pupilMinusCr();

  private:
    // Where the raw data is.
    enum class Encoding { None, Packed, Extension };

    [[nodiscard]] float prescaler();
    [[nodiscard]] int64_t packedWord(float gaze);
    [[nodiscard]] Point extensionPosition(const uint16_t *fineOffsets);
    [[nodiscard]] const uint16_t *secondCrWords() const;

    BlockLookup &blocks_;
    const Sample &sample_;
    int eye_;
    Encoding encoding_ = Encoding::Extension;
    std::optional<float> prescaler_; // once it was asked for
};

inline constexpr int kMissingInteger = 100000000;

// kMissingInteger in both for a sample that has no such word.
[[nodiscard]] std::array<int, 2> crDimension(const Sample &sample);

// Centre of the camera window in whole pixels.
[[nodiscard]] std::array<int, 2> windowPosition(BlockLookup &blocks, const Sample &sample);

// Mends a pupil whose edge the CR covers: blends it with a disc as large as the CR and a margin, in pixels. Does
// nothing where the two do not meet or one is missing.
void mendPupil(Point &pupil, unsigned &pupilArea, Point cr, float crArea, float margin, int iterations);

} // namespace trk
