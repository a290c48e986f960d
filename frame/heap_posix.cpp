#include <cstdlib>

#include "frame/platform.h"

namespace vrn::platform {

// A zero-byte request still gets its own block, as the process heap gives one.
void* HeapAllocCleared(size_t bytes) { return std::calloc(1, bytes == 0 ? 1 : bytes); }

void HeapRelease(void* block) { std::free(block); }

}  // namespace vrn::platform
