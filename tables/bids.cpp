#include "bids.h"

#include "delimited.h"
#include "fingerprint.h"
#include "text_output.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <sys/file.h>
#include <unistd.h>

namespace tables {

namespace fs = std::filesystem;

namespace {

constexpr const char *kBidsVersion = "1.11.1";

// One eye, and how columns and files name it.
struct EyeFile {
    Eye eye;
    int flag;           // TRK_EYE_*
    const char *label;  // of the recording entity
    const char *name;   // as RecordedEye has it
    std::string suffix; // of the library's columns
};

const std::array<EyeFile, kEyes> kEyeFiles{
    {{kLeft, TRK_EYE_LEFT, "eye1", "left", "_left"}, {kRight, TRK_EYE_RIGHT, "eye2", "right", "_right"}}};

const TextFormat kBidsText{.missing = "n/a", .quotes = false};

struct OutputColumn {
    int id; // TRK_COLUMN_ID
    Column column;
};

// Text on one line, without tabs. Data sets know no quotes, and many readers do: a double one becomes a single
// one.
std::string onOneLine(std::string text) {
    std::ranges::replace(text, '"', '\'');
    std::ranges::replace_if(
        text, [](char character) { return static_cast<unsigned char>(character) < 0x20 || character == 0x7F; },
        ' ');
    return text;
}

constexpr double kMilliseconds = 1e3; // in a second

Cell textCell(Rows &rows, std::string text) { return text.empty() ? Cell() : Cell(rows.keep(std::move(text))); }

// Rates of the blocks, each once, in the order in which they occur.
std::vector<float> ratesOf(const Places &places) {
    std::vector<float> rates;
    for (const Block &block : places.blocks()) {
        if (std::ranges::find(rates, block.start.sample_rate) == rates.end()) {
            rates.push_back(block.start.sample_rate);
        }
    }
    return rates;
}

// Whether a block goes into the files of a rate and an eye.
bool isOf(const Block &block, float rate, const EyeFile &eye) {
    return block.start.sample_rate == rate && (block.start.eye & eye.flag) != 0;
}

// Held while it lives, by one process at a time.
class FolderLock {
  public:
    explicit FolderLock(const std::string &folder)
        : descriptor_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        if (descriptor_ < 0 || ::flock(descriptor_, LOCK_EX) != 0) {
            const int error = errno;
            ::close(descriptor_);
            failToWrite(folder, error);
        }
    }
    ~FolderLock() { ::close(descriptor_); }
    FolderLock(const FolderLock &) = delete;
    FolderLock &operator=(const FolderLock &) = delete;

  private:
    int descriptor_;
};

Json numberJson(float value) {
    return value == std::floor(value) ? Json(static_cast<int64_t>(value)) : Json(static_cast<double>(value));
}

class BidsWriter {
  public:
    BidsWriter(Source &source, const BidsTarget &target, const BidsOptions &options, const BidsFacts &facts,
               const std::string &columns, const std::function<void(unsigned)> &progress)
        : source_(source), target_(target), options_(options), facts_(facts), progress_(progress),
          rates_(ratesOf(source.places)),
          samples_(trk_count_items(source.handle, 0, trk_get_element_count(source.handle), REC_SAMPLE)),
          firstTime_(firstTimeIn(0, trk_get_element_count(source.handle))) {
        constexpr std::size_t kMostRates = 16;
        if (rates_.size() > kMostRates) {
            throw std::invalid_argument("a recording of more than 16 sampling rates cannot go into a data set: "
                                        "each takes files of its own");
        }
        const SampleTable::Choice choice(source.places);
        if (!columns.empty()) {
            extra_ = selectColumns(choice.all, {}, columns);
        }
    }

