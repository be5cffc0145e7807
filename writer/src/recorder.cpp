#include "trkwriter/recorder.h"

#include "output.h"
#include "trkapi/trkapi.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

namespace trkwriter {

namespace {

using raw::EventRecord;

constexpr std::size_t kChunkSize = 1 << 16; // bytes of records that are written at a time
constexpr std::size_t kLongestMessage = 498;
constexpr std::size_t kLongestLine = 198; // a reader takes longer lines of the preamble in pieces
constexpr double kLargestWord = 32767;
constexpr double kTimes = 4294967296.0; // times are below
constexpr double kRateSteps = 65536.0;
constexpr uint32_t kBorderDistance = 3; // ms: readers move closer ones, and lose the samples beside them
constexpr double kLongestDelay = 1000;  // ms: readers sort, but not over any number of records

// The fields of an event that hold one set of values. Tag 0: there is none.
struct ValueFields {
    raw::PairField href, gaze, resolution;
    raw::WordField pupilSize, velocity;
};
constexpr ValueFields kStartFields{raw::kStartHref, raw::kStartGaze, raw::kStartResolution, raw::kStartPupilSize,
                                   raw::kStartVelocity};
constexpr ValueFields kEndFields{raw::kEndHref, raw::kEndGaze, raw::kEndResolution, raw::kEndPupilSize,
                                 raw::kEndVelocity};
constexpr ValueFields kAverageFields{
    raw::kAverageHref, raw::kAverageGaze, {0}, raw::kAveragePupilSize, raw::kAverageVelocity};

constexpr std::array<const char *, 3> kStartNames{"start of a blink", "start of a saccade", "start of a fixation"};
constexpr std::array<const char *, 3> kEndNames{"end of a blink", "end of a saccade", "end of a fixation"};

std::string textOf(double value) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.10g", value);
    return text.data();
}

bool isMissing(const Point &point) { return std::isnan(point.x) && std::isnan(point.y); }

bool isMissing(const EyeSample &eye) {
    return isMissing(eye.pupil) && isMissing(eye.href) && isMissing(eye.gaze) && std::isnan(eye.pupilSize);
}

unsigned contentFlags(const Content &content) {
    const std::pair<bool, int> groups[] = {
        {content.pupil, TRK_SAMPLE_PUPIL_POSITION},
        {content.href, TRK_SAMPLE_HREF},
        {content.gaze, TRK_SAMPLE_GAZE},
        {content.resolution, TRK_SAMPLE_RESOLUTION},
        {content.pupilSize, TRK_SAMPLE_PUPIL_SIZE},
        {content.status, TRK_SAMPLE_STATUS},
        {content.input, TRK_SAMPLE_INPUT},
        {content.buttons, TRK_SAMPLE_BUTTONS},
        {content.extension, TRK_SAMPLE_EXTENSION},
    };
    unsigned flags = 0;
    for (const auto &[announced, flag] : groups) {
        flags |= announced ? static_cast<unsigned>(flag) : 0U;
    }
    return flags;
}

} // namespace

class Recorder::Impl {
  public:
    // Nothing is written before open().
    Impl(std::string name, const Options &options);
    void open(std::unique_ptr<Output> output);

    void startBlock(const Block &block);
    void sample(const Sample &sample);
    void startEvent(EyeEvent kind, Eyes eye, double time, const EyeValues &values);
    void endEvent(EyeEvent kind, Eyes eye, double time, const EyeSummary &summary);
    void endBlock(double time);
    void message(double time, std::string_view text);
    void button(double time, int number, bool pressed);
    void input(double time, int value);
    void finish();

  private:
    // The events of one kind in one eye.
    struct EyeEvents {
        std::optional<uint32_t> openSince;
        uint32_t lastEnd = 0;
    };

    // ---- Refusals ----

