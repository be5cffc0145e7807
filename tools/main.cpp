// trk: looks into recordings from the command line.
#include "dump.h"
#include "info.h"
#include "trials.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <iostream>
#include <map>
#include <new>
#include <unistd.h>

namespace {

constexpr int kUsageError = 2;

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
    const std::map<std::string, int> levels{
        {"none", TRK_OPEN_NO_CHECK}, {"basic", TRK_OPEN_CHECK}, {"full", TRK_OPEN_CHECK_AND_FILL}};
    command
        .add_option("--check", options.check,
                    "Repairs: none; basic (samples outside blocks dropped, eye events moved onto blocks); full "
                    "(besides, gaps filled, blinks joined and masked; default)")
        ->transform(CLI::CheckedTransformer(levels).description("none|basic|full"))
        ->option_text("LEVEL");
    command.add_flag("--tolerant", options.tolerant, "Show a damaged recording up to the damage");
    command.add_flag("--keep-times", options.keepTimes,
                     "Never count the times of late recordings from their first sample");
    command.add_flag("--message-offsets", options.messageOffsets,
                     "Take a number before a message text as an offset to its time");
}

std::vector<CLI::Option *> addTrialTexts(CLI::App &command, tool::TrialTexts &texts) {
    return {command
                .add_option("--start", texts.start,
                            "Text in messages that start a trial. Without texts, each recording block is a trial")
                ->option_text("TEXT"),
            command.add_option("--end", texts.end, "Text in messages that end a trial")->option_text("TEXT")};
}

void addTrials(CLI::App &app, tool::TrialsOptions &options, int &status) {
    CLI::App *const command = app.add_subcommand("trials", "Write the trials of a recording as a table");
    command->footer(tool::kTrialsHelp);
    command->add_option("FILE", options.file, "Recording")->required();
    addTrialTexts(*command, options.texts);
    addOpenOptions(*command, options.open);
    command->callback([&] { status = tool::trials(options); });
}

void addInfo(CLI::App &app, tool::InfoOptions &options, int &status) {
    CLI::App *const command = app.add_subcommand("info", "Show what recordings hold at a glance");
    command->add_option("FILE", options.files, "Recordings")->required();
    addTrialTexts(*command, options.texts);
    addOpenOptions(*command, options.open);
    command->callback([&] { status = tool::info(options); });
}

void addDump(CLI::App &app, tool::DumpOptions &options, std::vector<std::string> &kinds, int &status) {
    static const std::map<std::string, tool::ItemKinds> kKinds{{"samples", tool::kSamples},
                                                               {"events", tool::kEvents},
                                                               {"messages", tool::kMessages},
                                                               {"recordings", tool::kRecordings}};
    CLI::App *const command =
        app.add_subcommand("dump", "Write the items of a recording as a tab-separated table");
    command->footer(tool::kDumpHelp);
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
    command->add_option("-o,--output", options.output, "File to write in place of standard output")
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

int fail(const char *reason) {
    std::fprintf(stderr, "trk: %s\n", reason);
    return EXIT_FAILURE;
}

} // namespace

int main(int argc, char **argv) {
    occupyStandardStreams();
    // A closed pipe is met as a failing write.
    std::signal(SIGPIPE, SIG_IGN);
    int status = EXIT_SUCCESS;
    tool::InfoOptions infoOptions;
    tool::TrialsOptions trialsOptions;
    tool::DumpOptions dumpOptions;
    std::vector<std::string> kinds;
    try {
        CLI::App app("Looks into recordings of video eye trackers.", "trk");
        app.set_version_flag("--version", trk_get_version());
        app.require_subcommand(1);
        addInfo(app, infoOptions, status);
        addTrials(app, trialsOptions, status);
        addDump(app, dumpOptions, kinds, status);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError &error) {
            if (app.exit(error) != 0) {
                return kUsageError;
            }
            return std::cout.flush() ? EXIT_SUCCESS : EXIT_FAILURE;
        }
        return status;
    } catch (const tool::OutputClosed &) {
        return status;
    } catch (const std::bad_alloc &) {
        return fail("out of memory");
    } catch (const std::exception &error) {
        return fail(error.what());
    }
}
