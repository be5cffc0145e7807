// Walks one recording in several ways that must come out the same:
//  - read with windows of 1, 7 and 64 bytes and the default window: all items, fetches, messages and log lines;
//  - as a plain and as a compressed file: all items, fetches and messages;
//  - item by item, and after jumps: see compareJumps.
// The rest of the input is a whole file, a record stream, or the recipe of a recording without defects.
#include "fuzz_support.h"

#include "api/open_recording.h"
#include "base/exception.h"
#include "support/memory_stream.h"
#include "support/walk.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

using namespace trk_test;
using trk_fuzz::Input;
using trk_fuzz::Options;
using trk_fuzz::require;

namespace {

constexpr size_t kMostWalked = 3000;
constexpr size_t kDefaultWindow = trk::InputStream::kDefaultWindowSize;

std::unique_ptr<trk::TRKFile> open(const Bytes &file, const Options &options, size_t window) {
    trk::OpenRequest request("", options.flags, options.loadEvents & TRK_EVENTS_ALL, options.loadSamples,
                             &options.config);
    request.openStream = [&](const char *) {
        return std::make_unique<MemoryStream>(file, MemoryStream::Plan{.windowSize = window});
    };
    return trk::openRecording(request);
}

Item stepAndFetch(trk::TRKFile &file) {
    Item item{.code = file.step()};
    const ALLF_DATA *const record = item.code != 0 ? file.fetch() : nullptr;
    if (record != nullptr) {
        item.fetched = true;
        item.record = *record;
        const bool event = item.code != REC_SAMPLE && item.code != REC_RECORDING;
        if (const auto *message = event ? std::exchange(item.record.event.message, nullptr) : nullptr) {
            item.message.assign(message->text, message->length);
        }
    }
    return item;
}

// What there is to see of a file: the items, or why it cannot be opened, and the log.
struct Walk {
    std::string failure;
    size_t count = 0;
    std::vector<Item> items;
    std::string log;

    bool operator==(const Walk &other) const = default;
};

Walk walk(const Bytes &file, const Options &options, size_t window) {
    LogCapture::take();
    Walk walk;
    try {
        const auto recording = open(file, options, window);
        walk.count = recording->elementCount();
        if (walk.count <= kMostWalked) {
            for (Item item = stepAndFetch(*recording); item.code != 0; item = stepAndFetch(*recording)) {
                require(walk.items.size() < walk.count, "the walk ends");
                walk.items.push_back(std::move(item));
            }
        }
    } catch (const trk::TRKException &thrown) {
        walk.failure = thrown.text();
    }
    walk.log = LogCapture::take();
    return walk;
}

// A recording as a tracker writes it: blocks apart from each other, samples in order, starts before their ends.
// What is in a block comes from a few bytes.
class Recipe {
  public:
    Recipe(Bytes preambleText, Input &input) : writer_(std::move(preambleText)) {
        for (int blocks = 1 + input.take<uint8_t>() % 2; blocks > 0; --blocks) {
            addBlock(input);
        }
        writer_.end();
    }
    const RecordingWriter &writer() const { return writer_; }

  private:
    int noise(int limit) {
        state_ = state_ * 1103515245U + 12345U;
        return static_cast<int>(state_ >> 16) % limit;
    }
    Position position() { return {noise(2000), noise(2000)}; }

