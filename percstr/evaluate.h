// The percentage-string evaluator: one number from a percentage string, as
// a sum of percentages (mode 0), a chain of discounts (mode 1) or a chain of
// mark-ups (mode 2).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vrn {

struct PercStrContext {
    int32_t mode;           // 0, 1 or 2
    double value;           // the result of the parse
    int32_t errorCode;      // 0, or -1 once an error was recorded
    int32_t errorPosition;  // firstColumn of the token at the error
    int32_t errorLength;    // its lastColumn less firstColumn
};

// Results of PercStrEvaluate.
inline constexpr int32_t kPercStrEvaluated = 0;
inline constexpr int32_t kPercStrNotValid = 1;   // syntax error or stack exhausted
inline constexpr int32_t kPercStrNoBuffer = 2;   // no scan buffer could be made

// 0 stays 0, 1 stays 1, every other mode word means 2.
[[nodiscard]] int32_t PercStrMode(int32_t modeWord);
// 0.0 for mode 0, 1.0 for every other mode word.
[[nodiscard]] double PercStrStartingValue(int32_t modeWord);

// What building grammar 1's tables found wrong with it: nothing, in a good build.
[[nodiscard]] const std::vector<std::string>& PercStrGrammarProblems();

// Grammar 1 over PercStrScanner's current buffer: 0 accepted, 1 syntax
// error, 2 stack exhausted.
[[nodiscard]] int32_t PercStrParse(PercStrContext* context);

// text: NUL-terminated or null. On every result but 0 *value is the mode's
// starting value; a null or empty text gives it with result 0. The caller
// holds PercStrMutex.
[[nodiscard]] int32_t PercStrEvaluate(const char* text, double* value, int32_t mode);
// The same, telling where a refused text went wrong: on result 1 the column
// and length of the token at the error (both 0 when the stack ran out).
[[nodiscard]] int32_t PercStrEvaluateAt(const char* text, double* value, int32_t mode, int32_t* errorPosition,
                                        int32_t* errorLength);

// The same after normalising the text into at most 19 characters; the
// defects the normaliser counts are dropped.
[[nodiscard]] int32_t PercStrNormalizeEvaluate(const char* text, double* value, int32_t mode);

}  // namespace vrn
