#include "index/item_order.h"

#include "records/codes.h"

namespace trk {

namespace {

// What the rules ask of an item.
struct Ranked {
    Ranked(const ItemIndex &index, const Item &item)
        : code(item.code()), eye(item.eye()), filePosition(item.filePosition), start(kStarts.contains(code)),
          end(kEnds.contains(code)), paired(start || end), other(kMoments.contains(code)), sample(item.isSample()),
          block(item.isRecordingBlock()), startBlock(block && index.recordingOf(item).state == TRK_BLOCK_START),
          endBlock(block && !startBlock) {}

    unsigned code;
    unsigned eye;
    int64_t filePosition;
    bool start, end, paired, other, sample, block, startBlock, endBlock;
};

// The order of two items with equal keys; the first rule that applies decides. In words: a start of block comes
// first; start events come before the sample and end events after it; an end of block comes after samples,
// messages and end events; a blink nests inside a saccade; a message comes before the sample; what is left keeps
// the order of the file. The "<=" make the rule true both ways for items at one file position, and rule 13
// contradicts rule 11: recordings sorted otherwise would deliver blinks of the same moment in another order.
// NOLINTNEXTLINE(readability-function-cognitive-complexity): a table, however long
bool precedesAtEqualKeys(const Ranked &a, const Ranked &b) {
    const bool fileOrder = a.filePosition <= b.filePosition;
    if (a.paired && b.sample) return a.start;                                // 1
    if (b.paired && a.sample) return b.end;                                  // 2
    if (a.block && b.block) return a.endBlock && b.startBlock;               // 3
    if (b.startBlock) return false;                                          // 4
    if (b.endBlock && !a.paired) return true;                                // 5
    if (b.endBlock) return a.end;                                            // 6
    if (a.block) return a.startBlock;                                        // 7
    if (a.code == REC_SBLINK && b.code == REC_SSACC) return false;           // 8
    if (a.code == REC_SSACC && b.code == REC_SBLINK) return true;            // 9
    if (a.code == REC_ESACC && b.code == REC_EBLINK) return false;           // 10
    if (a.code == REC_SBLINK && b.code == REC_EBLINK) return true;           // 11
    if (a.code == REC_EBLINK && b.code == REC_ESACC) return true;            // 12
    if (a.code == REC_EBLINK && b.code == REC_SBLINK) return a.eye != b.eye; // 13
    if (a.end && b.start) return false;                                      // 14
    if (a.start && b.end) return true;                                       // 15
    if (a.sample && b.code == REC_MESSAGE) return false;                     // 16
    if (a.code == REC_MESSAGE && b.sample) return true;                      // 17
    if (a.other && (b.other || b.sample || b.paired)) return fileOrder;      // 18
    if ((a.paired || a.sample) && b.other) return fileOrder;                 // 19
    if (!(a.paired || a.other) || !(b.paired || b.other)) return false;      // 20
    if (a.code != b.code) return false;                                      // 21
    return fileOrder;                                                        // 22
}

} // namespace

bool precedes(const ItemIndex &index, const Item &a, const Item &b) {
    const uint64_t keyA = index.effectiveKey(a);
    const uint64_t keyB = index.effectiveKey(b);
    if (keyA != keyB) {
        return keyA < keyB;
    }
    return precedesAtEqualKeys(Ranked(index, a), Ranked(index, b));
}

} // namespace trk