    void begin(const char *record, double time = kMissing) {
        record_ = record;
        time_ = time;
        require(!closed_, "the recording is finished, or could not be written");
    }
    void require(bool kept, const char *otherwise) const {
        if (!kept) [[unlikely]] {
            refuse(otherwise);
        }
    }
    [[noreturn, gnu::cold]] void refuse(const std::string &why) const {
        throw Error(name_ + ": " + record_ + (std::isnan(time_) ? "" : " at " + textOf(time_) + " ms") + ": " +
                    why);
    }
    [[noreturn, gnu::cold]] void refuseValue(const char *what, double value, double lowest, double largest) const {
        refuse(std::string(what) + " is " + textOf(value) + ", and goes from " + textOf(lowest) + " to " +
               textOf(largest));
    }
    void requireAnnounced(bool announced, const char *what) const {
        if (!announced) [[unlikely]] {
            refuse(std::string(what) + " was not announced by the block");
        }
    }

    // ---- From physical units to words ----

    [[nodiscard]] int word(double value, double steps, const char *what, double lowest = -kLargestWord) const {
        const double scaled = value * steps;
        if (std::isnan(value)) {
            return raw::kMissingWord;
        }
        const bool fits = scaled > lowest - 0.5 && scaled < kLargestWord + 0.5;
        if (!fits) [[unlikely]] {
            refuseValue(what, value, lowest / steps, kLargestWord / steps);
        }
        return static_cast<int>(std::lrint(scaled));
    }
    [[nodiscard]] int pupilWord(double size) const {
        return std::isnan(size) ? 0 : word(size, 1, "pupil size", 0);
    }
    [[nodiscard]] raw::Position position(const Point &point, double steps, const char *what) const {
        return {word(point.x, steps, what), word(point.y, steps, what)};
    }
    [[nodiscard]] std::optional<raw::EyePositions> positions(const Sample &sample, Point EyeSample::*field,
                                                             double steps, bool announced,
                                                             const char *what) const {
        if (!announced) {
            requireAnnounced(isMissing(sample.left.*field) && isMissing(sample.right.*field), what);
            return {};
        }
        return raw::EyePositions{position(sample.left.*field, steps, what),
                                 position(sample.right.*field, steps, what)};
    }
    [[nodiscard]] int inRange(int value, int lowest, int largest, const char *what) const {
        if (value < lowest || value > largest) {
            refuseValue(what, value, lowest, largest);
        }
        return value;
    }
    [[nodiscard]] int unsignedWord(int value, const char *what) const {
        return inRange(value, 0, UINT16_MAX, what);
    }
    [[nodiscard]] std::optional<int> sampleWord(const std::optional<int> &given, int otherwise, bool announced,
                                                const char *what) const {
        requireAnnounced(announced || !given, what);
        return announced ? std::optional(unsignedWord(given.value_or(otherwise), what)) : std::nullopt;
    }
    void requireOpenBlock() const { require(block_.has_value(), "no block is open"); }
    // Of any record.
    void requireRecent(double time) const {
        require(time >= latest_ - kLongestDelay, "lies more than a second before a record that was written");
    }
    // The time of a record that has none but whole ones.
    [[nodiscard]] uint32_t wholeTime() const {
        require(time_ >= 0 && time_ < kTimes && time_ == std::floor(time_),
                "the time is no whole number from 0 to 4294967295");
        requireRecent(time_);
        return static_cast<uint32_t>(time_);
    }
    [[nodiscard]] raw::Bytes headOf(const Options &options) const;
    [[nodiscard]] int64_t sampleKey(double time) const;
    void fillRecord(const Sample &sample);
    void fillExtension(const Sample &sample);
    void set(EventRecord &record, const ValueFields &fields, const EyeValues &values) const;

    EyeEvents &eyeEvents(EyeEvent kind, Eyes eye);
    uint32_t noteTime() const;
    void writeNote(uint32_t time, const EventRecord &record);

    // ---- To the output ----

