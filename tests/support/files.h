// Files for tests and benchmarks.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace trk_test {

inline void save(const std::filesystem::path &path, std::string_view bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

// A directory of its own, removed with all that is in it at the end of its life.
class TemporaryDirectory {
  public:
    TemporaryDirectory() {
        std::string name = (std::filesystem::temp_directory_path() / "trkapi-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), "cannot make a temporary directory");
        }
        path_ = name;
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory &) = delete;
    TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;

    std::string path(std::string_view name) const { return (path_ / name).string(); }
    // Writes a file into the directory and returns its path.
    std::string save(std::string_view name, std::string_view bytes) const {
        std::string file = path(name);
        trk_test::save(file, bytes);
        return file;
    }

  private:
    std::filesystem::path path_;
};

} // namespace trk_test
