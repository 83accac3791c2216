#pragma once

#include <cstddef>

namespace nrq::delaunator {

// Asks the system to map a large buffer that is about to be filled in one
// go, in huge pages where it can, instead of one page fault per page. The
// contents are not changed; a system without the means does nothing.
void PrepareFreshMemory(void* data, std::size_t bytes);

} // namespace nrq::delaunator
