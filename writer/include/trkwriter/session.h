// Recordings with a known truth: a made-up session of an experiment, written by a Recorder.
//
//     using namespace trkwriter;
//     Recorder recorder("session.trk");
//     writeSession(recorder, {.minutes = 5, .rate = 500, .noise = 0.1},
//                  {.truth = [](const TrueEvent &event) { table.push_back(event); }});
//     recorder.finish();
//
// A session is a row of trials in recording blocks. The eyes fixate, drift slowly meanwhile, move on by saccades
// and blink; the pupil follows a slow rhythm; the tracker adds noise and now and then loses sight. What is
// written:
//
//  - samples with gaze, HREF and raw pupil position, resolution, pupil size, status, buttons, and, with
//    `cameraData`, pupil and corneal reflection in camera pixels. All positions follow from one direction of the
//    eye: a flat display of 1920 x 1080 pixels, seen from where a degree at its centre, (960, 540), is 40 pixels
//    wide.
//  - eye events that say what the samples say: mean and border values of a fixation, and the velocities of a
//    saccade as readers compute them from the samples of a recent tracker (Options::source "LX"). Ends of events
//    stand in the file some milliseconds behind the sample they end with, as a tracker writes them.
//  - messages "TRIALID n" and "TRIAL OK" around each trial; inside "TRACKER_TIME n ms", "STIMULUS ON n" and, with
//    the response, "VAR trial n", "VAR set_size n", "VAR response_ms n"; a value at the input port with the
//    stimulus; a button pressed and released.
//
// A saccade moves along a great circle with the bell-shaped velocity of least jerk (peak 1.875 times the mean). It
// takes 21 ms and 2.2 ms for each degree, give or take 5 per cent: the main sequence. Right eyes begin up to two
// milliseconds (or samples, where these are further apart) after or one before the left ones, and look about a
// quarter of a degree further to the left. In a blink the pupil shrinks and the gaze sinks with the lid, then both
// are missing: the blink event. As trackers do, the recording has a saccade event around each blink, which is no
// true saccade.
//
// Truth is what the eyes did, without noise and rounding. True events have the times of their events in the file.
//
// The same options write the same bytes on every machine: all that is computed goes by additions, multiplications,
// divisions and square roots, which are exactly defined. Movements, pupil and trials depend neither on noise and
// dropout nor on which eyes are recorded.
//
// Memory does not grow with the session. Different sessions may be written in different threads.
#pragma once

#include "trkwriter/recorder.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace trkwriter {

// Options that make no session.
class SessionError : public Error {
    using Error::Error;
};

struct SessionOptions {
    double minutes = 2;        // from the first message to about the last, 0.02 to 10000
    double rate = 1000;        // samples per second: 250, 500, 1000 or 2000
    Eyes eyes = BothEyes;      // recorded eyes
    std::optional<int> trials; // 1 second each, at least; default: one for every 10 seconds
    std::optional<int>
        blocks; // recording blocks, from 1 to the trials, which they share out; default: one a trial
    // Root mean square of the angle between successive samples of a fixation, degrees, 0 to 5. The noise is white:
    // a standard deviation of half of it horizontally and vertically. Gaze is stored in steps of 0.1 pixels, which
    // adds 0.0014 degrees of the same kind.
    double noise = 0.02;
    // Per cent of the samples, 0 to 20, that are lost outside of blinks, in bursts of 20 ms or a multiple inside
    // of fixations, in turn: not recorded at all, without left eye, without right eye, without both.
    double dropout = 0.5;
    double blinks = 12; // a minute of recording, 0 to 60
    double drift = 0.3; // of a fixation, degrees per second, 0 to 5; its direction changes from one to the next
    uint64_t seed = 1;  // another one makes another session
    bool cameraData = true;
};

// What an eye did, or, of a blink, when it was not seen.
struct TrueEvent {
    EyeEvent kind = EyeEvent::Fixation;
    Eyes eye = LeftEye;
    double start = 0; // ms of its first sample
    double end = 0;   // ms of its last sample, whole ones
    // The rest is missing for blinks. Gaze in pixels.
    Point from{};                   // at the first sample
    Point to{};                     // at the last sample
    Point mean{};                   // of a fixation, over the samples in which the eye was seen
    double pupilSize = kMissing;    // of a fixation, the mean over the same samples
    double amplitude = kMissing;    // of a saccade, degrees
    double peakVelocity = kMissing; // of a saccade, degrees per second
};

// Who wants to know what is being written. Empty functions are not called. What they throw ends the writing.
struct SessionListener {
    std::function<void(const TrueEvent &event)> truth; // in the order in which they end
    // Lines of the external message log of the same session, each with its "\n": on a clock of its own that runs a
    // little fast, one line to synchronise in each trial, "frame n shown", "key n pressed", and the end line.
    std::function<void(std::string_view line)> logLine;
    std::function<void()> sample; // after each sample
};

// Writes a session and leaves the recording to be finished. Returns the number of samples. Throws SessionError
// before anything is written, and what the recorder throws.
uint64_t writeSession(Recorder &recorder, const SessionOptions &options, const SessionListener &listener = {});

} // namespace trkwriter
