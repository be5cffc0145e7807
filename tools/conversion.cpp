#include "conversion.h"

#include "damage.h"
#include "facts.h"
#include "info_json.h"
#include "tables/fingerprint.h"
#include "tables/hdf5_file.h"
#include "tables/recording_tables.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <new>
#include <optional>

namespace tool {

namespace fs = std::filesystem;

namespace {

// In the order in which they are written.
constexpr std::array<std::string_view, 5> kTables{"blocks", "trials", "messages", "events", "samples"};

Json textOrNull(const std::optional<std::string> &text) { return text ? Json(tables::utf8(*text)) : Json(); }

// What decides about the content of a table.
Json optionsJson(const ConvertOptions &options) {
    return {{"format", options.format},
            {"columns", tables::utf8(options.table.columns)},
            {"velocities", options.velocities},
            {"missing", tables::utf8(options.table.missing)},
            {"encoding", tables::utf8(options.table.encoding)},
            {"start", textOrNull(options.texts.start)},
            {"end", textOrNull(options.texts.end)},
            {"variable", tables::utf8(options.variable)},
            {"check", options.open.check},
            {"tolerant", options.open.tolerant},
            {"salvage", options.open.salvage},
            {"message_offsets", options.open.messageOffsets}};
}

// What an earlier run left under the name of a recording.
class Earlier {
  public:
    Earlier(const ConversionTask &task, const ConvertOptions &options)
        : path_(task.stem + ".json"), fingerprint_(tables::fingerprintOf(task.recording)), options_(options) {
        std::ifstream file(path_);
        found_ = Json::parse(file, nullptr, false);
        const bool isOurs = found_.is_object() && found_.contains("fingerprint") && found_.contains("tables");
        if (!isOurs) {
            found_ = Json();
        }
        isNewer_ = isOurs && tables::isNewerThan(path_, task.recording);
    }

    [[nodiscard]] const std::string &fingerprint() const { return fingerprint_; }

    // Whether it was made of another recording, or of this one before it changed. Of one that cannot be read,
    // which has no fingerprint, nothing is known.
    [[nodiscard]] bool isOfAnother() const {
        return !found_.is_null() && !fingerprint_.empty() && found_["fingerprint"] != fingerprint_;
    }

    // How it ended, when it has made all that is wanted; else nothing.
    [[nodiscard]] std::optional<Status> status() const {
        const auto isThere = [this](const std::string &name) { return has(name); };
        if (!fits() || !std::ranges::all_of(options_.what, isThere)) {
            return std::nullopt;
        }
        return found_.value("complete", Json(false)) == Json(true) ? kSound : kIncomplete;
    }

    // The tables that it made besides those that are wanted now.
    [[nodiscard]] Json others() const {
        Json tables = Json::object();
        if (fits() && options_.format != "hdf5") {
            for (const auto &[name, table] : found_["tables"].items()) {
                if (!options_.what.contains(name) && has(name)) {
                    tables[name] = table;
                }
            }
        }
        return tables;
    }

    // From now on its description is not true any more.
    void forget() const {
        std::error_code none;
        fs::remove(path_, none);
    }

  private:
    [[nodiscard]] bool fits() const {
        return isNewer_ && found_["fingerprint"] == fingerprint_ &&
               found_.value("options", Json()) == optionsJson(options_);
    }
    [[nodiscard]] bool has(const std::string &name) const {
        const Json table = found_["tables"].value(name, Json());
        return table.is_object() && table.contains("file") && table["file"].is_string() &&
               fs::exists(path_.parent_path() / table["file"].get<std::string>());
    }

    fs::path path_;
    std::string fingerprint_;
    const ConvertOptions &options_;
    Json found_;
    bool isNewer_ = false;
};

Json columnsJson(const std::vector<tables::Column> &columns) {
    Json list = Json::array();
    for (const tables::Column &column : columns) {
        list.push_back({{"name", tables::utf8(column.name)},
                        {"type", tables::typeName(column.type)},
                        {"unit", column.unit},
                        {"description", column.description}});
    }
    return list;
}

// Tells the pool how far it is.
class Watched : public tables::TableWriter {
  public:
    Watched(tables::TableWriter &writer, JobProgress &progress, uint64_t total)
        : writer_(writer), progress_(progress), total_(std::max<uint64_t>(total, 1)) {}

    void write(const tables::Rows &rows) override {
        writer_.write(rows);
        rows_ += rows.size();
        progress_.set(static_cast<unsigned>(std::min(rows_, total_) * 999 / total_));
    }
    void finish() override { writer_.finish(); }

  private:
    tables::TableWriter &writer_;
    JobProgress &progress_;
    uint64_t total_;
    uint64_t rows_ = 0;
};

class Conversion {
  public:
    Conversion(const ConversionTask &task, const ConvertOptions &options, const Earlier &earlier,
               JobProgress &progress)
        : task_(task), options_(options), earlier_(earlier), progress_(progress),
          recording_(task.recording, options.open, OnDamage::Refuse),
          places_(recording_.findPlaces(options.texts)),
          decoder_(options.table.encoding), source_{recording_.handle(), places_, decoder_}, damage_(recording_) {}

