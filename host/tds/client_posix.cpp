#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/exec/text.h"
#include "host/tds/client.h"
#include "host/tds/requests.h"

namespace vrn::tds {

namespace {

constexpr size_t kMaxAnswerBytes = 256u << 20;

[[noreturn]] void Fail(const std::string& why) { throw exec::ScriptError(0, why); }

// Message texts and names back to the procedures' code page; '?' for what it lacks.
std::string Cp1252Of(const std::u16string& text) {
    std::string out;
    for (char16_t c : text) out += static_cast<char>(exec::UnicodeToCp1252(c).value_or('?'));
    return out;
}

class Socket {
public:
    explicit Socket(const std::string& address) {
        const size_t colon = address.rfind(':');
        if (colon == std::string::npos) Fail("--server takes HOST:PORT");
        addrinfo hints{};
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        const std::string host = address.substr(0, colon), port = address.substr(colon + 1);
        if (getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0 || !found) Fail("cannot find " + address);
        for (addrinfo* a = found; a && fd_ < 0; a = a->ai_next) {
            fd_ = socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC, a->ai_protocol);
            if (fd_ >= 0 && connect(fd_, a->ai_addr, a->ai_addrlen) != 0) {
                close(fd_);
                fd_ = -1;
            }
        }
        freeaddrinfo(found);
        if (fd_ < 0) Fail("cannot connect to " + address + ": " + std::strerror(errno));
    }
    ~Socket() {
        if (fd_ >= 0) close(fd_);
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    void Send(uint8_t type, const Bytes& payload, uint32_t packetSize) {
        Bytes packets;
        AppendPackets(packets, type, payload, packetSize);
        for (size_t at = 0; at < packets.size();) {
            const ssize_t n = send(fd_, packets.data() + at, packets.size() - at, MSG_NOSIGNAL);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) Fail("the server closed the connection");
            at += static_cast<size_t>(n);
        }
    }

    Bytes Receive() {
        Bytes payload;
        for (;;) {
            uint8_t header[kHeaderSize];
            Read(header, sizeof header);
            const PacketHeader h = ReadPacketHeader(header);
            if (h.length < kHeaderSize || payload.size() + h.length > kMaxAnswerBytes) Fail("the server's answer doesn't frame");
            const size_t at = payload.size();
            payload.resize(at + h.length - kHeaderSize);
            Read(payload.data() + at, h.length - kHeaderSize);
            if (h.status & kStatusEndOfMessage) return payload;
        }
    }

private:
    void Read(uint8_t* data, size_t n) {
        while (n > 0) {
            const ssize_t got = recv(fd_, data, n, 0);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) Fail("the server closed the connection");
            data += got;
            n -= static_cast<size_t>(got);
        }
    }
    int fd_ = -1;
};

// An answer's tokens read back into a call record: the inverse of WriteCallAnswer.
class AnswerReader {
public:
    AnswerReader(const Bytes& payload, uint32_t version) : r_(payload), version_(version) {}

    // False when the answer ended in an error that names no procedure (2812).
    bool Read(host::CallResult& result, std::string& lastError) {
        bool returned = false, found = true;
        std::vector<TypeInfo> columns;
        while (!r_.AtEnd()) {
            const uint8_t token = r_.U8();
            switch (token) {
            case kTokenInfo: case kTokenError: {
                host::Message m = ReadMessage(token == kTokenError);
                if (token == kTokenError) lastError = m.text;
                if (m.number == exec::kErrorNoProcedure) found = false;
                result.messages.push_back(std::move(m));
                result.order.push_back(host::EventKind::Message);
                break;
            }
            case kTokenColMetadata: columns = ReadColumns(result); break;
            case kTokenRow: ReadRow(result, columns); break;
            case kTokenReturnStatus:
                result.returnCode = static_cast<int32_t>(r_.U32());
                returned = true;
                break;
            case kTokenReturnValue: ReadReturnValue(result, returned); break;
            case kTokenDoneInProc: {
                host::Done d;
                d.status = r_.U16();
                d.info = r_.U16();
                d.count = static_cast<int32_t>(Is72(version_) ? r_.U64() : r_.U32());
                // The server marks every done inside a call as followed by more;
                // a done without a count was the procedure's final one.
                if (!(d.status & kDoneCount)) d.status &= static_cast<uint16_t>(~kDoneMore);
                result.dones.push_back(d);
                result.order.push_back(host::EventKind::Done);
                break;
            }
            case kTokenDoneProc: case kTokenDone:
                r_.Skip(4);
                r_.Skip(Is72(version_) ? 8 : 4);
                break;
            case kTokenEnvChange: case kTokenLoginAck: r_.Skip(r_.U16()); break;
            case kTokenFeatureExtAck:
                while (r_.ok() && r_.U8() != 0xFF) r_.Skip(r_.U32());
                break;
            default: Fail("the server sent an unknown token " + std::to_string(token));
            }
            if (!r_.ok()) Fail("the server's answer is cut short");
        }
        return found;
    }

private:
    host::Message ReadMessage(bool error) {
        Reader body(r_.Here(), r_.remaining());
        const uint16_t length = body.U16();
        r_.Skip(size_t{length} + 2);
        host::Message m;
        m.type = error ? 2 : 1;
        m.number = static_cast<int32_t>(body.U32());
        m.state = body.U8();
        m.msgClass = body.U8();
        m.text = Cp1252Of(body.UsVarChar());
        (void)body.BVarChar();
        const std::u16string procedure = body.BVarChar();
        m.rpcNameNull = procedure.empty();
        m.rpcName = Cp1252Of(procedure);
        m.lineNumber = static_cast<uint16_t>(Is72(version_) ? body.U32() : body.U16());
        m.length = -1;
        return m;
    }