    BidsOutcome write() {
        makeFolder(recordingFolder().string());
        if (target_.force) {
            removeEyes();
        }
        if (samples_ == 0) {
            outcome_.hasSamples = false;
            outcome_.notes.emplace_back("there are no samples, and so no physio files");
            return outcome_;
        }
        for (const float rate : rates_) {
            for (const EyeFile &eye : kEyeFiles) {
                if (recordsAt(rate, eye)) {
                    writeEye(rate, eye);
                }
            }
        }
        writeTask();
        writeDataSet();
        return outcome_;
    }

  private:
    [[nodiscard]] fs::path recordingFolder() const {
        fs::path folder = fs::path(target_.folder) / ("sub-" + options_.subject);
        if (!options_.session.empty()) {
            folder /= "ses-" + options_.session;
        }
        return folder / options_.dataType;
    }

    // The path up to the suffix. Blocks of another rate have an acquisition label that tells it.
    [[nodiscard]] std::string pathOf(float rate, const std::string &recording) const {
        std::string name = "sub-" + options_.subject;
        const auto add = [&name](const char *entity, const std::string &label) {
            if (!label.empty()) {
                name += std::string("_") + entity + "-" + label;
            }
        };
        add("ses", options_.session);
        add("task", options_.task);
        std::string acquisition = options_.acquisition;
        if (rate != 0 && rates_.size() > 1) {
            std::ostringstream text;
            text << rate;
            std::string label = text.str();
            std::ranges::replace(label, '.', 'p');
            acquisition += label + "Hz";
        }
        add("acq", acquisition);
        add("run", options_.run);
        add("recording", recording);
        return (recordingFolder() / name).string();
    }

    [[nodiscard]] double firstTimeIn(uint32_t first, uint32_t end) const {
        trkapi::SampleReader reader(source_.handle, {TRK_COLUMN_TIME_EXACT}, first, end);
        return reader.next() ? reader.value(0, 0) : 0;
    }

    // Seconds from the first sample of all to the first of an eye at a rate.
    [[nodiscard]] double startTime(float rate, const EyeFile &eye) const {
        for (const Block &block : source_.places.blocks()) {
            const bool hasSamples = trk_count_items(source_.handle, block.first, block.end, REC_SAMPLE) != 0;
            if (isOf(block, rate, eye) && hasSamples) {
                return (firstTimeIn(block.first, block.end) - firstTime_) / kMilliseconds;
            }
        }
        return 0;
    }

    // With --force, what is there of an earlier recording goes, whatever eyes it had.
    void removeEyes() const {
        for (const EyeFile &eye : kEyeFiles) {
            for (const char *suffix :
                 {"_physio.json", "_physio.tsv.gz", "_physioevents.json", "_physioevents.tsv.gz"}) {
                for (const float rate : rates_) {
                    std::error_code none;
                    fs::remove(pathOf(rate, eye.label) + suffix, none);
                }
            }
        }
    }

    // Whether a file is to be written.
    [[nodiscard]] bool wants(const std::string &path) {
        std::error_code none;
        if (target_.force || !fs::exists(path, none)) {
            ++outcome_.files;
            return true;
        }
        if (!isNewerThan(path, target_.recording)) {
            throw BidsFileExists(escaped(path) + " is there and older than the recording: --force replaces it");
        }
        return false;
    }

    // Data beside a description that says something else would be wrong.
    void demandFits(const std::string &path, const Json &content) const {
        std::error_code none;
        if (!target_.force && fs::exists(path, none)) {
            std::ifstream file(path);
            if (Json::parse(file, nullptr, false) != content) {
                throw BidsFileExists(escaped(path) + " is there and says something else: --force replaces it");
            }
        }
    }

    void writeJson(const std::string &path, const Json &content) {
        if (wants(path)) {
            TextOutput out(path, {});
            tables::writeJson(out, content);
            out.finish();
        }
    }

    [[nodiscard]] bool recordsAt(float rate, const EyeFile &eye) const {
        return std::ranges::any_of(source_.places.blocks(),
                                   [&](const Block &block) { return isOf(block, rate, eye); });
    }

