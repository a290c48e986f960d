#include "tests/fuzz/fuzz.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "frame/procedure.h"

namespace vrn::fuzz {

namespace {

char home[] = "/tmp/vrn-fuzz-XXXXXX";

// Nothing is made in it (the folder procedure's create flag is cleared), so it goes empty.
void RemoveHome() { (void)::rmdir(home); }

}  // namespace

void StartLibrary() {
    static bool started = false;
    if (started) return;
    started = true;
    (void)LibraryEntry(1);
    if (::mkdtemp(home) == nullptr) std::abort();
    std::atexit(RemoveHome);
    ::setenv("HOME", home, 1);
    for (const char* name : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"}) ::unsetenv(name);
}

host::CallResult Call(Procedure procedure, std::vector<host::Param> params) {
    return host::Invoke(procedure, std::move(params));
}

bool OutputText(const host::CallResult& result, int n, std::string* text) {
    const host::OutputValue* out = result.OutputOf(n);
    if (out == nullptr || out->isNull) return false;
    text->assign(out->value.begin(), out->value.end());
    return true;
}

bool OutputFloat(const host::CallResult& result, int n, double* value) {
    const host::OutputValue* out = result.OutputOf(n);
    if (out == nullptr || out->isNull || out->value.size() != sizeof(double)) return false;
    std::memcpy(value, out->value.data(), sizeof(double));
    return true;
}

bool SameValue(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }

void Broken(const std::string& what, const uint8_t* data, size_t size) {
    std::fprintf(stderr, "broken: %s\ninput (%zu bytes): \"", what.c_str(), size);
    for (size_t i = 0; i < size; ++i) {
        const unsigned c = data[i];
        if (c >= 0x20 && c < 0x7F && c != '"' && c != '\\') {
            std::fputc(static_cast<int>(c), stderr);
        } else {
            std::fprintf(stderr, "\\x%02X", c);
        }
    }
    std::fputs("\"\n", stderr);
    std::abort();
}

}  // namespace vrn::fuzz
