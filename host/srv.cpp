// The host's procedure interface over the call record. Each function answers
// odd arguments (null pointers, numbers out of range) with a failure result
// instead of a crash, as the library's tests send such calls on purpose.
#include <cstring>

#include "frame/srv.h"
#include "host/call_record.h"

namespace {

using vrn::host::Bytes;
using vrn::host::EventKind;

constexpr int kSucceed = 1;
constexpr int kFail = 0;

const vrn::host::Param* ParamAt(const SRV_PROC* srvproc, int n) {
    if (!srvproc || n < 1 || static_cast<size_t>(n) > srvproc->params.size()) return nullptr;
    return &srvproc->params[static_cast<size_t>(n) - 1];
}

template <class T>
void Store(T* destination, T value) {
    if (destination) *destination = value;
}

// Length of a text argument: -1 means NUL-terminated; other negatives are nothing.
size_t TextLength(const char* text, int length) {
    if (!text) return 0;
    if (length == -1) return std::strlen(text);
    return length < 0 ? 0 : static_cast<size_t>(length);
}

// Width of a fixed-size column whose value came without srv_setcollen.
int FixedWidth(const vrn::host::Column& column) {
    switch (column.srcType) {
    case SRVINT1: case SRVBIT: case SRVBITN: return 1;
    case SRVINT2: return 2;
    case SRVINT4: case SRVFLT4: case SRVDATETIME4: return 4;
    case SRVFLT8: case SRVDATETIME: return 8;
    case SRVINTN: case SRVFLTN: case SRVDATETIMN:
        return column.srcLength > 0 ? column.srcLength : (column.srcType == SRVINTN ? 4 : 8);
    default: return column.srcLength;
    }
}

void CloseResultSet(SRV_PROC* srvproc) {
    srvproc->resultSetOpen = false;
    srvproc->bindings.clear();
}

}  // namespace