    void addBlock(Input &input) {
        constexpr unsigned kGroups = 0x1FC0;
        constexpr std::array kRates{250U, 500U, 1000U, 2000U};
        constexpr std::array kEyes{LeftEye, RightEye, BothEyes};
        const auto shape = input.take<uint8_t>();
        const auto eyes = kEyes[shape / 4 % kEyes.size()];
        const unsigned rate = kRates[shape % kRates.size()];
        const unsigned content = input.take<uint16_t>() & kGroups;
        const unsigned length = input.take<uint8_t>();
        const unsigned samples = (shape & 32) != 0 ? 3 * length : length / 2; // at times more than the queue holds
        const unsigned gapEvery = shape >= 192 ? 16U + input.take<uint8_t>() : samples + 1;
        const unsigned eventEvery = 4U + input.take<uint8_t>();
        const int divisor = 1 + input.take<uint8_t>() % 20;
        state_ = input.take<uint32_t>();
        writer_.startBlock(
            {.time = time_, .rate = rate, .eyes = eyes, .gazeDivisor = divisor, .content = content});
        for (unsigned i = 1; i <= samples; ++i) {
            if (i % gapEvery != 0) {
                addSample(time_ + (i - 1) * 1000 / rate, eyes, content);
            }
            if (i % eventEvery == 0 && i > 20) {
                addEvents(time_ + (i - 1) * 1000 / rate, eyes == RightEye ? RightEye : LeftEye);
            }
        }
        time_ += samples * 1000 / rate + 4;
        writer_.endBlock(time_);
        time_ += 100;
    }

    void addSample(uint32_t time, Eyes eyes, unsigned content) {
        SampleRecord sample{.time = time, .eyes = eyes};
        const auto add = [content](unsigned group, auto &field, auto value) {
            if ((content & group) != 0) {
                field = value;
            }
        };
        add(TRK_SAMPLE_PUPIL_POSITION, sample.pupil, EyePositions{position(), position()});
        add(TRK_SAMPLE_HREF, sample.href, EyePositions{position(), position()});
        const Position left = noise(64) == 0 ? Position{kMissingWord, kMissingWord} : position();
        add(TRK_SAMPLE_GAZE, sample.gaze, EyePositions{left, position()});
        add(TRK_SAMPLE_RESOLUTION, sample.resolution, Position{200 + noise(200), 200 + noise(200)});
        add(TRK_SAMPLE_PUPIL_SIZE, sample.pupilSize, EyeWords{noise(3000), noise(3000)});
        add(TRK_SAMPLE_STATUS, sample.status, noise(256));
        add(TRK_SAMPLE_INPUT, sample.input, noise(256));
        writer_.sample(sample);
    }

    // A message, or the start and the end of an eye event.
    void addEvents(uint32_t time, Eyes eye) {
        const int start = REC_SBLINK + 2 * noise(4);
        if (start > REC_SFIX) {
            writer_.message(time, "frame " + std::to_string(time));
            return;
        }
        writer_.event(EventRecord(start, eye).startTime(time - 4));
        writer_.event(EventRecord(start + 1, eye).times(time - 4, time));
    }