    // ---- The samples of an eye ----

    [[nodiscard]] std::vector<OutputColumn> columnsOf(const EyeFile &eye) const {
        const bool isLeft = eye.eye == kLeft;
        std::vector<OutputColumn> columns{
            {TRK_COLUMN_TIME_EXACT,
             {"timestamp", "ms",
              "Time on the clock of the eye tracker. Between recording blocks it pauses: rows are the "
              "samples that there are.",
              source_.places.hasFastBlock() ? Type::Double : Type::Integer}},
            {isLeft ? TRK_COLUMN_GAZE_X_LEFT : TRK_COLUMN_GAZE_X_RIGHT,
             {"x_coordinate", "pixel", "Horizontal gaze position.", Type::Float}},
            {isLeft ? TRK_COLUMN_GAZE_Y_LEFT : TRK_COLUMN_GAZE_Y_RIGHT,
             {"y_coordinate", "pixel", "Vertical gaze position.", Type::Float}},
            {isLeft ? TRK_COLUMN_PUPIL_SIZE_LEFT : TRK_COLUMN_PUPIL_SIZE_RIGHT,
             {"pupil_size", "arbitrary",
              std::string("Pupil ") + (isDiameter() ? "diameter" : "area") + " in units of the eye tracker.",
              Type::Float}}};
        const std::string &other = kEyeFiles[isLeft ? kRight : kLeft].suffix;
        for (const std::size_t place : extra_) {
            const int id = static_cast<int>(place) + 1;
            TRK_COLUMN_DESCRIPTION description;
            const auto isKnown = [id](const OutputColumn &column) { return column.id == id; };
            if (trk_describe_column(id, &description) != 0 || std::ranges::any_of(columns, isKnown)) {
                continue;
            }
            std::string name = description.name;
            if (name.ends_with(other)) {
                continue;
            }
            if (name.ends_with(eye.suffix)) {
                name.resize(name.size() - eye.suffix.size());
            }
            columns.push_back({id, {name, description.unit, description.description, typeOf(description)}});
        }
        return columns;
    }

    [[nodiscard]] bool isDiameter() const {
        return !source_.places.blocks().empty() && source_.places.blocks().front().start.pupil_mode != 0;
    }

    void writeEye(float rate, const EyeFile &eye) {
        const std::string path = pathOf(rate, eye.label);
        const std::vector<OutputColumn> columns = columnsOf(eye);
        const Json description = samplesJson(rate, eye, columns);
        const Json events = eventsJson();
        demandFits(path + "_physio.json", description);
        demandFits(path + "_physioevents.json", events);
        // Descriptions first: what a run that breaks off leaves is known for what it is.
        writeJson(path + "_physio.json", description);
        writeJson(path + "_physioevents.json", events);
        if (wants(path + "_physio.tsv.gz")) {
            writeSamples(path + "_physio.tsv.gz", rate, eye, columns);
        }
        if (wants(path + "_physioevents.tsv.gz")) {
            writeEvents(path + "_physioevents.tsv.gz", rate, eye);
        }
    }

    void writeSamples(const std::string &path, float rate, const EyeFile &eye,
                      const std::vector<OutputColumn> &columns) {
        std::vector<int> ids(columns.size());
        std::ranges::transform(columns, ids.begin(), &OutputColumn::id);
        TextOutput out(path, {target_.recording}, Packing::Gzip);
        DelimitedWriter writer(out, kBidsText);
        RowsTo rows(writer, columns.size());
        for (const Block &block : source_.places.blocks()) {
            if (!isOf(block, rate, eye)) {
                continue;
            }
            trkapi::SampleReader reader(source_.handle, ids, block.first, block.end);
            while (reader.next()) {
                for (std::size_t row = 0; row < reader.rows(); ++row) {
                    addSample(reader, row, columns, rows.withRoom().add());
                }
                done_ += reader.rows();
                tellProgress();
            }
            source_.unreadable += reader.unreadable();
        }
        rows.flush();
        out.finish();
    }

