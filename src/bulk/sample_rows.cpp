#include "bulk/sample_rows.h"

#include "records/sample_layout.h"
#include "records/scaling.h"

#include <algorithm>

namespace trk {

namespace {

constexpr float kUnknownPupilSize = 1000.0F;
constexpr uint16_t kBothEyes = TRK_SAMPLE_LEFT | TRK_SAMPLE_RIGHT;
constexpr int64_t kLongestReach = int64_t{1} << 20; // of the rows taken at once, bytes

constexpr std::size_t eyeOf(std::size_t lane) { return lane % kEyes; }

// The flag of the group that a lane belongs to.
constexpr uint16_t groupFlag(std::size_t lane) {
    constexpr std::array<uint16_t, 3> kFlags{TRK_SAMPLE_GAZE, TRK_SAMPLE_HREF, TRK_SAMPLE_PUPIL_POSITION};
    return kFlags[lane / Lanes::kGroup];
}

constexpr bool has(uint16_t tag, unsigned flag) { return (tag & flag) != 0; }

} // namespace

// Where the parts of a record stand behind its tag word.
struct SampleRows::Layout {
    explicit Layout(uint16_t tag) {
        const std::size_t eyes = (has(tag, TRK_SAMPLE_LEFT) ? 1U : 0U) + (has(tag, TRK_SAMPLE_RIGHT) ? 1U : 0U);
        std::size_t at = has(tag, TRK_SAMPLE_FULL_TIME) ? 4 : 1;
        const auto part = [&at, tag](unsigned flag, std::size_t size) {
            const std::size_t begin = at;
            at += has(tag, flag) ? size : 0;
            return begin;
        };
        group[2] = part(TRK_SAMPLE_PUPIL_POSITION, 4 * eyes);
        group[1] = part(TRK_SAMPLE_HREF, 4 * eyes);
        group[0] = part(TRK_SAMPLE_GAZE, 4 * eyes);
        resolution = part(TRK_SAMPLE_RESOLUTION, 4);
        pupilSize = part(TRK_SAMPLE_PUPIL_SIZE, 2 * eyes);
        status = part(TRK_SAMPLE_STATUS, 2);
        input = part(TRK_SAMPLE_INPUT, 2);
        buttons = part(TRK_SAMPLE_BUTTONS, 2);
        extension = part(TRK_SAMPLE_EXTENSION, 1);
        end = at;
    }

