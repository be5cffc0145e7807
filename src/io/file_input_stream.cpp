#include "io/file_input_stream.h"

#include "base/exception.h"
#include "base/log.h"

#include <cerrno>
#include <sys/stat.h>
#include <utility>

namespace trk {

namespace {

// A pipe could be indexed, when something comes through it, but its items could not be fetched.
bool isPipe(const char *path) {
    struct stat status {};
    const bool pipe = stat(path, &status) == 0 && S_ISFIFO(status.st_mode);
    errno = pipe ? ESPIPE : errno;
    return pipe;
}

FilePointer openForReading(const char *path) {
    FilePointer file(isPipe(path) ? nullptr : std::fopen(path, "rb"));
    if (!file) {
        const int error = errno;
        logLine("The file %s could not be opened\n", path);
        throw TRKException("File Could not be opened!", TRK_ERROR_FILE, error);
    }
    // The stream's window is the buffer; a second one below it would only be copied through.
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
    return file;
}

} // namespace

FileInputStream::FileInputStream(const char *path, std::size_t windowSize)
    : InputStream(windowSize), file_(openForReading(path)) {}

FileInputStream::FileInputStream(FilePointer file, std::size_t windowSize)
    : InputStream(windowSize), file_(std::move(file)) {
    std::rewind(file_.get());
}

int64_t FileInputStream::sourceSize() {
    struct stat status {};
    return fstat(fileno(file_.get()), &status) == 0 && S_ISREG(status.st_mode) ? status.st_size : 0;
}

std::ptrdiff_t FileInputStream::readSource(uint8_t *buffer, std::size_t size) {
    const std::size_t read = std::fread(buffer, 1, size, file_.get());
    return read == 0 && std::ferror(file_.get()) != 0 ? -1 : static_cast<std::ptrdiff_t>(read);
}

bool FileInputStream::seekSource(int64_t offset) {
    std::clearerr(file_.get());
    return fseeko(file_.get(), offset, SEEK_SET) == 0;
}

} // namespace trk
