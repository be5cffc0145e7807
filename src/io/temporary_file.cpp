#include "io/temporary_file.h"

#include "base/exception.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace trk {

namespace {

constexpr mode_t kOwnerOnly = 0600;

// A file system that knows no files without a name gives one whose name is taken back at once.
int openUnnamed(const std::string &folder) {
    int descriptor = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, kOwnerOnly);
    if (descriptor < 0 && (errno == EOPNOTSUPP || errno == EISDIR)) {
        std::string name = folder + "/trkapi-XXXXXX";
        descriptor = ::mkostemp(name.data(), O_CLOEXEC);
        if (descriptor >= 0) {
            ::unlink(name.c_str());
        }
    }
    return descriptor;
}

FilePointer openIn(const std::string &folder) {
    const int descriptor = openUnnamed(folder);
    FilePointer file(descriptor >= 0 ? ::fdopen(descriptor, "w+b") : nullptr);
    if (!file && descriptor >= 0) {
        const int error = errno;
        ::close(descriptor);
        errno = error;
    }
    return file;
}

} // namespace

std::string defaultTemporaryFolder() {
    const char *const named = std::getenv("TMPDIR"); // NOLINT(concurrency-mt-unsafe): nothing here sets it
    return named != nullptr && *named != '\0' ? named : P_tmpdir;
}

FilePointer openTemporaryFile(const std::string &folder) {
    FilePointer file = folder.empty() ? FilePointer(std::tmpfile()) : openIn(folder);
    if (!file) {
        throw TRKException("Failed to create temp file \n", TRK_ERROR_TEMPORARY_FILE, errno);
    }
    // What is written comes in large pieces; a buffer would only hide how much of them a full disk has taken.
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
    return file;
}

int64_t freeBytesIn(const std::string &folder) {
    struct statvfs status {};
    return ::statvfs(folder.c_str(), &status) == 0
               ? static_cast<int64_t>(status.f_bavail) * static_cast<int64_t>(status.f_frsize)
               : -1;
}

} // namespace trk