    void write(const EventRecord &record) {
        writer_.event(record);
        recordWritten();
    }
    void recordWritten() {
        latest_ = std::max(latest_, time_);
        const std::size_t waiting = writer_.records().size();
        const bool flush = deflater_ && flushEvery_ != 0 && drained_ + waiting >= flushEvery_;
        if (waiting >= kChunkSize || flush) [[unlikely]] {
            drain(flush ? Z_FULL_FLUSH : Z_NO_FLUSH);
        }
    }
    void drain(int flush);

    std::string name_;
    const char *record_ = "options"; // what the call at hand writes, for refusals
    double time_ = kMissing;         // and at which time, if at any

    bool compressed_;
    int level_;
    std::size_t flushEvery_;
    raw::Bytes head_;
    bool fixedRate_; // of files of revision 0
    std::unique_ptr<Output> output_;
    std::optional<Deflater> deflater_;
    bool closed_ = false;
    std::size_t drained_ = 0; // bytes since the last full flush point

    raw::RecordingWriter writer_;
    raw::SampleRecord sampleRecord_; // keeps its memory from one sample to the next
    std::optional<Block> block_;
    uint32_t blockStart_ = 0;
    uint32_t lastEyeEvent_ = 0; // the latest end of one in the block
    double latest_ = 0;         // time of any record
    int64_t lastBlockEnd_ = -int64_t{kBorderDistance};
    int64_t lastSampleKey_ = -1; // twice the time
    uint32_t lastNote_ = 0;      // message, button or input
    std::array<std::array<EyeEvents, 2>, 3> eyeEvents_{};
    int buttons_ = 0;
    int input_ = 0;
};

Recorder::Impl::Impl(std::string name, const Options &options)
    : name_(std::move(name)), compressed_(options.compressed), level_(inRange(options.level, 0, 9, "level")),
      flushEvery_(options.flushEvery), head_(headOf(options)), fixedRate_(options.revision == 0) {}

raw::Bytes Recorder::Impl::headOf(const Options &options) const {
    const std::string_view magic = !options.magic.empty() ? options.magic
                                   : options.compressed   ? raw::kMagicCompressed
                                                          : raw::kMagicCombfile;
    require((magic == raw::kMagicCompressed) == options.compressed, "the magic line is not that of the container");
    require(options.compressed || magic == raw::kMagicCombfile || magic == raw::kMagicPlain,
            "the magic line is unknown");
    require(options.source.find('\n') == std::string::npos, "the source is more than a line");
    require(options.moreLines.empty() || options.moreLines.back() == '\n', "the last line has no end");
    const int revision = inRange(options.revision, 0, UINT16_MAX, "revision");
    const raw::Bytes preamble = raw::preamble(revision, options.source, options.moreLines);
    for (std::size_t start = 0; start < preamble.size();) {
        const std::size_t end = preamble.find('\n', start) + 1;
        require(end - start <= kLongestLine, "a line of the preamble is longer than 198 bytes");
        require(preamble.compare(start, end - start, raw::kPreambleEnd) != 0 || end == preamble.size(),
                "a line ends the preamble");
        start = end;
    }
    raw::Bytes head(magic);
    if (options.carriageReturn) {
        head.insert(head.size() - 1, "\r");
    }
    return head + preamble;
}

void Recorder::Impl::open(std::unique_ptr<Output> output) {
    output_ = std::move(output);
    output_->write(head_);
    if (compressed_) {
        deflater_.emplace(*output_, level_);
    }
}

// ---- Blocks ----