    JobResult run() {
        status_ = std::max(reportDamage(recording_, damage_), reportUnmatched(recording_, places_));
        tables::makeFolder(fs::path(task_.stem).parent_path().string());
        const Json facts = factsJson(gatherFacts(recording_, damage_, places_));
        const Json others = earlier_.others();
        earlier_.forget();
        options_.format == "hdf5" ? writeHdf5() : writeText();
        status_ = std::max(status_, reportUnreadable(recording_, source_.unreadable));
        noteDoubtful();
        const std::string text = summary();
        rows_.update(others);
        writeDescription(facts);
        return {status_, text};
    }

  private:
    std::unique_ptr<tables::Table> tableOf(std::string_view name) {
        if (name == "samples") {
            std::string columns = options_.table.columns;
            if (options_.velocities) {
                columns += (columns.empty() ? "+" : ",") + std::string("*_vel_*");
            }
            return std::make_unique<tables::SampleTable>(source_, columns);
        }
        if (name == "events") {
            return std::make_unique<tables::EventTable>(source_);
        }
        if (name == "messages") {
            return std::make_unique<tables::MessageTable>(source_);
        }
        if (name == "trials") {
            return std::make_unique<tables::TrialTable>(source_, options_.variable);
        }
        return std::make_unique<tables::BlockTable>(source_);
    }

    template <class Write> void forTables(Write write) {
        for (const std::string_view name : kTables) {
            if (options_.what.contains(std::string(name))) {
                const std::unique_ptr<tables::Table> table = tableOf(name);
                write(name, *table);
            }
        }
    }

    void copy(std::string_view name, const std::string &file, tables::Table &table, tables::TableWriter &writer) {
        const int64_t total =
            trk_count_items(recording_.handle(), 0, trk_get_element_count(recording_.handle()), REC_SAMPLE);
        Watched watched(writer, progress_, static_cast<uint64_t>(total));
        const uint64_t rows = tables::copyRows(table, watched);
        rows_[std::string(name)] = {{"file", tables::utf8(fs::path(file).filename().string())},
                                    {"rows", rows},
                                    {"columns", columnsJson(table.columns())}};
    }

    void writeText() {
        const bool isPacked = options_.format.ends_with(".gz");
        const tables::TextFormat format{.separator = options_.format.starts_with("csv") ? ',' : '\t',
                                        .missing = options_.table.missing};
        forTables([&](std::string_view name, tables::Table &table) {
            const std::string file = task_.stem + "_" + std::string(name) + "." + options_.format;
            tables::TextOutput out(file, {task_.recording},
                                   isPacked ? tables::Packing::Gzip : tables::Packing::None);
            tables::DelimitedWriter writer(out, format);
            writer.writeHeader(table.columns());
            copy(name, file, table, writer);
            out.finish();
        });
    }

    void writeHdf5() {
        const std::string path = task_.stem + ".h5";
        tables::Hdf5File file(path);
        forTables([&](std::string_view name, tables::Table &table) {
            const auto writer = file.addTable(std::string(name), table.columns());
            copy(name, path, table, *writer);
        });
        file.describe("recording", tables::utf8(fs::path(task_.recording).filename().string()));
        file.finish();
    }

    void noteDoubtful() {
        if (decoder_.doubtful() != 0) {
            notes_.push_back(doubtfulTexts(decoder_.doubtful(), options_.table.encoding));
            std::fprintf(stderr, "trk: %s: %s\n", recording_.name().c_str(),
                         notes_.back().get<std::string>().c_str());
        }
        for (const std::string &sentence : places_.unmatched()) {
            notes_.push_back(tables::utf8(sentence));
        }
        if (source_.unreadable != 0) {
            notes_.push_back(std::to_string(source_.unreadable) + " items could not be read");
        }
    }

    void writeDescription(const Json &facts) {
        Json description{{"recording", tables::utf8(fs::path(task_.recording).filename().string())},
                         {"program", std::string("trk ") + TRK_PROGRAM_VERSION},
                         {"fingerprint", earlier_.fingerprint()},
                         {"options", optionsJson(options_)},
                         {"complete", status_ == kSound},
                         {"tables", rows_},
                         {"notes", notes_},
                         {"facts", facts}};
        // Where it was is no fact of the recording.
        description["facts"].erase("file");
        Json &log = description["facts"]["message_log"];
        const std::string name = log["file"].get<std::string>();
        std::string failure = log.value("error", std::string());
        if (const std::size_t place = failure.find(name); place != std::string::npos) {
            log["error"] = failure.replace(place, name.size(), fs::path(name).filename().string());
        }
        log.erase("file");
        tables::TextOutput out(task_.stem + ".json", {task_.recording});
        tables::writeJson(out, description);
        out.finish();
    }