    std::array<std::size_t, 3> group{}; // as groups of lanes
    std::size_t resolution;
    std::size_t pupilSize;
    std::size_t status;
    std::size_t input;
    std::size_t buttons;
    std::size_t extension; // its header; the words follow
    std::size_t end;       // behind all but the extension words
};

namespace {

// Words of an extension with this header.
constexpr std::size_t extensionWords(uint8_t header) {
    return std::min<std::size_t>(header & 0x0FU, kExtensionWords);
}

} // namespace

bool SampleRows::take(const Stretch &stretch, ItemNumber first, ItemNumber end, std::size_t most, bool context,
                      float gazeDivisor) {
    gazeDivisor_ = gazeDivisor;
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
    return true;
}

bool SampleRows::collect(const Stretch &stretch, ItemNumber first, ItemNumber end, std::size_t most,
                         bool context) {
    count_ = 0;
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
    tag_[row] = item.isDummy() ? kBothEyes : item.tag;
}

// Finds the bodies of the rows. They stand in the order of the stream.
bool SampleRows::locate() {
    const auto isReal = [this](ItemNumber number) { return !index_[number].isDummy(); };
    const auto begin = number_.begin() + static_cast<std::ptrdiff_t>(begin_);
    const auto end = number_.begin() + static_cast<std::ptrdiff_t>(end_);
    const auto first = std::find_if(begin, end, isReal);
    if (first == end) {
        std::ranges::fill(body_, nullptr);
        return true;
    }
    const auto last = std::find_if(std::reverse_iterator(end), std::reverse_iterator(begin), isReal);
    const int64_t offset = index_[*first].filePosition;
    const int64_t reach = index_[*last].filePosition - offset + kLargestFixedPart;
    if (reach > kLongestReach) {
        return false;
    }
    const auto bytes = view_.at(offset, static_cast<std::size_t>(reach));
    for (std::size_t row = begin_; row < end_; ++row) {
        const Item &item = index_[number_[row]];
        body_[row] = nullptr;
        if (item.isDummy()) {
            continue;
        }
        const auto at = static_cast<std::size_t>(item.filePosition - offset);
        const Layout layout(item.tag);
        if (at + layout.end > bytes.size()) {
            return false;
        }
        const bool extends = has(item.tag, TRK_SAMPLE_EXTENSION);
        if (extends && at + layout.end + 2 * extensionWords(bytes[at + layout.extension]) > bytes.size()) {
            return false;
        }
        body_[row] = bytes.data() + at;
    }
    return true;
}

// A record tells its time, or how far it is from the record before. A walk that begins a batch at a sample takes
// its time from the index; as long as the records say the same it does not matter where batches begin.
bool SampleRows::timesFit(const Stretch &stretch) const {
    const Item *before = realSampleBefore(stretch, number_[begin_], 0);
    bool afterDummy = before == nullptr;
    for (std::size_t row = begin_; row < end_; ++row) {
        const Item &item = itemAt(row);
        if (item.isDummy()) {
            afterDummy = true;
            continue;
        }
        const uint32_t time = TimeKey::time(item.key);
        if (has(item.tag, TRK_SAMPLE_FULL_TIME)) {
            if (loadInt(body_[row]) != time) {
                return false;
            }
        } else if (!afterDummy && TimeKey::time(before->key) + body_[row][0] != time) {
            return false; // behind a dummy every walk takes the time from the index
        }
        before = &item;
        afterDummy = false;
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
    pupilBefore_ = {kUnknownPupilSize, kUnknownPupilSize};
    const Item *const before = realSampleBefore(stretch, first, TRK_SAMPLE_PUPIL_SIZE);
    if (before == nullptr) {
        return true;
    }
    const Layout layout(before->tag);
    const auto bytes = view_.at(before->filePosition, layout.end);
    if (bytes.size() < layout.end) {
        return false;
    }
    std::size_t at = layout.pupilSize;
    for (std::size_t eye = 0; eye < kEyes; ++eye) {
        const bool present = has(before->tag, kEyePresent[eye]);
        pupilBefore_[eye] = present ? plainValue(loadWord(&bytes[at])) : TRK_FIELD_ABSENT;
        at += present ? 2 : 0;
    }
    return true;
}

void SampleRows::findPupilsBehind() {
    pupilBehind_ = pupilBefore_;
    for (std::size_t row = kFirst + count_; row-- > kFirst;) {
        if (has(tag_[row], TRK_SAMPLE_PUPIL_SIZE)) {
            std::size_t at = Layout(tag_[row]).pupilSize;
            for (std::size_t eye = 0; eye < kEyes; ++eye) {
                const bool present = has(tag_[row], kEyePresent[eye]);
                pupilBehind_[eye] = present ? plainValue(loadWord(body_[row] + at)) : TRK_FIELD_ABSENT;
                at += present ? 2 : 0;
            }
            return;
        }
    }
}

// Calls each(from, to, tag, layout) for rows of one tag each; dummy samples have runs of their own.
template <class Each> void SampleRows::forRuns(std::size_t from, std::size_t to, Each each) const {
    while (from < to) {
        std::size_t behind = from + 1;
        while (behind < to && tag_[behind] == tag_[from] &&
               (body_[behind] == nullptr) == (body_[from] == nullptr)) {
            ++behind;
        }
        each(from, behind, tag_[from], Layout(tag_[from]));
        from = behind;
    }
}

template <class Number, class Convert>
[[gnu::always_inline]] inline void SampleRows::readWords(std::size_t from, std::size_t to, std::size_t offset,
                                                         Convert convert, Column<Number> &out) const {
    for (std::size_t row = from; row < to; ++row) {
        uint16_t word;
        std::memcpy(&word, body_[row] + offset, sizeof(word));
        out[row] = convert(wordFromBigEndian(word));
    }
}

void SampleRows::readPositions(std::size_t lane, std::size_t from, std::size_t to, Column<float> &out) const {
    const std::size_t eye = eyeOf(lane);
    const std::size_t axis = lane % Lanes::kGroup / kEyes;
    forRuns(from, to, [&](std::size_t begin, std::size_t end, uint16_t tag, const Layout &layout) {
        if (body_[begin] == nullptr || !has(tag, groupFlag(lane)) || !has(tag, kEyePresent[eye])) {
            const float nothing = body_[begin] == nullptr ? MISSING_DATA : TRK_FIELD_ABSENT;
            std::fill(&out[begin], &out[begin] + (end - begin), nothing);
            return;
        }
        const bool isSecond = eye == 1 && has(tag, TRK_SAMPLE_LEFT);
        const std::size_t offset = layout.group[lane / Lanes::kGroup] + (isSecond ? 4 : 0) + 2 * axis;
        if (groupFlag(lane) == TRK_SAMPLE_GAZE) {
            readWords(begin, end, offset, ScaledValue(gazeDivisor_), out);
        } else {
            readWords(begin, end, offset, plainValue, out);
        }
    });
}

void SampleRows::positions(std::size_t lane, Column<float> &out) const {
    readPositions(lane, kFirst, kFirst + count_, out);
}

void SampleRows::resolution(std::size_t axis, Column<float> &out) const {
    forRuns(begin_, end_, [&](std::size_t begin, std::size_t end, uint16_t tag, const Layout &layout) {
        if (body_[begin] == nullptr || !has(tag, TRK_SAMPLE_RESOLUTION)) {
            std::fill(&out[begin], &out[begin] + (end - begin), MISSING_DATA);
        } else {
            readWords(begin, end, layout.resolution + 2 * axis, ScaledValue(gazeDivisor_), out);
        }
    });
}

// The rows before the first one wanted that lack it read anything.
void SampleRows::pupilSizes(std::size_t eye, Column<float> &out) const {
    forRuns(begin_, end_, [&](std::size_t begin, std::size_t end, uint16_t tag, const Layout &layout) {
        if (!has(tag, TRK_SAMPLE_PUPIL_SIZE)) {
            const float last = begin <= kFirst ? pupilBefore_[eye] : out[begin - 1];
            std::fill(&out[begin], &out[begin] + (end - begin), last);
        } else if (!has(tag, kEyePresent[eye])) {
            std::fill(&out[begin], &out[begin] + (end - begin), TRK_FIELD_ABSENT);
        } else {
            const bool isSecond = eye == 1 && has(tag, TRK_SAMPLE_LEFT);
            readWords(begin, end, layout.pupilSize + (isSecond ? 2 : 0), plainValue, out);
        }
    });
}

void SampleRows::words(const SampleColumn &column, Column<uint16_t> &out) const {
    struct Kind {
        unsigned flag;
        std::size_t offset;
        uint16_t absent;
    };
    const int id = column.description.id;
    const auto kindIn = [id](const Layout &layout) -> Kind {
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
    forRuns(kFirst, kFirst + count_, [&](std::size_t begin, std::size_t end, uint16_t tag, const Layout &layout) {
        const Kind kind = kindIn(layout);
        const bool isDummy = body_[begin] == nullptr;
        if (isDummy || !has(tag, kind.flag)) {
            std::fill(&out[begin], &out[begin] + (end - begin), isDummy ? uint16_t{0} : kind.absent);
        } else if (kind.flag != TRK_SAMPLE_EXTENSION) {
            readWords(
                begin, end, kind.offset, [](uint16_t word) { return word; }, out);
        } else {
            for (std::size_t row = begin; row < end; ++row) {
                const uint8_t *const header = body_[row] + kind.offset;
                const bool isThere = column.place < extensionWords(*header);
                out[row] = id == TRK_COLUMN_EXT_TYPE ? *header
                           : isThere                 ? loadWord(header + 1 + 2 * column.place)
                                                     : uint16_t{0};
            }
        }
    });
}

void SampleRows::fillRun(LaneMask lanes, RunRows &run) const {
    resolution(0, run.resolutionX);
    resolution(1, run.resolutionY);
    run.flags = tag_;
    std::array<Column<float>, kEyes> pupil;
    pupilSizes(0, pupil[0]);
    pupilSizes(1, pupil[1]);
    for (std::size_t lane = 0; lane < Lanes::kCount; ++lane) {
        if (!hasLane(lanes, lane)) {
            continue;
        }
        Column<float> &position = run.position[lane];
        readPositions(lane, begin_, end_, position);
        const Column<float> &size = pupil[eyeOf(lane)];
        const auto needed = static_cast<uint16_t>(groupFlag(lane) | kEyePresent[eyeOf(lane)]);
        for (std::size_t row = begin_; row < end_; ++row) {
            const bool lost = has(tag_[row], TRK_SAMPLE_PUPIL_SIZE) && size[row] < kSmallestPupil;
            position[row] = (tag_[row] & needed) == needed && !lost ? position[row] : MISSING_DATA;
        }
        std::fill_n(position.begin(), begin_, MISSING_DATA);
        std::fill(position.begin() + static_cast<std::ptrdiff_t>(end_), position.end(), MISSING_DATA);
    }
}

} // namespace trk
