#include "job_pool.h"

#include "progress.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tool {

namespace {

// Lines from a job to the pool begin with one of these; all others are for standard error.
constexpr char kProgressLine = '\x01';
constexpr char kResultLine = '\x02';
constexpr unsigned kWhole = 1000;

void send(int descriptor, const std::string &line) {
    for (std::string_view rest = line; !rest.empty();) {
        const ssize_t written = ::write(descriptor, rest.data(), rest.size());
        if (written < 0 && errno != EINTR) {
            return; // whoever listened is gone
        }
        rest.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
}

[[noreturn]] void failSystem(const char *what) { throw std::system_error(errno, std::generic_category(), what); }

class Pool {
  public:
    Pool(std::size_t count, const std::function<void(std::size_t, const JobResult &)> &ended)
        : ended_(ended), progress_(count * kWhole, true), done_(count) {}
    ~Pool() {
        for (const Running &running : running_) {
            ::kill(running.process, SIGTERM);
            ::close(running.pipe);
            ::waitpid(running.process, nullptr, 0);
        }
    }
    Pool(const Pool &) = delete;
    Pool &operator=(const Pool &) = delete;

    void start(std::size_t number, const std::function<JobResult(std::size_t, JobProgress &)> &job) {
        std::array<int, 2> ends{};
        std::fflush(nullptr); // else the new process writes what this one has not yet
        if (::pipe(ends.data()) != 0) {
            failSystem("no pipe to another process can be made");
        }
        const pid_t parent = ::getpid();
        const pid_t process = ::fork();
        if (process < 0) {
            failSystem("no other process can be made");
        }
        if (process == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGTERM);
            if (::getppid() != parent) {
                ::_exit(kFailed);
            }
            ::close(ends[0]);
            ::dup2(ends[1], STDERR_FILENO);
            JobProgress progress(ends[1]);
            const JobResult result = job(number, progress);
            send(ends[1], kResultLine + std::to_string(result.status) + result.text + "\n");
            ::_exit(result.status);
        }
        ::close(ends[1]);
        running_.push_back({number, process, ends[0], {}, {}});
    }

    [[nodiscard]] std::size_t runningCount() const { return running_.size(); }

    // Waits until a job says something, or ends.
    void listen() {
        std::vector<pollfd> pipes;
        for (const Running &running : running_) {
            pipes.push_back({running.pipe, POLLIN, 0});
        }
        if (::poll(pipes.data(), pipes.size(), -1) < 0 && errno != EINTR) {
            failSystem("the other processes cannot be waited for");
        }
        for (std::size_t i = pipes.size(); i-- > 0;) {
            if (pipes[i].revents != 0 && !hear(running_[i])) {
                end(i);
            }
        }
    }

  private:
    struct Running {
        std::size_t number;
        pid_t process;
        int pipe;
        std::string unread; // the beginning of a line
        JobResult result;
    };

    // False at the end.
    bool hear(Running &running) {
        std::array<char, 4096> bytes;
        const ssize_t size = ::read(running.pipe, bytes.data(), bytes.size());
        if (size <= 0) {
            return size < 0 && errno == EINTR;
        }
        running.unread.append(bytes.data(), static_cast<std::size_t>(size));
        for (std::size_t end = 0; (end = running.unread.find('\n')) != std::string::npos;) {
            take(running, running.unread.substr(0, end));
            running.unread.erase(0, end + 1);
        }
        return true;
    }

    void take(Running &running, const std::string &line) {
        if (line.starts_with(kProgressLine)) {
            done_[running.number] = static_cast<unsigned>(std::strtoul(line.c_str() + 1, nullptr, 10));
            showProgress();
        } else if (line.starts_with(kResultLine) && line.size() > 1) {
            running.result = {static_cast<Status>(line[1] - '0'), line.substr(2)};
        } else {
            progress_.hide();
            std::fprintf(stderr, "%s\n", line.c_str());
        }
    }

    void end(std::size_t place) {
        Running running = std::move(running_[place]);
        running_.erase(running_.begin() + static_cast<std::ptrdiff_t>(place));
        ::close(running.pipe);
        int state = 0;
        while (::waitpid(running.process, &state, 0) < 0 && errno == EINTR) {
        }
        if (running.result.text.empty()) {
            const bool wasEnded = WIFSIGNALED(state);
            running.result = {kFailed, std::string("failed: its process ") +
                                           (wasEnded ? std::string("was ended: ") + ::strsignal(WTERMSIG(state))
                                                     : std::string("ended without a word"))};
        }
        done_[running.number] = kWhole;
        progress_.hide();
        ended_(running.number, running.result);
        showProgress();
    }

    void showProgress() {
        uint64_t sum = 0;
        for (const unsigned done : done_) {
            sum += done;
        }
        progress_.show(sum);
    }

    const std::function<void(std::size_t, const JobResult &)> &ended_;
    Progress progress_;
    std::vector<unsigned> done_;
    std::vector<Running> running_;
};

} // namespace

void JobProgress::set(unsigned done) {
    if (done != last_) {
        last_ = done;
        send(descriptor_, kProgressLine + std::to_string(done) + "\n");
    }
}

void runJobs(std::size_t count, std::size_t atOnce,
             const std::function<JobResult(std::size_t, JobProgress &)> &job,
             const std::function<void(std::size_t, const JobResult &)> &ended) {
    Pool pool(count, ended);
    for (std::size_t next = 0; next < count || pool.runningCount() > 0;) {
        if (next < count && pool.runningCount() < std::max<std::size_t>(atOnce, 1)) {
            pool.start(next++, job);
        } else {
            pool.listen();
        }
    }
}

std::size_t processorCount() {
    cpu_set_t set;
    CPU_ZERO(&set);
    return ::sched_getaffinity(0, sizeof set, &set) == 0 ? static_cast<std::size_t>(std::max(CPU_COUNT(&set), 1))
                                                         : 1;
}

} // namespace tool
