// The requests a client sends after login, decoded, and the answer to a
// procedure call written as tokens.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/host.h"
#include "host/tds/protocol.h"
#include "host/tds/types.h"

namespace vrn::tds {

// Bounds a decoder keeps, whatever a message says.
struct DecodeLimits {
    size_t maxParams = 2100;                // the server's own limit of parameters
    size_t maxValueBytes = 64u << 20;       // one parameter's value
};

struct RpcParam {
    std::u16string name;  // with its @, or empty
    uint8_t status = 0;   // bit 0: OUTPUT; bit 1: the default value
    TypeInfo type;
    Value value;
    [[nodiscard]] bool IsOutput() const { return (status & 0x01) != 0; }
};

// Procedures a client may call by number instead of by name.
enum ProcId : uint16_t {
    kSpExecuteSql = 10, kSpPrepare = 11, kSpExecute = 12, kSpPrepExec = 13, kSpUnprepare = 15,
};

struct RpcCall {
    std::u16string name;  // empty when called by id
    uint16_t procId = 0;
    uint16_t options = 0;
    std::vector<RpcParam> params;
};

// Why a request was refused; empty when it was read.
using DecodeError = std::string;

// ALL_HEADERS, which 7.2 and later put before a batch, an RPC and a
// transaction request, is checked and skipped.
[[nodiscard]] DecodeError ParseSqlBatch(const Bytes& payload, uint32_t version, std::u16string& text);
[[nodiscard]] DecodeError ParseRpc(const Bytes& payload, uint32_t version, const DecodeLimits& limits,
                                   std::vector<RpcCall>& calls);
// The request type of a transaction manager request: 5 begin, 7 commit, 8 rollback...
[[nodiscard]] DecodeError ParseTransactionRequest(const Bytes& payload, uint32_t version, uint16_t& type);
enum : uint16_t { kTmBegin = 5, kTmCommit = 7, kTmRollback = 8, kTmSavepoint = 9 };

// What the client sent for an OUTPUT parameter: where its RETURNVALUE goes.
struct OutputSlot {
    int ordinal = 0;  // 1-based, as the procedure numbers it
    std::u16string name;
    TypeInfo type;
    Value sent;
};

struct CallContext {
    std::u16string procedure;  // for messages that don't name one
    std::u16string server;
    std::vector<OutputSlot> outputs;
};

// The tokens of one procedure call, in the order the procedure sent them (the
// mapping of every srv_* to its token), then RETURNSTATUS and the RETURNVALUE
// of each OUTPUT parameter it never delivered. The DONEPROC is the caller's.
void WriteCallAnswer(TokenWriter& w, const host::CallResult& result, const CallContext& context);
void WriteReturnValue(TokenWriter& w, const OutputSlot& slot, const Value& value);
// A row set: COLMETADATA, then each ROW.
struct ColumnInfo {
    std::u16string name;
    TypeInfo type;
};
void WriteColumnInfos(TokenWriter& w, const std::vector<ColumnInfo>& columns);
void WriteRowValues(TokenWriter& w, const std::vector<ColumnInfo>& columns, const std::vector<Value>& values);
// A procedure's row set as it described it: a column's type is its destType.
std::vector<ColumnInfo> ColumnsOfHost(const std::vector<host::Column>& columns);

// Message texts: the procedures' Windows-1252 bytes as UTF-16, and back.
std::u16string Utf16OfCp1252(const std::string& bytes);
std::u16string Utf16OfUtf8(const std::string& utf8);
std::string Utf8OfUtf16(const std::u16string& text);

}  // namespace vrn::tds