    [[nodiscard]] std::string summary() const {
        std::string text;
        for (const auto &[name, table] : rows_.items()) {
            text += (text.empty() ? "" : ", ") + name + " " + std::to_string(table["rows"].get<uint64_t>());
        }
        return (status_ == kSound ? "converted: " : "converted in part: ") + text;
    }

    const ConversionTask &task_;
    const ConvertOptions &options_;
    const Earlier &earlier_;
    JobProgress &progress_;
    Recording recording_;
    tables::Places places_;
    tables::TextDecoder decoder_;
    tables::Source source_;
    DamageReport damage_;
    Status status_ = kSound;
    Json rows_ = Json::object();
    Json notes_ = Json::array();
};

// What the lines of the preamble say behind a key.
std::string preambleValue(const std::vector<std::string> &lines, std::string_view key) {
    for (const std::string &line : lines) {
        if (line.starts_with(key)) {
            const std::size_t begin = line.find_first_not_of(" \t", key.size());
            return begin == std::string::npos ? std::string() : tables::utf8(line.substr(begin));
        }
    }
    return {};
}

JobResult writeIntoDataSet(const std::string &path, std::size_t run, const ConvertOptions &options,
                           JobProgress &progress) {
    Recording recording(path, options.open, OnDamage::Refuse);
    const tables::Places places = recording.findPlaces(options.texts);
    const DamageReport damage(recording);
    Status status = std::max(reportDamage(recording, damage), reportUnmatched(recording, places));
    tables::TextDecoder decoder(options.table.encoding);
    tables::Source source{recording.handle(), places, decoder};
    tables::BidsOptions bids = options.bids;
    if (run != 0) {
        bids.run = std::to_string(run);
    }
    const std::vector<std::string> preamble = preambleLines(recording.handle());
    const Json origin{{"Recording", tables::utf8(fs::path(path).filename().string())},
                      {"Fingerprint", tables::fingerprintOf(path)},
                      {"Options", optionsJson(options)}};
    const tables::BidsFacts facts{preambleValue(preamble, "SOURCE:"), preambleValue(preamble, "VERSION:"),
                                  damage.isDamaged() ? "The recording is damaged " + damage.text() + "." : "",
                                  origin};
    std::string columns = options.table.columns;
    if (options.velocities) {
        columns += (columns.empty() ? "" : ",") + std::string("*_vel_*");
    }
    const tables::BidsOutcome outcome =
        tables::writeBids(source, {options.folder, path, options.force}, bids, facts, columns,
                          [&progress](unsigned done) { progress.set(done); });
    for (const std::string &note : outcome.notes) {
        std::fprintf(stderr, "trk: %s: %s\n", recording.name().c_str(), note.c_str());
    }
    if (decoder.doubtful() != 0) {
        std::fprintf(stderr, "trk: %s: %s\n", recording.name().c_str(),
                     doubtfulTexts(decoder.doubtful(), options.table.encoding).c_str());
    }
    status = std::max(status, reportUnreadable(recording, source.unreadable));
    if (outcome.files == 0 && status == kSound && outcome.hasSamples) {
        return {status, "there already"};
    }
    if (!outcome.hasSamples) {
        status = std::max(status, kIncomplete);
    }
    return {status, std::string(status == kSound ? "converted" : "converted in part") + ": sub-" + bids.subject +
                        ", task-" + bids.task + (bids.run.empty() ? "" : ", run-" + bids.run)};
}

// Calls convert() and tells standard error of what went wrong.
template <class Convert> JobResult withFailures(const std::string &path, Convert convert) {
    const auto fail = [](const std::string &reason, Status status) {
        std::fprintf(stderr, "trk: %s\n", reason.c_str());
        return JobResult{status, "failed"};
    };
    try {
        return convert();
    } catch (const CannotRead &failure) {
        return fail(failure.what(), failure.status());
    } catch (const tables::BidsFileExists &failure) {
        return fail(failure.what(), kIncomplete);
    } catch (const std::bad_alloc &) {
        return fail(tables::escaped(path) + ": out of memory", kFailed);
    } catch (const std::exception &error) {
        return fail(error.what(), kFailed);
    }
}

} // namespace

JobResult convertRecording(const ConversionTask &task, const ConvertOptions &options, JobProgress &progress) {
    return withFailures(task.recording, [&]() -> JobResult {
        const Earlier earlier(task, options);
        if (!options.force && earlier.isOfAnother()) {
            throw CannotRead(tables::escaped(task.stem) +
                                 ".json and its tables were made from another recording than " +
                                 tables::escaped(task.recording) +
                                 ", or from this one before it changed: choose another folder, or --force",
                             kIncomplete);
        }
        if (const auto status = earlier.status(); status && !options.force) {
            return {*status, "there already"};
        }
        return Conversion(task, options, earlier, progress).run();
    });
}

JobResult convertToBids(const std::string &recording, std::size_t run, const ConvertOptions &options,
                        JobProgress &progress) {
    return withFailures(recording, [&] { return writeIntoDataSet(recording, run, options, progress); });
}

} // namespace tool