void Recorder::Impl::startBlock(const Block &block) {
    begin("start of a block", block.time);
    require(!block_, "a block is open");
    const uint32_t time = wholeTime();
    require(time >= lastBlockEnd_ + kBorderDistance, "is not 3 ms behind the end of the block before");
    const double rate = std::round(block.rate * kRateSteps);
    require(rate >= 1 && block.rate <= 2000, "the rate is not above 0 and at most 2000");
    require(!fixedRate_ || block.rate == 250, "the rate is 250 in files of revision 0");
    require((block.eyes & BothEyes) != 0 && (block.eyes & ~unsigned{BothEyes}) == 0, "the block has no eye");
    constexpr int kLargest = 32767;
    const int mode = inRange(block.mode, 0, 255, "mode") << 8 | inRange(block.filterLevel, 0, 15, "filter level")
                                                                    << 4;
    const raw::BlockStart start{.time = time,
                                .rate = block.rate,
                                .eyes = block.eyes,
                                .gazeDivisor = inRange(block.gazeDivisor, 1, kLargest, "gaze divisor"),
                                .velocityDivisor = inRange(block.velocityDivisor, 1, kLargest, "velocity divisor"),
                                .modeWord = mode | 1,
                                .pupilMode = inRange(block.pupilMode, 0, kLargest, "pupil mode"),
                                .content = contentFlags(block.content)};
    writer_.startBlock(start);
    block_ = block;
    blockStart_ = lastEyeEvent_ = time;
    recordWritten();
}

void Recorder::Impl::endBlock(double time) {
    begin("end of a block", time);
    requireOpenBlock();
    const uint32_t end = wholeTime();
    require(end >= blockStart_ + kBorderDistance, "is not 3 ms behind the start of the block");
    require(end >= lastEyeEvent_, "lies before the end of an eye event");
    require(2 * int64_t{end} > lastSampleKey_, "is not later than the last sample");
    for (std::size_t kind = 0; kind < eyeEvents_.size(); ++kind) {
        for (const EyeEvents &events : eyeEvents_[kind]) {
            if (events.openSince) {
                refuse(std::string("a ") + kStartNames[kind] + " has no end");
            }
        }
    }
    writer_.event(raw::endSamples(end, block_->eyes)).event(raw::endEvents(end, block_->eyes));
    block_.reset();
    lastBlockEnd_ = end;
    recordWritten();
}

// ---- Samples ----

int64_t Recorder::Impl::sampleKey(double time) const {
    require(time >= 0 && time < kTimes, "the time does not lie between 0 and 4294967295.5");
    requireRecent(time);
    const auto key = static_cast<int64_t>(2 * time);
    require(static_cast<double>(key) == 2 * time, "the time is no multiple of half a millisecond");
    require(key > lastSampleKey_, "is not later than the sample before");
    require(key >= 2 * int64_t{blockStart_}, "lies before the start of the block");
    require(
        key % 2 == 0 || (block_->rate > 1000 && key == lastSampleKey_ + 1),
        "half a millisecond takes more than 1000 samples per second, and the sample of the full one before it");
    return key;
}

void Recorder::Impl::fillRecord(const Sample &sample) {
    const Content &content = block_->content;
    requireAnnounced((block_->eyes & LeftEye) != 0 || isMissing(sample.left), "the left eye");
    requireAnnounced((block_->eyes & RightEye) != 0 || isMissing(sample.right), "the right eye");
    requireAnnounced(content.resolution || isMissing(sample.resolution), "resolution");
    requireAnnounced(content.pupilSize ||
                         (std::isnan(sample.left.pupilSize) && std::isnan(sample.right.pupilSize)),
                     "pupil size");
    const int steps = block_->gazeDivisor;
    raw::SampleRecord &record = sampleRecord_;
    record.eyes = block_->eyes;
    record.pupil = positions(sample, &EyeSample::pupil, 1, content.pupil, "raw pupil");
    record.href = positions(sample, &EyeSample::href, 1, content.href, "HREF");
    record.gaze = positions(sample, &EyeSample::gaze, steps, content.gaze, "gaze");
    record.resolution.reset();
    if (content.resolution) {
        record.resolution = position(sample.resolution, steps, "resolution");
    }
    record.pupilSize.reset();
    if (content.pupilSize) {
        record.pupilSize = raw::EyeWords{pupilWord(sample.left.pupilSize), pupilWord(sample.right.pupilSize)};
    }
    record.status = sampleWord(sample.status, 0, content.status, "status");
    record.input = sampleWord(sample.input, input_, content.input, "input");
    record.buttons = sampleWord(sample.buttons, buttons_, content.buttons, "buttons");
    fillExtension(sample);
}

