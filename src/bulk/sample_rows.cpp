#include "bulk/sample_rows.h"

#include "measures/eye_positions.h"
#include "measures/sample_window.h"
#include "records/sample_layout.h"
#include "records/scaling.h"

#include <algorithm>

namespace trk {

namespace {

constexpr uint16_t kBothEyes = TRK_SAMPLE_LEFT | TRK_SAMPLE_RIGHT;
constexpr int64_t kLongestReach = int64_t{1} << 20; // of the rows taken at once, bytes

constexpr std::size_t eyeOf(std::size_t lane) { return lane % kEyes; }

// The flag of the group that a lane belongs to.
constexpr uint16_t groupFlag(std::size_t lane) { return kPositionFlags[lane / Lanes::kGroup]; }

constexpr bool has(uint16_t tag, unsigned flag) { return (tag & flag) != 0; }

// The pupil sizes of a record that has some.
std::array<float, kEyes> pupilSizesIn(uint16_t tag, const uint8_t *body) {
    std::array<float, kEyes> sizes{TRK_FIELD_ABSENT, TRK_FIELD_ABSENT};
    const uint8_t *at = body + SampleLayout(tag).pupilSize;
    for (std::size_t eye = 0; eye < kEyes; ++eye) {
        if (has(tag, kEyePresent[eye])) {
            sizes[eye] = plainValue(loadWord(at));
            at += 2;
        }
    }
    return sizes;
}

} // namespace

bool SampleRows::take(const Stretch &stretch, ItemNumber first, ItemNumber end, std::size_t most, bool context,
                      float gazeDivisor) {
    gazeDivisor_ = gazeDivisor;
    knownPositions_ = knownResolution_ = knownPupilSizes_ = 0;
    const bool goesOn = count_ > 0 && next_ == first && first > stretch.firstSample;
    if (!collect(stretch, first, end, std::min(most, RunRows::kRows), context)) {
        return true; // there are none
    }
    if (goesOn) {
        pupilBefore_ = pupilBehind_;
    } else if (!has(tag_[kFirst], TRK_SAMPLE_PUPIL_SIZE) && !findPupilsBefore(stretch, number_[kFirst])) {
        return false;
    }
    if (!locate() || !timesFit(stretch)) {
        count_ = 0;
        return false;
    }
    findPupilsBehind();
    findRuns();
    return true;
}

bool SampleRows::collect(const Stretch &stretch, ItemNumber first, ItemNumber end, std::size_t most,
                         bool context) {
    count_ = 0;
    marks_ = 0;
    std::size_t row = kFirst;
    ItemNumber number = first;
    for (; number < end && count_ < most; ++number) {
        if (index_[number].isSample()) {
            append(row++, number);
            ++count_;
        }
    }
    next_ = number;
    const std::size_t last = context ? row + RunRows::kContext : row;
    for (; number < stretch.end && row < last; ++number) {
        if (index_[number].isSample()) {
            append(row++, number);
        }
    }
    end_ = row;
    begin_ = kFirst;
    for (number = first; context && number > stretch.firstSample && begin_ > 0;) {
        if (index_[--number].isSample()) {
            append(--begin_, number);
        }
    }
    std::fill_n(tag_.begin(), begin_, uint16_t{0});
    std::fill(tag_.begin() + static_cast<std::ptrdiff_t>(end_), tag_.end(), uint16_t{0});
    return count_ > 0;
}

void SampleRows::append(std::size_t row, ItemNumber number) {
    const Item &item = index_[number];
    number_[row] = number;
    key_[row] = item.key;
    type_[row] = item.type;
    marks_ |= item.type;
    tag_[row] = item.isDummy() ? kBothEyes : item.tag;
}

// Finds the bodies of the rows. They stand in the order of the stream.
bool SampleRows::locate() {
    const auto isReal = [this](std::size_t row) { return !index_[number_[row]].isDummy(); };
    std::size_t first = begin_;
    while (first < end_ && !isReal(first)) {
        ++first;
    }
    if (first == end_) {
        std::ranges::fill(body_, nullptr);
        return true;
    }
    std::size_t last = end_ - 1;
    while (!isReal(last)) {
        --last;
    }
    const int64_t offset = index_[number_[first]].filePosition;
    const int64_t reach = index_[number_[last]].filePosition - offset + kLargestFixedPart;
    if (reach > kLongestReach) {
        return false;
    }
    const auto bytes = view_.at(offset, static_cast<std::size_t>(reach));
    for (std::size_t row = begin_; row < end_; ++row) {
        const Item &item = index_[number_[row]];
        body_[row] = item.isDummy() ? nullptr : bytes.data() + (item.filePosition - offset);
    }
    // Only the last one can be cut short.
    const Item &lastItem = index_[number_[last]];
    const SampleLayout layout(lastItem.tag);
    const auto at = static_cast<std::size_t>(lastItem.filePosition - offset);
    if (at + layout.end > bytes.size()) {
        return false;
    }
    const bool extends = has(lastItem.tag, TRK_SAMPLE_EXTENSION);
    return !extends || at + layout.end + 2 * extensionWordCount(bytes[at + layout.extension]) <= bytes.size();
}

// A record tells its time, or how far it is from the record before. A walk that begins a batch at a sample takes
// its time from the index; as long as the records say the same it does not matter where batches begin.
bool SampleRows::timesFit(const Stretch &stretch) const {
    const Item *const before = realSampleBefore(stretch, number_[begin_], 0);
    bool anchored = before == nullptr;
    uint32_t timeBefore = anchored ? 0 : TimeKey::time(before->key);
    for (std::size_t row = begin_; row < end_; ++row) {
        if (body_[row] == nullptr) {
            anchored = true; // behind a dummy every walk takes the time from the index
            continue;
        }
        const uint32_t time = TimeKey::time(key_[row]);
        const bool fits = has(tag_[row], TRK_SAMPLE_FULL_TIME) ? loadInt(body_[row]) == time
                                                               : anchored || timeBefore + body_[row][0] == time;
        if (!fits) {
            return false;
        }
        timeBefore = time;
        anchored = false;
    }
    return true;
}

// The last real sample before an item that has a flag; null when there is none in the stretch.
const Item *SampleRows::realSampleBefore(const Stretch &stretch, ItemNumber number, uint16_t flag) const {
    while (number > stretch.firstSample) {
        const Item &item = index_[--number];
        if (item.isSample() && !item.isDummy() && (flag == 0 || has(item.tag, flag))) {
            return &item;
        }
    }
    return nullptr;
}

bool SampleRows::findPupilsBefore(const Stretch &stretch, ItemNumber first) {
    pupilBefore_ = {SampleWindow::kUnknownPupilSize, SampleWindow::kUnknownPupilSize};
    const Item *const before = realSampleBefore(stretch, first, TRK_SAMPLE_PUPIL_SIZE);
    if (before == nullptr) {
        return true;
    }
    const std::size_t size = SampleLayout(before->tag).end;
    const auto bytes = view_.at(before->filePosition, size);
    if (bytes.size() < size) {
        return false;
    }
    pupilBefore_ = pupilSizesIn(before->tag, bytes.data());
    return true;
}

void SampleRows::findPupilsBehind() {
    pupilBehind_ = pupilBefore_;
    for (std::size_t row = kFirst + count_; row-- > kFirst;) {
        if (has(tag_[row], TRK_SAMPLE_PUPIL_SIZE)) {
            pupilBehind_ = pupilSizesIn(tag_[row], body_[row]);
            return;
        }
    }
}

// Finds the runs of rows with one tag. Dummy samples have a tag that no record has.
void SampleRows::findRuns() {
    runs_ = 0;
    for (std::size_t row = begin_; row < end_; ++row) {
        if (row == begin_ || tag_[row] != tag_[row - 1]) {
            runBegin_[runs_++] = row;
        }
    }
    runBegin_[runs_] = end_;
}

// Calls each(from, to, tag, layout) for the runs.
template <class Each> void SampleRows::forRuns(Each each) const {
    for (std::size_t run = 0; run < runs_; ++run) {
        const std::size_t begin = runBegin_[run];
        each(begin, runBegin_[run + 1], tag_[begin], SampleLayout(tag_[begin]));
    }
}

void SampleRows::gather(std::size_t from, std::size_t to, std::size_t offset, Column<uint16_t> &words) const {
    for (std::size_t row = from; row < to; ++row) {
        std::memcpy(&words[row], body_[row] + offset, sizeof(uint16_t));
    }
    for (std::size_t row = from; row < to; ++row) {
        words[row] = wordFromBigEndian(words[row]);
    }
}

// In two passes, so that the second one handles several values at once.
template <class Convert>
void SampleRows::readValues(std::size_t from, std::size_t to, std::size_t offset, Convert convert,
                            Column<float> &out) const {
    Column<uint16_t> words;
    gather(from, to, offset, words);
    for (std::size_t row = from; row < to; ++row) {
        out[row] = convert(words[row]);
    }
}

const SampleRows::Column<float> &SampleRows::positions(std::size_t lane) {
    Column<float> &out = positions_[lane];
    if (hasLane(knownPositions_, lane)) {
        return out;
    }
    knownPositions_ |= LaneMask{1} << lane;
    const std::size_t eye = eyeOf(lane);
    const std::size_t axis = lane % Lanes::kGroup / kEyes;
    forRuns([&](std::size_t begin, std::size_t end, uint16_t tag, const SampleLayout &layout) {
        if (body_[begin] == nullptr || !has(tag, groupFlag(lane)) || !has(tag, kEyePresent[eye])) {
            const float nothing = body_[begin] == nullptr ? MISSING_DATA : TRK_FIELD_ABSENT;
            std::fill(&out[begin], &out[begin] + (end - begin), nothing);
            return;
        }
        const bool isSecond = eye == 1 && has(tag, TRK_SAMPLE_LEFT);
        const std::size_t offset = layout.group[lane / Lanes::kGroup] + (isSecond ? 4 : 0) + 2 * axis;
        if (groupFlag(lane) == TRK_SAMPLE_GAZE) {
            readValues(begin, end, offset, ScaledValue(gazeDivisor_), out);
        } else {
            readValues(
                begin, end, offset, [](uint16_t word) { return plainValue(word); }, out);
        }
    });
    return out;
}

const SampleRows::Column<float> &SampleRows::resolution(std::size_t axis) {
    Column<float> &out = resolution_[axis];
    if ((knownResolution_ >> axis & 1U) != 0) {
        return out;
    }
    knownResolution_ |= 1U << axis;
    forRuns([&](std::size_t begin, std::size_t end, uint16_t tag, const SampleLayout &layout) {
        if (body_[begin] == nullptr || !has(tag, TRK_SAMPLE_RESOLUTION)) {
            std::fill(&out[begin], &out[begin] + (end - begin), MISSING_DATA);
        } else {
            readValues(begin, end, layout.resolution + 2 * axis, ScaledValue(gazeDivisor_), out);
        }
    });
    return out;
}

// The rows before the first one wanted that lack it read anything.
const SampleRows::Column<float> &SampleRows::pupilSizes(std::size_t eye) {
    Column<float> &out = pupilSizes_[eye];
    if ((knownPupilSizes_ >> eye & 1U) != 0) {
        return out;
    }
    knownPupilSizes_ |= 1U << eye;
    forRuns([&](std::size_t begin, std::size_t end, uint16_t tag, const SampleLayout &layout) {
        if (!has(tag, TRK_SAMPLE_PUPIL_SIZE)) {
            const float last = begin <= kFirst ? pupilBefore_[eye] : out[begin - 1];
            std::fill(&out[begin], &out[begin] + (end - begin), last);
        } else if (!has(tag, kEyePresent[eye])) {
            std::fill(&out[begin], &out[begin] + (end - begin), TRK_FIELD_ABSENT);
        } else {
            const bool isSecond = eye == 1 && has(tag, TRK_SAMPLE_LEFT);
            readValues(
                begin, end, layout.pupilSize + (isSecond ? 2 : 0), [](uint16_t word) { return plainValue(word); },
                out);
        }
    });
    return out;
}

void SampleRows::words(const SampleColumn &column, Column<uint16_t> &out) const {
    struct Kind {
        unsigned flag;
        std::size_t offset;
        uint16_t absent;
    };
    const int id = column.description.id;
    const auto kindIn = [id](const SampleLayout &layout) -> Kind {
        switch (id) {
        case TRK_COLUMN_INPUT:
            return {TRK_SAMPLE_INPUT, layout.input, TRK_WORD_ABSENT};
        case TRK_COLUMN_BUTTONS:
            return {TRK_SAMPLE_BUTTONS, layout.buttons, 0};
        case TRK_COLUMN_STATUS:
            return {TRK_SAMPLE_STATUS, layout.status, TRK_WORD_ABSENT};
        case TRK_COLUMN_EXT_TYPE:
            return {TRK_SAMPLE_EXTENSION, layout.extension, TRK_WORD_ABSENT};
        default:
            return {TRK_SAMPLE_EXTENSION, layout.extension, 0};
        }
    };
    forRuns([&](std::size_t begin, std::size_t end, uint16_t tag, const SampleLayout &layout) {
        const Kind kind = kindIn(layout);
        const bool isDummy = body_[begin] == nullptr;
        if (isDummy || !has(tag, kind.flag)) {
            std::fill(&out[begin], &out[begin] + (end - begin), isDummy ? uint16_t{0} : kind.absent);
        } else if (kind.flag != TRK_SAMPLE_EXTENSION) {
            gather(begin, end, kind.offset, out);
        } else {
            for (std::size_t row = begin; row < end; ++row) {
                const uint8_t *const header = body_[row] + kind.offset;
                const bool isThere = column.place < extensionWordCount(*header);
                out[row] = id == TRK_COLUMN_EXT_TYPE ? *header
                           : isThere                 ? loadWord(header + 1 + 2 * column.place)
                                                     : uint16_t{0};
            }
        }
    });
}

void SampleRows::fillRun(LaneMask lanes, RunRows &run) {
    run.resolutionX = resolution(0);
    run.resolutionY = resolution(1);
    for (std::size_t eye = 0; eye < kEyes; ++eye) {
        forRuns([&](std::size_t begin, std::size_t end, uint16_t tag, const SampleLayout &) {
            const uint32_t present = has(tag, kEyePresent[eye]) ? 0xFFFFFFFF : 0;
            std::fill(&run.present[eye][begin], &run.present[eye][begin] + (end - begin), present);
        });
    }
    for (std::size_t lane = 0; lane < Lanes::kCount; ++lane) {
        if (hasLane(lanes, lane)) {
            fillLane(lane, run.position[lane]);
        }
    }
}

// The positions of a lane that can be relied on.
void SampleRows::fillLane(std::size_t lane, Column<float> &out) {
    const Column<float> &position = positions(lane);
    const Column<float> &size = pupilSizes(eyeOf(lane));
    std::fill_n(out.begin(), begin_, MISSING_DATA);
    std::fill(out.begin() + static_cast<std::ptrdiff_t>(end_), out.end(), MISSING_DATA);
    forRuns([&](std::size_t begin, std::size_t end, uint16_t tag, const SampleLayout &) {
        if (!has(tag, groupFlag(lane)) || !has(tag, kEyePresent[eyeOf(lane)])) {
            std::fill(&out[begin], &out[begin] + (end - begin), MISSING_DATA);
            return;
        }
        const uint32_t sized = has(tag, TRK_SAMPLE_PUPIL_SIZE) ? 0xFFFFFFFF : 0;
        for (std::size_t row = begin; row < end; ++row) {
            const uint32_t lost = size[row] < kSmallestPupil ? sized : 0;
            out[row] = chosen(lost, MISSING_DATA, position[row]);
        }
    });
}

} // namespace trk
