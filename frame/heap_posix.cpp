#include <cstdlib>
#include <cstring>

#include "frame/platform.h"

namespace vrn::platform {

// A zero-byte request still gets its own block, as the process heap gives one.
// Cleared by hand: the C library serves malloc from the calling thread's own
// cache, where calloc takes its arena's lock on every call, and two threads
// calling procedures then run no faster than one.
void* HeapAllocCleared(size_t bytes) {
    const size_t size = bytes == 0 ? 1 : bytes;
    void* block = std::malloc(size);
    if (block != nullptr) std::memset(block, 0, size);
    return block;
}

void HeapRelease(void* block) { std::free(block); }

}  // namespace vrn::platform
