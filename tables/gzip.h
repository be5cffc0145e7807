// Compression as gzip does it: with ISA-L where the library is built with it, else with zlib.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

namespace tables {

class Gzip {
  public:
    Gzip();
    ~Gzip();
    Gzip(const Gzip &) = delete;
    Gzip &operator=(const Gzip &) = delete;

    // Replaces `out` by what these bytes add to the file; the last ones end it. Neither name nor time are in the
    // file: the same bytes give the same file.
    void compress(std::string_view bytes, bool isLast, std::vector<char> &out);

  private:
    struct Stream;

    std::unique_ptr<Stream> stream_;
};

} // namespace tables
