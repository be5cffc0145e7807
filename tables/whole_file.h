// A file that is there whole or not at all.
#pragma once

#include <string>

namespace tables {

// Written under a name beside the one it is to have (.part). What it replaces stays until then. When the work
// breaks off, also by a signal that ends the program, nothing is left behind; what a kill that nobody can catch
// has left, the next one to write the same file takes over.
class WholeFile {
  public:
    // Throws std::system_error. Something other than a regular file, such as a device, is written as it is.
    explicit WholeFile(const std::string &path);
    ~WholeFile();
    WholeFile(const WholeFile &) = delete;
    WholeFile &operator=(const WholeFile &) = delete;

    // Open for writing, and of a regular file for reading.
    [[nodiscard]] int descriptor() const { return descriptor_; }

    // Where it is until then.
    [[nodiscard]] const std::string &path() const { return temporary_.empty() ? path_ : temporary_; }

    // Gives the file its name. Throws std::system_error.
    void finish();

  private:
    std::string path_; // what links lead to
    std::string temporary_;
    int descriptor_ = -1;
    int slot_ = -1; // of the names that a signal removes
};

} // namespace tables
