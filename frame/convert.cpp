#include "frame/convert.h"

#include <climits>
#include <cstring>

namespace vrn {

namespace {

size_t WideLength(const char16_t* text) {
    size_t length = 0;
    while (text[length] != 0) ++length;
    return length;
}

constexpr uint64_t kUnitsFrom1601To1900 = 94354848000000000ull;
constexpr uint64_t kUnitsPerDay = 864000000000ull;

}  // namespace

char16_t* AnsiToWide(const char* text) {
    if (text == nullptr) return nullptr;
    const size_t length = std::strlen(text);
    if (length >= INT_MAX / 2) return nullptr;
    auto* wide = static_cast<char16_t*>(platform::HeapAllocCleared(2 * length + 2));
    if (wide != nullptr && length > 0) {
        (void)platform::NarrowToWide(text, wide, static_cast<int>(length + 1));
    }
    return wide;
}

char* WideToAnsi(const char16_t* text) {
    if (text == nullptr) return nullptr;
    const size_t length = WideLength(text);
    if (length >= INT_MAX / 2) return nullptr;
    auto* narrow = static_cast<char*>(platform::HeapAllocCleared(2 * length + 1));
    if (narrow != nullptr && length > 0) {
        (void)platform::WideToNarrow(text, narrow, static_cast<int>(2 * length + 1));
    }
    return narrow;
}

void SystemTimeToSqlDateTime(const platform::SystemTime& systemTime, SqlDateTime* result, int32_t* isNull) {
    SqlDateTime value{};
    const bool null = systemTime.year == 0 && systemTime.month == 0 && systemTime.day == 0;
    if (!null) {
        // Unsigned on purpose: a date before 1900 wraps, as the host's own routine does.
        const uint64_t units = platform::SystemTimeToFileTime(systemTime);
        value.days = static_cast<int32_t>(static_cast<uint32_t>((units - kUnitsFrom1601To1900) / kUnitsPerDay));
        const uint32_t milliseconds =
            ((uint32_t{systemTime.hour} * 60 + systemTime.minute) * 60 + systemTime.second) * 1000 +
            systemTime.milliseconds;
        value.ticks = milliseconds * 3 / 10;
    }
    if (result != nullptr) *result = value;
    if (isNull != nullptr) *isNull = null ? 1 : 0;
}

void DateToSqlDateTime(uint16_t year, uint16_t month, uint16_t day, SqlDateTime* result, int32_t* isNull) {
    DateTimeToSqlDateTime(year, month, day, 0, 0, 0, 0, result, isNull);
}

void DateTimeToSqlDateTime(uint16_t year, uint16_t month, uint16_t day, uint16_t hour, uint16_t minute,
                           uint16_t second, uint16_t milliseconds, SqlDateTime* result, int32_t* isNull) {
    const platform::SystemTime time{year, month, 0, day, hour, minute, second, milliseconds};
    SystemTimeToSqlDateTime(time, result, isNull);
}

int VFormatBounded(char* buffer, size_t size, const char* format, va_list arguments) {
    if (buffer == nullptr || size == 0) return -1;
    if (format == nullptr) {
        buffer[0] = '\0';
        return -1;
    }
    const int written = platform::FormatInCLocale(buffer, size, format, arguments);
    if (written < 0 || static_cast<size_t>(written) >= size) {
        buffer[0] = '\0';
        return -1;
    }
    return written;
}

int FormatBounded(char* buffer, size_t size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int written = VFormatBounded(buffer, size, format, arguments);
    va_end(arguments);
    return written;
}

}  // namespace vrn
