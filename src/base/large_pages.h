// Memory in large pages, where the system has them.
#pragma once

#include <cstddef>

namespace trk {

// To touch fresh memory page by page takes longer than to fill it; in large pages, next to no time. Each one that
// is touched is there as a whole: this is for much memory that is filled from its front.
void useLargePages(void *begin, std::size_t size);

} // namespace trk
