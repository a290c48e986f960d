// The server utilities: string to file, bit counting, debug output, folder
// path and server information.
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

#include "frame/convert.h"
#include "frame/platform.h"
#include "frame/procedure.h"
#include "utilities/debug_output.h"
#include "utilities/file_io.h"
#include "utilities/folder_path.h"
#include "utilities/server_info.h"

namespace vrn {

namespace {

using platform::HeapAllocCleared;
using platform::HeapPtr;

constexpr int32_t kStrToFileFailed = -1;
constexpr int32_t kFolderParamError = static_cast<int32_t>(0x80030057u);
constexpr int32_t kInsufficientBuffer = static_cast<int32_t>(0x8007007Au);
constexpr int32_t kOutOfMemory = static_cast<int32_t>(0x8007000Eu);

// A cleared block of the given size; an empty value still gets one byte.
template <class T>
HeapPtr<T> AllocateBlock(size_t bytes) {
    return HeapPtr<T>(static_cast<T*>(HeapAllocCleared(bytes > 0 ? bytes : 1)));
}

// Type tests of these procedures beyond the frame's classes.
int IsBitOrIntegerType(uint8_t type) { return IsBitType(type) | IsIntegerType(type); }
int IsVarBinaryType(uint8_t type) { return type == SRVVARBINARY || type == SRVBIGVARBINARY ? 1 : 0; }
int IsNullableIntType(uint8_t type) { return type == SRVINTN ? 1 : 0; }
int IsVarCharOrNVarCharType(uint8_t type) { return type == SRVBIGVARCHAR || type == SRVNVARCHAR ? 1 : 0; }

bool EqualsIgnoringCase(const char* a, const char* b) {
    const size_t length = std::strlen(a);
    return length == std::strlen(b) && EqualIgnoringAsciiCase(a, b, length);
}

// ---- vrn_StrToFile

constexpr const char kStrToFileParamMessage[] =
    "vrn_StrToFile\nParameters error.\n 1^ Parametro Char/Varchar/Text: stringa da scrivere sul file.\n"
    "2^ Parametro Char/Varchar: nome del file.\n3^ Parametro [optional] boolean: true se si vuole append.";

HeapPtr<char> ReadTextBlock(SRV_PROC* srvproc, int n, const ParamInfo& info) {
    HeapPtr<char> block = AllocateBlock<char>(static_cast<size_t>(info.actualLength) + 1);
    if (block) ReadCharParam(srvproc, n, info, block.get());
    return block;
}

int32_t StrToFile(SRV_PROC* srvproc) {
    ScopedCompletion completion(srvproc);
    ParamInfo params[3]{};
    if (!JudgeCall(srvproc,
                   {{.typeTest = IsCharOrTextType, .notNull = true},
                    {.typeTest = IsCharOrTextType, .minLength = 1, .notNull = true},
                    {.typeTest = IsBitOrIntegerType, .notNull = true, .optional = true}},
                   params)) {
        SendMessage(srvproc, "%s", kStrToFileParamMessage);
        return kStrToFileFailed;
    }
    const ParamInfo& text = params[0];
    HeapPtr<char> textBlock = ReadTextBlock(srvproc, 1, text);
    HeapPtr<char> nameBlock = ReadTextBlock(srvproc, 2, params[1]);
    if (!textBlock || !nameBlock) return kStrToFileFailed;
    const bool append = srv_rpcparams(srvproc) == 3 && ReadIntegerParam(srvproc, 3, params[2]) != 0;

    uint32_t error = 0;
    fileio::FileOwner file(fileio::OpenExclusive(nameBlock.get(), &error));
    if (file.Get() == fileio::kNoFile) {
        fileio::ErrorText errorText(error);
        SendMessage(srvproc, "vrn_StrToFile\nErrore %d nell'apertura del file %s.\nMessaggio di errore: %s",
                    static_cast<int>(error), nameBlock.get(), errorText.Get());
        return kStrToFileFailed;
    }
    // Overwriting doesn't truncate first: the old content is overwritten in
    // place and whatever lies behind the new text is cut afterwards.
    if (append) {
        fileio::SeekToEnd(file.Get());
        fileio::Write(file.Get(), textBlock.get(), text.actualLength);
    } else {
        fileio::Write(file.Get(), textBlock.get(), text.actualLength);
        fileio::SetEndHere(file.Get());
    }
    file.Reset();  // free the file before the client hears that the call is done
    return kDone;
}

// ---- vrn_CountBitsOn

uint32_t CountSetBits(const uint8_t* bytes, size_t length) {
    uint32_t count = 0;
    size_t i = 0;
    for (; i + sizeof(uint64_t) <= length; i += sizeof(uint64_t)) {
        uint64_t word;
        std::memcpy(&word, bytes + i, sizeof word);
        count += static_cast<uint32_t>(std::popcount(word));
    }
    for (; i < length; ++i) count += static_cast<uint32_t>(std::popcount(bytes[i]));
    return count;
}

int32_t CountBitsOn(SRV_PROC* srvproc) {
    ParamInfo params[2]{};
    if (!JudgeCall(srvproc, {{.typeTest = IsVarBinaryType, .notNull = true}, {IsNullableIntType, kOut}}, params)) {
        // This procedure completes the call before it sends its message.
        CompleteCall(srvproc);
        SendMessage(srvproc, "vrn_CountBitsOn\nParameters error.\n 1^ Parametro Varbinary\n2^ Parametro Integer Output.");
        return kInvalidArg;
    }
    const ParamInfo& value = params[0];
    ScopedCompletion completion(srvproc);  // after the block's release
    HeapPtr<uint8_t> block = AllocateBlock<uint8_t>(value.actualLength);
    if (!block) return kOutOfMemory;
    if (value.actualLength > 0) (void)GetParam(srvproc, 1, nullptr, block.get());
    SetOutputInteger(srvproc, 2, static_cast<int32_t>(CountSetBits(block.get(), value.actualLength)));
    return kDone;
}

// ---- vrn_Debugout: no completion on any path; the host closes the call.

int32_t Debugout(SRV_PROC* srvproc) {
    ParamInfo text{};
    if (!JudgeCall(srvproc, {{IsCharType}}, &text, ExtraParams::kIgnored)) {
        SendMessage(srvproc, "vrn_DebugOut\nErrore nel 1^ parametro: deve essere Char/Varchar.");
        return kInvalidArg;
    }
    if (text.isNull) {
        DebugOutput("NULL");
        return kDone;
    }
    HeapPtr<char> block = ReadTextBlock(srvproc, 1, text);
    if (!block) return kOutOfMemory;
    DebugOutput(block.get());
    return kDone;
}

// ---- vrn_GetFolderPath

int32_t GetFolderPath(SRV_PROC* srvproc) {
    ParamInfo params[2]{};
    if (!JudgeCall(srvproc,
                   {{.typeTest = IsNullableIntType, .direction = kAnyDirection, .notNull = true},
                    {IsVarCharOrNVarCharType, kOut}},
                   params)) {
        // No completion on this path.
        SendMessage(srvproc,
                    "vrn_SHGetFolderPath: Parameters error.\nParameters: \n\t@CSIDL\t\t\tInteger Not Null\n"
                    "\t@FolderParh    Varchar|NVarchar Output.");
        return kFolderParamError;
    }
    const auto csidl = static_cast<int32_t>(ReadIntegerParam(srvproc, 1, params[0]));

    ScopedCompletion completion(srvproc);
    const ParamInfo& path = params[1];
    const bool wide = path.type == SRVNVARCHAR;
    HeapPtr<uint8_t> block = AllocateBlock<uint8_t>(kFolderPathUnits * (wide ? sizeof(char16_t) : sizeof(char)));
    if (!block) return kOutOfMemory;
    int32_t result;
    size_t length;
    if (wide) {
        auto* text = reinterpret_cast<char16_t*>(block.get());
        result = GetFolderPathWide(csidl, text);
        length = result < 0 ? 0 : std::char_traits<char16_t>::length(text) * sizeof(char16_t);
    } else {
        auto* text = reinterpret_cast<char*>(block.get());
        result = GetFolderPathNarrow(csidl, text);
        length = result < 0 ? 0 : std::strlen(text);
    }
    if (result < 0) return result;
    if (path.maxLength < length) return kInsufficientBuffer;
    SetOutputBytes(srvproc, 2, block.get(), static_cast<uint32_t>(length));
    return result;
}

// ---- vrn_GetSrvInfo

// The longest value block: far beyond any name the system gives, and it keeps
// a (max) declaration from asking for gigabytes.
constexpr uint32_t kLongestServerValue = 65535;

enum class Shown { Text, Number, Flags };

struct ServerProperty {
    const char* name;
    Shown shown;
    const char* DomainControllerInfo::*text;
    uint32_t DomainControllerInfo::*number;
};

constexpr const char kServerType[] = "ServerType";

// Looked up in this order; ServerType has its own query.
constexpr ServerProperty kDomainProperties[] = {
    {"DomainControllerName", Shown::Text, &DomainControllerInfo::domainControllerName, nullptr},
    {"DomainControllerAddress", Shown::Text, &DomainControllerInfo::domainControllerAddress, nullptr},
    {"DomainControllerAddressType", Shown::Number, nullptr, &DomainControllerInfo::domainControllerAddressType},
    {"DomainName", Shown::Text, &DomainControllerInfo::domainName, nullptr},
    {"DnsForestName", Shown::Text, &DomainControllerInfo::dnsForestName, nullptr},
    {"Flags", Shown::Flags, nullptr, &DomainControllerInfo::flags},
    {"DcSiteName", Shown::Text, &DomainControllerInfo::dcSiteName, nullptr},
    {"ClientSiteName", Shown::Text, &DomainControllerInfo::clientSiteName, nullptr},
};

void FormatProperty(const ServerProperty& property, const DomainControllerInfo& info, char* block, size_t size) {
    switch (property.shown) {
        case Shown::Text: {
            const char* text = info.*property.text;
            (void)FormatBounded(block, size, "%s", text != nullptr ? text : "(null)");
            break;
        }
        case Shown::Number:
            (void)FormatBounded(block, size, "%d", static_cast<int>(info.*property.number));
            break;
        case Shown::Flags:
            (void)FormatBounded(block, size, "0x%08X", static_cast<unsigned>(info.*property.number));
            break;
    }
}

int32_t GetSrvInfo(SRV_PROC* srvproc) {
    ParamInfo params[2]{};
    if (!JudgeCall(srvproc,
                   {{.typeTest = IsCharOrTextType, .notNull = true},
                    {.typeTest = IsCharOrTextType, .direction = kOut, .minCapacity = 20}},
                   params)) {
        SendMessage(srvproc,
                    "vrn_GetSrvInfo\nParameters error.\n 1^ Parametro Char/Varchar/Text: nome della property.\n"
                    "2^ Parametro Char/Varchar Output (min 20 caratteri): valore della property.");
        CompleteCall(srvproc);
        return kInvalidArg;
    }
    const ParamInfo& value = params[1];
    HeapPtr<char> nameBlock = ReadTextBlock(srvproc, 1, params[0]);
    const size_t size = static_cast<size_t>(value.maxLength < kLongestServerValue ? value.maxLength
                                                                                    : kLongestServerValue) + 1;
    HeapPtr<char> valueBlock = AllocateBlock<char>(size);
    std::optional<DomainControllerAnswer> answer;
    // Declared last, so the call is completed before the system's answer and
    // then the blocks are given back.
    ScopedCompletion completion(srvproc);
    if (!nameBlock || !valueBlock) return kOutOfMemory;

    ServerInfoSource& source = CurrentServerInfo();
    if (EqualsIgnoringCase(nameBlock.get(), kServerType)) {
        uint32_t type = 0;
        if (source.ServerType(&type) == 0) (void)FormatBounded(valueBlock.get(), size, "%d", static_cast<int>(type));
    } else {
        answer.emplace(source);
        if (const DomainControllerInfo* info = answer->Get()) {
            for (const ServerProperty& property : kDomainProperties) {
                if (EqualsIgnoringCase(nameBlock.get(), property.name)) {
                    FormatProperty(property, *info, valueBlock.get(), size);
                    break;
                }
            }
        }
    }
    SetOutputText(srvproc, 2, valueBlock.get(), static_cast<uint32_t>(std::strlen(valueBlock.get())));
    return kDone;
}

}  // namespace

}  // namespace vrn

VRN_EXPORT int32_t vrn_StrToFile(SRV_PROC* srvproc) {
    return vrn::Shielded([&] { return vrn::StrToFile(srvproc); }, vrn::kStrToFileFailed);
}

VRN_EXPORT int32_t vrn_CountBitsOn(SRV_PROC* srvproc) {
    return vrn::Shielded([&] { return vrn::CountBitsOn(srvproc); }, vrn::kOutOfMemory);
}

VRN_EXPORT int32_t vrn_Debugout(SRV_PROC* srvproc) {
    return vrn::Shielded([&] { return vrn::Debugout(srvproc); }, vrn::kOutOfMemory);
}

VRN_EXPORT int32_t vrn_GetFolderPath(SRV_PROC* srvproc) {
    return vrn::Shielded([&] { return vrn::GetFolderPath(srvproc); }, vrn::kOutOfMemory);
}

VRN_EXPORT int32_t vrn_GetSrvInfo(SRV_PROC* srvproc) {
    return vrn::Shielded([&] { return vrn::GetSrvInfo(srvproc); }, vrn::kOutOfMemory);
}
