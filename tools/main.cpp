// trk: looks into recordings from the command line.
#include "check.h"
#include "dump.h"
#include "info.h"
#include "status.h"
#include "synth.h"
#include "trials.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <iostream>
#include <map>
#include <memory>
#include <new>
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
    command.add_flag("--keep-times", options.keepTimes,
                     "Never count the times of late recordings from their first sample");
    command.add_flag("--message-offsets", options.messageOffsets,
                     "Take a number before a message text as an offset to its time");
}

CLI::App *addCommand(CLI::App &app, const char *name, const char *purpose, const char *help) {
    CLI::App *const command = app.add_subcommand(name, purpose);
    command->footer(std::string(help) + "\n\n" + tool::kStatusHelp);
    return command;
}

std::vector<CLI::Option *> addTrialTexts(CLI::App &command, tool::TrialTexts &texts) {
    return {command
                .add_option("--start", texts.start,
                            "Text in messages that start a trial. Without texts, each recording block is a trial")
                ->option_text("TEXT"),
            command.add_option("--end", texts.end, "Text in messages that end a trial")->option_text("TEXT")};
}

void addTrials(CLI::App &app, tool::TrialsOptions &options, int &status) {
    CLI::App *const command =
        addCommand(app, "trials", "Write the trials of a recording as a table", tool::kTrialsHelp);
    command->add_option("FILE", options.file, "Recording")->required();
    addTrialTexts(*command, options.texts);
    addOpenOptions(*command, options.open);
    command->callback([&] { status = tool::trials(options); });
}

void addInfo(CLI::App &app, tool::InfoOptions &options, int &status) {
    CLI::App *const command = addCommand(app, "info", "Show what recordings hold at a glance", tool::kInfoHelp);
    command->add_option("FILE", options.files, "Recordings")->required();
    command->add_flag("--json", options.json, "Write it for programs");
    addTrialTexts(*command, options.texts);
    addOpenOptions(*command, options.open);
    command->callback([&] { status = tool::info(options); });
}

void addCheck(CLI::App &app, tool::CheckOptions &options, int &status) {
    CLI::App *const command =
        addCommand(app, "check", "Tell whether recordings are sound, and what of them is lost", tool::kCheckHelp);
    command->add_option("FILE", options.files, "Recordings")->required();
    command->add_flag("--json", options.json, "Write it for programs, with all damages");
    command->callback([&] { status = tool::check(options); });
}

void addDump(CLI::App &app, tool::DumpOptions &options, std::vector<std::string> &kinds, int &status) {
    static const std::map<std::string, tool::ItemKinds> kKinds{{"samples", tool::kSamples},
                                                               {"events", tool::kEvents},
                                                               {"messages", tool::kMessages},
                                                               {"recordings", tool::kRecordings}};
    CLI::App *const command =
        addCommand(app, "dump", "Write the items of a recording as a tab-separated table", tool::kDumpHelp);
    command->add_option("FILE", options.file, "Recording")->required();
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
    CLI::Option *const trial =
        command->add_option("--trial", options.trial, "Only the items of this trial, numbered as trials does")
            ->option_text("N");
    for (CLI::Option *const text : addTrialTexts(*command, options.texts)) {
        text->needs(trial);
    }
    command->add_flag("--log", options.open.mergeLog,
                      "Merge the messages of the external log xq_messages.log beside the recording");
    command->add_option("--log-file", options.open.logFile, "Merge those of this log")->option_text("LOG");
    command->add_flag("--raw", options.raw,
                      "Add columns for raw pupil and corneal reflection, in camera pixels, to samples");
    command
        ->add_option("-o,--output", options.output,
                     "File to write in place of standard output: there whole in the end, or as it was")
        ->option_text("OUT");
    addOpenOptions(*command, options.open);
    command->callback([&] {
        options.open.mergeLog |= options.open.logFile.has_value();
        options.kinds = kinds.empty() ? tool::kAllKinds : 0;
        for (const std::string &kind : kinds) {
            options.kinds |= kKinds.at(kind);
        }
        if (options.raw && (options.kinds & tool::kSamples) == 0) {
            throw CLI::ValidationError("--raw", "needs samples among the kinds");
        }
        status = tool::dump(options);
    });
}

// Help that begins with examples.
class ExamplesFirst : public CLI::Formatter {
  public:
    explicit ExamplesFirst(std::string examples) : examples_(std::move(examples)) {}
    std::string make_help(const CLI::App *app, std::string name, CLI::AppFormatMode mode) const override {
        return examples_ + "\n\n" + Formatter::make_help(app, std::move(name), mode);
    }

  private:
    std::string examples_;
};

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
    CLI::App *const command =
        addCommand(app, "synth", "Make up a recording whose truth is known", tool::kSynthHelp);
    command->formatter(std::make_shared<ExamplesFirst>(tool::kSynthExamples));
    command->add_option("OUT", options.output, "Recording to write: there whole in the end, or as it was")
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
    tool::SynthOptions synthOptions;
    std::vector<std::string> kinds;
    CLI::App app("Looks into recordings of video eye trackers.", "trk");
    app.footer(tool::kStatusHelp);
    app.set_version_flag("--version", trk_get_version());
    app.require_subcommand(1);
    addInfo(app, infoOptions, status);
    addCheck(app, checkOptions, status);
    addTrials(app, trialsOptions, status);
    addDump(app, dumpOptions, kinds, status);
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
    } catch (const tool::OutputClosed &) {
        return status;
    } catch (const tool::CannotRead &failure) {
        return fail(failure.what(), failure.status());
    } catch (const std::bad_alloc &) {
        return fail("out of memory", tool::kFailed);
    } catch (const std::exception &error) {
        return fail(error.what(), tool::kFailed);
    }
}