    static void addSample(const trkapi::SampleReader &reader, std::size_t row,
                          const std::vector<OutputColumn> &columns, std::span<Cell> cells) {
        for (std::size_t i = 0; i < columns.size(); ++i) {
            cells[i] = cellOf(reader.value(i, row), columns[i].column.type);
        }
    }

    void tellProgress() const {
        const auto all = static_cast<uint64_t>(samples_) * kEyes;
        progress_(static_cast<unsigned>(std::min(done_, all) * 999 / all));
    }

    [[nodiscard]] Json samplesJson(float rate, const EyeFile &eye,
                                   const std::vector<OutputColumn> &columns) const {
        Json names = Json::array();
        for (const OutputColumn &column : columns) {
            names.push_back(column.column.name);
        }
        Json json{{"SamplingFrequency", numberJson(rate)},
                  {"StartTime", startTime(rate, eye)},
                  {"Columns", names},
                  {"PhysioType", "eyetrack"},
                  {"RecordedEye", eye.name},
                  {"SampleCoordinateSystem", options_.screen ? "gaze-on-screen" : "custom"}};
        if (!options_.screen) {
            json["SampleCoordinateSystemDescription"] = "Pixels of the display that the eye tracker was told of. "
                                                        "Size, resolution and distance of the screen "
                                                        "are not known.";
        }
        if (!facts_.trackerModel.empty()) {
            json["ManufacturersModelName"] = facts_.trackerModel;
        }
        if (!facts_.softwareVersion.empty()) {
            json["SoftwareVersions"] = facts_.softwareVersion;
        }
        std::string description =
            "Rows are the samples that there are. Recording pauses between recording blocks: the "
            "timestamp tells, and the events at the start and end of each block.";
        if (!facts_.note.empty()) {
            description += " " + facts_.note;
        }
        json["Description"] = description;
        json["Conversion"] = facts_.origin;
        for (const OutputColumn &column : columns) {
            json[column.column.name] = {{"Description", column.column.description}};
            if (!column.column.unit.empty()) {
                json[column.column.name]["Units"] = column.column.unit;
            }
        }
        return json;
    }

    // ---- The events of an eye ----

    // Whether what happens at an item belongs to the files of a rate: in its blocks, and before and behind them.
    [[nodiscard]] bool belongsTo(float rate, uint32_t item) const {
        if (rates_.size() == 1) {
            return true;
        }
        const uint32_t block = source_.places.blockOf(item);
        return block == 0 || source_.places.blocks()[block - 1].start.sample_rate == rate;
    }

    void writeEvents(const std::string &path, float rate, const EyeFile &eye) {
        TextOutput out(path, {target_.recording}, Packing::Gzip);
        DelimitedWriter writer(out, kBidsText);
        // By onset: an eye event stands at its end among the items, and may reach back before others.
        struct Entry {
            uint32_t onset;
            Cell duration;
            Cell type;
            std::string text;
        };
        std::vector<Entry> entries;
        trkapi::BulkWalk walk(source_.handle, 0, trk_get_element_count(source_.handle),
                              kEvents | kMessages | kBlocks, false);
        while (const std::optional<Item> item = walk.next()) {
            if (item->record == nullptr || !belongsTo(rate, item->number)) {
                source_.unreadable += item->record == nullptr ? 1U : 0U;
                continue;
            }
            if (item->code == REC_MESSAGE) {
                entries.push_back({item->time(), Cell(), Cell(), onOneLine(source_.decoder.decode(item->text()))});
            } else if (const FRECORDING *const mark = item->recording()) {
                entries.push_back({mark->time, Cell(), Cell(),
                                   std::string("recording block ") +
                                       std::to_string(source_.places.blockOf(item->number)) +
                                       (mark->state == TRK_BLOCK_START ? " starts" : " ends")});
            } else if (const auto type = wholeEyeEvent(*item); !type.empty() && eyeOf(*item) == eye.eye) {
                const FEVENT &event = *item->event();
                const bool isWhole = event.start_time <= event.end_time;
                entries.push_back({isWhole ? event.start_time : event.end_time,
                                   isWhole ? Cell((event.end_time - event.start_time) / kMilliseconds) : Cell(),
                                   type,
                                   {}});
            }
        }
        std::ranges::stable_sort(entries, {}, &Entry::onset);
        RowsTo table(writer, 4);
        for (Entry &entry : entries) {
            Rows &rows = table.withRoom();
            const std::span<Cell> cells = rows.add();
            cells[0] = entry.onset;
            cells[1] = entry.duration;
            cells[2] = entry.type;
            cells[3] = textCell(rows, std::move(entry.text));
        }
        table.flush();
        out.finish();
    }

