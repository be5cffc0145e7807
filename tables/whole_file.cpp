#include "whole_file.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tables {

namespace {

constexpr mode_t kNewFileMode = 0666;
constexpr std::array kEndingSignals{SIGHUP, SIGINT, SIGQUIT, SIGTERM};

// Names of unfinished files, for the signal handler: it may do little more than remove them. A file without a
// place here is removed all the same unless a signal ends the program.
std::array<std::atomic<const char *>, 64> unfinished;

void removeUnfinished(int signal) {
    for (std::atomic<const char *> &name : unfinished) {
        if (const char *const path = name.load()) {
            ::unlink(path);
        }
    }
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void catchSignals() {
    static const bool once = [] {
        for (const int signal : kEndingSignals) {
            struct sigaction action {};
            ::sigaction(signal, nullptr, &action);
            if (action.sa_handler == SIG_DFL) { // one that is ignored, as under nohup, stays so
                std::signal(signal, removeUnfinished);
            }
        }
        return true;
    }();
    static_cast<void>(once);
}

// Signals that end the program wait until a file that is there has its place among the names.
class Uninterrupted {
  public:
    Uninterrupted() {
        sigset_t signals;
        ::sigemptyset(&signals);
        for (const int signal : kEndingSignals) {
            ::sigaddset(&signals, signal);
        }
        ::pthread_sigmask(SIG_BLOCK, &signals, &before_);
    }
    ~Uninterrupted() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    Uninterrupted(const Uninterrupted &) = delete;
    Uninterrupted &operator=(const Uninterrupted &) = delete;

  private:
    sigset_t before_{};
};

int enter(const char *name) {
    for (std::size_t i = 0; i < unfinished.size(); ++i) {
        const char *none = nullptr;
        if (unfinished[i].compare_exchange_strong(none, name)) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

// Opens `name` for this process alone, emptied of what one that was killed has left there. -1 where another
// process writes it, or nobody can tell.
int takeOver(const std::string &name) {
    const int descriptor =
        ::open(name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kNewFileMode);
    if (descriptor < 0) {
        return -1;
    }
    struct stat opened {};
    struct stat named {};
    const bool isLocked = ::flock(descriptor, LOCK_EX | LOCK_NB) == 0;
    // Who had the lock until now may have given the file its name in the meantime.
    if (isLocked && ::fstat(descriptor, &opened) == 0 && ::lstat(name.c_str(), &named) == 0 &&
        opened.st_dev == named.st_dev && opened.st_ino == named.st_ino && S_ISREG(opened.st_mode) &&
        opened.st_nlink == 1 && opened.st_uid == ::geteuid() && ::ftruncate(descriptor, 0) == 0) {
        return descriptor;
    }
    if (!isLocked && errno != EWOULDBLOCK) {
        ::unlink(name.c_str()); // a file system without locks: nobody writes under this name
    }
    ::close(descriptor);
    return -1;
}

[[noreturn]] void fail() { throw std::system_error(errno, std::generic_category()); }

} // namespace

WholeFile::WholeFile(const std::string &path) : path_(path) {
    std::error_code reason;
    std::error_code ignored;
    if (const auto target = std::filesystem::canonical(path, reason); !target.empty()) {
        path_ = target.string();
    } else if (std::filesystem::is_symlink(path, ignored)) {
        errno = reason.value(); // the link would be replaced, and not what it leads to
        fail();
    }
    struct stat old {};
    const bool replaces = ::stat(path_.c_str(), &old) == 0;
    if (replaces && !S_ISREG(old.st_mode)) {
        descriptor_ = ::open(path_.c_str(), O_WRONLY | O_CLOEXEC);
        if (descriptor_ < 0) {
            fail();
        }
        return;
    }
    if (replaces && ::access(path_.c_str(), W_OK) != 0) {
        fail(); // what is protected is not replaced either
    }
    catchSignals();
    const Uninterrupted uninterrupted;
    temporary_ = path_ + ".part";
    descriptor_ = takeOver(temporary_);
    static std::atomic<unsigned> count;
    while (descriptor_ < 0) {
        temporary_ = path_ + "." + std::to_string(::getpid()) + "-" + std::to_string(++count) + ".part";
        descriptor_ = ::open(temporary_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kNewFileMode);
        if (descriptor_ < 0 && errno != EEXIST) {
            fail();
        }
    }
    if (replaces) {
        ::fchmod(descriptor_, old.st_mode & 07777U);
    }
    slot_ = enter(temporary_.c_str());
}

WholeFile::~WholeFile() {
    if (!temporary_.empty()) {
        ::unlink(temporary_.c_str());
    }
    if (descriptor_ >= 0) {
        ::close(descriptor_); // only now: the next one to take the name over must not lose its file
    }
    if (slot_ >= 0) {
        unfinished[static_cast<std::size_t>(slot_)] = nullptr;
    }
}

void WholeFile::finish() {
    // Some file systems report a full disk only where a descriptor is closed. The lock stays until the file has
    // its name.
    const int copy = ::dup(descriptor_);
    if (copy < 0 || ::close(copy) != 0) {
        fail();
    }
    if (!temporary_.empty()) {
        if (::rename(temporary_.c_str(), path_.c_str()) != 0) {
            fail();
        }
        if (slot_ >= 0) {
            unfinished[static_cast<std::size_t>(std::exchange(slot_, -1))] = nullptr;
        }
        temporary_.clear();
    }
    ::close(std::exchange(descriptor_, -1));
}

} // namespace tables
