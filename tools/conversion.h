// One recording on its way into tables.
#pragma once

#include "convert.h"
#include "job_pool.h"

#include <string>
#include <vector>

namespace tool {

// A recording, and the path of what it becomes, without an extension.
struct ConversionTask {
    std::string recording;
    std::string stem;
};

// Writes all that the options ask for. Every file is whole or not there; the description beside the tables, which
// comes last, says that all are. Tells standard error what is wrong.
JobResult convertRecording(const ConversionTask &task, const ConvertOptions &options, JobProgress &progress);

// Writes a recording into a data set. `run` counts recordings from 1; 0 leaves the label to the options.
JobResult convertToBids(const std::string &recording, std::size_t run, const ConvertOptions &options,
                        JobProgress &progress);

} // namespace tool