    [[nodiscard]] Json eventsJson() const {
        return {{"Conversion", facts_.origin},
                {"Columns", {"onset", "duration", "trial_type", "message"}},
                {"Description",
                 "Eye events as the eye tracker found them, messages, and the start and end of each "
                 "recording block: between blocks there are no samples."},
                {"OnsetSource", "timestamp"},
                {"onset", {{"Description", "Start, as in the column timestamp of the samples."}, {"Units", "ms"}}},
                {"duration", {{"Description", "End minus start."}, {"Units", "s"}}},
                {"trial_type",
                 {{"Description", "Kind of eye event."},
                  {"Levels",
                   {{"fixation", "The eye rests."},
                    {"saccade", "The eye jumps."},
                    {"blink", "The pupil is covered."}}}}},
                {"message", {{"Description", "Text of a message, or what happens to the recording."}}}};
    }

    // ---- The task and the data set ----

    void writeTask() {
        if (!options_.screen) {
            outcome_.notes.emplace_back(
                "SampleCoordinateSystem is custom: --screen-size, --screen-resolution and "
                "--screen-distance would make it gaze-on-screen, with StimulusPresentation");
            return;
        }
        const Screen &screen = *options_.screen;
        const std::string path = pathOf(0, "");
        const Json description{
            {"StimulusPresentation",
             {{"ScreenDistance", screen.distance},
              {"ScreenOrigin", screen.origin},
              {"ScreenResolution", screen.resolution},
              {"ScreenSize", screen.size}}},
            {"onset", {{"Description", "Start of the trial, from the first sample on."}, {"Units", "s"}}},
            {"duration", {{"Description", "End minus start."}, {"Units", "s"}}},
            {"trial_type", {{"Description", "What the row is."}, {"Levels", {{"trial", "One trial."}}}}},
            {"message", {{"Description", "Text of the message that started the trial."}}},
            {"Conversion", facts_.origin}};
        demandFits(path + "_events.json", description);
        writeJson(path + "_events.json", description);
        if (wants(path + "_events.tsv")) {
            writeTrials(path + "_events.tsv");
        }
    }

    void writeTrials(const std::string &path) {
        TextOutput out(path, {target_.recording});
        DelimitedWriter writer(out, kBidsText);
        const std::vector<Column> columns{{"onset", "", "", Type::Double},
                                          {"duration", "", "", Type::Double},
                                          {"trial_type", "", "", Type::Text},
                                          {"message", "", "", Type::Text}};
        writer.writeHeader(columns);
        RowsTo table(writer, columns.size());
        for (const Trial &trial : source_.places.trials()) {
            Rows &rows = table.withRoom();
            const std::span<Cell> cells = rows.add();
            cells[0] = (trial.header.start_time - firstTime_) / kMilliseconds;
            cells[1] = trial.duration() / kMilliseconds;
            cells[2] = "trial";
            cells[3] = textCell(rows, onOneLine(source_.decoder.decode(trial.text)));
        }
        table.flush();
        out.finish();
    }