void Recorder::Impl::fillExtension(const Sample &sample) {
    if (!sample.extension) {
        sampleRecord_.extension.reset();
        return;
    }
    requireAnnounced(block_->content.extension, "extension");
    const unsigned count = sample.extension->header & 0x0F;
    require(sample.extension->header <= 0xFF && count <= sample.extension->words.size(),
            "the extension's header is no byte that counts at most 8 words");
    if (!sampleRecord_.extension) {
        sampleRecord_.extension.emplace();
    }
    sampleRecord_.extension->header = sample.extension->header;
    sampleRecord_.extension->words.assign(sample.extension->words.begin(),
                                          sample.extension->words.begin() + count);
}

void Recorder::Impl::sample(const Sample &sample) {
    begin("sample", sample.time);
    requireOpenBlock();
    const int64_t key = sampleKey(sample.time);
    fillRecord(sample);
    sampleRecord_.time = static_cast<uint32_t>(key / 2);
    writer_.sample(sampleRecord_);
    lastSampleKey_ = key;
    recordWritten();
}

// ---- Events ----

Recorder::Impl::EyeEvents &Recorder::Impl::eyeEvents(EyeEvent kind, Eyes eye) {
    requireOpenBlock();
    require(eye == LeftEye || eye == RightEye, "is not of one eye");
    requireAnnounced((block_->eyes & eye) != 0, "the eye");
    return eyeEvents_.at(static_cast<std::size_t>(kind))[eye == LeftEye ? 0 : 1];
}

void Recorder::Impl::set(EventRecord &record, const ValueFields &fields, const EyeValues &values) const {
    const auto setPair = [&](raw::PairField field, const std::optional<Point> &point, int steps,
                             const char *what) {
        if (point) {
            require(field.tag != 0, "an average has no resolution");
            const raw::Position words = position(*point, steps, what);
            record.set(field, words.x, words.y);
        }
    };
    setPair(fields.href, values.href, 1, "HREF");
    setPair(fields.gaze, values.gaze, block_->gazeDivisor, "gaze");
    setPair(fields.resolution, values.resolution, block_->gazeDivisor, "resolution");
    if (values.pupilSize) {
        record.set(fields.pupilSize, pupilWord(*values.pupilSize));
    }
    if (values.velocity) {
        record.set(fields.velocity, word(*values.velocity, block_->velocityDivisor, "velocity"));
    }
}

void Recorder::Impl::startEvent(EyeEvent kind, Eyes eye, double time, const EyeValues &values) {
    const auto number = static_cast<std::size_t>(kind);
    begin(kStartNames.at(number), time);
    EyeEvents &events = eyeEvents(kind, eye);
    const uint32_t start = wholeTime();
    require(!events.openSince, "the one before has not ended");
    require(start >= blockStart_ && start >= events.lastEnd, "lies before the end of the one before or the block");
    EventRecord record(REC_SBLINK + 2 * static_cast<int>(kind), eye);
    record.startTime(start);
    set(record, kStartFields, values);
    write(record);
    events.openSince = start;
}

void Recorder::Impl::endEvent(EyeEvent kind, Eyes eye, double time, const EyeSummary &summary) {
    const auto number = static_cast<std::size_t>(kind);
    begin(kEndNames.at(number), time);
    EyeEvents &events = eyeEvents(kind, eye);
    const uint32_t end = wholeTime();
    require(events.openSince.has_value(), "it has no start");
    require(end >= *events.openSince, "lies before its start");
    EventRecord record(REC_EBLINK + 2 * static_cast<int>(kind), eye);
    record.times(*events.openSince, end);
    set(record, kStartFields, summary.start);
    set(record, kEndFields, summary.end);
    set(record, kAverageFields, summary.average);
    if (summary.peakVelocity) {
        record.set(raw::kPeakVelocity, word(*summary.peakVelocity, block_->velocityDivisor, "peak velocity"));
    }
    if (summary.status) {
        record.set(raw::kStatusWord, unsignedWord(*summary.status, "status"));
    }
    write(record);
    events = {.openSince = {}, .lastEnd = end};
    lastEyeEvent_ = std::max(lastEyeEvent_, end);
}

