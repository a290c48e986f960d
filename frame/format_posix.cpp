#include <clocale>
#include <cstdio>
#include <locale.h>

#include "frame/platform.h"

namespace vrn::platform {

namespace {

// Created once: the "C" locale costs nothing to keep and formatting stays cheap.
locale_t CLocale() {
    static const locale_t c = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    return c;
}

// Formats in the C locale whatever the process or thread has chosen.
class CLocaleScope {
public:
    CLocaleScope() : previous_(CLocale() != static_cast<locale_t>(0) ? uselocale(CLocale()) : nullptr) {}
    ~CLocaleScope() {
        if (previous_ != static_cast<locale_t>(0)) uselocale(previous_);
    }
    CLocaleScope(const CLocaleScope&) = delete;
    CLocaleScope& operator=(const CLocaleScope&) = delete;

private:
    locale_t previous_;
};

}  // namespace

int FormatInCLocale(char* buffer, size_t size, const char* format, va_list arguments) {
    CLocaleScope c;
    return std::vsnprintf(buffer, size, format, arguments);
}

}  // namespace vrn::platform
