#include "host/host.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "host/call_record.h"
#include "host/loader.h"

namespace vrn::host {

namespace {

template <class T>
Bytes LittleEndian(T value) {
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

Param Make(uint8_t type, uint32_t maxLength, Bytes value) {
    Param p;
    p.type = type;
    p.maxLength = maxLength;
    p.value = std::move(value);
    return p;
}

Bytes Utf16Bytes(std::u16string_view text) {
    Bytes bytes;
    bytes.reserve(text.size() * 2);
    for (char16_t unit : text) {
        bytes.push_back(static_cast<uint8_t>(unit & 0xFF));
        bytes.push_back(static_cast<uint8_t>(unit >> 8));
    }
    return bytes;
}

bool FileExists(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::exists(path, ignored);
}

using ProcedureExport = int32_t (*)(SRV_PROC*);
using NoArgsExport = int32_t (*)();

}  // namespace

Param VarChar(std::string_view text, uint32_t maxLength) {
    const auto length = static_cast<uint32_t>(text.size());
    return Make(167, maxLength ? maxLength : std::max<uint32_t>(length, 1), Bytes(text.begin(), text.end()));
}

Param Char(std::string_view text, uint32_t n) {
    Bytes value(text.begin(), text.begin() + std::min<size_t>(text.size(), n));
    value.resize(n, ' ');
    return Make(175, n, std::move(value));
}

Param NVarChar(std::u16string_view text, uint32_t maxLength) {
    const auto length = static_cast<uint32_t>(text.size() * 2);
    return Make(231, maxLength ? maxLength : std::max<uint32_t>(length, 2), Utf16Bytes(text));
}

Param NChar(std::u16string_view text, uint32_t n) {
    std::u16string padded(text.substr(0, std::min<size_t>(text.size(), n)));
    padded.resize(n, u' ');
    return Make(239, 2 * n, Utf16Bytes(padded));
}

Param Text(std::string_view text) {
    return Make(35, static_cast<uint32_t>(text.size()), Bytes(text.begin(), text.end()));
}

Param VarBinary(const Bytes& bytes, uint32_t maxLength) {
    const auto length = static_cast<uint32_t>(bytes.size());
    return Make(165, maxLength ? maxLength : std::max<uint32_t>(length, 1), bytes);
}

Param Int(int32_t value) { return Make(38, 4, LittleEndian(value)); }
Param SmallInt(int16_t value) { return Make(52, 2, LittleEndian(value)); }
Param TinyInt(uint8_t value) { return Make(48, 1, LittleEndian(value)); }
Param Bit(bool value) { return Make(104, 1, LittleEndian<uint8_t>(value ? 1 : 0)); }
Param Float(double value) { return Make(109, 8, LittleEndian(value)); }
Param Real(float value) { return Make(109, 4, LittleEndian(value)); }

Param Null(uint8_t type, uint32_t maxLength) {
    Param p = Make(type, maxLength, {});
    p.isNull = true;
    return p;
}

Param Output(Param p) {
    p.isOutput = true;
    return p;
}

const OutputValue* CallResult::OutputOf(int n) const {
    for (auto it = outputs.rbegin(); it != outputs.rend(); ++it) {
        if (it->param == n) return &*it;
    }
    return nullptr;
}

CallResult Invoke(const std::function<int32_t(::SRV_PROC*)>& procedure, std::vector<Param> params,
                  const CallOptions& options) {
    SRV_PROC call;
    call.params = std::move(params);
    call.options = options;
    if (options.instanceName) call.instanceName = *options.instanceName;
    if (procedure) call.result.returnCode = procedure(&call);
    return std::move(call.result);
}

Library::Library(const std::string& path) {
    std::string error;
    handle_ = loader::Open(path, error);
    if (!handle_) throw std::runtime_error(error);
}

Library::~Library() { loader::Close(handle_); }

bool Library::Has(const std::string& exportName) const {
    return loader::Find(handle_, exportName.c_str()) != nullptr;
}

CallResult Library::Call(const std::string& exportName, std::vector<Param> params,
                         const CallOptions& options) const {
    auto procedure = reinterpret_cast<ProcedureExport>(loader::Find(handle_, exportName.c_str()));
    if (!procedure) throw std::runtime_error("the library has no export " + exportName);
    return Invoke(procedure, std::move(params), options);
}

std::optional<CallResult> Library::CallIfExported(const std::string& exportName, std::vector<Param> params,
                                                  const CallOptions& options) const {
    auto procedure = reinterpret_cast<ProcedureExport>(loader::Find(handle_, exportName.c_str()));
    if (!procedure) return std::nullopt;
    return Invoke(procedure, std::move(params), options);
}

int32_t Library::CallNoArgs(const std::string& exportName) const {
    auto function = reinterpret_cast<NoArgsExport>(loader::Find(handle_, exportName.c_str()));
    if (!function) throw std::runtime_error("the library has no export " + exportName);
    return function();
}

std::string DefaultLibraryPath() {
    if (const char* fromEnvironment = std::getenv("VRN_LIB"); fromEnvironment && *fromEnvironment) {
        return fromEnvironment;
    }
    const std::string folder = loader::ExecutableFolder();
    const std::string beside = folder + "/" + loader::LibraryFileName();
    if (FileExists(beside)) return beside;
    // Test programs live in build/tests/ and vrn-exec in build/host/, the library in build/.
    return folder + "/../" + loader::LibraryFileName();
}

}  // namespace vrn::host
