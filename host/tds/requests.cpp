#include "host/tds/requests.h"

#include <algorithm>

#include "host/exec/text.h"

namespace vrn::tds {

namespace {

constexpr uint16_t kProcIdSwitch = 0xFFFF;
constexpr uint8_t kBatchSeparator = 0xFF;
constexpr uint8_t kBatchSeparator71 = 0x80;
constexpr uint8_t kMaxInfoClass = 10;  // above: an ERROR token
constexpr uint16_t kColumnNullable = 0x0001;

DecodeError SkipAllHeaders(Reader& r, uint32_t version) {
    if (!Is72(version)) return {};
    const uint32_t total = r.U32();
    if (!r.ok() || total < 4 || total - 4 > r.remaining()) return "ALL_HEADERS longer than the request";
    Reader headers(r.Here(), total - 4);
    while (!headers.AtEnd()) {
        const uint32_t length = headers.U32();
        if (!headers.ok() || length < 6 || length - 4 > headers.remaining()) return "a header longer than ALL_HEADERS";
        headers.Skip(length - 4);
    }
    r.Skip(total - 4);
    return {};
}

void WriteUserTypeAndFlags(TokenWriter& w, uint16_t flags) {
    if (Is72(w.version())) w.raw().U32(0); else w.raw().U16(0);
    w.raw().U16(flags);
}

}  // namespace

DecodeError ParseSqlBatch(const Bytes& payload, uint32_t version, std::u16string& text) {
    Reader r(payload);
    if (DecodeError e = SkipAllHeaders(r, version); !e.empty()) return e;
    if (r.remaining() % 2) return "a batch of an odd number of bytes";
    text = r.Utf16(r.remaining() / 2);
    return r.ok() ? DecodeError{} : "a batch cut short";
}

DecodeError ParseRpc(const Bytes& payload, uint32_t version, const DecodeLimits& limits, std::vector<RpcCall>& calls) {
    Reader r(payload);
    if (DecodeError e = SkipAllHeaders(r, version); !e.empty()) return e;
    calls.clear();
    size_t params = 0;
    while (!r.AtEnd()) {
        RpcCall call;
        const uint16_t nameLength = r.U16();
        if (nameLength == kProcIdSwitch) {
            call.procId = r.U16();
        } else {
            call.name = r.Utf16(nameLength);
        }
        call.options = r.U16();
        if (!r.ok()) return "an RPC cut short in its name";
        while (!r.AtEnd()) {
            const uint8_t next = *r.Here();
            if (next == kBatchSeparator || (!Is72(version) && next == kBatchSeparator71)) {
                r.Skip(1);
                break;
            }
            if (++params > limits.maxParams) return "more parameters than " + std::to_string(limits.maxParams);
            RpcParam p;
            p.name = r.BVarChar();
            p.status = r.U8();
            if (!r.ok()) return "a parameter cut short";
            if (!ReadTypeInfo(r, p.type, version)) return "a parameter of a type this server can't read";
            if (!ReadValue(r, p.type, p.value, limits.maxValueBytes)) return "a parameter's value doesn't fit its length";
            call.params.push_back(std::move(p));
        }
        calls.push_back(std::move(call));
    }
    if (calls.empty()) return "an RPC without a procedure";
    return r.ok() ? DecodeError{} : "an RPC cut short";
}

DecodeError ParseTransactionRequest(const Bytes& payload, uint32_t version, uint16_t& type) {
    Reader r(payload);
    if (DecodeError e = SkipAllHeaders(r, version); !e.empty()) return e;
    type = r.U16();
    return r.ok() ? DecodeError{} : "a transaction request cut short";
}

std::u16string Utf16OfCp1252(const std::string& bytes) {
    const Bytes utf16 = exec::EncodeUtf16(exec::DecodeCp1252(Bytes(bytes.begin(), bytes.end())));
    std::u16string out(utf16.size() / 2, u'\0');
    for (size_t i = 0; i < out.size(); ++i) out[i] = static_cast<char16_t>(utf16[2 * i] | utf16[2 * i + 1] << 8);
    return out;
}

namespace {
bool IsAscii(char16_t c) { return c < 0x80; }
}  // namespace

// Names are ASCII nearly always: they skip the general conversion.
std::u16string Utf16OfUtf8(const std::string& utf8) {
    if (std::all_of(utf8.begin(), utf8.end(), [](char c) { return IsAscii(static_cast<unsigned char>(c)); })) {
        return std::u16string(utf8.begin(), utf8.end());
    }
    const std::optional<std::u32string> text = exec::DecodeUtf8(utf8);
    const Bytes utf16 = exec::EncodeUtf16(text ? *text : U"?");
    std::u16string out(utf16.size() / 2, u'\0');
    for (size_t i = 0; i < out.size(); ++i) out[i] = static_cast<char16_t>(utf16[2 * i] | utf16[2 * i + 1] << 8);
    return out;
}

std::string Utf8OfUtf16(const std::u16string& text) {
    if (std::all_of(text.begin(), text.end(), IsAscii)) return std::string(text.begin(), text.end());
    Bytes bytes;
    bytes.reserve(text.size() * 2);
    for (char16_t c : text) {
        bytes.push_back(static_cast<uint8_t>(c));
        bytes.push_back(static_cast<uint8_t>(c >> 8));
    }
    return exec::Utf16ToUtf8(bytes);
}

void WriteReturnValue(TokenWriter& w, const OutputSlot& slot, const Value& value) {
    Writer& out = w.raw();
    out.U8(kTokenReturnValue);
    out.U16(static_cast<uint16_t>(slot.ordinal));
    out.BVarChar(slot.name);
    out.U8(0x01);  // an OUTPUT parameter's value
    WriteUserTypeAndFlags(w, kColumnNullable);
    WriteTypeInfo(out, slot.type, w.version());
    WriteValue(out, slot.type, value);
}

std::vector<ColumnInfo> ColumnsOfHost(const std::vector<host::Column>& columns) {
    std::vector<ColumnInfo> out;
    for (const host::Column& c : columns) {
        out.push_back({Utf16OfCp1252(c.name),
                       TypeOfHost(static_cast<uint8_t>(c.destType), static_cast<uint32_t>(std::max(0, c.destLength)))});
    }
    return out;
}

void WriteColumnInfos(TokenWriter& w, const std::vector<ColumnInfo>& columns) {
    Writer& out = w.raw();
    out.U8(kTokenColMetadata);
    out.U16(static_cast<uint16_t>(columns.size()));
    for (const ColumnInfo& c : columns) {
        WriteUserTypeAndFlags(w, kColumnNullable);
        WriteTypeInfo(out, c.type, w.version(), true);
        out.BVarChar(c.name);
    }
}

void WriteRowValues(TokenWriter& w, const std::vector<ColumnInfo>& columns, const std::vector<Value>& values) {
    Writer& out = w.raw();
    out.U8(kTokenRow);
    for (size_t i = 0; i < columns.size(); ++i) WriteValue(out, columns[i].type, i < values.size() ? values[i] : Value{}, true);
}

namespace {

void WriteHostRow(TokenWriter& w, const std::vector<host::Column>& described, const std::vector<ColumnInfo>& columns,
                  const host::Row& row) {
    std::vector<Value> values;
    for (size_t i = 0; i < columns.size(); ++i) {
        values.push_back(CellOfHost(columns[i].type, static_cast<uint8_t>(described[i].srcType), i < row.size() ? row[i] : std::nullopt));
    }
    WriteRowValues(w, columns, values);
}

}  // namespace

// How each srv_* call of a procedure reaches the client:
//
//   srv_sendmsg, class 0 to 10          INFO (number, state, class, text as UTF-16,
//   srv_sendmsg, class 11 and above     ERROR  server, procedure, line)
//   srv_paramsetoutput                  RETURNVALUE in the parameter's own type (the last
//                                       delivery of each parameter)
//   srv_describe                        COLMETADATA of the set's columns, before its first row
//   srv_setcoldata, srv_setcollen       nothing: they bind a ROW's values
//   srv_sendrow                         ROW
//   srv_senddone                        DONEINPROC with its status (and "more"), info and count
//   the return code                     RETURNSTATUS
//   an OUTPUT parameter never delivered RETURNVALUE of the value the client sent
//   the end of the call                 DONEPROC (the caller's)
void WriteCallAnswer(TokenWriter& w, const host::CallResult& result, const CallContext& context) {
    // A call has a few outputs at most: plain scans, no maps.
    auto slotOf = [&](int param) -> const OutputSlot* {
        for (const OutputSlot& slot : context.outputs) {
            if (slot.ordinal == param) return &slot;
        }
        return nullptr;
    };
    auto lastDelivery = [&](int param) -> std::optional<size_t> {
        for (size_t i = result.outputs.size(); i-- > 0;) {
            if (result.outputs[i].param == param) return i;
        }
        return std::nullopt;
    };

    size_t message = 0, output = 0, done = 0, set = 0, row = 0;
    bool described = false, announced = false;
    std::vector<ColumnInfo> columns;
    auto announce = [&] {
        if (described && !announced && set < result.resultSets.size()) {
            columns = ColumnsOfHost(result.resultSets[set].columns);
            WriteColumnInfos(w, columns);
        }
        announced = true;
    };
    auto closeSet = [&] {
        if (!described) return;
        announce();
        described = announced = false;
        ++set;
        row = 0;
    };
    for (host::EventKind kind : result.order) {
        switch (kind) {
        case host::EventKind::Message: {
            const host::Message& m = result.messages[message++];
            tds::Message token;
            token.error = m.msgClass > kMaxInfoClass;
            token.number = m.number;
            token.state = m.state;
            token.msgClass = m.msgClass;
            token.text = Utf16OfCp1252(m.text);
            token.server = context.server;
            token.procedure = m.rpcNameNull ? context.procedure : Utf16OfCp1252(m.rpcName);
            token.line = m.lineNumber;
            w.Message(token);
            break;
        }
        case host::EventKind::Output: {
            const size_t index = output++;
            const host::OutputValue& o = result.outputs[index];
            const OutputSlot* slot = slotOf(o.param);
            if (!slot || lastDelivery(o.param) != index) break;
            WriteReturnValue(w, *slot, FromHost(slot->type, o.isNull ? Value{} : Value{o.value}));
            break;
        }
        case host::EventKind::Describe:
            if (!described) described = true, announced = false;
            break;
        case host::EventKind::Row:
            announce();
            if (set < result.resultSets.size() && row < result.resultSets[set].rows.size()) {
                WriteHostRow(w, result.resultSets[set].columns, columns, result.resultSets[set].rows[row++]);
            }
            break;
        case host::EventKind::Done: {
            closeSet();
            const host::Done& d = result.dones[done++];
            // More always follows inside a procedure: at least its RETURNSTATUS and DONEPROC.
            w.Done(kTokenDoneInProc, static_cast<uint16_t>(d.status | kDoneMore), d.info,
                   static_cast<uint64_t>(static_cast<uint32_t>(d.count)));
            break;
        }
        }
    }
    closeSet();
    w.ReturnStatus(result.returnCode);
    for (const OutputSlot& slot : context.outputs) {
        if (!lastDelivery(slot.ordinal)) WriteReturnValue(w, slot, slot.sent);
    }
}

}  // namespace vrn::tds
