// The symbol table of symbolic percentage strings: 53 fixed variables that
// hold text, the calculation mode, and the process-wide result and error
// values. Nothing here locks: the client-held PercStrSymbMutex keeps clients apart.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vrn {

inline constexpr size_t kPercStrSymbTextSize = 22;  // 21 characters and the NUL
inline constexpr size_t kPercStrSymbTextMax = kPercStrSymbTextSize - 1;
inline constexpr size_t kPercStrSymbNameSize = 42;
inline constexpr size_t kPercStrSymbVarCount = 53;

struct PercStrSymbText {
    char text[kPercStrSymbTextSize];
};

struct PercStrSymbVar {
    int32_t isSet;
    char name[kPercStrSymbNameSize];
    PercStrSymbText value;
};

extern PercStrSymbVar PercStrSymbVars[kPercStrSymbVarCount];
extern int32_t PercStrSymbMode;  // 0, 1 or 2
extern PercStrSymbText PercStrSymbResult;
// Where the last recorded syntax error lies: byte offset and length of its token.
extern uint64_t PercStrSymbErrorPos;
extern uint64_t PercStrSymbErrorLen;

// Unsets every variable and stores the mode (0, 1, anything else as 2). The
// result and the error values stay.
void PercStrSymbInitVars(int32_t mode);
// 0 when stored, 1 when no variable has that name (nothing changes then).
// A value longer than 21 characters is cut; callers refuse it before.
[[nodiscard]] int32_t PercStrSymbSetVarValue(const char* name, const char* value);
// The variable of that name when it is set; null when unknown or unset.
[[nodiscard]] const PercStrSymbVar* PercStrSymbFindVar(const char* name);
// The variable of that name, set or not; null when the table has none.
[[nodiscard]] const PercStrSymbVar* PercStrSymbLookUpVar(const char* name);
// The low 32 bits of the error values.
void PercStrSymbGetErrorInfo(int32_t* position, int32_t* length);

}  // namespace vrn
