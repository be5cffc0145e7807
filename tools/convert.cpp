#include "convert.h"

#include "conversion.h"
#include "tables/pattern.h"
#include "tables/recording_tables.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <map>
#include <set>
#include <stdexcept>

namespace tool {

namespace fs = std::filesystem;

namespace {

bool isRecordingName(const fs::path &path) {
    std::string extension = path.extension().string();
    std::ranges::transform(extension, extension.begin(),
                           [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
    return extension == ".trk";
}

// Recordings in a folder and the folders in it, but not behind links to folders, which may lead in circles. False
// when a folder cannot be read.
bool findRecordings(const fs::path &folder, std::vector<fs::path> &found) {
    std::error_code error;
    bool isRead = true;
    for (fs::directory_iterator entry(folder, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        std::error_code none;
        if (entry->is_directory(none)) {
            isRead = (entry->is_symlink(none) || findRecordings(entry->path(), found)) && isRead;
        } else if (isRecordingName(entry->path())) {
            found.push_back(entry->path());
        }
    }
    if (error) {
        std::fprintf(stderr, "trk: %s cannot be read: %s\n", tables::escaped(folder.string()).c_str(),
                     error.message().c_str());
    }
    return isRead && !error;
}

// What lies in a folder keeps its place in it.
std::vector<ConversionTask> tasksOf(const ConvertOptions &options, Status &status) {
    std::vector<ConversionTask> tasks;
    const fs::path target = options.folder;
    std::set<std::string> seen;
    const auto add = [&](const fs::path &recording, const fs::path &place) {
        const fs::path stem = target / (isRecordingName(place) ? place.parent_path() / place.stem() : place);
        if (seen.insert(recording.lexically_normal().string()).second) {
            tasks.push_back({recording.string(), stem.string()});
        }
    };
    for (const std::string &input : options.inputs) {
        std::error_code none;
        if (!fs::is_directory(input, none)) {
            add(input, fs::path(input).filename());
            continue;
        }
        std::vector<fs::path> found;
        if (!findRecordings(input, found)) {
            status = kFailed;
        }
        std::ranges::sort(found);
        if (found.empty()) {
            status = std::max(status, kIncomplete);
            std::fprintf(stderr, "trk: %s holds no recording (*.trk)\n", tables::escaped(input).c_str());
        }
        for (const fs::path &recording : found) {
            add(recording, recording.lexically_relative(input));
        }
    }
    return tasks;
}

void checkNames(const std::vector<ConversionTask> &tasks) {
    std::map<std::string, std::string> owners;
    for (const ConversionTask &task : tasks) {
        const auto [owner, isNew] = owners.try_emplace(task.stem, task.recording);
        if (!isNew) {
            throw std::invalid_argument(tables::escaped(owner->second) + " and " +
                                        tables::escaped(task.recording) + " would both become " +
                                        tables::escaped(task.stem) + "_*: convert them into different folders");
        }
    }
}

std::string counted(std::size_t count, const char *thing) {
    return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

} // namespace

const char *const kConvertHelp =
    R"(For each recording: RECORDING_samples, _events (one row a fixation, saccade or blink, button or input
event), _messages, _trials and _blocks, and RECORDING.json with the facts of the recording, its damages, and the
name, unit and description of every column. Recordings in a folder keep their place in it. Every file is there
whole or not at all. What an earlier run has made with the same options, and is newer than the recording, is not
made again (--force does); what was made of another recording is not replaced (--force does).
A missing value is empty (--missing). Texts that hold a separator, a quote or a line end are quoted:
  pandas: pd.read_csv(path, sep="\t", keep_default_na=False, na_values=[""])
  R:      read.delim(path, na.strings = "")
csv is as RFC 4180 says but for line ends, which are those of Unix. hdf5 is one file, with a group for each
table and in it a dataset for each column (attributes units, description), numbers as floating point with NaN
for missing.
bids writes into a data set: one recording, or several runs of one subject and task (numbered in order without
--run).
A sample has a column time_exact only in recordings of more than 1000 samples per second.)";

int convert(const ConvertOptions &options) {
    if (options.table.wantsList()) {
        const tables::SampleTable::Choice choice{tables::Places()};
        return listColumns(choice.all, choice.byDefault);
    }
    // What cannot be meant is told once, and not for each recording.
    const tables::SampleTable::Choice known{tables::Places()};
    if (!options.table.columns.empty()) {
        static_cast<void>(tables::selectColumns(known.all, known.byDefault, options.table.columns));
    }
    if (!options.variable.empty()) {
        [[maybe_unused]] const tables::VariablePattern pattern(options.variable);
    }
    if (options.table.missing.find_first_of("\t\r\n\"") != std::string::npos) {
        throw std::invalid_argument("--missing takes neither quotes nor tabs nor line ends");
    }
    [[maybe_unused]] const tables::TextDecoder decoder(options.table.encoding);
    Status status = kSound;
    const std::vector<ConversionTask> tasks = tasksOf(options, status);
    const bool isBids = options.format == "bids";
    if (!isBids && !(options.bids.subject + options.bids.task).empty()) {
        throw std::invalid_argument("--sub and --task go with --format bids");
    }
    if (isBids) {
        tables::checkLabels(options.bids);
        if (tasks.size() > 1 && !options.bids.run.empty()) {
            throw std::invalid_argument("--run names one recording, and there are " +
                                        std::to_string(tasks.size()));
        }
    } else {
        checkNames(tasks);
    }
    tables::makeFolder(options.folder);

    std::map<std::string, std::size_t> outcomes;
    runJobs(
        tasks.size(), options.jobs != 0 ? options.jobs : processorCount(),
        [&](std::size_t i, JobProgress &progress) {
            return isBids ? convertToBids(tasks[i].recording, tasks.size() > 1 ? i + 1 : 0, options, progress)
                          : convertRecording(tasks[i], options, progress);
        },
        [&](std::size_t i, const JobResult &result) {
            status = std::max(status, result.status);
            ++outcomes[result.text.substr(0, result.text.find(':'))];
            std::printf("%s: %s\n", tables::escaped(tasks[i].recording).c_str(), result.text.c_str());
            std::fflush(stdout);
        });
    std::string summary = counted(tasks.size(), "recording") + ":";
    bool isFirst = true;
    for (const auto &[outcome, count] : outcomes) {
        summary += (isFirst ? " " : ", ") + std::to_string(count) + " " + outcome;
        isFirst = false;
    }
    std::printf("%s\n", summary.c_str());
    if (std::fflush(stdout) != 0 && errno != EPIPE) { // who has read enough of it wants no more
        throw tables::OutputError("standard output cannot be written");
    }
    return status;
}

} // namespace tool
