// Reduction of a symbolic percentage string to one plain percentage string
// of at most 21 characters. One reduction at a time in the process: the
// caller holds PercStrSymbMutex, and keeps vrn_PercStrEval out of scanner 1
// while the comparisons evaluate numbers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vrn {

// Results of PercStrSymbReduce.
inline constexpr int32_t kPercStrSymbReduced = 0;
inline constexpr int32_t kPercStrSymbCut = 1;          // the result was cut to the capacity
inline constexpr int32_t kPercStrSymbNoResult = -1;    // null result block or capacity 0
inline constexpr int32_t kPercStrSymbFailed = -3;      // syntax error, unset name, overflow, memory
inline constexpr int32_t kPercStrSymbNoBuffer = -5;    // no scan buffer could be made

// Grammar 2 over scanner 2's current buffer: 0 accepted (the text is in
// PercStrSymbResult), 1 syntax error or text overflow, 2 memory exhausted.
[[nodiscard]] int32_t PercStrSymbParse();

// What building grammar 2's tables found wrong with it: nothing, in a good build.
[[nodiscard]] const std::vector<std::string>& PercStrSymbGrammarProblems();

// What stopped a reduction that gave kPercStrSymbFailed.
enum class PercStrSymbStop : int32_t {
    kNone,
    kSyntax,         // a token no production takes, where the error values say
    kUnsetVariable,  // the same, the token a variable that isn't set
    kNoVariable,     // the same, the token a name that is no variable
    kOverflow,       // a text would pass 21 characters; no error values recorded
    kNoMemory,       // for the parser's stacks; no error values recorded
};

// length: on entry the capacity of result in bytes, on return the length of
// the text written there. A null or empty text gives the empty result.
// stop, unless null, gets what stopped a reduction that gave kPercStrSymbFailed.
[[nodiscard]] int32_t PercStrSymbReduce(const char* text, char* result, uint32_t* length,
                                        PercStrSymbStop* stop = nullptr);

}  // namespace vrn
