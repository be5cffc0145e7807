// Samples as text, beside the bare conversion of the same values.
#include "tables/delimited.h"
#include "tables/hdf5_file.h"
#include "tables/recording_tables.h"
#include "trkwriter/recorder.h"
#include "trkwriter/session.h"

#include <benchmark/benchmark.h>

#include <charconv>
#include <filesystem>
#include <memory>
#include <unistd.h>

namespace {

std::string temporary(const char *extension) {
    const std::string name = "trkapi_table_bench." + std::to_string(::getpid()) + extension;
    return std::filesystem::temp_directory_path() / name;
}

// Ten minutes of both eyes at 1000 samples per second, as trk synth makes them.
class Session {
  public:
    Session() : path_(written(temporary(".trk"))), recording_(path_), places_(recording_, {}) {}
    ~Session() { std::filesystem::remove(path_); }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    tables::Source source() { return {recording_.handle(), places_, decoder_}; }

  private:
    static std::string written(const std::string &path) {
        trkwriter::Recorder recorder(path);
        trkwriter::SessionOptions options;
        options.minutes = 10;
        trkwriter::writeSession(recorder, options);
        recorder.finish();
        return path;
    }

    std::string path_;
    trkapi::Recording recording_;
    tables::Places places_;
    tables::TextDecoder decoder_;
};

Session &session() {
    static Session once;
    return once;
}

// Takes the rows and counts them.
class Nowhere : public tables::TableWriter {
  public:
    void write(const tables::Rows &rows) override { benchmark::DoNotOptimize(rows.row(0).data()); }
};

// Only the conversion of the numbers, without separators, files and missing cells.
class BareText : public tables::TableWriter {
  public:
    void write(const tables::Rows &rows) override {
        for (std::size_t i = 0; i < rows.size(); ++i) {
            for (const tables::Cell &cell : rows.row(i)) {
                put(cell);
            }
        }
    }

  private:
    void put(const tables::Cell &cell) {
        if (cell.kind() == tables::Cell::Kind::Float) {
            benchmark::DoNotOptimize(std::to_chars(text_.data(), text_.data() + text_.size(), cell.single()));
        } else if (cell.kind() == tables::Cell::Kind::Integer) {
            benchmark::DoNotOptimize(std::to_chars(text_.data(), text_.data() + text_.size(), cell.integer()));
        }
    }

    std::array<char, 32> text_{};
};

void copySamples(benchmark::State &state, tables::TableWriter &writer) {
    tables::Source source = session().source();
    tables::SampleTable table(source, "");
    const uint64_t rows = tables::copyRows(table, writer);
    state.counters["rows/s"] =
        benchmark::Counter(static_cast<double>(rows), benchmark::Counter::kIsIterationInvariantRate);
}

template <class Writer> void samplesTo(benchmark::State &state) {
    for (auto _ : state) {
        Writer writer;
        copySamples(state, writer);
    }
}
BENCHMARK(samplesTo<Nowhere>)->Name("samples, read only")->Unit(benchmark::kMillisecond);
BENCHMARK(samplesTo<BareText>)->Name("samples, floor: bare to_chars of them, too")->Unit(benchmark::kMillisecond);

void samplesAsText(benchmark::State &state, tables::Packing packing) {
    const std::string path = temporary(".tsv");
    for (auto _ : state) {
        tables::TextOutput out(path, {}, packing);
        tables::DelimitedWriter writer(out, {});
        copySamples(state, writer);
        out.finish();
    }
    std::filesystem::remove(path);
}
BENCHMARK_CAPTURE(samplesAsText, plain, tables::Packing::None)
    ->Name("samples, tsv")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(samplesAsText, gzip, tables::Packing::Gzip)
    ->Name("samples, tsv.gz")
    ->Unit(benchmark::kMillisecond);

void samplesAsHdf5(benchmark::State &state) {
    const std::string path = temporary(".h5");
    for (auto _ : state) {
        tables::Hdf5File file(path);
        tables::Source source = session().source();
        const auto writer = file.addTable("samples", tables::SampleTable(source, "").columns());
        copySamples(state, *writer);
        file.finish();
    }
    std::filesystem::remove(path);
}
BENCHMARK(samplesAsHdf5)->Name("samples, HDF5")->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
