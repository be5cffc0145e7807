#include "whole_file.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
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

int enter(const char *name) {
    for (std::size_t i = 0; i < unfinished.size(); ++i) {
        const char *none = nullptr;
        if (unfinished[i].compare_exchange_strong(none, name)) {
            return static_cast<int>(i);
        }
    }
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
    static std::atomic<unsigned> count;
    do {
        temporary_ = path_ + "." + std::to_string(::getpid()) + "-" + std::to_string(++count) + ".part";
        descriptor_ = ::open(temporary_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kNewFileMode);
    } while (descriptor_ < 0 && errno == EEXIST);
    if (descriptor_ < 0) {
        fail();
    }
    if (replaces) {
        ::fchmod(descriptor_, old.st_mode & 07777U);
    }
    slot_ = enter(temporary_.c_str());
}

WholeFile::~WholeFile() {
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
    if (!temporary_.empty()) {
        ::unlink(temporary_.c_str());
    }
    if (slot_ >= 0) {
        unfinished[static_cast<std::size_t>(slot_)] = nullptr;
    }
}

void WholeFile::finish() {
    // Some file systems report a full disk only here.
    if (::close(std::exchange(descriptor_, -1)) != 0) {
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
}

} // namespace tables