    // Files of the data set stay as they are, but for the line of a new participant.
    void writeDataSet() const {
        const fs::path folder = target_.folder;
        const auto writeOnce = [&folder](const char *name, const std::string &text) {
            std::error_code none;
            if (!fs::exists(folder / name, none)) {
                TextOutput out((folder / name).string(), {});
                out.text(text);
                out.finish();
            }
        };
        const FolderLock lock(target_.folder); // several runs may write into one data set at the same time
        writeOnce("dataset_description.json",
                  Json{{"Name", utf8(fs::absolute(folder).lexically_normal().filename().string())},
                       {"BIDSVersion", kBidsVersion},
                       {"DatasetType", "raw"}}
                          .dump(2) +
                      "\n");
        writeOnce("README",
                  "Eye tracking recordings, converted by trk.\n\nFiles with the recording label eye1 are "
                  "of the left eye, those with eye2 of the right one.\n");
        addParticipant((folder / "participants.tsv").string());
    }

    void addParticipant(const std::string &path) const {
        const std::string participant = "sub-" + options_.subject;
        std::ifstream file(path);
        std::string text{std::istreambuf_iterator<char>(file), {}};
        if (text.empty()) {
            text = "participant_id\n";
        }
        text += text.ends_with('\n') ? "" : "\n";
        // Rows in order stay in order, so that the order in which runs end says nothing.
        std::size_t place = text.size();
        std::size_t cells = 1;
        std::string last;
        bool isOrdered = true;
        for (std::size_t begin = 0, end = 0; begin < text.size(); begin = end + 1) {
            end = text.find('\n', begin);
            const std::string_view line(text.data() + begin, end - begin);
            if (begin == 0) {
                cells += static_cast<std::size_t>(std::ranges::count(line, '\t'));
                continue;
            }
            std::string present(line.substr(0, line.find_first_of("\t\r")));
            if (present == participant) {
                return;
            }
            isOrdered = isOrdered && last <= present;
            if (place == text.size() && present > participant) {
                place = begin;
            }
            last = std::move(present);
        }
        std::string row = participant;
        for (std::size_t i = 1; i < cells; ++i) {
            row += "\tn/a";
        }
        text.insert(isOrdered ? place : text.size(), row + "\n");
        TextOutput out(path, {});
        out.text(text);
        out.finish();
    }

    Source &source_;
    const BidsTarget &target_;
    const BidsOptions &options_;
    const BidsFacts &facts_;
    const std::function<void(unsigned)> &progress_;
    std::vector<float> rates_;
    std::vector<std::size_t> extra_;
    int64_t samples_;
    double firstTime_; // of all samples, ms
    BidsOutcome outcome_;
    uint64_t done_ = 0;
};

} // namespace

void checkLabels(const BidsOptions &options) {
    const auto check = [](const char *entity, const std::string &label, bool isNeeded) {
        const auto isAllowed = [](unsigned char character) { return std::isalnum(character) != 0; };
        if ((label.empty() && isNeeded) || !std::ranges::all_of(label, isAllowed)) {
            throw std::invalid_argument(std::string("--") + entity + " needs a label of letters and digits" +
                                        (label.empty() ? "" : ", not " + escaped(label)));
        }
    };
    check("sub", options.subject, true);
    check("task", options.task, true);
    check("ses", options.session, false);
    check("acq", options.acquisition, false);
    check("run", options.run, false);
    if (options.run.find_first_not_of("0123456789") != std::string::npos) {
        throw std::invalid_argument("--run needs a number, not " + escaped(options.run));
    }
    check("datatype", options.dataType, true);
}

BidsOutcome writeBids(Source &source, const BidsTarget &target, const BidsOptions &options, const BidsFacts &facts,
                      const std::string &columns, const std::function<void(unsigned)> &progress) {
    return BidsWriter(source, target, options, facts, columns, progress).write();
}

} // namespace tables
