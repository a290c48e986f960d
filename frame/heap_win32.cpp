// Blocks come cleared from the process heap. HEAP_GENERATE_EXCEPTIONS is left
// out: its failure is a structured exception that g++ code can't catch, and
// callers of this seam rely on a null result instead.
#include <windows.h>

#include "frame/platform.h"

namespace vrn::platform {

void* HeapAllocCleared(size_t bytes) { return HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, bytes); }

void HeapRelease(void* block) {
    if (block != nullptr) HeapFree(GetProcessHeap(), 0, block);
}

}  // namespace vrn::platform
