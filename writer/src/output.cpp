#include "output.h"

#include "trkwriter/recorder.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <new>
#include <string>
#include <system_error>
#include <unistd.h>

namespace trkwriter {

namespace {

// A name that no other file has: of this process, and not used by it before.
std::filesystem::path temporaryBeside(std::filesystem::path path) {
    static std::atomic<unsigned> count;
    return path += "." + std::to_string(getpid()) + "-" + std::to_string(++count) + ".part";
}

[[noreturn]] void fail(const std::string &name) { // for the reason that errno names
    throw Error(name + ": cannot be written: " + std::generic_category().message(errno));
}

void writeTo(int descriptor, const std::string &name, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            fail(name);
        }
    }
}

} // namespace

FileOutput::FileOutput(const std::filesystem::path &path) : path_(path) {
    std::error_code ignored;
    if (const auto status = std::filesystem::status(path, ignored); exists(status) && !is_regular_file(status)) {
        throw Error(path.string() + ": is not a file");
    }
    do {
        // Left to be removed only from here on: one that cannot be made may be another's.
        const std::filesystem::path name = temporaryBeside(path);
        descriptor_ = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor_ >= 0) {
            temporary_ = name;
        }
    } while (descriptor_ < 0 && errno == EEXIST);
    if (descriptor_ < 0) {
        fail(path.string());
    }
}

FileOutput::~FileOutput() {
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
    if (!temporary_.empty()) {
        ::unlink(temporary_.c_str());
    }
}

void FileOutput::write(std::string_view bytes) { writeTo(descriptor_, path_.string(), bytes); }

void FileOutput::finish() {
    if (::close(std::exchange(descriptor_, -1)) != 0 || ::rename(temporary_.c_str(), path_.c_str()) != 0) {
        fail(path_.string());
    }
    temporary_.clear();
}

void DescriptorOutput::write(std::string_view bytes) { writeTo(descriptor_, name_, bytes); }

Deflater::Deflater(Output &output, int level) : output_(output) {
    if (deflateInit(&stream_, level) != Z_OK) {
        throw std::bad_alloc(); // the level is a good one
    }
}

Deflater::~Deflater() { deflateEnd(&stream_); }

void Deflater::write(std::string_view bytes, int flush) {
    stream_.next_in = reinterpret_cast<const Bytef *>(bytes.data());
    stream_.avail_in = static_cast<uInt>(bytes.size());
    do {
        stream_.next_out = reinterpret_cast<Bytef *>(buffer_.data());
        stream_.avail_out = kBufferSize;
        deflate(&stream_, flush);
        output_.write(std::string_view(buffer_).substr(0, kBufferSize - stream_.avail_out));
    } while (stream_.avail_out == 0);
}

} // namespace trkwriter
