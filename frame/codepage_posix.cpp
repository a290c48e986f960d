// The narrow code page is Windows-1252 here: the library's own texts are in it.
#include <cstring>

#include "frame/platform.h"

namespace vrn::platform {

namespace {

// 0x80-0x9F; the five bytes the code page leaves undefined map to the C1 control
// of the same number, as the system's table does.
constexpr char16_t kHighControls[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,  // 80-87
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,  // 88-8F
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,  // 90-97
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,  // 98-9F
};

constexpr char kDefaultChar = '?';

char16_t ByteToWide(unsigned char byte) {
    return byte >= 0x80 && byte <= 0x9F ? kHighControls[byte - 0x80] : char16_t{byte};
}

// No best fit: a character without its own byte becomes the default character.
char WideToByte(char16_t unit) {
    if (unit < 0x80 || (unit >= 0xA0 && unit <= 0xFF)) return static_cast<char>(unit);
    for (unsigned i = 0; i < 32; ++i) {
        if (kHighControls[i] == unit) return static_cast<char>(0x80 + i);
    }
    return kDefaultChar;
}

bool IsHighSurrogate(char16_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLowSurrogate(char16_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

}  // namespace

// outUnits 0 asks for the size needed, terminator included.
int NarrowToWide(const char* text, char16_t* out, int outUnits) {
    if (text == nullptr || outUnits < 0 || (outUnits > 0 && out == nullptr)) return 0;
    const size_t needed = std::strlen(text) + 1;
    if (needed > static_cast<size_t>(INT32_MAX)) return 0;
    if (outUnits == 0) return static_cast<int>(needed);
    if (needed > static_cast<size_t>(outUnits)) return 0;
    for (size_t i = 0; i < needed; ++i) out[i] = ByteToWide(static_cast<unsigned char>(text[i]));
    return static_cast<int>(needed);
}

// A surrogate pair is one character and gives one default character.
int WideToNarrow(const char16_t* text, char* out, int outBytes) {
    if (text == nullptr || outBytes < 0 || (outBytes > 0 && out == nullptr)) return 0;
    int written = 0;
    for (size_t i = 0;; ++i) {
        const char16_t unit = text[i];
        if (IsHighSurrogate(unit) && IsLowSurrogate(text[i + 1])) ++i;
        if (outBytes > 0) {
            if (written == outBytes) return 0;
            out[written] = WideToByte(unit);
        }
        if (written == INT32_MAX) return 0;
        ++written;
        if (unit == 0) return written;
    }
}

}  // namespace vrn::platform
