// Looks over the records of a file without decoding their values: where it gives less, or other, than its bytes
// promise, and what of it can be trusted all the same.
#pragma once

#include "io/input_stream.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace trk {

enum class DamageKind {
    Cut,              // the stream ends within a record, or without an end mark
    UnreadableRecord, // bytes that are no record
    Implausible,      // records that decode and cannot be
    EarlyEndMark,     // an end mark with records behind it
    CompressedData,   // compressed data that cannot be inflated
    Checksum,         // inflated data that do not add up
    BlockEndMissing,  // a recording block that starts while another goes on, or never ends
    BehindEnd,        // bytes behind the end mark that are no records
};

struct Damage {
    DamageKind kind;
    int64_t offset; // of the stretch, in the record stream
    int64_t length; // in bytes
    uint32_t time;  // of the last record before it, ms
    std::string text;
};

// A stretch of the record stream to be kept. The pieces of a survey stand in order.
struct KeptPiece {
    int64_t begin;
    int64_t end;
    bool restamp = false;           // it begins with a sample, whose time is `time`
    uint32_t time = 0;              // ms
    std::vector<uint8_t> instead{}; // unless empty, what is to stand in place of it
};

struct Survey {
    std::vector<Damage> damages; // by offset
    std::vector<KeptPiece> kept; // all of the stream when nothing is damaged
};

// Bytes that are known not to be what was recorded, or, when it is empty, a place where some are missing.
struct LostRange {
    int64_t begin;
    int64_t end;
};

struct SurveyOptions {
    int64_t begin = 0; // of the record stream
    uint16_t fileRevision = 1;
    std::span<const LostRange> lost = {}; // in order, apart from each other
};

// Reads all of the stream, whatever is in it. The position of the stream is then anywhere.
[[nodiscard]] Survey surveyRecords(InputStream &stream, const SurveyOptions &options);

} // namespace trk
