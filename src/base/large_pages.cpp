#include "base/large_pages.h"

#include <cerrno>
#include <cstdint>
#include <sys/mman.h>
#include <unistd.h>

namespace trk {

void useLargePages(void *begin, std::size_t size) {
    const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    const std::uintptr_t skipped = (page - reinterpret_cast<std::uintptr_t>(begin) % page) % page;
    if (size <= skipped + page) {
        return;
    }
    const int error = errno; // a system without them is as good
    ::madvise(static_cast<char *>(begin) + skipped, (size - skipped) / page * page, MADV_HUGEPAGE);
    errno = error;
}

} // namespace trk
