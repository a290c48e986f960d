// Instructions per call under callgrind, which counts the same on a loaded
// machine: scripts/instructions.sh runs this program once per case and side
// and divides what was collected inside MeasuredCalls by the number of calls.
//
//   vrn_instructions                       lists the cases
//   vrn_instructions CASE engine|yardstick CALLS
#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/cases.h"

// The one function whose instructions are counted; noinline keeps its name.
extern "C" __attribute__((noinline)) void MeasuredCalls(void (*calls)(int64_t), int64_t count) { calls(count); }

int main(int argc, char** argv) {
    if (argc == 1) {
        for (const vrn::bench::Case& c : vrn::bench::Cases()) std::printf("%s %d\n", c.name, c.yardstick != nullptr);
        return 0;
    }
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s [CASE engine|yardstick CALLS]\n", argv[0]);
        return 2;
    }
    vrn::bench::PrepareCases();
    const std::string side = argv[2];
    for (const vrn::bench::Case& c : vrn::bench::Cases()) {
        if (c.name != std::string(argv[1])) continue;
        void (*calls)(int64_t) = side == "engine" ? c.engine : side == "yardstick" ? c.yardstick : nullptr;
        if (calls == nullptr) break;
        calls(1);  // warm: whatever is built at the first call isn't counted
        MeasuredCalls(calls, std::atoll(argv[3]));
        return 0;
    }
    std::fprintf(stderr, "no such case or side\n");
    return 2;
}
