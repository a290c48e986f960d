// The system's debug output: the text goes there unchanged, with nothing added.
// Linux writes it to the system log at debug level; Windows to the debugger.
#pragma once

namespace vrn {

// Passes a NUL-terminated text to the current sink.
void DebugOutput(const char* text);

// Replaces where DebugOutput goes, for tests; null restores the system's
// output. Returns the sink that was set before.
using DebugSink = void (*)(const char* text);
DebugSink SetDebugSink(DebugSink sink);

// The platform's own output.
void SystemDebugOutput(const char* text);

}  // namespace vrn
