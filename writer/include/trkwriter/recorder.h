// The upper layer of the recording writer: writes a recording in physical units, and refuses what no sound
// recording holds. Damage is the business of the lower layer, raw.h.
//
//     using namespace trkwriter;
//     Recorder recorder("trial.trk", {.compressed = true});
//     recorder.message(990, "TRIALID 1");
//     recorder.startBlock({.time = 1000, .rate = 500, .eyes = BothEyes});
//     recorder.startEvent(EyeEvent::Fixation, LeftEye, 1000);
//     for (double time = 1000; time < 1200; time += 2) {
//         recorder.sample({.time = time,
//                          .left = {.gaze = {960.5, 540}, .pupilSize = 1012},
//                          .right = {.gaze = {958.1, 541}, .pupilSize = 987}});
//     }
//     recorder.endEvent(EyeEvent::Fixation, LeftEye, 1198, {.average = {.gaze = Point{960.5, 540}}});
//     recorder.endBlock(1200);
//     recorder.finish();
//
// Conventions:
//
//  1. Units. Times are milliseconds of the tracker's clock. Gaze positions are display pixels; HREF and raw pupil
//     positions and pupil sizes are in the tracker's units; resolutions are pixels per degree, velocities degrees
//     per second, rates samples per second.
//  2. Steps. The file holds words of 16 bits. Gaze and resolution are stored in steps of 1 / gazeDivisor,
//     velocities in steps of 1 / velocityDivisor, all other values as whole numbers; each value is rounded to the
//     nearest step. What then lies outside -32767 to 32767 steps is refused, as is a pupil size below 0.
//  3. Missing values. NaN (kMissing) is a missing value. A missing pupil size is written as 0. HREF and raw pupil
//     positions of samples have no missing value in the file: they are written as -32768, and read as that.
//  4. Times. Times are whole, but samples at more than 1000 samples per second may lie at half a millisecond when
//     the sample before is that of the full one: both have one time in the file, and are read half a millisecond
//     apart. Each of these goes forward in time by itself: samples (two never at one time), blocks, eye events of
//     one eye and kind, and messages, buttons and inputs among each other. Against each other they may be written
//     up to a second late, as a tracker writes the end of an eye event some samples behind it: readers sort.
//  5. Errors. What is refused throws Error, whose text names the file, the record, its time and the reason, and
//     leaves the recording as it was before the call: the caller may go on. Only when the file cannot be written
//     (disk full) every later call throws as well. Running out of memory throws std::bad_alloc.
//  6. Files. A recording is written to a temporary file beside the one that is named. finish() puts it in its
//     place, over a file that was there, but over nothing other than a file. Without finish() nothing is left.
//     Memory does not grow with the recording.
//  7. Ownership. All that a call takes is copied. Different recorders may be used in different threads.
#pragma once

#include "trkwriter/raw.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace trkwriter {

class Error : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

using raw::BothEyes;
using raw::Eyes;
using raw::LeftEye;
using raw::RightEye;

inline constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();

struct Point {
    double x = kMissing;
    double y = kMissing;
};

// The head of the file, and its form. The defaults are those of a recent tracker.
struct Options {
    bool compressed = false;
    int level = 1; // of the compression, zlib's 0 to 9
    // A full flush point of the compression follows the first record that ends so many bytes behind the last one.
    std::size_t flushEvery = 0; // bytes of the record stream; 0: none
    int revision = 5;           // of the file format, 0 to 65535; in files of revision 0 the rate is 250
    std::string source = "LX";  // the tracker: "V2" is read as model 2, "LX" as 3, all others as 1
    // Lines for the preamble, each with its "\n" and at most 198 bytes long. By default the recording program, one
    // whose texts are UTF-8.
    std::string moreLines = "RECORDED BY QMVB1.6.0\n";
    // One of raw.h that suits `compressed`. By default kMagicCombfile or kMagicCompressed.
    std::string_view magic{};
    bool carriageReturn = false; // before the line feed of the magic line
};

// What the samples of a block carry. A group that is announced is written in every sample.
struct Content {
    bool pupil = false; // raw pupil position
    bool href = false;
    bool gaze = true;
    bool resolution = false;
    bool pupilSize = true;
    bool status = false;
    bool input = false;
    bool buttons = false;
    bool extension = false; // in those samples that have it
};

