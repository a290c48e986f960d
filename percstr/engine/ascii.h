// Letter case of ASCII alone, for the engines and the frame alike: names
// here are ASCII, and the process's locale has no say in their case. Every
// other character stands for itself.
#pragma once

#include <cstddef>

namespace vrn {

template <class Char>
constexpr Char LowerAscii(Char c) {
    return c >= Char('A') && c <= Char('Z') ? static_cast<Char>(c - Char('A') + Char('a')) : c;
}
template <class Char>
constexpr Char UpperAscii(Char c) {
    return c >= Char('a') && c <= Char('z') ? static_cast<Char>(c - Char('a') + Char('A')) : c;
}
// The first count characters of a and b alike but for ASCII letter case.
template <class Char>
bool EqualIgnoringAsciiCase(const Char* a, const Char* b, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        if (LowerAscii(a[i]) != LowerAscii(b[i])) return false;
    }
    return true;
}

}  // namespace vrn
