#include "pattern.h"
#include "recording_tables.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>

namespace tables {

namespace {

constexpr std::array<const char *, kEyes> kEyeNames{"left", "right"};

// Values that are there, summed up.
struct Mean {
    void add(double value) {
        if (!std::isnan(value)) {
            sum += value;
            ++count;
        }
    }
    [[nodiscard]] Cell cell() const {
        return count == 0 ? Cell() : Cell(static_cast<float>(sum / static_cast<double>(count)));
    }

    double sum = 0;
    uint64_t count = 0;
};

struct EyeOfTrial {
    uint64_t samples = 0;
    uint64_t gazeMissing = 0;
    std::array<uint64_t, 3> events{}; // fixations, saccades, blinks
    Mean gazeX;
    Mean gazeY;
    Mean pupil;
};

struct TrialFigures {
    uint64_t samples = 0;
    std::array<EyeOfTrial, kEyes> eyes;
    std::map<std::string, std::string> variables;
};

class Figures {
  public:
    Figures(Source &source, const VariablePattern *variable)
        : source_(source), variable_(variable), trials_(source.places.trials().size()) {
        if (!trials_.empty()) {
            addSamples();
            addEvents();
        }
    }

    [[nodiscard]] const std::vector<TrialFigures> &trials() const { return trials_; }
    [[nodiscard]] const std::vector<std::string> &variables() const { return names_; } // as they first occur

  private:
    void addSamples() {
        constexpr std::array<int, 10> kIds{TRK_COLUMN_ITEM,
                                           TRK_COLUMN_EYES,
                                           TRK_COLUMN_DUMMY,
                                           TRK_COLUMN_BLOCK,
                                           TRK_COLUMN_GAZE_X_LEFT,
                                           TRK_COLUMN_GAZE_X_RIGHT,
                                           TRK_COLUMN_GAZE_Y_LEFT,
                                           TRK_COLUMN_GAZE_Y_RIGHT,
                                           TRK_COLUMN_PUPIL_SIZE_LEFT,
                                           TRK_COLUMN_PUPIL_SIZE_RIGHT};
        enum Place : std::size_t { kItem, kEyesPresent, kDummy, kBlock, kGazeX, kGazeY = 6, kPupil = 8 };
        const std::vector<Trial> &trials = source_.places.trials();
        trkapi::SampleReader reader(source_.handle, kIds, trials.front().first, trials.back().end);
        while (reader.next()) {
            for (std::size_t row = 0; row < reader.rows(); ++row) {
                const uint32_t trial = source_.places.trialOf(static_cast<uint32_t>(reader.value(kItem, row)));
                if (trial == 0) {
                    continue;
                }
                const auto block = static_cast<std::size_t>(reader.value(kBlock, row));
                auto eyes = static_cast<unsigned>(reader.value(kEyesPresent, row));
                // A sample that stands for a lost one claims both.
                if (reader.value(kDummy, row) != 0 && block != 0 && block <= source_.places.blocks().size()) {
                    eyes = source_.places.blocks()[block - 1].start.eye;
                }
                TrialFigures &figures = trials_[trial - 1];
                ++figures.samples;
                for (std::size_t eye = 0; eye < kEyes; ++eye) {
                    if ((eyes >> eye & 1U) == 0) {
                        continue;
                    }
                    EyeOfTrial &own = figures.eyes[eye];
                    const double x = reader.value(kGazeX + eye, row);
                    const double y = reader.value(kGazeY + eye, row);
                    ++own.samples;
                    if (std::isnan(x) || std::isnan(y)) {
                        ++own.gazeMissing;
                    } else {
                        own.gazeX.add(x);
                        own.gazeY.add(y);
                    }
                    own.pupil.add(reader.value(kPupil + eye, row));
                }
            }
        }
        source_.unreadable += reader.unreadable();
    }

    void addEvents() {
        const std::vector<Trial> &trials = source_.places.trials();
        trkapi::BulkWalk walk(source_.handle, trials.front().first, trials.back().end, kEvents | kMessages, false);
        while (const std::optional<Item> item = walk.next()) {
            const uint32_t trial = source_.places.trialOf(item->number);
            if (trial == 0 || item->record == nullptr) {
                source_.unreadable += item->record == nullptr ? 1U : 0U;
                continue;
            }
            addEvent(*item, trials_[trial - 1]);
        }
    }

    void addEvent(const Item &item, TrialFigures &figures) {
        constexpr std::array kCodes{REC_EFIX, REC_ESACC, REC_EBLINK};
        if (const auto *const code = std::ranges::find(kCodes, item.code); code != kCodes.end()) {
            EyeOfTrial &eye = figures.eyes[eyeOf(item)];
            ++eye.events[static_cast<std::size_t>(code - kCodes.begin())];
        }
        if (item.code != REC_MESSAGE || variable_ == nullptr) {
            return;
        }
        const auto found = variable_->find(source_.decoder.decode(item.text()));
        if (!found || found->first.empty()) {
            return;
        }
        if (std::ranges::find(names_, found->first) == names_.end()) {
            constexpr std::size_t kMost = 1000;
            if (names_.size() == kMost) {
                throw std::invalid_argument("the pattern for variables finds more than 1000 names");
            }
            names_.push_back(found->first);
        }
        figures.variables[found->first] = found->second;
    }