// A recording block of samples and eye events.
struct Block {
    double time = 0;    // its start
    double rate = 1000; // above 0, at most 2000
    Eyes eyes = LeftEye;
    Content content{};
    int gazeDivisor = 10;     // 1 to 32767
    int velocityDivisor = 10; // 1 to 32767
    int mode = 1;             // mode byte, 0 to 255
    int filterLevel = 1;      // 0 to 15
    int pupilMode = 1;        // 0 to 32767
};

// What a sample holds of one eye. Values of an eye, or of a group, that the block does not announce stay missing.
struct EyeSample {
    Point pupil{}; // raw pupil position
    Point href{};
    Point gaze{};
    double pupilSize = kMissing;
};

// Words with a meaning of their own. The low four bits of the header count the words that are written, at most 8.
struct Extension {
    unsigned header = 0; // a byte
    std::array<uint16_t, 8> words{};
};

struct Sample {
    double time = 0;
    EyeSample left{};
    EyeSample right{};
    Point resolution{}; // at the gaze position
    // Words, 0 to 65535.
    std::optional<int> status{};  // default: 0
    std::optional<int> input{};   // default: the value of the last input()
    std::optional<int> buttons{}; // default: as the calls of button() left them, bit n - 1 for button n
    std::optional<Extension> extension{};
};

enum class EyeEvent { Blink, Saccade, Fixation };

// What an eye event says of its start, of its end or of its average. What is empty is left out of the record and
// reads 0.
struct EyeValues {
    std::optional<Point> gaze{};
    std::optional<Point> href{};
    std::optional<Point> resolution{}; // of no average
    std::optional<double> pupilSize{};
    std::optional<double> velocity{};
};
struct EyeSummary {
    EyeValues start{};
    EyeValues end{};
    EyeValues average{};
    std::optional<double> peakVelocity{};
    std::optional<int> status{}; // 0 to 65535
};

class Recorder {
  public:
    // Opens the temporary file and writes the head. Throws Error when it cannot, and for options that cannot be.
    explicit Recorder(const std::filesystem::path &path, const Options &options = {});
    // Writes into memory: `target`, which must live as long as the recorder, receives the file in finish().
    static Recorder toMemory(raw::Bytes &target, const Options &options = {});
    // Writes to an open file, from where it stands. The descriptor stays the caller's, and must be open until
    // finish() or the end of the recorder; what is not finished is there in part. `name` is for the texts of
    // errors.
    static Recorder toDescriptor(int descriptor, std::string name, const Options &options = {});
    // Removes the temporary file of a recording that is not finished.
    ~Recorder();
    Recorder(Recorder &&other) noexcept;
    Recorder &operator=(Recorder &&other) noexcept;
    Recorder(const Recorder &) = delete;
    Recorder &operator=(const Recorder &) = delete;

    // Refused while a block is open, and less than 3 ms behind the end of the block before: readers move closer
    // borders, and lose the samples beside them.
    void startBlock(const Block &block);

    // Refused outside a block, not later than the sample before, and with content that the block did not announce.
    void sample(const Sample &sample);

    // `eye` is the left or the right one, and recorded in the open block. A start is refused while an event of the
    // same kind is open in the same eye, an end without its start. The end record repeats the time of the start.
    void startEvent(EyeEvent kind, Eyes eye, double time, const EyeValues &values = {});
    void endEvent(EyeEvent kind, Eyes eye, double time, const EyeSummary &summary = {});

    // Refused without an open block, while an eye event is open, not later than the last sample, before the end of
    // an eye event, and less than 3 ms behind the start of the block.
    void endBlock(double time);

    // In a block or outside. Texts hold at most 498 bytes of any value.
    void message(double time, std::string_view text);
    // Buttons are numbered 1 to 16. The event's first word is the state of all buttons after it, as in samples,
    // its second word the number.
    void button(double time, int number, bool pressed);
    // The value of the input port from here on, 0 to 65535.
    void input(double time, int value);

    // Writes the end mark and puts the file in its place. Refused while a block is open. Every call behind it is
    // refused.
    void finish();

  private:
    class Impl;
    explicit Recorder(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

} // namespace trkwriter
