// The engines' benchmark cases, shared by the timed benchmarks and the
// instruction counts: each makes some calls of the library, and of its
// yardstick where it has one.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace vrn::bench {

struct Case {
    const char* name;
    void (*engine)(int64_t calls);
    void (*yardstick)(int64_t calls);  // null: none
    // Empty when the yardstick gives the library's result on the case's
    // input (also in the other modes, where there are modes), else what differs.
    std::string (*disagreement)();
};

[[nodiscard]] std::span<const Case> Cases();

// Sets up what the cases read (the symbolic variables) and builds the
// engines' tables, so that no case pays for that. Aborts with a message when
// a yardstick disagrees with the library.
void PrepareCases();

}  // namespace vrn::bench
