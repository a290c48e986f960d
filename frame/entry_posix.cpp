// The shared object's load and unload stand for process attach and detach.
#include "frame/procedure.h"

namespace {

__attribute__((constructor)) void OnLibraryLoad() { (void)vrn::LibraryEntry(1); }

__attribute__((destructor)) void OnLibraryUnload() { (void)vrn::LibraryEntry(0); }

}  // namespace
