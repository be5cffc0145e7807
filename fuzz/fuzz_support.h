// What the fuzz targets share: taking the input apart, files without a disk, quiet runs.
#pragma once

#include "trkapi/trkapi.h"
#include "trkwriter/raw.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace trk_fuzz {

using trkwriter::raw::Bytes;

// Few bytes can make millions of items; walking them finds nothing that these do not.
constexpr unsigned kMostItems = 12000;

// Ends the program with a message, for the fuzzer to see, when a promise was not kept.
void require(bool kept, const char *promise);

// The fuzzer's bytes, taken from their front. Behind the end they read 0.
class Input {
  public:
    explicit Input(std::string_view bytes) : rest_(bytes) {}
    Input(const uint8_t *data, size_t size) : rest_(reinterpret_cast<const char *>(data), size) {}

    [[nodiscard]] bool empty() const { return rest_.empty(); }
    template <class Number> Number take() {
        static_assert(std::is_arithmetic_v<Number>);
        Number number{};
        const std::string_view bytes = text(sizeof(number));
        std::memcpy(&number, bytes.data(), bytes.size());
        return number;
    }
    std::string_view text(size_t length) {
        const std::string_view front = rest_.substr(0, length);
        rest_.remove_prefix(front.size());
        return front;
    }
    std::string_view rest() { return text(rest_.size()); }

  private:
    std::string_view rest_;
};

// How the file is made from the rest of the input.
enum Container : unsigned { WholeFile, PlainRecords, CompressedRecords, CompressedBody };

// The first two bytes of every input.
struct Options {
    explicit Options(Input &input);

    int flags;
    int loadEvents;
    int loadSamples;
    CONFIG config;
    Container container;
    unsigned source; // of the preamble: tracker models 3, 2, 1, or no preamble lines

    [[nodiscard]] Bytes preambleText() const;
    [[nodiscard]] Bytes file(std::string_view rest) const;
};

// A file in memory, kept for the next input.
class MemoryFile {
  public:
    MemoryFile();
    const char *write(std::string_view bytes); // returns the file's path

  private:
    int descriptor_;
    std::string path_;
};

using Handle = std::unique_ptr<_TRKFILE, int (*)(_TRKFILE *)>;

// Opens the file through the public call and checks what it answers. Null also when it has too many items.
Handle open(const char *path, Options &options);

// Uses a fetched record as a caller would.
void readRecord(int code, const ALLF_DATA *record, int loadEvents);

// Walks from here to the end with every fetch.
void walk(_TRKFILE *handle, int loadEvents);

} // namespace trk_fuzz
