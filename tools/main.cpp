// trk: looks into recordings from the command line.
#include "check.h"
#include "convert.h"
#include "dump.h"
#include "info.h"
#include "status.h"
#include "synth.h"
#include "trials.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <iostream>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

// A file opened in the place of a closed standard stream would receive what is printed there.
void occupyStandardStreams() {
    while (true) {
        const int descriptor = ::open("/dev/null", O_RDONLY);
        if (descriptor < 0 || descriptor > STDERR_FILENO) {
            ::close(descriptor);
            return;
        }
    }
}

void addOpenOptions(CLI::App &command, tool::OpenOptions &options) {
    static const std::map<std::string, int> kLevels{
        {"none", TRK_OPEN_NO_CHECK}, {"basic", TRK_OPEN_CHECK}, {"full", TRK_OPEN_CHECK_AND_FILL}};
    command
        .add_option_function<std::string>(
            "--check", [&options](const std::string &level) { options.check = kLevels.at(level); },
            "Repairs: none; basic (samples outside blocks dropped, eye events moved onto blocks); full (besides, "
            "gaps filled, blinks joined and masked; default)")
        ->check(CLI::IsMember(kLevels).description(""))
        ->option_text("LEVEL");
    command.add_flag("--tolerant", options.tolerant, "Show a recording that breaks off up to the damage");
    command.add_flag("--salvage", options.salvage, "Show all of a damaged recording that can be saved");
    command.add_flag("--message-offsets", options.messageOffsets,
                     "Take a number before a message text as an offset to its time");
}

// A help text whose first lines can be typed.
class ExamplesFirst : public CLI::Formatter {
  public:
    explicit ExamplesFirst(std::string examples) : examples_(std::move(examples)) {}

    std::string make_help(const CLI::App *app, std::string name, CLI::AppFormatMode mode) const override {
        return tool::exampleText(examples_) + "\n" + CLI::Formatter::make_help(app, std::move(name), mode);
    }

  private:
    std::string examples_; // command lines behind "trk", one a line
};

// `examples` are command lines behind "trk", one a line.
CLI::App *addCommand(CLI::App &app, const char *name, const char *purpose, const char *examples,
                     const char *help) {
    CLI::App *const command = app.add_subcommand(name, purpose);
    command->formatter(std::make_shared<ExamplesFirst>(examples));
    command->footer(std::string(help) + "\n\n" + tool::kStatusHelp);
    return command;
}

void addTrialTexts(CLI::App &command, tables::TrialTexts &texts) {
    command
        .add_option("--start", texts.start,
                    "Text in messages that start a trial. Without texts, each recording block is a trial")
        ->option_text("TEXT");
    command.add_option("--end", texts.end, "Text in messages that end a trial")->option_text("TEXT");
}

void addTableOptions(CLI::App &command, tool::TableOptions &options) {
    command
        .add_option(
            "--columns", options.columns,
            "Columns to write: names or patterns (gaze_[xy]_*) separated by commas; behind a leading + they are "
            "added to those that are there by default. help lists all")
        ->option_text("NAME,...");
    command
        .add_option("--missing", options.missing,
                    "What stands for a missing value; by default \"" + options.missing + "\"")
        ->option_text("TEXT");
    command
        .add_option(
            "--encoding", options.encoding,
            "Character encoding of the texts of the recording; by default UTF-8, and Latin-1 for what is not")
        ->option_text("NAME");
}

void addOutput(CLI::App &command, std::string &output) {
    command
        .add_option("-o,--output", output,
                    "File to write in place of standard output: there whole in the end, or as it was")
        ->option_text("OUT");
}

void addVariable(CLI::App &command, std::string &variable) {
    command
        .add_option("--variable", variable,
                    "Regular expression with two groups, name and value, for variables that messages tell")
        ->option_text("REGEX");
}

