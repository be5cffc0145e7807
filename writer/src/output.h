// Where the bytes of a recording go.
#pragma once

#include "trkwriter/raw.h"

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <zlib.h>

namespace trkwriter {

// Calls throw Error with the name of the file and the reason.
class Output {
  public:
    virtual ~Output() = default;
    virtual void write(std::string_view bytes) = 0;
    virtual void finish() = 0;
};

// A temporary file beside the one that is named, until it takes its place in finish() or is given up.
class FileOutput final : public Output {
  public:
    explicit FileOutput(const std::filesystem::path &path);
    ~FileOutput() override;
    FileOutput(const FileOutput &) = delete;
    FileOutput &operator=(const FileOutput &) = delete;
    void write(std::string_view bytes) override;
    void finish() override;

  private:
    std::filesystem::path path_;
    std::filesystem::path temporary_; // empty: there is none (any more)
    int descriptor_ = -1;
};

// A file that somebody else has opened, and will close.
class DescriptorOutput final : public Output {
  public:
    DescriptorOutput(int descriptor, std::string name) : name_(std::move(name)), descriptor_(descriptor) {}
    void write(std::string_view bytes) override;
    void finish() override {}

  private:
    std::string name_;
    int descriptor_;
};

class MemoryOutput final : public Output {
  public:
    explicit MemoryOutput(raw::Bytes &target) : target_(target) {}
    void write(std::string_view bytes) override { bytes_ += bytes; }
    void finish() override { target_ = std::move(bytes_); }

  private:
    raw::Bytes &target_;
    raw::Bytes bytes_;
};

// Compresses what goes to an output into one zlib stream.
class Deflater {
  public:
    Deflater(Output &output, int level);
    ~Deflater();
    Deflater(const Deflater &) = delete;
    Deflater &operator=(const Deflater &) = delete;
    // `flush` is Z_NO_FLUSH, Z_FULL_FLUSH or, at the end, Z_FINISH.
    void write(std::string_view bytes, int flush);

  private:
    static constexpr std::size_t kBufferSize = 1 << 14;

    Output &output_;
    z_stream stream_{};
    raw::Bytes buffer_ = raw::Bytes(kBufferSize, '\0');
};

} // namespace trkwriter
