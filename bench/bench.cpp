// Opening, stepping, walking and random fetching, each beside its floor, as ratios.
#include "floors.h"

#include "api/open_errors.h"
#include "api/open_recording.h"
#include "base/log.h"
#include "plain_velocity.h"
#include "support/files.h"
#include "support/scenarios.h"
#include "trkapi/trkapi.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <unistd.h>

namespace {

constexpr uint32_t kTenMinutesMs = 600 * 1000;
constexpr uint32_t kTwoHoursMs = 2 * 3600 * 1000;
constexpr int kBatch = 512;

// A recording on disk and in memory.
struct Recording {
    Recording(uint32_t durationMs, int rate, bool compressed) {
        bytes =
            trk_test::experiment({.durationMs = durationMs, .sampleRate = rate, .compressed = compressed}).file;
        body = std::string_view(bytes).substr(bytes.find("ENDP:\n") + 6);
        path = directory.save("recording.trk", bytes);
    }

    trk_test::TemporaryDirectory directory;
    std::string path;
    std::string bytes;
    std::string_view body; // what follows the preamble
};

// Each recording is made when it is first needed.
const Recording &recording(uint32_t durationMs, int rate, bool compressed) {
    static std::map<std::tuple<uint32_t, int, bool>, std::unique_ptr<Recording>> made;
    auto &entry = made[{durationMs, rate, compressed}];
    if (!entry) {
        entry = std::make_unique<Recording>(durationMs, rate, compressed);
    }
    return *entry;
}

std::unique_ptr<trk::TRKFile> openFile(const Recording &from, bool secondDoor = false) {
    if (secondDoor) {
        TRK_OPEN_OPTIONS options = trk::defaultOptions();
        options.flags = TRK_OPEN_CHECK_AND_FILL;
        return trk::openRecording(trk::OpenRequest(from.path.c_str(), options));
    }
    return trk::openRecording(
        trk::OpenRequest(from.path.c_str(), TRK_OPEN_CHECK_AND_FILL, TRK_EVENTS_ALL, 1, nullptr));
}

// Time per item, in the unit of the report.
void countItems(benchmark::State &state, std::size_t itemsPerIteration) {
    state.counters["per_item"] =
        benchmark::Counter(static_cast<double>(itemsPerIteration),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void openRecording(benchmark::State &state, uint32_t durationMs, int rate, bool compressed, bool secondDoor) {
    const Recording &from = recording(durationMs, rate, compressed);
    std::size_t items = 0;
    for (auto _ : state) {
        items = openFile(from, secondDoor)->elementCount();
    }
    countItems(state, items);
}

void openFloor(benchmark::State &state, uint32_t durationMs, int rate) {
    const Recording &from = recording(durationMs, rate, false);
    std::size_t items = 0;
    for (auto _ : state) {
        items = trk_bench::walkRecords(from.body).size();
    }
    countItems(state, items);
}

void inflation(benchmark::State &state, uint32_t durationMs, int rate) {
    const Recording &from = recording(durationMs, rate, true);
    for (auto _ : state) {
        benchmark::DoNotOptimize(trk_bench::inflateToNowhere(from.body));
    }
    countItems(state, openFile(from)->elementCount());
}

void stepThrough(benchmark::State &state, uint32_t durationMs, int rate) {
    const Recording &from = recording(durationMs, rate, false);
    const auto file = openFile(from);
    for (auto _ : state) {
        file->goToItem(0);
        while (file->step() != 0) {
        }
    }
    countItems(state, file->elementCount());
}

void walkWithFetches(benchmark::State &state, uint32_t durationMs, int rate, bool compressed) {
    const Recording &from = recording(durationMs, rate, compressed);
    const auto file = openFile(from);
    for (auto _ : state) {
        file->goToItem(0);
        while (file->step() != 0) {
            benchmark::DoNotOptimize(file->fetch());
        }
    }
    countItems(state, file->elementCount());
}

// The samples of the first half minute.
std::vector<FSAMPLE_REC> someSamples(const Recording &from) {
    constexpr std::size_t kCount = 20000;
    const auto file = openFile(from);
    std::vector<FSAMPLE_REC> samples;
    while (const int code = file->step()) {
        if (code == REC_SAMPLE && samples.size() < kCount) {
            samples.push_back(file->fetch()->sample);
        }
    }
    return samples;
}

void walkFloor(benchmark::State &state, uint32_t durationMs, int rate) {
    const std::vector<FSAMPLE_REC> samples = someSamples(recording(durationMs, rate, false));
    trk_bench::PlainQueue queue;
    for (auto _ : state) {
        queue.clear();
        std::size_t added = 0;
        for (const FSAMPLE_REC &sample : samples) {
            while (added < samples.size() && samples[added].sort_key <= sample.sort_key + 200) {
                if (queue.count() == kBatch) {
                    queue.shift();
                }
                queue.add(samples[added], samples[added].sort_key);
                ++added;
            }
            FSAMPLE_REC delivered = sample;
            trk_bench::plainSetVelocity(queue, delivered, MISSING_DATA, MISSING_DATA, rate, 3);
            benchmark::DoNotOptimize(delivered);
        }
    }
    countItems(state, samples.size());
}

void randomFetch(benchmark::State &state, uint32_t durationMs, int rate) {
    const auto file = openFile(recording(durationMs, rate, false));
    std::mt19937 random(1);
    const auto size = static_cast<trk::ItemNumber>(file->elementCount());
    file->step();
    for (auto _ : state) {
        file->goToItem(static_cast<trk::ItemNumber>(random() % size));
        file->step();
        benchmark::DoNotOptimize(file->fetch());
    }
    countItems(state, 1);
}

void batchFloor(benchmark::State &state, uint32_t durationMs, int rate) {
    const Recording &from = recording(durationMs, rate, false);
    for (auto _ : state) {
        benchmark::DoNotOptimize(trk_bench::decodeBatch(from.body, kBatch));
    }
    countItems(state, 1);
}

// Through the public calls.
std::unique_ptr<_TRKFILE, int (*)(_TRKFILE *)> openHandle(const Recording &from) {
    TRK_OPEN_OPTIONS options = trk::defaultOptions();
    options.flags = TRK_OPEN_CHECK_AND_FILL;
    return {trk_open(from.path.c_str(), &options, nullptr), trk_close_file};
}

// A compressed recording of up to 64 MiB lies in memory.
void readGaze(benchmark::State &state, uint32_t durationMs, int rate, bool compressed) {
    const auto handle = openHandle(recording(durationMs, rate, compressed));
    const int64_t samples = trk_count_items(handle.get(), 0, ~0U, REC_SAMPLE);
    trk_bench::GazeColumns rows(static_cast<std::size_t>(samples));
    std::vector<TRK_COLUMN> columns{{TRK_COLUMN_TIME, TRK_TYPE_UINT32, rows.time.data(), 0},
                                    {TRK_COLUMN_FLAGS, TRK_TYPE_UINT16, rows.flags.data(), 0}};
    for (int i = 0; i < 4; ++i) {
        columns.push_back(
            {TRK_COLUMN_GAZE_X_LEFT + i, TRK_TYPE_FLOAT, rows.gaze[static_cast<std::size_t>(i)].data(), 0});
    }
    for (int i = 0; i < 2; ++i) {
        columns.push_back({TRK_COLUMN_PUPIL_SIZE_LEFT + i, TRK_TYPE_FLOAT,
                           rows.pupilSize[static_cast<std::size_t>(i)].data(), 0});
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            trk_read_samples(handle.get(), 0, ~0U, columns.data(), columns.size(), samples, 0, nullptr));
    }
    countItems(state, static_cast<std::size_t>(samples));
}

void readGazeFloor(benchmark::State &state, uint32_t durationMs, int rate) {
    const Recording &from = recording(durationMs, rate, false);
    trk_bench::GazeColumns rows(openFile(from)->elementCount());
    std::size_t count = 0;
    for (auto _ : state) {
        count = trk_bench::decodeColumns(from.body, rows);
        benchmark::ClobberMemory();
    }
    countItems(state, count);
}

// All columns, into arrays that are used again and again and fit into the cache, as the record of the walk does.
void readAll(benchmark::State &state, uint32_t durationMs, int rate) {
    constexpr int64_t kRows = 4096;
    const auto handle = openHandle(recording(durationMs, rate, false));
    std::vector<std::vector<double>> values;
    std::vector<TRK_COLUMN> columns;
    TRK_COLUMN_DESCRIPTION column;
    for (int id = 1; trk_describe_column(id, &column) == 0; ++id) {
        values.emplace_back(kRows);
        columns.push_back({id, column.type, values.back().data(), 0});
    }
    for (auto _ : state) {
        TRK_ERROR error;
        for (unsigned item = 0;
             trk_read_samples(handle.get(), item, ~0U, columns.data(), columns.size(), kRows, 0, &error) > 0;) {
            item = static_cast<unsigned>(error.item);
        }
    }
    countItems(state, trk_get_element_count(handle.get()));
}

// Resident memory of the process in bytes.
double residentMemory() {
    std::ifstream file("/proc/self/statm");
    double total = 0;
    double resident = 0;
    file >> total >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
}

void memoryPerItem(benchmark::State &state, uint32_t durationMs, int rate) {
    const Recording &from = recording(durationMs, rate, false);
    double perItem = 0;
    for (auto _ : state) {
        const double before = residentMemory();
        const auto file = openFile(from);
        perItem = (residentMemory() - before) / static_cast<double>(file->elementCount());
    }
    state.counters["bytes_per_item"] = perItem;
}

void registerAll(uint32_t durationMs, const std::string &length) {
    using benchmark::RegisterBenchmark;
    for (const int rate : {1000, 2000}) {
        const std::string name = "/" + length + "/" + std::to_string(rate);
        const auto add = [&](const char *what, auto function, auto... arguments) {
            RegisterBenchmark((what + name).c_str(), function, durationMs, rate, arguments...)
                ->Unit(benchmark::kMillisecond);
        };
        add("memory", memoryPerItem);
        add("open", openRecording, false, false);
        add("open_floor", openFloor);
        add("open_compressed", openRecording, true, false);
        add("open_compressed:second_door", openRecording, true, true);
        add("open_compressed_floor", inflation);
        add("step", stepThrough);
        add("walk", walkWithFetches, false);
        add("walk_compressed", walkWithFetches, true);
        add("walk_floor", walkFloor);
        add("read_gaze", readGaze, false);
        add("read_gaze:inflated", readGaze, true);
        add("read_gaze_floor", readGazeFloor);
        add("read_all", readAll);
        add("read_all_floor", walkWithFetches, false);
        add("random_fetch", randomFetch);
        add("random_fetch_floor", batchFloor);
    }
}

// Prints, behind the table, each figure as a multiple of its floor. What stands behind a colon shares a floor.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run> &runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &run : runs) {
            const auto counter = run.counters.find("per_item");
            if (counter != run.counters.end()) {
                secondsPerItem_[run.benchmark_name()] = counter->second.value;
            }
        }
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        for (const auto &[name, seconds] : secondsPerItem_) {
            const std::size_t slash = name.find('/');
            const auto floor =
                secondsPerItem_.find(name.substr(0, name.find_first_of(":/")) + "_floor" + name.substr(slash));
            GetOutputStream() << name << ": " << seconds * 1e9 << " ns per item";
            if (floor != secondsPerItem_.end()) {
                GetOutputStream() << ", " << seconds / floor->second << " times its floor";
            }
            GetOutputStream() << '\n';
        }
    }

  private:
    std::map<std::string, double> secondsPerItem_;
};

} // namespace

// With TRKAPI_BENCH_LONG set in the environment also on recordings of two hours.
int main(int argc, char **argv) {
    trk::setLogFunction([](const char *) {});
    registerAll(kTenMinutesMs, "10min");
    if (std::getenv("TRKAPI_BENCH_LONG") != nullptr) {
        registerAll(kTwoHoursMs, "2h");
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}
