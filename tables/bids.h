// Recordings in a BIDS data set (version 1.11.1).
#pragma once

#include "json.h"
#include "recording_tables.h"

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tables {

// The screen that stimuli were shown on.
struct Screen {
    std::array<double, 2> size{};                     // width and height, m
    std::array<int, 2> resolution{};                  // width and height, pixels
    double distance = 0;                              // from the eye, m
    std::array<std::string, 2> origin{"top", "left"}; // where gaze is (0, 0)
};

struct BidsOptions {
    std::string subject; // labels: letters and digits
    std::string session; // "" for none
    std::string task;
    std::string acquisition;     // "" for none
    std::string run;             // "" for none
    std::string dataType{"beh"}; // folder of the files
    std::optional<Screen> screen;
};

// What the files say of a recording besides its values.
struct BidsFacts {
    std::string trackerModel; // "" when the preamble does not tell
    std::string softwareVersion;
    std::string note; // on what was lost, in a sentence; "" for nothing
    Json origin;      // tells recordings and options apart: files are kept only with the same
};

struct BidsOutcome {
    std::size_t files = 0; // that were written
    bool hasSamples = true;
    std::vector<std::string> notes; // on what the data set could say besides, and was not told
};

// A file of a data set that an earlier run left, and that would have to be replaced.
class BidsFileExists : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Where and how a recording is written.
struct BidsTarget {
    std::string folder;    // of the data set
    std::string recording; // files that are there and newer than it stay as they are
    bool force = false;    // replaces what is there
};

// Writes the files of one recording: for each eye its samples and events, the events of the task, and, where they
// are not there, the files of the data set. `columns` names columns of samples beside gaze and pupil, as
// selectColumns takes them. Calls progress(done) in thousandths. Throws BidsFileExists, OutputError and
// std::invalid_argument.
BidsOutcome writeBids(Source &source, const BidsTarget &target, const BidsOptions &options, const BidsFacts &facts,
                      const std::string &columns, const std::function<void(unsigned)> &progress);

// Throws std::invalid_argument for labels that are none.
void checkLabels(const BidsOptions &options);

} // namespace tables