    Source &source_;
    const VariablePattern *variable_; // may be null
    std::vector<TrialFigures> trials_;
    std::vector<std::string> names_;
};

const std::vector<Column> &leadingColumns() {
    static const std::vector<Column> columns{
        {"trial", "", "number of the trial, from 1", Type::Integer},
        {"block", "", "number of the first recording block that it reaches into", Type::Integer},
        {"first_item", "", "number of its first item, from 0", Type::Integer},
        {"last_item", "", "number of its last item, the one that ended it", Type::Integer},
        {"start", "ms", "start on the tracker's clock, never moved", Type::Integer},
        {"end", "ms", "end on the tracker's clock, never moved", Type::Integer},
        {"duration", "ms", "end minus start", Type::Integer},
        {"own_end", "", "1 when a message or input ended it, 0 when its recording block did", Type::Integer},
        {"eyes", "", "eyes of the recording block in force when it ended", Type::Text},
        {"sample_rate", "Hz", "samples per second of that block", Type::Float},
        {"text", "", "text of the message that started it", Type::Text},
    };
    return columns;
}

std::vector<Column> figureColumns() {
    std::vector<Column> columns{
        {"samples", "", "number of samples, those that stand for lost ones among them", Type::Integer}};
    const auto add = [&columns](const char *name, const char *unit, const char *description, Type type) {
        for (const char *eye : kEyeNames) {
            columns.push_back(
                {std::string(name) + "_" + eye, unit, std::string(description) + ", " + eye + " eye", type});
        }
    };
    add("gaze_missing", "", "share of the samples without gaze, 0 to 1", Type::Float);
    add("fixations", "", "number of fixations that end in the trial", Type::Integer);
    add("saccades", "", "number of saccades that end in the trial", Type::Integer);
    add("blinks", "", "number of blinks that end in the trial", Type::Integer);
    add("mean_gaze_x", "display pixels", "mean gaze position, horizontal", Type::Float);
    add("mean_gaze_y", "display pixels", "mean gaze position, vertical", Type::Float);
    add("mean_pupil_size", "tracker units", "mean pupil size, area or diameter", Type::Float);
    return columns;
}

std::vector<Cell> figureCells(const TrialFigures &figures) {
    std::vector<Cell> cells{Cell(figures.samples)};
    const auto add = [&](auto value) {
        for (const EyeOfTrial &eye : figures.eyes) {
            cells.push_back(eye.samples == 0 ? Cell() : value(eye));
        }
    };
    add([](const EyeOfTrial &eye) {
        return Cell(static_cast<float>(static_cast<double>(eye.gazeMissing) / static_cast<double>(eye.samples)));
    });
    for (std::size_t kind = 0; kind < std::tuple_size_v<decltype(EyeOfTrial::events)>; ++kind) {
        for (const EyeOfTrial &eye : figures.eyes) {
            cells.push_back(eye.samples == 0 && eye.events[kind] == 0 ? Cell() : Cell(eye.events[kind]));
        }
    }
    add([](const EyeOfTrial &eye) { return eye.gazeX.cell(); });
    add([](const EyeOfTrial &eye) { return eye.gazeY.cell(); });
    add([](const EyeOfTrial &eye) { return eye.pupil.cell(); });
    return cells;
}

} // namespace

TrialTable::TrialTable(Source &source, const std::string &variable) {
    const auto pattern = variable.empty() ? nullptr : std::make_unique<VariablePattern>(variable);
    const Figures figures(source, pattern.get());
    const std::vector<Column> last = figureColumns();
    columns_ = leadingColumns();
    for (const std::string &name : figures.variables()) {
        std::string free = name;
        const auto isTaken = [&free](const Column &column) { return column.name == free; };
        while (std::ranges::any_of(columns_, isTaken) || std::ranges::any_of(last, isTaken)) {
            free.insert(0, "var_");
        }
        columns_.push_back({free, "", "named by a message of the trial", Type::Text});
    }
    columns_.insert(columns_.end(), last.begin(), last.end());
    const auto keep = [this](std::string text) {
        return Cell(std::string_view(texts_.emplace_back(std::move(text))));
    };
    for (std::size_t i = 0; const Trial &trial : source.places.trials()) {
        const TrialFigures &own = figures.trials()[i++];
        const uint32_t block = source.places.firstBlockIn(trial.first, trial.end);
        std::vector<Cell> row{Cell(i),
                              block == 0 ? Cell() : Cell(block),
                              Cell(trial.first),
                              Cell(trial.end - 1),
                              Cell(trial.header.start_time),
                              Cell(trial.header.end_time),
                              Cell(trial.duration()),
                              Cell(trial.hasOwnEnd() ? 1 : 0),
                              trial.block ? Cell(eyeName(trial.block->eye)) : Cell(),
                              trial.block ? Cell(trial.block->sample_rate) : Cell(),
                              trial.hasText ? keep(source.decoder.decode(trial.text)) : Cell()};
        for (const std::string &name : figures.variables()) {
            const auto known = own.variables.find(name);
            row.push_back(known == own.variables.end() ? Cell() : keep(known->second));
        }
        const std::vector<Cell> cells = figureCells(own);
        row.insert(row.end(), cells.begin(), cells.end());
        list_.push_back(std::move(row));
    }
}

std::vector<Column> TrialTable::fixedColumns() {
    std::vector<Column> columns = leadingColumns();
    const std::vector<Column> last = figureColumns();
    columns.insert(columns.end(), last.begin(), last.end());
    return columns;
}

} // namespace tables
