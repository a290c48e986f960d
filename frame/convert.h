// Conversions that several subsystems share: wide and narrow text, the host's
// datetime pair, bounded formatting.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>

#include "frame/platform.h"
#include "percstr/engine/ascii.h"

namespace vrn {

// New cleared process-heap blocks that the caller releases with platform::HeapRelease;
// null for null input (or when the block can't be had).
char16_t* AnsiToWide(const char* text);
char* WideToAnsi(const char16_t* text);

struct SqlDateTime {
    int32_t days;    // since 1900-01-01
    uint32_t ticks;  // 1/300 s since midnight
};

void SystemTimeToSqlDateTime(const platform::SystemTime& systemTime, SqlDateTime* result, int32_t* isNull);
void DateToSqlDateTime(uint16_t year, uint16_t month, uint16_t day, SqlDateTime* result, int32_t* isNull);
void DateTimeToSqlDateTime(uint16_t year, uint16_t month, uint16_t day, uint16_t hour, uint16_t minute,
                           uint16_t second, uint16_t milliseconds, SqlDateTime* result, int32_t* isNull);

// One code point in UTF-8 (surrogates and all: the caller decides what it takes).
inline void AppendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}


// printf into buffer[size] in the C locale; the count written, or -1 (and the
// empty text) when it doesn't fit or an argument is null/0.
int FormatBounded(char* buffer, size_t size, const char* format, ...) __attribute__((format(printf, 3, 4)));
int VFormatBounded(char* buffer, size_t size, const char* format, va_list arguments)
    __attribute__((format(printf, 3, 0)));

}  // namespace vrn