extern "C" {

int SRVAPI srv_rpcparams(SRV_PROC* srvproc) {
    return srvproc ? static_cast<int>(srvproc->params.size()) : 0;
}

int SRVAPI srv_paramstatus(SRV_PROC* srvproc, int n) {
    const vrn::host::Param* param = ParamAt(srvproc, n);
    return param && param->isOutput ? 1 : 0;
}

int SRVAPI srv_paraminfo(SRV_PROC* srvproc, int n, BYTE* type, ULONG* maxLength, ULONG* actualLength,
                         BYTE* data, BOOL* isNull) {
    const vrn::host::Param* param = ParamAt(srvproc, n);
    if (!param || srvproc->options.failParamInfo) {
        Store<BYTE>(type, 0);
        Store<ULONG>(maxLength, 0);
        Store<ULONG>(actualLength, 0);
        Store<BOOL>(isNull, 0);
        return kFail;
    }
    const ULONG length = param->isNull ? 0 : static_cast<ULONG>(param->value.size());
    Store<BYTE>(type, param->type);
    Store<ULONG>(maxLength, param->maxLength);
    Store<ULONG>(actualLength, length);
    Store<BOOL>(isNull, param->isNull ? 1 : 0);
    // Exactly the value's bytes and no terminator: an integer lands in the
    // low bytes of a wider destination, as the server does it.
    if (data && length > 0) std::memcpy(data, param->value.data(), length);
    if (data && srvproc->options.onValueTransfer) srvproc->options.onValueTransfer();
    return kSucceed;
}

int SRVAPI srv_paramsetoutput(SRV_PROC* srvproc, int n, BYTE* data, ULONG length, BOOL isNull) {
    const vrn::host::Param* param = ParamAt(srvproc, n);
    if (!param || !param->isOutput) return kFail;
    if (srvproc->options.onValueTransfer) srvproc->options.onValueTransfer();
    vrn::host::OutputValue out;
    out.param = n;
    out.isNull = isNull != 0 || (!data && length > 0);
    if (!out.isNull && data) out.value.assign(data, data + length);
    srvproc->result.outputs.push_back(std::move(out));
    srvproc->result.order.push_back(EventKind::Output);
    // Recorded in full so that tests see an overlong delivery; the server refuses it.
    const bool fixedWidth = !(param->type == SRVBIGVARCHAR || param->type == SRVBIGCHAR ||
                              param->type == SRVVARCHAR || param->type == SRVCHAR || param->type == SRVNVARCHAR ||
                              param->type == SRVNCHAR || param->type == SRVBIGVARBINARY ||
                              param->type == SRVBIGBINARY || param->type == SRVVARBINARY ||
                              param->type == SRVBINARY);
    return fixedWidth || out.isNull || length <= param->maxLength ? kSucceed : kFail;
}

int SRVAPI srv_sendmsg(SRV_PROC* srvproc, int msgtype, DBINT msgnum, DBTINYINT msgClass, DBTINYINT state,
                       DBCHAR* rpcname, int rpcnamelen, DBUSMALLINT linenum, DBCHAR* message, int msglen) {
    if (!srvproc) return kFail;
    vrn::host::Message m;
    m.type = msgtype;
    m.number = msgnum;
    m.msgClass = msgClass;
    m.state = state;
    m.rpcNameNull = rpcname == nullptr;
    if (rpcname) m.rpcName.assign(rpcname, TextLength(rpcname, rpcnamelen));
    m.rpcNameLength = rpcnamelen;
    m.lineNumber = linenum;
    if (message) m.text.assign(message, TextLength(message, msglen));
    m.length = msglen;
    srvproc->result.messages.push_back(std::move(m));
    srvproc->result.order.push_back(EventKind::Message);
    return kSucceed;
}

int SRVAPI srv_senddone(SRV_PROC* srvproc, DBUSMALLINT status, DBUSMALLINT info, DBINT count) {
    if (!srvproc) return kFail;
    srvproc->result.dones.push_back({status, info, count});
    srvproc->result.order.push_back(EventKind::Done);
    CloseResultSet(srvproc);
    return kSucceed;
}

int SRVAPI srv_describe(SRV_PROC* srvproc, int column, DBCHAR* name, int nameLength, DBINT destType,
                        DBINT destLength, DBINT srcType, DBINT srcLength, void* srcData) {
    if (!srvproc) return 0;
    vrn::host::CallResult& result = srvproc->result;
    // Columns are described before the set's first row, in order; 0 means the next one.
    if (srvproc->resultSetOpen && !result.resultSets.back().rows.empty()) return 0;
    const int next = srvproc->resultSetOpen ? static_cast<int>(result.resultSets.back().columns.size()) + 1 : 1;
    if (column != 0 && column != next) return 0;
    if (!srvproc->resultSetOpen) {
        result.resultSets.emplace_back();
        srvproc->resultSetOpen = true;
    }
    vrn::host::Column described;
    if (name) described.name.assign(name, TextLength(name, nameLength));
    described.destType = destType;
    described.destLength = destLength;
    described.srcType = srcType;
    described.srcLength = srcLength;
    result.columns.push_back(described);
    result.resultSets.back().columns.push_back(std::move(described));
    srvproc->bindings.push_back({srcData, false, 0});
    result.order.push_back(EventKind::Describe);
    return next;
}

int SRVAPI srv_setcoldata(SRV_PROC* srvproc, int column, void* data) {
    if (!srvproc || column < 1 || static_cast<size_t>(column) > srvproc->bindings.size()) return kFail;
    srvproc->bindings[static_cast<size_t>(column) - 1].data = data;
    return kSucceed;
}

int SRVAPI srv_setcollen(SRV_PROC* srvproc, int column, int length) {
    if (!srvproc || column < 1 || static_cast<size_t>(column) > srvproc->bindings.size()) return kFail;
    HostColumnBinding& binding = srvproc->bindings[static_cast<size_t>(column) - 1];
    binding.hasLength = true;
    binding.length = length;
    return kSucceed;
}

int SRVAPI srv_sendrow(SRV_PROC* srvproc) {
    if (!srvproc || !srvproc->resultSetOpen) return kFail;
    vrn::host::ResultSet& set = srvproc->result.resultSets.back();
    vrn::host::Row row;
    for (size_t i = 0; i < set.columns.size(); ++i) {
        const HostColumnBinding& binding = srvproc->bindings[i];
        const int length = binding.hasLength ? binding.length : FixedWidth(set.columns[i]);
        if (!binding.data || length <= 0) {
            row.emplace_back(std::nullopt);
            continue;
        }
        const auto* bytes = static_cast<const uint8_t*>(binding.data);
        row.emplace_back(Bytes(bytes, bytes + length));
    }
    srvproc->result.rows.push_back(row);
    set.rows.push_back(std::move(row));
    srvproc->result.order.push_back(EventKind::Row);
    return kSucceed;
}

void* SRVAPI srv_pfieldex(SRV_PROC* srvproc, int field, int* length) {
    Store<int>(length, 0);
    if (!srvproc || field != SRV_INSTANCENAME || !srvproc->options.instanceName) return nullptr;
    Store<int>(length, static_cast<int>(srvproc->instanceName.size() * sizeof(char16_t)));
    return srvproc->instanceName.data();  // a std::u16string keeps its terminator
}

}  // extern "C"
