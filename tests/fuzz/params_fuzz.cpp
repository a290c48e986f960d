// The parameter judging of every export: 0 to 12 parameters of any type code,
// with lengths shorter or longer than the type says, NULL and OUTPUT flags,
// and a host that can't describe them. Nothing may crash or read past a value;
// calls that pass the judging run against stand-ins for the file system,
// the system log, the domain and the scheduler.
#include <cstring>
#include <string>
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

// What a call of an export needs around it.
enum ExportTrait : uint8_t {
    kPlain = 0,
    kTakesLock = 1,      // returns 1 when it took PercStrSymbMutex, which must be given back
    kMayCreate = 2,      // its integer may ask to create a folder: that bit is cleared
    kScheduler = 4,      // talks to the scheduler: the in-memory double, emptied before each call
};

struct Export {
    const char* name;
    Procedure procedure;
    uint8_t traits;
};

// One row per export; a new family adds its rows here (and declares the
// exports in fuzz.h). tests/fuzz/seeds.py reads this table for the order.
constexpr Export kExports[] = {
    {"vrn_PercStrNormalize", vrn_PercStrNormalize, kPlain},
    {"vrn_PercStrEval", vrn_PercStrEval, kPlain},
    {"vrn_PercStrSymb_GetMutex", vrn_PercStrSymb_GetMutex, kTakesLock},
    {"vrn_PercStrSymb_ReleaseMutex", vrn_PercStrSymb_ReleaseMutex, kPlain},
    {"vrn_PercStrSymb_Init", vrn_PercStrSymb_Init, kPlain},
    {"vrn_PercStrSymb_SetVar", vrn_PercStrSymb_SetVar, kPlain},
    {"vrn_PercStrSymb_Eval", vrn_PercStrSymb_Eval, kPlain},
    {"vrn_PercStrSymb_ErrorInfo", vrn_PercStrSymb_ErrorInfo, kPlain},
    {"vrn_PFormula_Eval", vrn_PFormula_Eval, kPlain},
    {"vrn_PFormula_Normalize", vrn_PFormula_Normalize, kPlain},
    {"vrn_CountBitsOn", vrn_CountBitsOn, kPlain},
    {"vrn_Debugout", vrn_Debugout, kPlain},
    {"vrn_GetFolderPath", vrn_GetFolderPath, kMayCreate},
    {"vrn_GetSrvInfo", vrn_GetSrvInfo, kPlain},
    {"vrn_StrToFile", vrn_StrToFile, kPlain},
    {"vrn_Wts_TaskCreate", vrn_Wts_TaskCreate, kScheduler},
    {"vrn_Wts_TaskDelete", vrn_Wts_TaskDelete, kScheduler},
    {"vrn_Wts_TaskRun", vrn_Wts_TaskRun, kScheduler},
    {"vrn_Wts_TaskTerminate", vrn_Wts_TaskTerminate, kScheduler},
    {"vrn_Wts_TaskGetFlags", vrn_Wts_TaskGetFlags, kScheduler},
    {"vrn_Wts_TaskGetStatus", vrn_Wts_TaskGetStatus, kScheduler},
    {"vrn_Wts_TaskSetFlags", vrn_Wts_TaskSetFlags, kScheduler},
    {"vrn_Wts_TaskSetMaxRunTime", vrn_Wts_TaskSetMaxRunTime, kScheduler},
    {"vrn_Wts_TaskEnableAll", vrn_Wts_TaskEnableAll, kScheduler},
    {"vrn_Wts_TaskDisableAll", vrn_Wts_TaskDisableAll, kScheduler},
    {"vrn_Wts_TaskEnum", vrn_Wts_TaskEnum, kScheduler},
    {"vrn_Wts_TaskInfo", vrn_Wts_TaskInfo, kScheduler},
    {"vrn_Wts_TriggerCreate", vrn_Wts_TriggerCreate, kScheduler},
    {"vrn_Wts_TriggerUpdate", vrn_Wts_TriggerUpdate, kScheduler},
    {"vrn_Wts_TriggerDelete", vrn_Wts_TriggerDelete, kScheduler},
    {"vrn_Wts_TriggerEnum", vrn_Wts_TriggerEnum, kScheduler},
};

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

class Reader {
public:
    Reader(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    uint8_t Byte() { return at_ < size_ ? data_[at_++] : 0; }
    host::Bytes Take(size_t n) {
        n = std::min(n, size_ - at_);
        host::Bytes bytes(data_ + at_, data_ + at_ + n);
        at_ += n;
        return bytes;
    }

private:
    const uint8_t* data_;
    size_t size_;
    size_t at_ = 0;
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

int RunOne(const uint8_t* data, size_t size) {
    if (size > 4096) return -1;
    Reader in(data, size);
    const Export& target = kExports[in.Byte() % std::size(kExports)];
    const uint8_t shape = in.Byte();
    const int count = shape % 13;
    std::vector<host::Param> params;
    for (int i = 0; i < count; ++i) params.push_back(NextParam(in));
    if (target.traits & kMayCreate) {
        for (host::Param& param : params) {
            if (param.value.size() > 1) param.value[1] &= 0x7F;
        }
    }
    if (target.traits & kScheduler) {
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
    if ((target.traits & kScheduler) && !Scheduler().Balance().empty()) {
        Broken(std::string(target.name) + " keeps what the scheduler handed out: " + Scheduler().Balance(), data, size);
    }
    if ((target.traits & kTakesLock) && result.returnCode == 1) {
        if (Call(vrn_PercStrSymb_ReleaseMutex, {}).returnCode == 0) Broken("the lock taken can't be given back", data, size);
    }
    return 0;
}

}  // namespace
}  // namespace vrn::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vrn::fuzz::StartLibrary();
    static vrn::fuzz::QuietDomain domain;
    (void)vrn::SetServerInfoSource(&domain);
    (void)vrn::SetDebugSink([](const char*) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) { return vrn::fuzz::RunOne(data, size); }
