// The parameter judging of every export: 0 to 12 parameters of any type code,
// with lengths shorter or longer than the type says, NULL and OUTPUT flags,
// and a host that can't describe them. Nothing may crash or read past a value;
// calls that pass the judging run against stand-ins for the file system,
// the system log, the domain and the scheduler.
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "frame/srv.h"
#include "tests/fuzz/fuzz.h"
#include "tests/procedures/scheduler_double.h"
#include "utilities/debug_output.h"
#include "utilities/file_io.h"
#include "utilities/server_info.h"

// vrn_StrToFile writes nowhere: these replace the file seam at link time.
namespace vrn::fileio {
FileHandle OpenExclusive(const char*, uint32_t* error) {
    *error = 0;
    return 3;
}
void SeekToEnd(FileHandle) {}
void Write(FileHandle, const char*, uint32_t) {}
void SetEndHere(FileHandle) {}
void Close(FileHandle) {}
ErrorText::ErrorText(uint32_t) : text_(nullptr) {}
ErrorText::~ErrorText() = default;
}  // namespace vrn::fileio

namespace vrn::fuzz {
namespace {

struct Export {
    const char* name;
    Procedure procedure;
};

#define VRN_FUZZ_ROW(name) {#name, name},
constexpr Export kExports[] = {VRN_FUZZ_EXPORTS(VRN_FUZZ_ROW)};
#undef VRN_FUZZ_ROW

// Type codes a server sends, and their usual maxLength; 0 for a declared length.
struct TypeCode {
    uint8_t code;
    uint32_t length;
};

constexpr TypeCode kTypes[] = {
    {SRVBIGCHAR, 0},   {SRVBIGVARCHAR, 0}, {SRVNCHAR, 0},     {SRVNVARCHAR, 0},  {SRVTEXT, 0},
    {SRVBIGBINARY, 0}, {SRVBIGVARBINARY, 0}, {SRVINT1, 1},    {SRVINT2, 2},      {SRVINTN, 4},
    {SRVBITN, 1},      {SRVFLTN, 8},       {SRVFLTN, 4},      {SRVDECIMALN, 17}, {SRVNUMERICN, 17},
    {31, 0},           {SRVCHAR, 0},       {SRVINT4, 4},      {SRVFLT8, 8},
};

// Reads the input from the front; past its end, zeros.
struct Reader {
    const std::string& input;
    size_t at = 0;
    uint8_t Byte() { return at < input.size() ? static_cast<uint8_t>(input[at++]) : 0; }
    host::Bytes Take(size_t n) {
        n = std::min(n, input.size() - at);
        at += n;
        return host::Bytes(input.begin() + static_cast<ptrdiff_t>(at - n), input.begin() + static_cast<ptrdiff_t>(at));
    }
};

// One parameter: its type, then how its lengths stand to the type's.
host::Param NextParam(Reader& in) {
    host::Param param;
    const uint8_t pick = in.Byte();
    const TypeCode type = pick < std::size(kTypes) ? kTypes[pick] : TypeCode{static_cast<uint8_t>(in.Byte()), 0};
    param.type = type.code;
    const uint8_t flags = in.Byte();
    param.isNull = flags & 1;
    param.isOutput = flags & 2;
    const uint32_t declared = type.length ? type.length : in.Byte();
    size_t length = declared;
    switch ((flags >> 2) & 3) {
        case 0: break;                                          // as the type says
        case 1: length = declared ? in.Byte() % declared : 0; break;  // shorter
        case 2: length = declared + 1 + in.Byte() % 16; break;  // longer than the type allows
        default: length = in.Byte(); param.maxLength = in.Byte(); break;
    }
    if (param.maxLength == 0) param.maxLength = (flags & 16) ? in.Byte() : declared;
    param.value = param.isNull ? host::Bytes{} : in.Take(length);
    return param;
}

class QuietDomain : public ServerInfoSource {
public:
    uint32_t ServerType(uint32_t* type) override {
        *type = 0x8003;
        return 0;
    }
    uint32_t DomainController(const DomainControllerInfo** info) override {
        static const DomainControllerInfo answer{"\\\\DC", "\\\\10.0.0.1", 1, "DOMAIN", "forest.example", 0, nullptr,
                                                 nullptr};
        *info = &answer;
        return 0;
    }
    void ReleaseDomainController(const DomainControllerInfo*) override {}
};

tasks::testing::SchedulerDouble& Scheduler() {
    static tasks::testing::SchedulerDouble scheduler;  // the current source from its first use on
    return scheduler;
}

}  // namespace

int RunOne(const std::string& input) {
    static const bool ready = [] {
        static QuietDomain domain;
        (void)SetServerInfoSource(&domain);
        (void)SetDebugSink([](const char*) {});
        return true;
    }();
    if (input.size() > 4096 || !ready) return -1;
    Reader in{input};
    const Export& target = kExports[in.Byte() % std::size(kExports)];
    const std::string_view name = target.name;
    const uint8_t shape = in.Byte();
    std::vector<host::Param> params;
    for (int i = shape % 13; i > 0; --i) params.push_back(NextParam(in));
    if (name == "vrn_GetFolderPath") {  // its integer may ask to create a folder: that bit goes
        for (host::Param& param : params) {
            if (param.value.size() > 1) param.value[1] &= 0x7F;
        }
    }
    const bool scheduler = name.starts_with("vrn_Wts_");
    if (scheduler) {  // the in-memory scheduler, with one task of a company
        Scheduler().tasks.clear();
        Scheduler().log.clear();
        tasks::testing::StoredTask& task = Scheduler().Add(u"{6F9619FF-8B86-D011-B42D-00C04FC964FF}-1");
        task.texts["ApplicationName"] = u"app.exe";
        task.texts["Parameters"] = u"/Task=1 /Ditta=6F9619FF-8B86-D011-B42D-00C04FC964FF";
        task.triggers.resize(2);
    }
    host::CallOptions options;
    options.failParamInfo = shape >= 0xF0;
    const host::CallResult result = host::Invoke(target.procedure, std::move(params), options);
    if (scheduler && !Scheduler().Balance().empty()) {
        Broken(std::string(name) + " keeps what the scheduler handed out: " + Scheduler().Balance());
    }
    // GetMutex returns 1 when it took the lock, which must be given back.
    if (name == "vrn_PercStrSymb_GetMutex" && result.returnCode == 1 && Call(vrn_PercStrSymb_ReleaseMutex, {}).returnCode == 0) {
        Broken("the lock taken can't be given back");
    }
    return 0;
}

}  // namespace vrn::fuzz