uint32_t Recorder::Impl::noteTime() const {
    const uint32_t time = wholeTime();
    require(time >= lastNote_, "lies before the last message, button or input");
    return time;
}

void Recorder::Impl::writeNote(uint32_t time, const EventRecord &record) {
    lastNote_ = time;
    write(record);
}

void Recorder::Impl::message(double time, std::string_view text) {
    begin("message", time);
    const uint32_t start = noteTime();
    require(text.size() <= kLongestMessage, "the text is longer than 498 bytes");
    writeNote(start, EventRecord(REC_MESSAGE).startTime(start).message(text));
}

void Recorder::Impl::button(double time, int number, bool pressed) {
    begin("button", time);
    const uint32_t start = noteTime();
    const int bit = 1 << (inRange(number, 1, 16, "button number") - 1);
    buttons_ = pressed ? buttons_ | bit : buttons_ & ~bit;
    writeNote(start,
              EventRecord(REC_BUTTON).startTime(start).set(raw::kAuxWord1, buttons_).set(raw::kAuxWord2, number));
}

void Recorder::Impl::input(double time, int value) {
    begin("input", time);
    const uint32_t start = noteTime();
    input_ = unsignedWord(value, "input");
    writeNote(start, EventRecord(REC_INPUT).startTime(start).set(raw::kAuxWord1, value));
}

// ---- To the output ----

void Recorder::Impl::drain(int flush) {
    closed_ = true; // and stays so when the output fails
    if (deflater_) {
        deflater_->write(writer_.records(), flush);
    } else {
        output_->write(writer_.records());
    }
    closed_ = false;
    drained_ = flush == Z_FULL_FLUSH ? 0 : drained_ + writer_.records().size();
    writer_.dropRecords();
}

void Recorder::Impl::finish() {
    begin("end of the recording");
    require(!block_, "a block is open");
    writer_.end();
    drain(Z_FINISH);
    closed_ = true;
    output_->finish();
}

// ---- Recorder ----

Recorder::Recorder(const std::filesystem::path &path, const Options &options)
    : impl_(std::make_unique<Impl>(path.string(), options)) {
    impl_->open(std::make_unique<FileOutput>(path));
}

Recorder::Recorder(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

Recorder Recorder::toMemory(raw::Bytes &target, const Options &options) {
    auto impl = std::make_unique<Impl>("recording", options);
    impl->open(std::make_unique<MemoryOutput>(target));
    return Recorder(std::move(impl));
}

Recorder Recorder::toDescriptor(int descriptor, std::string name, const Options &options) {
    auto impl = std::make_unique<Impl>(name, options);
    impl->open(std::make_unique<DescriptorOutput>(descriptor, std::move(name)));
    return Recorder(std::move(impl));
}

Recorder::~Recorder() = default;
Recorder::Recorder(Recorder &&other) noexcept = default;
Recorder &Recorder::operator=(Recorder &&other) noexcept = default;

void Recorder::startBlock(const Block &block) { impl_->startBlock(block); }

void Recorder::sample(const Sample &sample) { impl_->sample(sample); }

void Recorder::startEvent(EyeEvent kind, Eyes eye, double time, const EyeValues &values) {
    impl_->startEvent(kind, eye, time, values);
}

void Recorder::endEvent(EyeEvent kind, Eyes eye, double time, const EyeSummary &summary) {
    impl_->endEvent(kind, eye, time, summary);
}

void Recorder::endBlock(double time) { impl_->endBlock(time); }

void Recorder::message(double time, std::string_view text) { impl_->message(time, text); }

void Recorder::button(double time, int number, bool pressed) { impl_->button(time, number, pressed); }

void Recorder::input(double time, int value) { impl_->input(time, value); }

void Recorder::finish() { impl_->finish(); }

} // namespace trkwriter
