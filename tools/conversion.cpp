#include "conversion.h"

#include "damage.h"
#include "facts.h"
#include "info_json.h"
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

bool isNewerThan(const fs::path &file, const fs::path &other) {
    std::error_code none;
    const auto time = fs::last_write_time(file, none);
    const auto otherTime = fs::last_write_time(other, none);
    return !none && time >= otherTime;
}

// What decides about the content of the tables.
Json optionsJson(const ConvertOptions &options) {
    Json what = Json::array();
    for (const std::string_view table : kTables) {
        if (options.what.contains(std::string(table))) {
            what.push_back(table);
        }
    }
    const auto text = [](const std::optional<std::string> &value) {
        return value ? Json(tables::utf8(*value)) : Json();
    };
    return {{"format", options.format},
            {"what", what},
            {"columns", tables::utf8(options.table.columns)},
            {"velocities", options.velocities},
            {"missing", tables::utf8(options.table.missing)},
            {"encoding", tables::utf8(options.table.encoding)},
            {"start", text(options.texts.start)},
            {"end", text(options.texts.end)},
            {"variable", tables::utf8(options.variable)},
            {"check", options.open.check},
            {"tolerant", options.open.tolerant},
            {"salvage", options.open.salvage},
            {"keep_times", options.open.keepTimes},
            {"message_offsets", options.open.messageOffsets}};
}

// How an earlier run ended that has made the same of this recording as it is; nothing when none has.
std::optional<Status> earlierStatus(const ConversionTask &task, const Json &wanted) {
    const fs::path description = task.stem + ".json";
    if (!isNewerThan(description, task.recording)) {
        return std::nullopt;
    }
    std::ifstream file(description);
    const Json found = Json::parse(file, nullptr, false);
    if (!found.is_object() || found.value("options", Json()) != wanted || !found.contains("tables")) {
        return std::nullopt;
    }
    const bool isWhole = std::ranges::all_of(found["tables"], [&](const Json &table) {
        return table.is_object() && table.contains("file") && table["file"].is_string() &&
               fs::exists(description.parent_path() / table["file"].get<std::string>());
    });
    if (!isWhole) {
        return std::nullopt;
    }
    return found.value("complete", Json(false)) == Json(true) ? kSound : kIncomplete;
}

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
    Conversion(const ConversionTask &task, const ConvertOptions &options, JobProgress &progress)
        : task_(task), options_(options), progress_(progress),
          indexed_(task.recording, options.open, OnDamage::Refuse), places_(indexed_.findPlaces(options.texts)),
          recording_(task.recording, options.open, OnDamage::Refuse),
          decoder_(options.table.encoding), source_{recording_.handle(), places_, decoder_}, damage_(recording_) {}

    JobResult run() {
        status_ = std::max(reportDamage(recording_, damage_), reportUnmatched(indexed_, places_));
        fs::create_directories(fs::path(task_.stem).parent_path());
        const Facts facts = gatherFacts(indexed_, damage_, options_.texts);
        options_.format == "hdf5" ? writeHdf5() : writeText();
        status_ = std::max(status_, reportUnreadable(recording_, source_.unreadable));
        noteDoubtful();
        writeDescription(facts);
        return {status_, summary()};
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

    void writeDescription(const Facts &facts) {
        Json description{{"recording", tables::utf8(fs::path(task_.recording).filename().string())},
                         {"program", std::string("trk ") + TRK_PROGRAM_VERSION},
                         {"options", optionsJson(options_)},
                         {"complete", status_ == kSound},
                         {"tables", rows_},
                         {"notes", notes_},
                         {"facts", factsJson(facts)}};
        description["facts"].erase("file"); // where it was is no fact of the recording
        tables::TextOutput out(task_.stem + ".json", {task_.recording});
        writeJson(out, description);
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
    JobProgress &progress_;
    Recording indexed_;
    tables::Places places_;
    Recording recording_;
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
    Recording indexed(path, options.open, OnDamage::Refuse);
    const tables::Places places = indexed.findPlaces(options.texts);
    const Recording recording(path, options.open, OnDamage::Refuse);
    const DamageReport damage(recording);
    Status status = std::max(reportDamage(recording, damage), reportUnmatched(indexed, places));
    tables::TextDecoder decoder(options.table.encoding);
    tables::Source source{recording.handle(), places, decoder};
    tables::BidsOptions bids = options.bids;
    if (run != 0) {
        bids.run = std::to_string(run);
    }
    const std::vector<std::string> preamble = preambleLines(recording.handle());
    const tables::BidsFacts facts{preambleValue(preamble, "SOURCE:"), preambleValue(preamble, "VERSION:"),
                                  damage.isDamaged() ? "The recording is damaged " + damage.text() + "." : ""};
    std::string columns = options.table.columns;
    if (options.velocities) {
        columns += (columns.empty() ? "" : ",") + std::string("*_vel_*");
    }
    const std::vector<std::string> notes =
        tables::writeBids(source, {options.folder, path, options.force}, bids, facts, columns,
                          [&progress](unsigned done) { progress.set(done); });
    for (const std::string &note : notes) {
        std::fprintf(stderr, "trk: %s: %s\n", recording.name().c_str(), note.c_str());
    }
    if (decoder.doubtful() != 0) {
        std::fprintf(stderr, "trk: %s: %s\n", recording.name().c_str(),
                     doubtfulTexts(decoder.doubtful(), options.table.encoding).c_str());
    }
    status = std::max(status, reportUnreadable(recording, source.unreadable));
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
        const auto earlier = options.force ? std::nullopt : earlierStatus(task, optionsJson(options));
        if (earlier) {
            return {*earlier, "there already"};
        }
        return Conversion(task, options, progress).run();
    });
}

JobResult convertToBids(const std::string &recording, std::size_t run, const ConvertOptions &options,
                        JobProgress &progress) {
    return withFailures(recording, [&] { return writeIntoDataSet(recording, run, options, progress); });
}

} // namespace tool