    RecordingWriter writer_;
    uint32_t time_ = 1000;
    uint32_t state_ = 1;
};

// A stretch of the walk from the start of a recording block on. Positions in the walk.
struct Block {
    std::vector<size_t> starts; // the recording block and the records that start it
    std::vector<size_t> samples;
    bool evenlySpaced = true;
};

std::vector<Block> blocksOf(const std::vector<Item> &items) {
    std::vector<Block> blocks;
    for (size_t i = 0; i < items.size(); ++i) {
        const int code = items[i].code;
        if (code == REC_RECORDING && items[i].recording().state == TRK_BLOCK_START) {
            blocks.push_back({.starts = {i}});
        } else if (!blocks.empty() && (code == REC_STARTSAMPLES || code == REC_STARTEVENTS)) {
            blocks.back().starts.push_back(i);
        } else if (!blocks.empty() && code == REC_SAMPLE) {
            blocks.back().samples.push_back(i);
        }
    }
    for (Block &block : blocks) {
        const auto key = [&](size_t i) { return items[block.samples[i]].sample().sort_key; };
        for (size_t i = 2; i < block.samples.size(); ++i) {
            block.evenlySpaced = block.evenlySpaced && key(i) - key(i - 1) == key(1) - key(0);
        }
    }
    return blocks;
}

// Without what hangs on the items before: velocities, pupil sizes that are carried on, start times that ends take
// from their starts when gaps are filled.
Item ownValues(Item item, bool strict) {
    if (item.code == REC_SAMPLE) {
        FSAMPLE_REC &sample = item.record.sample;
        for (auto *const field :
             {sample.gaze_vel_x, sample.gaze_vel_y, sample.href_vel_x, sample.href_vel_y, sample.pupil_vel_x,
              sample.pupil_vel_y, sample.gaze_fvel_x, sample.gaze_fvel_y, sample.href_fvel_x, sample.href_fvel_y,
              sample.pupil_fvel_x, sample.pupil_fvel_y}) {
            field[0] = field[1] = 0;
        }
        if ((sample.flags & TRK_SAMPLE_PUPIL_SIZE) == 0) {
            sample.pupil_size[0] = sample.pupil_size[1] = 0;
        }
    } else if (strict && (item.code == REC_ESACC || item.code == REC_EFIX)) {
        item.record.event.start_time = 0;
    }
    return item;
}

// Jumps into blocks, over their starts as a caller does who wants velocities and the right divisors. The sample
// jumped to must be that of the walk in its own values. Once as many samples are walked from there as any velocity
// looks back, velocities must be those of the walk, too, when the block is evenly spaced: beside gaps they depend
// on what else the queue holds.
void compareJumps(const Bytes &file, const Options &options, const std::vector<Item> &items, Input picks) {
    constexpr size_t kJumps = 6;
    constexpr size_t kLeadIn = 40;
    const bool strict = (options.flags & 3) == TRK_OPEN_CHECK_AND_FILL;
    const std::vector<Block> blocks = blocksOf(items);
    const auto recording = open(file, options, kDefaultWindow);
    const auto fetch = [&](size_t index) {
        Item item = stepAndFetch(*recording);
        require(ownValues(item, strict) == ownValues(items[index], strict), "items are the same after a jump");
        return item;
    };
    for (size_t jump = 0; jump < kJumps && !blocks.empty(); ++jump) {
        const Block &block = blocks[picks.take<uint8_t>() % blocks.size()];
        for (const size_t start : block.starts) {
            recording->goToItem(static_cast<trk::ItemNumber>(start));
            fetch(start);
        }
        const size_t first = picks.take<uint16_t>() % std::max(block.samples.size(), size_t{1});
        const size_t last = first + kLeadIn + picks.take<uint8_t>() % 8;
        if (last >= block.samples.size()) {
            continue;
        }
        recording->goToItem(static_cast<trk::ItemNumber>(block.samples[first]));
        for (size_t i = block.samples[first]; i <= block.samples[last]; ++i) {
            const Item item = fetch(i);
            const bool wholeSample = item.code == REC_SAMPLE && (item.sample().flags & TRK_SAMPLE_PUPIL_SIZE) != 0;
            if (wholeSample && block.evenlySpaced && i >= block.samples[first + kLeadIn]) {
                require(item == items[i], "velocities are the same after a jump");
            }
        }
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const LogCapture capture;
    Input input(data, size);
    Options options(input);
    const bool recipe = options.container >= trk_fuzz::CompressedRecords;
    Bytes records;
    if (recipe) {
        options.loadEvents = TRK_EVENTS_ALL;
        options.loadSamples = 1;
        records = Recipe(options.preambleText(), input).writer().records();
    } else {
        records = input.rest();
    }
    options.container = options.container == trk_fuzz::WholeFile ? trk_fuzz::WholeFile : trk_fuzz::PlainRecords;
    const Bytes file = options.file(records);
    Walk whole = walk(file, options, kDefaultWindow);
    // Recipes are long, and nothing in them is cut off: one more window will do.
    for (const size_t window : recipe ? std::vector<size_t>{7} : std::vector<size_t>{1, 7, 64}) {
        require(walk(file, options, window) == whole, "the size of the window changes nothing");
    }
    if (recipe && whole.count <= kMostWalked) {
        require(whole.failure.empty(), "a recording without defects opens");
        compareJumps(file, options, whole.items, input);
    }
    if (options.container == trk_fuzz::PlainRecords) {
        options.container = trk_fuzz::CompressedRecords;
        Walk compressed = walk(options.file(records), options, kDefaultWindow);
        compressed.log = whole.log; // its lines name positions in the file
        require(compressed == whole, "a compressed file reads as the plain one");
    }
    return 0;
}