void addTrials(CLI::App &app, tool::TrialsOptions &options, int &status) {
    CLI::App *const command =
        addCommand(app, "trials", "Write the trials of a recording as a table",
                   "trials s07.trk --start TRIALID --end 'TRIAL OK'\n"
                   "trials s07.trk --start TRIALID --variable 'VAR (\\w+) (.*)' -o trials.tsv",
                   tool::kTrialsHelp);
    command->add_option("FILE", options.file, "Recording")->required();
    addTrialTexts(*command, options.texts);
    addVariable(*command, options.variable);
    addTableOptions(*command, options.table);
    addOutput(*command, options.output);
    addOpenOptions(*command, options.open);
    command->callback([&] { status = tool::trials(options); });
}

void addInfo(CLI::App &app, tool::InfoOptions &options, int &status) {
    CLI::App *const command = addCommand(app, "info", "Show what recordings hold at a glance",
                                         "info s07.trk\ninfo *.trk --json", tool::kInfoHelp);
    command->add_option("FILE", options.files, "Recordings")->required();
    command->add_flag("--json", options.json, "Write it for programs");
    addTrialTexts(*command, options.texts);
    addOpenOptions(*command, options.open);
    command->callback([&] { status = tool::info(options); });
}

void addCheck(CLI::App &app, tool::CheckOptions &options, int &status) {
    CLI::App *const command =
        addCommand(app, "check", "Tell whether recordings are sound, and what of them is lost",
                   "check *.trk\ncheck s07.trk --json", tool::kCheckHelp);
    command->add_option("FILE", options.files, "Recordings")->required();
    command->add_flag("--json", options.json, "Write it for programs, with all damages");
    command->callback([&] { status = tool::check(options); });
}

void addDump(CLI::App &app, tool::DumpOptions &options, std::vector<std::string> &kinds, int &status) {
    static const std::map<std::string, tables::ItemKinds> kKinds{{"samples", tables::kSamples},
                                                                 {"events", tables::kEvents},
                                                                 {"messages", tables::kMessages},
                                                                 {"recordings", tables::kBlocks}};
    CLI::App *const command =
        addCommand(app, "dump", "Write the items of recordings as a tab-separated table",
                   "dump s07.trk --kind messages\n"
                   "dump s07.trk --kind samples --trial 3 --columns 'time,gaze_[xy]_*' -o gaze.tsv",
                   tool::kDumpHelp);
    command->add_option("FILE", options.files, "Recordings; several get a column for the file")->required();
    command
        ->add_option("--kind", kinds,
                     "Items to write: samples, events (all but messages), messages, recordings; repeatable or "
                     "separated by commas. A single kind has its own, fuller columns")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(CLI::IsMember(kKinds).description(""))
        ->option_text("KIND");
    command->add_option("--from", options.from, "Only items with this time or a later one")->option_text("MS");
    command->add_option("--to", options.to, "Only items with this time or an earlier one")->option_text("MS");
    command->add_option("--trial", options.trial, "Only the items of this trial, numbered from 1 as trials does")
        ->option_text("N");
    addTrialTexts(*command, options.texts);
    command->add_flag("--log", options.open.mergeLog,
                      "Merge the messages of the external log xq_messages.log beside the recording");
    command->add_option("--log-file", options.open.logFile, "Merge those of this log")->option_text("LOG");
    command->add_flag("--raw", options.raw,
                      "Add columns for raw pupil and corneal reflection, in camera pixels, to samples");
    addTableOptions(*command, options.table);
    addOutput(*command, options.output);
    addOpenOptions(*command, options.open);
    command->callback([&] {
        options.open.mergeLog |= options.open.logFile.has_value();
        options.kinds = kinds.empty() ? tables::kAllKinds : 0;
        for (const std::string &kind : kinds) {
            options.kinds |= kKinds.at(kind);
        }
        if (options.raw && (options.kinds & tables::kSamples) == 0) {
            throw CLI::ValidationError("--raw", "needs samples among the kinds");
        }
        status = tool::dump(options);
    });
}

