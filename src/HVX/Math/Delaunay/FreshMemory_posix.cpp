#include "FreshMemory.h"

#include <cstdint>
#include <sys/mman.h>
#include <unistd.h>

namespace nrq::delaunator {

void PrepareFreshMemory(void* data, std::size_t bytes) {
    static const std::uintptr_t pageSize = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    // Only whole pages inside the buffer: the ends may share a page with
    // other allocations.
    const std::uintptr_t begin = (reinterpret_cast<std::uintptr_t>(data) + pageSize - 1) & ~(pageSize - 1);
    const std::uintptr_t end = (reinterpret_cast<std::uintptr_t>(data) + bytes) & ~(pageSize - 1);
    if (end <= begin)
        return;
    void* const first = reinterpret_cast<void*>(begin);
    const std::size_t length = end - begin;
    // Both are hints: older kernels refuse them, and nothing changes.
#ifdef MADV_HUGEPAGE
    madvise(first, length, MADV_HUGEPAGE);
#endif
#ifdef MADV_POPULATE_WRITE
    madvise(first, length, MADV_POPULATE_WRITE);
#endif
}

} // namespace nrq::delaunator
