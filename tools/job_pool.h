// Jobs that run side by side, each in a process of its own: one that dies takes no other with it.
#pragma once

#include "status.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tool {

// What a job says while it works: how much of it is done. What it writes to standard error is told as well.
class JobProgress {
  public:
    explicit JobProgress(int descriptor) : descriptor_(descriptor) {}

    // In thousandths.
    void set(unsigned done);

  private:
    int descriptor_;
    unsigned last_ = 0;
};

struct JobResult {
    Status status = kFailed;
    std::string text; // one line
};

// Runs job(i, progress) for i from 0 to `count`, at most `atOnce` at a time, and calls ended(i, result) in the
// order in which they end. On a terminal, standard error shows how far all are. Throws std::system_error when no
// process can be made.
void runJobs(std::size_t count, std::size_t atOnce,
             const std::function<JobResult(std::size_t, JobProgress &)> &job,
             const std::function<void(std::size_t, const JobResult &)> &ended);

// The processors that this process may use.
[[nodiscard]] std::size_t processorCount();

} // namespace tool
