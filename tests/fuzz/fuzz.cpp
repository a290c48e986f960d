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
const std::string* current = nullptr;  // the input being run

void RemoveHome() { (void)::rmdir(home); }  // empty: the params target never lets a folder be made

}  // namespace

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

void Broken(const std::string& what) {
    std::fprintf(stderr, "broken: %s\ninput (%zu bytes): \"", what.c_str(), current->size());
    for (const char byte : *current) {
        const auto c = static_cast<unsigned char>(byte);
        if (c >= 0x20 && c < 0x7F && c != '"' && c != '\\') std::fputc(c, stderr);
        else std::fprintf(stderr, "\\x%02X", c);
    }
    std::fputs("\"\n", stderr);
    std::abort();
}

}  // namespace vrn::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    using vrn::fuzz::home;
    (void)vrn::LibraryEntry(1);
    if (::mkdtemp(home) == nullptr) std::abort();
    std::atexit(vrn::fuzz::RemoveHome);
    ::setenv("HOME", home, 1);
    for (const char* name : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"}) ::unsetenv(name);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    vrn::fuzz::current = &input;
    return vrn::fuzz::RunOne(input);
}
