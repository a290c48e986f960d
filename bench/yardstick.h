// Hand-written single-pass evaluators, for the benchmarks only: what the same
// work costs with no tables, no automaton and no allocation. Each handles just
// the inputs the benchmarks give it, and the benchmarks check its answers
// against the library's before anything is timed.
#pragma once

#include <cstdint>

namespace vrn::bench {

// A chain of unsigned numbers (digits and a point) joined by + and -, with an
// optional leading -, in mode 0, 1 or 2, with the evaluator's arithmetic in
// its order.
[[nodiscard]] double YardstickPercentChain(const char* text, int32_t mode);

// Normal-form text: =, *, / and the signed operands with an optional % or &,
// and roundings A?(d), each operation followed by one blank.
[[nodiscard]] double YardstickNormalFormRun(const char* text, double value);

// A formula in those operations, unsigned operands too, checked against the
// language's limits and written out in its normal form while it is evaluated.
// False on a limit or on text it doesn't know.
[[nodiscard]] bool YardstickFormulaNormalize(const char* text, double* value, char* normalForm);

struct YardstickVariable {
    const char* name;
    const char* value;
};

// A symbolic text of numbers, names, MIN(...), MAX(...), + and -, reduced in
// mode 0, 1 or 2 into result (22 bytes). False on text it doesn't know.
[[nodiscard]] bool YardstickSymbolicReduce(const char* text, const YardstickVariable* variables, int variableCount,
                                           int32_t mode, char* result);

}  // namespace vrn::bench