// "53x30cm": two lengths in m.
std::array<double, 2> sizeFrom(const std::string &option, const std::string &text, bool isPair) {
    static const std::map<std::string, double> kUnits{{"mm", 1e-3}, {"cm", 1e-2}, {"m", 1}};
    std::array<double, 2> size{};
    std::array<char, 3> unit{};
    int used = 0;
    const bool isRead =
        isPair ? std::sscanf(text.c_str(), "%lfx%lf%2[cm]%n", size.data(), &size[1], unit.data(), &used) == 3
               : std::sscanf(text.c_str(), "%lf%2[cm]%n", size.data(), unit.data(), &used) == 2;
    const auto known = kUnits.find(unit.data());
    constexpr double kLargest = 20; // m
    const auto fits = [&](double length) { return length > 0 && length * known->second <= kLargest; };
    if (!isRead || static_cast<std::size_t>(used) != text.size() || known == kUnits.end() || !fits(size[0]) ||
        (isPair && !fits(size[1]))) {
        throw CLI::ValidationError(option, std::string("needs ") + (isPair ? "WIDTHxHEIGHT" : "a length") +
                                               " with its unit, such as " + (isPair ? "53x30cm" : "60cm"));
    }
    return {size[0] * known->second, size[1] * known->second};
}

struct ScreenTexts {
    std::string size;
    std::string resolution;
    std::string distance;
    std::string origin{"top-left"};
};

std::optional<tables::Screen> screenFrom(const ScreenTexts &texts) {
    const int given =
        (texts.size.empty() ? 0 : 1) + (texts.resolution.empty() ? 0 : 1) + (texts.distance.empty() ? 0 : 1);
    if (given == 0) {
        return std::nullopt;
    }
    if (given != 3) {
        throw CLI::ValidationError("--screen-size, --screen-resolution and --screen-distance", "go together");
    }
    tables::Screen screen;
    screen.size = sizeFrom("--screen-size", texts.size, true);
    screen.distance = sizeFrom("--screen-distance", texts.distance, false)[0];
    int used = 0;
    if (std::sscanf(texts.resolution.c_str(), "%dx%d%n", screen.resolution.data(), &screen.resolution[1], &used) !=
            2 ||
        static_cast<std::size_t>(used) != texts.resolution.size() || screen.resolution[0] <= 0 ||
        screen.resolution[1] <= 0) {
        throw CLI::ValidationError("--screen-resolution", "needs WIDTHxHEIGHT in pixels, such as 1920x1080");
    }
    const std::size_t dash = texts.origin.find('-');
    screen.origin = {texts.origin.substr(0, dash), texts.origin.substr(dash + 1)};
    return screen;
}

void addBids(CLI::App &command, tables::BidsOptions &options, ScreenTexts &screen) {
    const auto label = [&command](const char *name, std::string &value, const char *description) {
        command.add_option(name, value, description)->option_text("LABEL")->group("BIDS");
    };
    label("--sub", options.subject, "Subject (needed)");
    label("--task", options.task, "Task (needed)");
    label("--ses", options.session, "Session");
    label("--acq", options.acquisition, "Acquisition");
    label("--run", options.run, "Run");
    command
        .add_option("--datatype", options.dataType,
                    "Folder of the files: beh (default), or that of the data recorded beside")
        ->check(CLI::IsMember({"beh", "eeg", "func", "ieeg", "meg", "nirs"}).description(""))
        ->option_text("TYPE")
        ->group("BIDS");
    const auto text = [&command](const char *name, std::string &value, const char *description, const char *form) {
        command.add_option(name, value, description)->option_text(form)->group("BIDS");
    };
    text("--screen-size", screen.size, "Size of the screen, such as 53x30cm", "WxH");
    text("--screen-resolution", screen.resolution, "Pixels of the screen, such as 1920x1080", "WxH");
    text("--screen-distance", screen.distance, "Distance of the screen from the eye, such as 60cm", "LENGTH");
    command
        .add_option("--screen-origin", screen.origin,
                    "Corner of the screen at which gaze is (0, 0); default top-left")
        ->check(CLI::IsMember({"top-left", "top-right", "bottom-left", "bottom-right"}).description(""))
        ->option_text("CORNER")
        ->group("BIDS");
}

