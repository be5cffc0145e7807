// Runs a fuzz target once over each of the files that are named, and those in the folders that are named.
#include "fuzz_support.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <string>

namespace {

void replay(const std::filesystem::path &path) {
    std::ifstream stream(path, std::ios::binary);
    trk_fuzz::require(stream.is_open(), "the input can be read");
    const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
    std::fprintf(stderr, "%s\n", path.c_str()); // the last line names the input that failed
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
}

} // namespace

int main(int argc, char **argv) {
    int count = 0;
    for (const char *const argument : std::span(argv, static_cast<size_t>(argc)).subspan(1)) {
        if (!std::filesystem::is_directory(argument)) {
            replay(argument);
            ++count;
            continue;
        }
        for (const auto &entry : std::filesystem::recursive_directory_iterator(argument)) {
            if (entry.is_regular_file()) {
                replay(entry.path());
                ++count;
            }
        }
    }
    std::fprintf(stderr, "%d inputs\n", count);
    return count > 0 ? 0 : 1;
}
