// A stream over a stdio file.
#pragma once

#include "io/input_stream.h"

#include <cstdio>
#include <memory>

namespace trk {

struct FileCloser {
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using FilePointer = std::unique_ptr<std::FILE, FileCloser>;

class FileInputStream final : public InputStream {
  public:
    // Logs and throws "File Could not be opened!" when the file cannot be opened.
    explicit FileInputStream(const char *path, std::size_t windowSize = kDefaultWindowSize);

    // Takes over an open file and reads it from its start.
    explicit FileInputStream(FilePointer file, std::size_t windowSize = kDefaultWindowSize);

    [[nodiscard]] int64_t sourceSize() override;

  protected:
    std::ptrdiff_t readSource(uint8_t *buffer, std::size_t size) override;
    bool seekSource(int64_t offset) override;

  private:
    FilePointer file_;
};

} // namespace trk