void addConvert(CLI::App &app, tool::ConvertOptions &options, std::vector<std::string> &what, ScreenTexts &screen,
                int &status) {
    static const std::set<std::string> kTables{"samples", "events", "messages", "trials", "blocks"};
    options.table.missing.clear();
    CLI::App *const command = addCommand(
        app, "convert", "Turn recordings, one or a folder of a thousand, into tables or a BIDS data set",
        "convert recordings/ -o tables\n"
        "convert s07.trk -o study --format bids --sub 07 --task search",
        tool::kConvertHelp);
    command->add_option("FILE|FOLDER", options.inputs, "Recordings, and folders that hold some (*.trk)")
        ->required();
    command->add_option("-o,--output", options.folder, "Folder to write to; made where it is not there")
        ->option_text("FOLDER")
        ->required();
    command->add_option("--format", options.format, "tsv (default), csv, tsv.gz, csv.gz, hdf5 or bids")
        ->check(CLI::IsMember({"tsv", "csv", "tsv.gz", "csv.gz", "hdf5", "bids"}).description(""))
        ->option_text("FORMAT");
    command
        ->add_option("--what", what,
                     "Tables to write, separated by commas: samples, events, messages, trials, blocks; "
                     "all by default")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(CLI::IsMember(kTables).description(""))
        ->option_text("TABLE,...");
    command->add_flag("--velocities", options.velocities, "Add the smoothed velocities to samples");
    command->add_option("--jobs", options.jobs, "Recordings at a time; by default as many as there are processors")
        ->check([](const std::string &text) {
            const bool isNumber = !text.empty() && text.size() <= 3 && text != "0" &&
                                  text.find_first_not_of("0123456789") == std::string::npos;
            return isNumber ? "" : "takes a number from 1 to 999";
        })
        ->option_text("N");
    command->add_flag("--force", options.force, "Make again what is there already");
    addTrialTexts(*command, options.texts);
    addVariable(*command, options.variable);
    addTableOptions(*command, options.table);
    addOpenOptions(*command, options.open);
    addBids(*command, options.bids, screen);
    command->callback([&] {
        if (!what.empty()) {
            options.what = {what.begin(), what.end()};
        }
        options.bids.screen = screenFrom(screen);
        status = tool::convert(options);
    });
}

// An option with its unit or kind of value and, in the text, its default.
template <typename Value>
CLI::Option *addSetting(CLI::App &command, const char *name, Value &value, const std::string &text,
                        const char *unit) {
    const std::string otherwise = CLI::detail::to_string(value);
    return command.add_option(name, value, text + " (default: " + otherwise + ")")->option_text(unit);
}

void addSynth(CLI::App &app, tool::SynthOptions &options, int &status) {
    static const std::map<std::string, trkwriter::Eyes> kEyes{
        {"left", trkwriter::LeftEye}, {"right", trkwriter::RightEye}, {"both", trkwriter::BothEyes}};
    CLI::App *const command = addCommand(app, "synth", "Make up a recording whose truth is known",
                                         "synth practice.trk\n"
                                         "synth noisy.trk --minutes 5 --rate 500 --noise 0.2 --truth truth.tsv",
                                         tool::kSynthHelp);
    command
        ->add_option("OUT", options.output,
                     "Recording to write, which must not be there yet; there whole in the end, or not")
        ->required();
    trkwriter::SessionOptions &session = options.session;
    addSetting(*command, "--minutes", session.minutes, "Minutes from the first message to the last", "MIN");
    addSetting(*command, "--rate", session.rate, "Samples per second: 250, 500, 1000 or 2000", "HZ");
    command
        ->add_option_function<std::string>(
            "--eyes", [&session](const std::string &eyes) { session.eyes = kEyes.at(eyes); },
            "Recorded eyes: left, right or both (default: both)")
        ->check(CLI::IsMember(kEyes).description(""))
        ->option_text("EYES");
    command->add_option("--trials", session.trials, "Number of trials (default: one for every 10 seconds)")
        ->option_text("N");
    command
        ->add_option("--blocks", session.blocks,
                     "Number of recording blocks, which share out the trials (default: one a trial)")
        ->option_text("N");
    addSetting(*command, "--noise", session.noise, "Noise, RMS from sample to sample in degrees", "DEG");
    addSetting(*command, "--dropout", session.dropout, "Samples lost outside of blinks in per cent, 0 to 20", "%");
    addSetting(*command, "--blinks", session.blinks, "Blinks a minute, 0 to 60", "N");
    addSetting(*command, "--drift", session.drift, "Drift in fixations in degrees per second, 0 to 5", "DEG/S");
    addSetting(*command, "--seed", session.seed, "A whole number; another one makes another session", "N")
        ->check([](const std::string &seed) {
            constexpr std::size_t kMostDigits = 19;
            const bool isNumber = seed.find_first_not_of("0123456789") == std::string::npos;
            return isNumber && seed.size() <= kMostDigits ? "" : seed + " is no whole number of up to 19 digits";
        });
    command->add_flag("--compressed", options.compressed, "Write a compressed recording");
    command->add_flag("--force", options.force, "Replace OUT when it is there");
    command
        ->add_option("--damage", options.damages,
                     "Damage the recording: bit, zero, hole, cut; repeatable or separated by commas")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check([](const std::string &name) {
            return trkwriter::damageNamed(name) ? "" : name + " is neither bit nor zero, hole or cut";
        })
        ->option_text("KIND");
    command->add_option("--truth", options.truth, "Write the true fixations, saccades and blinks as a table")
        ->option_text("FILE");
    command
        ->add_option("--log", options.log,
                     "Write the external message log of the session, which dump --log-file merges")
        ->option_text("FILE");
    command->callback([&] {
        try {
            status = tool::synth(options);
        } catch (const trkwriter::SessionError &error) {
            throw CLI::ValidationError(error.what());
        }
    });
}

