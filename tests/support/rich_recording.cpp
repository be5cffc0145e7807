#include "support/scenarios.h"

#include "trkapi/trkapi.h"

#include <array>

namespace trk_test {

using namespace trkwriter::raw;

namespace {

EventRecord withEveryField(EventRecord record) {
    constexpr std::array kPairs{kStartRaw, kStartHref,     kStartGaze,  kStartResolution, kEndRaw,     kEndHref,
                                kEndGaze,  kEndResolution, kAverageRaw, kAverageHref,     kAverageGaze};
    constexpr std::array kWords{kStartPupilSize,  kEndPupilSize, kAveragePupilSize, kStartVelocity, kEndVelocity,
                                kAverageVelocity, kPeakVelocity, kAuxWord1,         kAuxWord2,      kStatusWord};
    int value = 300;
    for (const PairField field : kPairs) {
        record.set(field, value, value + 1);
        value += 10;
    }
    for (const WordField field : kWords) {
        record.set(field, value++);
    }
    return record;
}

// Left eye at 500 samples per second: each group of a sample alone, a gap, two blinks in one saccade.
void addLeftEyeBlock(RecordingWriter &writer) {
    const BlockStart block{
        .time = 1000, .rate = 500, .gazeDivisor = 10, .velocityDivisor = 10, .parseFlags = 0x20};
    writer.event(startSamples(block).set(kBlockFactor2, 2).set(kBlockValue, 3)).startEvents(block);
    writer.event(EventRecord(REC_SFIX, LeftEye).startTime(1000)).sample(1000, {9600, 5400});
    writer.sample({.time = 1002, .pupil = EyePositions{{-1500, 1200}, {}}});
    writer.sample({.time = 1004, .href = EyePositions{{-200, 300}, {}}});
    writer.sample({.time = 1006, .gaze = EyePositions{{kMissingWord, kMissingWord}, {}}});
    writer.sample({.time = 1008, .resolution = Position{350, 360}}).sample({.time = 1010, .status = 5});
    writer.sample({.time = 1012, .input = 7}).sample({.time = 1014, .buttons = 3});
    writer.sample({.time = 1016, .extension = ExtensionBlock{0x22, {1, 2}}});
    writer.sample({.time = 1018, .skipList1 = SkipList{{7, "abc"}}, .skipList2 = SkipList{{8, "e"}, {9, "d"}}});
    writer.event(withEveryField(EventRecord(REC_EFIX, LeftEye).times(1000, 1012)));
    writer.event(EventRecord(REC_SSACC, LeftEye).startTime(1014)).sample(1020, {9600, 5400});
    writer.event(EventRecord(REC_SBLINK, LeftEye).startTime(1016)).sample(1020, {9601, 5400});
    writer.event(EventRecord(REC_EBLINK, LeftEye).times(1016, 1018));
    writer.event(EventRecord(REC_SBLINK, LeftEye).startTime(1020)).sample(1032, {0, 0}, 0);
    writer.event(EventRecord(REC_EBLINK, LeftEye).times(1020, 1032)).message(1034, "-5 GO");
    writer.event(EventRecord(REC_ESACC, LeftEye).times(1014, 1034)).sample(1034, {9602, 5401}).endBlock(1036);
}

void addEventsBetweenBlocks(RecordingWriter &writer) {
    writer.event(EventRecord(REC_EBLINK, LeftEye).times(1030, 1038));
    writer.event(EventRecord(REC_SSACC, RightEye).startTime(1190)).message(1192, "TRIAL OK");
    writer.event(EventRecord(REC_SBLINK, RightEye).startTime(1194)).message(1195, "TRIALID 2");
}

// Both eyes at 1000 samples per second: all groups together, packed camera data, every code of an event.
void addBinocularBlock(RecordingWriter &writer) {
    writer.startBlock({.time = 1200, .eyes = BothEyes, .gazeDivisor = 5, .content = 0x1FF0});
    SampleRecord sample{.time = 1200,
                        .eyes = BothEyes,
                        .pupil = EyePositions{{100, -200}, {300, -400}},
                        .href = EyePositions{{500, -600}, {700, -800}},
                        .gaze = EyePositions{{4800, 2700}, {4810, kMissingWord}},
                        .resolution = Position{175, 180},
                        .pupilSize = EyeWords{1010, 10},
                        .status = 0x1234,
                        .input = 30 << 9 | 40,
                        .buttons = 0x8001,
                        .extension = ExtensionBlock{0xC8, {11, 12, 0x8040, 90, 21, 22, 0x20FF, 80}},
                        .skipList1 = SkipList{{1, "xyz"}},
                        .skipList2 = SkipList{}};
    writer.sample(sample);
    sample.pupilSize = EyeWords{-32000, -31000};
    sample.extension = ExtensionBlock{0x2F, {-1, -2, -3, -4, 900, 120, 0x2423, 0x0C0D}};
    for (const uint32_t time : {1201U, 1201U, 1202U}) {
        sample.time = time;
        writer.sample(sample);
    }
    writer.sample({.time = 1203, .eyes = RightEye, .gaze = EyePositions{{}, {1, 2}}, .timeForm = TimeForm::Full});
    writer.sample({.time = 1204, .eyes = NoEye, .pupilSize = EyeWords{}});
    for (const int code : {REC_EVENT1, REC_EVENT2, REC_EBLINK, REC_ESACC, REC_EVENT9, REC_EVENT10, REC_BUTTON}) {
        writer.event(EventRecord(code, RightEye).times(1203, 1204));
    }
    writer.event(EventRecord(REC_INPUT).startTime(1204).set(kAuxWord1, 12)).message(1204, "");
    writer.endBlock(1206);
}

// A block of events without a stated rate, so close behind the last block that their order needs care, with a
// start of a fixation that has no time. Then a block of samples that ends in an extension of the kind that the
// end of the block removes from its content flags.
void addUnevenBlocks(RecordingWriter &writer) {
    writer.startEvents({.time = 1208, .rate = {}, .eyes = RightEye, .modeWord = {}, .pupilMode = {}});
    writer.event(EventRecord(REC_EFIX, RightEye).endTime(1210).raw("\x7F")).event(EventRecord(REC_SFIX, RightEye));
    writer.event(endEvents(1212, RightEye).endTime(1214));
    writer.startSamples({.time = 5000, .rate = 250, .content = 0x0F10});
    for (const int step : {0, 1, 2, 3, 4, 5}) {
        writer.sample({.time = 5000 + 4 * static_cast<uint32_t>(step),
                       .href = EyePositions{{100 * step, -50 * step}, {}},
                       .gaze = EyePositions{{20 * step, 30 * step}, {}},
                       .resolution = Position{40, 41}});
    }
    writer.sample({.time = 5024, .extension = ExtensionBlock{0xF1, {9}}}).endSamples(5028);
}

} // namespace

RecordingWriter richRecording() {
    constexpr size_t kLongestMessage = 498;
    constexpr int kUnknownCode = 11;
    RecordingWriter writer(preamble(5, "LX", "RECORDED BY QMVB1.6.0\n"));
    writer.message(990, "TRIALID 1");
    addLeftEyeBlock(writer);
    addEventsBetweenBlocks(writer);
    addBinocularBlock(writer);
    addUnevenBlocks(writer);
    writer.message(5029, std::string_view("a\0b", 3)).message(5030, std::string(kLongestMessage, 'm'));
    for (const int code : {0, kUnknownCode, int{REC_RECORDING}}) {
        writer.event(EventRecord(code, LeftEye).startTime(5031));
    }
    return writer.end();
}

} // namespace trk_test