    void SkipUserTypeAndFlags() { r_.Skip(Is72(version_) ? 6 : 4); }

    std::vector<TypeInfo> ReadColumns(host::CallResult& result) {
        const uint16_t count = r_.U16();
        std::vector<TypeInfo> types;
        host::ResultSet set;
        for (uint16_t i = 0; i < count && r_.ok(); ++i) {
            SkipUserTypeAndFlags();
            TypeInfo t;
            if (!ReadTypeInfo(r_, t, version_)) Fail("the server described a column this client can't read");
            if (t.type == kText || t.type == kNText || t.type == kImage) {
                if (Is72(version_)) {
                    for (uint8_t parts = r_.U8(); parts > 0 && r_.ok(); --parts) (void)r_.UsVarChar();
                } else {
                    (void)r_.UsVarChar();
                }
            }
            host::Column c;
            c.name = Cp1252Of(r_.BVarChar());
            const HostValue h = HostOfColumn(t, std::nullopt);
            c.destType = c.srcType = h.code;
            c.destLength = c.srcLength = static_cast<int32_t>(h.maxLength);
            result.columns.push_back(c);
            set.columns.push_back(c);
            result.order.push_back(host::EventKind::Describe);
            types.push_back(t);
        }
        result.resultSets.push_back(std::move(set));
        return types;
    }

    void ReadRow(host::CallResult& result, const std::vector<TypeInfo>& columns) {
        if (result.resultSets.empty()) Fail("a row before its columns");
        host::Row row;
        for (const TypeInfo& t : columns) {
            Value v;
            if (!ReadValue(r_, t, v, kMaxAnswerBytes, true)) Fail("a row that doesn't read");
            const HostValue h = ToHost(t, v);
            row.push_back(h.value);
        }
        result.rows.push_back(row);
        result.resultSets.back().rows.push_back(std::move(row));
        result.order.push_back(host::EventKind::Row);
    }

    // A value the client sent back unchanged (after RETURNSTATUS) was never delivered.
    void ReadReturnValue(host::CallResult& result, bool afterStatus) {
        const uint16_t ordinal = r_.U16();
        (void)r_.BVarChar();
        r_.Skip(1);
        SkipUserTypeAndFlags();
        TypeInfo t;
        Value v;
        if (!ReadTypeInfo(r_, t, version_) || !ReadValue(r_, t, v, kMaxAnswerBytes)) Fail("a return value that doesn't read");
        if (afterStatus) return;
        host::OutputValue o;
        o.param = ordinal;
        const HostValue h = ToHost(t, v);
        o.isNull = !h.value;
        if (h.value) o.value = *h.value;
        result.outputs.push_back(std::move(o));
        result.order.push_back(host::EventKind::Output);
    }

    Reader r_;
    uint32_t version_;
};

class RemoteProcedures final : public exec::Procedures {
public:
    explicit RemoteProcedures(const ClientOptions& options) : socket_(options.address), version_(options.version) {
        PreLogin hello;
        hello.version = 0x07000000;
        hello.encryption = kEncryptNotSupported;
        socket_.Send(kPreLogin, BuildPreLogin(hello), kDefaultPacketSize);
        (void)socket_.Receive();
        Login7 login;
        login.version = options.version;
        login.packetSize = kDefaultPacketSize;
        login.hostName = u"vrn-exec";
        login.userName = Utf16OfUtf8(options.user);
        login.appName = u"vrn-exec";
        login.libraryName = u"vrn-exec";
        login.database = u"master";
        std::string password;
        for (char16_t c : Utf16OfUtf8(options.password)) password += static_cast<char>(c), password += static_cast<char>(c >> 8);
        socket_.Send(kLogin7, BuildLogin7(login, password), kDefaultPacketSize);
        std::fill(password.begin(), password.end(), '\0');
        host::CallResult ignored;
        std::string error;
        (void)AnswerReader(socket_.Receive(), version_).Read(ignored, error);
        if (!error.empty()) Fail(error);
    }

    std::optional<host::CallResult> Execute(const Call& call) override {
        Writer w;
        if (Is72(version_)) {  // ALL_HEADERS: the transaction descriptor alone
            w.U32(22);
            w.U32(18);
            w.U16(2);
            w.U64(0);
            w.U32(1);
        }
        const std::u16string name = Utf16OfUtf8(call.procedure);
        w.U16(static_cast<uint16_t>(name.size()));
        w.Utf16(name);
        w.U16(0);
        for (size_t i = 0; i < call.params.size(); ++i) {
            const host::Param& p = call.params[i];
            const exec::SqlType* type = i < call.types.size() ? &call.types[i] : nullptr;
            const TypeInfo t = TypeOfHost(p.type, p.maxLength, type ? type->precision : 0, type ? type->scale : 0);
            w.BVarChar(i < call.names.size() ? Utf16OfUtf8(call.names[i]) : u"");
            w.U8(p.isOutput ? 1 : 0);
            WriteTypeInfo(w, t, version_);
            WriteValue(w, t, p.isNull ? Value{} : FromHost(t, p.value));
        }
        socket_.Send(kRpc, w.bytes(), kDefaultPacketSize);
        host::CallResult result;
        std::string error;
        if (!AnswerReader(socket_.Receive(), version_).Read(result, error)) return std::nullopt;
        return result;
    }

private:
    Socket socket_;
    uint32_t version_;
};

}  // namespace

std::unique_ptr<exec::Procedures> ConnectProcedures(const ClientOptions& options) {
    return std::make_unique<RemoteProcedures>(options);
}

}  // namespace vrn::tds