int fail(const std::string &reason, tool::Status status) {
    std::fprintf(stderr, "trk: %s\n", reason.c_str());
    return status;
}

// A wrong command line, in one line.
int failUsage(const CLI::App &app, const CLI::ParseError &error) {
    const std::vector<CLI::App *> chosen = app.get_subcommands();
    const std::string command = chosen.empty() ? "" : chosen.front()->get_name() + " ";
    const std::vector<std::string> unknown = app.remaining();
    std::string reason =
        chosen.empty() && !unknown.empty() ? "there is no command " + unknown.front() : error.what();
    std::ranges::replace(reason, '\n', ' ');
    return fail(reason + " (see trk " + command + "--help)", tool::kUsage);
}

int run(int argc, char **argv, int &status) {
    tool::InfoOptions infoOptions;
    tool::CheckOptions checkOptions;
    tool::TrialsOptions trialsOptions;
    tool::DumpOptions dumpOptions;
    tool::ConvertOptions convertOptions;
    tool::SynthOptions synthOptions;
    std::vector<std::string> kinds;
    std::vector<std::string> what;
    ScreenTexts screen;
    CLI::App app("Looks into recordings of video eye trackers.", "trk");
    app.footer(tool::kStatusHelp);
    app.formatter(std::make_shared<ExamplesFirst>("info s07.trk\nconvert recordings/ -o tables"));
    app.set_version_flag("--version", std::string("trk " TRK_PROGRAM_VERSION "\n") + trk_get_version());
    app.require_subcommand(0, 1);
    addInfo(app, infoOptions, status);
    addCheck(app, checkOptions, status);
    addTrials(app, trialsOptions, status);
    addDump(app, dumpOptions, kinds, status);
    addConvert(app, convertOptions, what, screen, status);
    addSynth(app, synthOptions, status);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() != 0) {
            return failUsage(app, error);
        }
        app.exit(error); // help, or the version
        return std::cout.flush() ? tool::kSound : tool::kFailed;
    }
    if (app.get_subcommands().empty()) {
        std::cerr << app.help();
        return tool::kUsage;
    }
    return status;
}

} // namespace

int main(int argc, char **argv) {
    occupyStandardStreams();
    // A closed pipe is met as a failing write, and so is a file that may not grow.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    int status = tool::kSound;
    try {
        return run(argc, argv, status);
    } catch (const tables::OutputClosed &) {
        return status;
    } catch (const tool::CannotRead &failure) {
        return fail(failure.what(), failure.status());
    } catch (const std::invalid_argument &mistake) {
        return fail(mistake.what(), tool::kUsage);
    } catch (const std::bad_alloc &) {
        return fail("out of memory", tool::kFailed);
    } catch (const std::exception &error) {
        return fail(error.what(), tool::kFailed);
    }
}
