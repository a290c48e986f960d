#include "utilities/debug_output.h"

#include <atomic>

namespace vrn {

namespace {
std::atomic<DebugSink> replacedSink{nullptr};
}

void DebugOutput(const char* text) {
    DebugSink sink = replacedSink.load(std::memory_order_acquire);
    if (sink != nullptr) {
        sink(text);
    } else {
        SystemDebugOutput(text);
    }
}

DebugSink SetDebugSink(DebugSink sink) { return replacedSink.exchange(sink, std::memory_order_acq_rel); }

}  // namespace vrn
