#include "host/server/session.h"

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <chrono>
#include <iostream>
#include <map>
#include <mutex>
#include <thread>

#include "frame/convert.h"
#include "host/exec/runner.h"
#include "host/server/system_procedures.h"
#include "host/server/tls.h"
#include "host/tds/requests.h"

namespace vrn::server {

namespace {

using tds::Bytes;
using tds::TokenWriter;

constexpr uint32_t kProgramVersion = 0x0A320640;  // 10.50.1600: what clients compare features with
constexpr int32_t kLoginFailed = 18456;
constexpr int32_t kNoFreeConnection = 17809;
constexpr int32_t kErrorGeneric = 50000;


// The system procedures' names: the only ones looked up beside the library's.
bool IsSystemName(const std::string& name) { return name.size() > 3 && EqualIgnoringAsciiCase(name.data(), "sp_", 3); }

// The last part of a qualified name: master.dbo.vrn_X, [master]..[vrn_X], dbo.vrn_X.
std::string LastNamePart(const std::string& name) {
    std::string part;
    bool bracketed = false;
    for (size_t i = 0; i < name.size(); ++i) {
        const char c = name[i];
        if (bracketed) {
            if (c == ']' && i + 1 < name.size() && name[i + 1] == ']') {
                part += ']';
                ++i;
            } else if (c == ']') {
                bracketed = false;
            } else {
                part += c;
            }
        } else if (c == '[') {
            bracketed = true;
        } else if (c == '.') {
            part.clear();
        } else {
            part += c;
        }
    }
    return part;
}

// ---- The socket ----------------------------------------------------------------

// The client's socket, plain or under TLS. OpenSSL works on memory buffers
// here, not on the socket: during the handshake its records travel inside
// pre-login packets, afterwards straight on the wire; and what has arrived but
// not been read yet can be looked at without waiting, for an attention.
class Connection {
public:
    explicit Connection(int fd) : fd_(fd) {}

    // The handshake, its records inside pre-login packets. False when it failed.
    bool StartTls(const TlsContext& context, std::string& why) {
        ssl_ = context.NewSession();
        BIO* in = BIO_new(BIO_s_mem());
        BIO* out = BIO_new(BIO_s_mem());
        if (!ssl_ || !in || !out) {
            BIO_free(in), BIO_free(out);
            why = "no memory for TLS";
            return false;
        }
        SSL_set_bio(ssl_.get(), in, out);  // the session owns both now
        in_ = in, out_ = out;
        for (;;) {
            ERR_clear_error();
            const int done = SSL_do_handshake(ssl_.get());
            const int error = SSL_get_error(ssl_.get(), done);
            if (BIO_ctrl_pending(out_) > 0) {
                char* data = nullptr;
                const long n = BIO_get_mem_data(out_, &data);
                Bytes packets;
                tds::AppendPackets(packets, tds::kPreLogin, Bytes(data, data + std::max(n, 0L)), tds::kDefaultPacketSize);
                (void)BIO_reset(out_);
                if (!SendRaw(packets.data(), packets.size())) {
                    why = "the client left during the TLS handshake";
                    return false;
                }
            }
            if (done == 1) break;
            if (error != SSL_ERROR_WANT_READ) {
                why = "the TLS handshake failed: " + TlsErrors();
                return false;
            }
            uint8_t type = 0;
            Bytes payload;
            if (!ReadMessage(type, payload, 1u << 16, {tds::kPreLogin})) {
                why = "the client left or broke the framing during the TLS handshake";
                return false;
            }
            if (!payload.empty() && BIO_write(in_, payload.data(), static_cast<int>(payload.size())) <= 0) {
                why = "no memory for TLS";
                return false;
            }
        }
        tls_ = true;
        return true;
    }

    // After a login-only encryption: the rest is plain. False when the client
    // sent more under TLS than its login, which then would be lost.
    bool StopTls() {
        tls_ = false;
        return SSL_pending(ssl_.get()) == 0 && BIO_ctrl_pending(in_) == 0;
    }

    bool ReadExact(uint8_t* data, size_t n) {
        while (n > 0) {
            if (tls_) {
                ERR_clear_error();
                const int got = SSL_read(ssl_.get(), data, static_cast<int>(std::min<size_t>(n, INT_MAX)));
                if (got > 0) {
                    data += got;
                    n -= static_cast<size_t>(got);
                } else if (SSL_get_error(ssl_.get(), got) != SSL_ERROR_WANT_READ || !Fill(true)) {
                    return false;
                }
                continue;
            }
            if (inBegin_ < inEnd_) {
                const size_t take = std::min(n, inEnd_ - inBegin_);
                std::memcpy(data, inbox_.data() + inBegin_, take);
                inBegin_ += take;
                data += take;
                n -= take;
                continue;
            }
            // A large body straight into place; else what the socket has, so a
            // request's header and body take one call.
            const bool direct = n >= inbox_.size();
            const ssize_t got = direct ? recv(fd_, data, n, 0) : recv(fd_, inbox_.data(), inbox_.size(), 0);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) return false;
            if (direct) {
                data += got;
                n -= static_cast<size_t>(got);
            } else {
                inBegin_ = 0;
                inEnd_ = static_cast<size_t>(got);
            }
        }
        return true;
    }

    // The whole of bytes in one go: under TLS its records are made first,
    // then sent together.
    bool WriteAll(const Bytes& bytes) {
        if (!tls_) return SendRaw(bytes.data(), bytes.size());
        for (size_t at = 0; at < bytes.size();) {
            ERR_clear_error();
            const int n = static_cast<int>(std::min<size_t>(bytes.size() - at, 1u << 30));
            if (SSL_write(ssl_.get(), bytes.data() + at, n) != n) return false;
            at += static_cast<size_t>(n);
        }
        return SendOutput();
    }

    // One whole message: its packets' payloads joined. False when the client
    // left or broke the framing; then the connection ends.
    // allowed: the message types that may come now (none: any).
    bool ReadMessage(uint8_t& type, Bytes& payload, size_t maxBytes, std::initializer_list<uint8_t> allowed = {}) {
        tds::MessageAssembler assembler(maxBytes);
        Bytes body;
        for (;;) {
            uint8_t header[tds::kHeaderSize];
            if (!ReadExact(header, sizeof header)) return false;
            const tds::PacketHeader h = tds::ReadPacketHeader(header);
            if (allowed.size() && std::find(allowed.begin(), allowed.end(), h.type) == allowed.end()) return false;
            if (assembler.Check(h) == tds::MessageAssembler::Step::Broken) return false;
            body.resize(h.length - tds::kHeaderSize);
            if (!ReadExact(body.data(), body.size())) return false;
            switch (assembler.Add(h, body.data(), body.size())) {
            case tds::MessageAssembler::Step::Broken: return false;
            case tds::MessageAssembler::Step::More: break;
            case tds::MessageAssembler::Step::Done:
                type = assembler.type();
                payload = std::move(assembler.payload());
                return true;
            }
        }
    }

    // An attention the client sent while its request ran, taken off the wire.
    bool TakeAttention() {
        uint8_t header[tds::kHeaderSize];
        if (PeekNext(header) != Peeked::Attention) return false;
        const tds::PacketHeader h = tds::ReadPacketHeader(header);
        if (h.type != tds::kAttention || h.length < tds::kHeaderSize) return false;
        Bytes packet(h.length);
        return ReadExact(packet.data(), packet.size());
    }

    // Waits up to milliseconds; false when an attention (or the client's going) cut it short.
    bool Wait(uint32_t milliseconds) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        for (;;) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            if (left.count() <= 0) return true;
            uint8_t header[tds::kHeaderSize];
            switch (PeekNext(header)) {
            case Peeked::Attention:
            case Peeked::Gone: return false;
            case Peeked::Other:
                // Something else arrived early: it waits its turn.
                std::this_thread::sleep_for(left);
                return true;
            case Peeked::Nothing: break;
            }
            pollfd p{fd_, POLLIN, 0};
            const int ready = poll(&p, 1, static_cast<int>(std::min<int64_t>(left.count(), 1000)));
            if (ready > 0 && (p.revents & (POLLHUP | POLLERR))) return false;
        }
    }

private:
    enum class Peeked { Nothing, Attention, Other, Gone };

    Peeked PeekNext(uint8_t (&header)[tds::kHeaderSize]) { return tls_ ? Peek(header) : PeekPlain(header); }

    // What the next decrypted bytes are, taking in whatever the socket holds
    // without waiting for more. A record cut short is Nothing yet.
    Peeked Peek(uint8_t (&header)[tds::kHeaderSize]) {
        if (!Fill(false)) return Peeked::Gone;
        ERR_clear_error();
        const int got = SSL_peek(ssl_.get(), header, sizeof header);
        if (got <= 0) return SSL_get_error(ssl_.get(), got) == SSL_ERROR_WANT_READ ? Peeked::Nothing : Peeked::Gone;
        if (header[0] != tds::kAttention) return Peeked::Other;
        // An attention is one packet of a header alone: it comes in one record.
        return got == static_cast<int>(sizeof header) ? Peeked::Attention : Peeked::Other;
    }

    // The same in plain: the next bytes, from what is read ahead or what the
    // socket holds without waiting.
    Peeked PeekPlain(uint8_t (&header)[tds::kHeaderSize]) {
        if (inEnd_ - inBegin_ < sizeof header) {
            std::memmove(inbox_.data(), inbox_.data() + inBegin_, inEnd_ - inBegin_);
            inEnd_ -= inBegin_;
            inBegin_ = 0;
            ssize_t got;
            do {
                got = recv(fd_, inbox_.data() + inEnd_, inbox_.size() - inEnd_, MSG_DONTWAIT);
            } while (got < 0 && errno == EINTR);
            if (got == 0 || (got < 0 && errno != EAGAIN && errno != EWOULDBLOCK)) return Peeked::Gone;
            if (got > 0) inEnd_ += static_cast<size_t>(got);
        }
        if (inEnd_ == inBegin_) return Peeked::Nothing;
        if (inbox_[inBegin_] != tds::kAttention) return Peeked::Other;
        if (inEnd_ - inBegin_ < sizeof header) return Peeked::Nothing;
        std::memcpy(header, inbox_.data() + inBegin_, sizeof header);
        return Peeked::Attention;
    }

    // Moves what the socket has into the TLS input, a record's worth at a
    // time; wait: block until something comes. Without waiting, a client
    // that sends ahead is left in the socket once a few records are in.
    // False when the client left (or the socket failed).
    bool Fill(bool wait) {
        if (inBegin_ < inEnd_) {  // read ahead with the last pre-login packet
            const int n = static_cast<int>(inEnd_ - inBegin_);
            const bool moved = BIO_write(in_, inbox_.data() + inBegin_, n) == n;
            inBegin_ = inEnd_ = 0;
            return moved;
        }
        if (!wait && BIO_ctrl_pending(in_) >= kReadAhead) return true;
        uint8_t chunk[16 * 1024 + 512];
        for (;;) {
            const ssize_t got = recv(fd_, chunk, sizeof chunk, wait ? 0 : MSG_DONTWAIT);
            if (got < 0 && errno == EINTR) continue;
            if (got < 0 && !wait && (errno == EAGAIN || errno == EWOULDBLOCK)) return true;
            if (got <= 0) return false;
            return BIO_write(in_, chunk, static_cast<int>(got)) == got;
        }
    }

    static constexpr size_t kReadAhead = 64 * 1024;

    // The TLS records made so far, sent and let go.
    bool SendOutput() {
        char* data = nullptr;
        const long n = BIO_get_mem_data(out_, &data);
        const bool sent = SendRaw(reinterpret_cast<const uint8_t*>(data), static_cast<size_t>(std::max(n, 0L)));
        (void)BIO_reset(out_);
        return sent;
    }

    bool SendRaw(const uint8_t* data, size_t size) {
        size_t at = 0;
        while (at < size) {
            const ssize_t sent = send(fd_, data + at, size - at, MSG_NOSIGNAL);
            if (sent < 0 && errno == EINTR) continue;
            if (sent <= 0) return false;
            at += static_cast<size_t>(sent);
        }
        return true;
    }

    int fd_;
    std::array<uint8_t, 8192> inbox_;  // plain bytes read ahead: [inBegin_, inEnd_)
    size_t inBegin_ = 0, inEnd_ = 0;
    SslSession ssl_;
    BIO* in_ = nullptr;  // owned by ssl_
    BIO* out_ = nullptr;
    bool tls_ = false;
};

// ---- Values between the wire and the interpreter ----------------------------------

exec::SqlType Sized(exec::Family family, uint8_t code, uint32_t length, const char* name) {
    exec::SqlType t;
    t.family = family;
    t.code = code;
    t.length = length;
    t.name = name;
    return t;
}

// The interpreter's type of a wire type: what a parameter's value converts from and to.
exec::SqlType SqlTypeOf(const tds::TypeInfo& t, size_t valueLength) {
    const tds::HostValue h = tds::ToHost(t, Bytes(valueLength));
    const std::string n = std::to_string(h.maxLength);
    const std::string half = std::to_string(std::max<uint32_t>(h.maxLength / 2, 1));
    const bool isLong = h.maxLength > 8000;
    switch (h.code) {
    case 48: return exec::ParseType("tinyint", {}, false);
    case 52: return exec::ParseType("smallint", {}, false);
    case 38: case 56: return exec::ParseType("int", {}, false);
    case 127: return exec::ParseType("decimal", {"19", "0"}, false);
    case 50: case 104: return exec::ParseType("bit", {}, false);
    case 59: return exec::ParseType("real", {}, false);
    case 62: return exec::ParseType("float", {}, false);
    case 109: return exec::ParseType(h.maxLength == 4 ? "real" : "float", {}, false);
    case 106: case 108:
        return exec::ParseType(h.code == 106 ? "decimal" : "numeric", {std::to_string(t.precision), std::to_string(t.scale)}, false);
    case 39: case 167:
        return isLong ? Sized(exec::Family::Char, 167, h.maxLength, "varchar(max)") : exec::ParseType("varchar", {n}, false);
    case 47: case 175: return exec::ParseType("char", {n}, false);
    case 231: case 99:
        return isLong || h.code == 99 ? Sized(exec::Family::NChar, 231, std::max<uint32_t>(h.maxLength, 2), "nvarchar(max)")
                                      : exec::ParseType("nvarchar", {half}, false);
    case 239: return exec::ParseType("nchar", {half}, false);
    case 35: return exec::ParseType("text", {}, false);
    case 31: return exec::SqlType{};
    case 173: case 45: return exec::ParseType("binary", {n}, false);
    default:
        return isLong ? Sized(exec::Family::Binary, 165, h.maxLength, "varbinary(max)")
                      : exec::ParseType("varbinary", {std::to_string(std::max<uint32_t>(h.maxLength, 1))}, false);
    }
}

exec::Value ValueOfWire(const tds::TypeInfo& t, const tds::Value& v) {
    exec::Value out;
    out.type = SqlTypeOf(t, v ? v->size() : 0);
    out.isNull = !v;
    if (!v) return out;
    const tds::HostValue h = tds::ToHost(t, v);
    out.bytes = *h.value;
    if (h.code == 127) {  // a bigint becomes the decimal(19, 0) of its value
        int64_t n = 0;
        for (size_t i = 0; i < 8 && i < out.bytes.size(); ++i) n |= static_cast<int64_t>(out.bytes[i]) << (8 * i);
        unsigned __int128 magnitude = n < 0 ? static_cast<unsigned __int128>(-(n + 1)) + 1 : static_cast<unsigned __int128>(n);
        out.bytes.assign(17, 0);
        out.bytes[0] = n < 0 ? 0 : 1;
        for (size_t i = 0; i < 16; ++i) out.bytes[1 + i] = static_cast<uint8_t>(magnitude >> (8 * i));
    }
    return out;
}

tds::Value WireOfValue(const tds::TypeInfo& t, const exec::Value& value) {
    exec::Value converted;
    try {
        converted = exec::Convert(value, SqlTypeOf(t, value.bytes.size()));
    } catch (const exec::SqlError&) {
        return std::nullopt;
    }
    if (converted.isNull) return std::nullopt;
    if (tds::ToHost(t, Bytes{}).code == 127 && converted.bytes.size() == 17) {
        unsigned __int128 magnitude = 0;
        for (size_t i = 0; i < 16; ++i) magnitude |= static_cast<unsigned __int128>(converted.bytes[1 + i]) << (8 * i);
        const auto n = static_cast<int64_t>(converted.bytes[0] ? magnitude : -magnitude);
        Bytes b(8);
        for (size_t i = 0; i < 8; ++i) b[i] = static_cast<uint8_t>(static_cast<uint64_t>(n) >> (8 * i));
        return b;
    }
    return tds::FromHost(t, converted.bytes);
}

// ---- Answers of a batch -------------------------------------------------------------

tds::Message ErrorMessage(const exec::ScriptError& e, const std::u16string& server) {
    tds::Message m;
    m.error = true;
    m.server = server;
    m.line = static_cast<uint32_t>(std::max(e.line, 1));
    m.state = 1;
    m.msgClass = 16;
    m.number = e.number ? e.number : kErrorGeneric;
    std::string text = e.what();
    switch (e.number) {
    case exec::kErrorSyntax:
        m.msgClass = 15;
        text = "Incorrect syntax near '" + (e.near.empty() ? std::string("end of batch") : e.near) + "'.";
        break;
    case exec::kErrorUndeclared: m.msgClass = 15, m.state = 2; break;
    case exec::kErrorNoProcedure: m.state = 62; break;
    default: break;
    }
    m.text = tds::Utf16OfUtf8(text);
    return m;
}

// What the interpreter reports, as tokens: an EXEC as its procedure's tokens,
// a SELECT as a one-row set, a PRINT as an INFO.
class TokenReporter final : public exec::Reporter {
public:
    TokenReporter(TokenWriter& w, const std::u16string& server) : w_(w), server_(server) {}

    void Exec(const exec::ExecReport& report) override {
        tds::CallContext context;
        context.procedure = tds::Utf16OfUtf8(report.procedure);
        context.server = server_;
        tds::WriteCallAnswer(w_, *report.result, context);
        w_.Done(tds::kTokenDoneProc, tds::kDoneMore, 0, 0);
    }

    void Select(const std::vector<std::string>& headers, const std::vector<exec::Value>& values) override {
        std::vector<tds::ColumnInfo> columns;
        std::vector<tds::Value> cells;
        for (size_t i = 0; i < values.size(); ++i) {
            const exec::SqlType& t = values[i].type;
            tds::ColumnInfo c;
            c.name = tds::Utf16OfUtf8(headers[i]);
            c.type = tds::TypeOfHost(t.code, values[i].MaxLength(), t.precision, t.scale);
            columns.push_back(c);
            cells.push_back(values[i].isNull ? tds::Value{} : tds::FromHost(c.type, values[i].bytes));
        }
        tds::WriteColumnInfos(w_, columns);
        tds::WriteRowValues(w_, columns, cells);
        w_.Done(tds::kTokenDone, tds::kDoneMore | tds::kDoneCount, 0xC1, 1);
    }

    void Print(const exec::Value& value) override {
        tds::Message m;
        m.state = 1;
        m.server = server_;
        if (!value.isNull) {
            try {
                const exec::Value text = exec::Convert(value, Sized(exec::Family::NChar, 231, 16000, "nvarchar(8000)"));
                for (size_t i = 0; i + 1 < text.bytes.size(); i += 2) {
                    m.text += static_cast<char16_t>(text.bytes[i] | text.bytes[i + 1] << 8);
                }
            } catch (const exec::SqlError&) {
            }
        }
        w_.Message(m);
    }

private:
    TokenWriter& w_;
    const std::u16string& server_;
};

// The server's procedures: the drivers' system procedures, then the library's.
class ServerProcedures final : public exec::Procedures {
public:
    explicit ServerProcedures(const ServerConfig& config) : config_(config) {}

    std::optional<host::CallResult> Execute(const Call& call) override {
        if (IsSystemName(call.procedure)) {
            if (auto system = CallSystemProcedure(exec::LowerText(call.procedure), call.params, call.names)) return system;
        }
        for (const std::string& name : call.names) {
            if (!name.empty()) {
                throw exec::ScriptError(call.line, "named parameters (" + name +
                                                       " = value) are not supported: pass the parameters in order");
            }
        }
        host::CallOptions options;
        options.instanceName = config_.instanceName;
        return config_.library->CallIfExported(call.procedure, call.params, options);
    }

private:
    const ServerConfig& config_;
};

}  // namespace

// ---- The session ---------------------------------------------------------------------

namespace {

struct Prepared {
    std::string declarations;  // @params
    std::string statement;
};

// A parameterised statement's declarations: "@P1 nvarchar(4000), @P2 float OUTPUT".
struct Declared {
    std::string key;  // lower case
    exec::SqlType type;
    bool output = false;
};

std::vector<Declared> ParseDeclarations(const std::string& text, int line) {
    std::vector<Declared> out;
    std::vector<std::string> parts;
    int depth = 0;
    std::string part;
    for (char c : text) {
        if (c == '(') ++depth;
        if (c == ')') --depth;
        if (c == ',' && depth == 0) {
            parts.push_back(part);
            part.clear();
        } else {
            part += c;
        }
    }
    if (!part.empty()) parts.push_back(part);
    for (const std::string& p : parts) {
        std::vector<std::string> words;
        std::string word;
        for (char c : p + " ") {
            if (std::isspace(static_cast<unsigned char>(c)) && depth == 0) {
                if (!word.empty()) words.push_back(word), word.clear();
            } else {
                word += c;
            }
        }
        if (words.empty()) continue;
        Declared d;
        if (words.size() < 2 || words[0][0] != '@') throw exec::ScriptError(line, "bad parameter declaration", exec::kErrorSyntax, p);
        d.key = exec::LowerText(words[0]);
        const std::string lastWord = exec::LowerText(words.back());
        d.output = words.size() > 2 && (lastWord == "output" || lastWord == "out");
        std::string type = words[1];
        if (exec::LowerText(type) == "as" && words.size() > 2) type = words[2];
        const size_t open = type.find('(');
        std::vector<std::string> args;
        if (open != std::string::npos) {
            std::string inside = type.substr(open + 1, type.find(')') - open - 1);
            type = type.substr(0, open);
            size_t start = 0;
            for (size_t comma; (comma = inside.find(',', start)) != std::string::npos; start = comma + 1) {
                args.push_back(inside.substr(start, comma - start));
            }
            args.push_back(inside.substr(start));
        }
        try {
            if (!args.empty() && exec::LowerText(args[0]) == "max") {
                const std::string base = exec::LowerText(type);
                d.type = Sized(base == "nvarchar" ? exec::Family::NChar : base == "varbinary" ? exec::Family::Binary
                                                                                              : exec::Family::Char,
                               base == "nvarchar" ? 231 : base == "varbinary" ? 165 : 167, 0x7FFFFFFF,
                               (base + "(max)").c_str());
            } else {
                d.type = exec::ParseType(type, args, false);
            }
        } catch (const exec::SqlError& e) {
            throw exec::ScriptError(line, e.what());
        }
        out.push_back(std::move(d));
    }
    return out;
}

std::string TextOfParam(const tds::RpcParam& p) {
    if (!p.value) return {};
    const tds::HostValue h = tds::ToHost(p.type, p.value);
    if (h.code == 231 || h.code == 239 || h.code == 99) {
        std::u16string text;
        for (size_t i = 0; i + 1 < p.value->size(); i += 2) text += static_cast<char16_t>((*p.value)[i] | (*p.value)[i + 1] << 8);
        return tds::Utf8OfUtf16(text);
    }
    return tds::Utf8OfUtf16(tds::Utf16OfCp1252(std::string(p.value->begin(), p.value->end())));
}

std::optional<int32_t> IntegerOfParam(const tds::RpcParam& p) {
    if (!p.value || p.value->empty() || p.value->size() > 8) return std::nullopt;
    int64_t v = 0;
    for (size_t i = 0; i < p.value->size(); ++i) v |= static_cast<int64_t>((*p.value)[i]) << (8 * i);
    return static_cast<int32_t>(v);
}

class Session {
public:
    Session(int fd, const ServerConfig& config, std::string peer, uint16_t spid, ConnectionControl& control)
        : connection_(fd), config_(config), peer_(std::move(peer)), spid_(spid), control_(control), procedures_(config) {}

    void Run() {
        if (!Login()) return;
        uint8_t type = 0;
        Bytes payload;
        // A packet of a type no client sends closes at once, before its length is waited for.
        while (connection_.ReadMessage(type, payload, config_.maxRequestBytes,
                                       {tds::kSqlBatch, tds::kRpc, tds::kTransactionManager, tds::kAttention})) {
            control_.busy = true;
            requestStart_ = std::chrono::steady_clock::now();
            bool ok = true;
            switch (type) {
            case tds::kSqlBatch: ok = Batch(payload); break;
            case tds::kRpc: ok = Rpc(payload); break;
            case tds::kTransactionManager: ok = Transaction(payload); break;
            case tds::kAttention: ok = AnswerAttention(); break;
            default: ok = ProtocolError("a message of type " + std::to_string(type) + " after login"); break;
            }
            control_.Touch();
            control_.busy = false;
            if (!ok) return;
        }
    }

private:
    // ---- Login ----

    bool Login() {
        uint8_t type = 0;
        Bytes payload;
        // What isn't a pre-login or a login closes at once, before its length is waited for.
        if (!connection_.ReadMessage(type, payload, 1u << 16, {tds::kPreLogin, tds::kLogin7})) return false;
        if (type == tds::kPreLogin) {
            const std::optional<tds::PreLogin> hello = tds::ParsePreLogin(payload);
            if (!hello) return ProtocolError("a pre-login that doesn't read");
            const tds::EncryptionAgreement agreed = tds::AgreeEncryption(hello->encryption, config_.tls != nullptr);
            tds::PreLogin answer;
            answer.version = kProgramVersion;
            answer.encryption = agreed.answer;
            if (!Send(tds::kReply, tds::BuildPreLogin(answer))) return false;
            if (agreed.secrecy == tds::Secrecy::Refused) return ProtocolError("it won't encrypt, and this server requires it");
            std::string why;
            if (agreed.secrecy != tds::Secrecy::None && !connection_.StartTls(*config_.tls, why)) return ProtocolError(why);
            if (!connection_.ReadMessage(type, payload, 1u << 16, {tds::kLogin7})) return false;
            if (agreed.secrecy == tds::Secrecy::LoginOnly && !connection_.StopTls()) {
                return ProtocolError("it sent more than its login under login-only encryption");
            }
        } else if (config_.tls) {
            OPENSSL_cleanse(payload.data(), payload.size());
            return ProtocolError("its login came in clear without a pre-login, and this server requires encryption");
        }
        if (type != tds::kLogin7) return ProtocolError("no login");
        control_.loginRead = true;
        std::optional<tds::Login7> login = tds::ParseLogin7(payload);
        OPENSSL_cleanse(payload.data(), payload.size());
        if (!login) return ProtocolError("a login that doesn't read");
        version_ = tds::AgreedVersion(login->version);
        const std::string user = tds::Utf8OfUtf16(login->userName);
        std::string password;
        if (version_) password = tds::Utf8OfUtf16(PasswordText(login->password));
        OPENSSL_cleanse(login->password.data(), login->password.size());
        const bool wantsFederated = std::find(login->features.begin(), login->features.end(), 0x02) != login->features.end();
        // Why a login is refused goes to the log; the client hears only that it was.
        std::string refusal;
        int32_t number = kLoginFailed;
        if (control_.refuse) {
            refusal = "the server has " + std::to_string(config_.maxConnections) + " connections already";
            number = kNoFreeConnection;
        } else if (!version_) {
            refusal = "its TDS version is older than 7.1";
        } else if (login->integratedSecurity || wantsFederated) {
            refusal = "it asks for a kind of login this server doesn't have";
        } else if (!PasswordChecked(user, password)) {
            refusal = throttled_ ? "too many failed logins from its address" : "wrong name or password";
        }
        OPENSSL_cleanse(password.data(), password.size());
        if (!version_) version_ = tds::kTds71;  // to say why in a layout it reads
        if (!refusal.empty()) {
            Log("login refused for '" + user + "' from " + peer_ + ": " + refusal);
            TokenWriter w(version_);
            tds::Message m;
            m.error = true;
            m.number = number;
            m.state = 1;
            m.msgClass = 14;
            m.text = tds::Utf16OfUtf8("Login failed for user '" + user + "'.");
            if (number == kNoFreeConnection) {
                m.msgClass = 20;
                m.text = tds::Utf16OfUtf8("Could not connect because the maximum number of '" + std::to_string(config_.maxConnections) +
                                          "' user connections has already been reached. The system administrator can use "
                                          "sp_configure to increase the maximum value. The connection has been closed.");
            }
            m.server = config_.serverName;
            w.Message(m);
            w.Done(tds::kTokenDone, tds::kDoneError, 0, 0);
            (void)Send(tds::kReply, w.bytes());
            return false;
        }
        user_ = user;
        packetSize_ = login->packetSize == 0 ? tds::kDefaultPacketSize
                                             : std::clamp(login->packetSize, tds::kMinPacketSize, tds::kMaxPacketSize);
        TokenWriter w(version_);
        w.EnvChange(tds::kEnvDatabase, u"master", u"master");
        w.Message(Info(5701, 2, 0, u"Changed database context to 'master'."));
        w.EnvChangeBytes(tds::kEnvCollation, Bytes(tds::kCollation, tds::kCollation + 5), {});
        w.EnvChange(tds::kEnvLanguage, u"us_english", u"");
        w.Message(Info(5703, 1, 0, u"Changed language setting to us_english."));
        w.LoginAck(u"Vrn", kProgramVersion);
        const std::u16string size = tds::Utf16OfUtf8(std::to_string(packetSize_));
        w.EnvChange(tds::kEnvPacketSize, size, size);
        if (tds::Is74(version_) && (login->optionFlags3 & 0x10)) w.FeatureExtAck();
        w.Done(tds::kTokenDone, 0, 0, 0);
        return Send(tds::kReply, w.bytes());
    }

    // The password against the users file, after the wait the address's
    // failures have earned; too long a wait refuses without a check.
    bool PasswordChecked(const std::string& user, const std::string& password) {
        LoginThrottle* throttle = config_.throttle;
        if (throttle) {
            const auto wait = throttle->Admit(control_.address, LoginThrottle::Clock::now());
            if (!wait) {
                throttled_ = true;
                return false;
            }
            if (wait->count() > 0) std::this_thread::sleep_for(*wait);
        }
        if (CheckLogin(*config_.users->Get(), user, password)) return true;
        if (throttle) throttle->Failed(control_.address, LoginThrottle::Clock::now());
        return false;
    }

    static std::u16string PasswordText(const std::string& utf16) {
        std::u16string out;
        for (size_t i = 0; i + 1 < utf16.size(); i += 2) {
            out += static_cast<char16_t>(static_cast<uint8_t>(utf16[i]) | static_cast<uint8_t>(utf16[i + 1]) << 8);
        }
        return out;
    }

    tds::Message Info(int32_t number, uint8_t state, uint8_t msgClass, const std::u16string& text) const {
        tds::Message m;
        m.number = number;
        m.state = state;
        m.msgClass = msgClass;
        m.text = text;
        m.server = config_.serverName;
        return m;
    }

    // ---- Requests ----

    bool Batch(const Bytes& payload) {
        std::u16string text;
        if (tds::DecodeError e = tds::ParseSqlBatch(payload, version_, text); !e.empty()) return ProtocolError(e);
        TokenWriter w(version_);
        const bool interrupted = !RunScript(w, tds::Utf8OfUtf16(text), {});
        if (!interrupted) w.Finish();
        return Answer(w, interrupted);
    }

    // Runs T-SQL and writes its tokens. False when an attention cut it short.
    bool RunScript(TokenWriter& w, const std::string& script, const std::vector<Declared>& declared,
                   std::function<void(exec::Runner&)> bind = {}, std::function<void(exec::Runner&)> after = {}) {
        TokenReporter reporter(w, config_.serverName);
        exec::RunOptions options;
        options.procedures = &procedures_;
        options.facts.serverName = config_.serverNameUtf8;
        options.facts.instanceName = config_.instanceUtf8;
        options.facts.spid = spid_;
        options.wait = [this](uint32_t ms) { return connection_.Wait(ms); };
        exec::Runner runner(options, reporter);
        if (bind) bind(runner);
        std::vector<std::string> names;
        for (const Declared& d : declared) names.push_back(d.key);
        try {
            runner.Run(exec::ParseScript(script, names));
            if (after) after(runner);
            return true;
        } catch (const exec::ScriptError& e) {
            w.Message(ErrorMessage(e, config_.serverName));
            w.Done(tds::kTokenDone, tds::kDoneError | tds::kDoneMore, 0, 0);
            return true;
        } catch (const exec::Interrupted&) {
            return false;
        }
    }

    bool Rpc(const Bytes& payload) {
        std::vector<tds::RpcCall> calls;
        if (tds::DecodeError e = tds::ParseRpc(payload, version_, limits_, calls); !e.empty()) {
            TokenWriter w(version_);
            w.Message(ErrorMessage(exec::ScriptError(0, "The incoming request has an incorrect protocol stream: " + e, 8009), config_.serverName));
            w.Done(tds::kTokenDoneProc, tds::kDoneError, 0, 0);
            return Answer(w, false);  // the connection stays: the request was framed right
        }
        TokenWriter w(version_);
        for (size_t i = 0; i < calls.size(); ++i) {
            const uint16_t more = i + 1 < calls.size() ? tds::kDoneMore : 0;
            const Outcome outcome = Call(w, calls[i]);
            if (outcome == Outcome::Interrupted) return Answer(w, true);
            w.Done(tds::kTokenDoneProc, static_cast<uint16_t>(more | (outcome == Outcome::Failed ? tds::kDoneError : 0)), 0, 0);
        }
        return Answer(w, false);
    }

    enum class Outcome { Done, Failed, Interrupted };

    Outcome Call(TokenWriter& w, const tds::RpcCall& call) {
        uint16_t id = call.procId;
        const std::string name = LastNamePart(tds::Utf8OfUtf16(call.name));
        if (id == 0 && IsSystemName(name)) {
            static const std::map<std::string, uint16_t> byName = {
                {"sp_executesql", tds::kSpExecuteSql}, {"sp_prepare", tds::kSpPrepare}, {"sp_execute", tds::kSpExecute},
                {"sp_prepexec", tds::kSpPrepExec},     {"sp_unprepare", tds::kSpUnprepare},
            };
            const auto it = byName.find(exec::LowerText(name));
            if (it != byName.end()) id = it->second;
        }
        switch (id) {
        case 0: return CallProcedure(w, name, call.params);
        case tds::kSpExecuteSql: return ExecuteSql(w, call.params, 0, std::nullopt);
        case tds::kSpPrepare: return Prepare(w, call.params, false);
        case tds::kSpPrepExec: return Prepare(w, call.params, true);
        case tds::kSpExecute: return ExecutePrepared(w, call.params);
        case tds::kSpUnprepare:
            if (!call.params.empty()) {
                if (const auto handle = IntegerOfParam(call.params[0])) prepared_.erase(*handle);
            }
            w.ReturnStatus(0);
            return Outcome::Done;
        default:
            w.Message(ErrorMessage(exec::ScriptError(0, "Could not find stored procedure 'sp_" + std::to_string(id) + "'.",
                                                     exec::kErrorNoProcedure), config_.serverName));
            return Outcome::Failed;
        }
    }

    // A procedure by name: its parameters in order, names ignored as the
    // server ignores them for an extended procedure.
    Outcome CallProcedure(TokenWriter& w, const std::string& name, const std::vector<tds::RpcParam>& rpcParams) {
        exec::Procedures::Call call;
        call.procedure = name;
        tds::CallContext context;
        context.procedure = tds::Utf16OfUtf8(name);
        context.server = config_.serverName;
        call.params.reserve(rpcParams.size());
        call.names.resize(rpcParams.size());
        for (size_t i = 0; i < rpcParams.size(); ++i) {
            const tds::RpcParam& p = rpcParams[i];
            tds::HostValue h = tds::ToHost(p.type, (p.status & 0x02) ? tds::Value{} : p.value);
            host::Param param;
            param.type = h.code;
            param.maxLength = h.maxLength;
            param.isNull = !h.value;
            if (h.value) param.value = std::move(*h.value);
            param.isOutput = p.IsOutput();
            call.params.push_back(std::move(param));
            if (p.IsOutput()) context.outputs.push_back({static_cast<int>(i) + 1, p.name, p.type, p.value});
        }
        std::optional<host::CallResult> result;
        try {
            result = procedures_.Execute(call);
        } catch (const exec::ScriptError& e) {
            w.Message(ErrorMessage(e, config_.serverName));
            return Outcome::Failed;
        }
        if (!result) {
            w.Message(ErrorMessage(exec::ScriptError(0, "Could not find stored procedure '" + name + "'.", exec::kErrorNoProcedure),
                                   config_.serverName));
            return Outcome::Failed;
        }
        tds::WriteCallAnswer(w, *result, context);
        return Outcome::Done;
    }

    // sp_executesql and the execution of a prepared statement: values from
    // first on bind the declared parameters, by name or in order.
    Outcome ExecuteSql(TokenWriter& w, const std::vector<tds::RpcParam>& params, size_t first,
                       std::optional<Prepared> prepared, std::optional<tds::OutputSlot> handle = std::nullopt) {
        Prepared statement;
        if (prepared) {
            statement = *prepared;
        } else {
            if (params.empty()) return Fail(w, "sp_executesql needs a statement");
            statement.statement = TextOfParam(params[0]);
            if (params.size() > 1) statement.declarations = TextOfParam(params[1]);
            first = 2;
        }
        std::vector<Declared> declared;
        try {
            declared = ParseDeclarations(statement.declarations, 1);
        } catch (const exec::ScriptError& e) {
            w.Message(ErrorMessage(e, config_.serverName));
            return Outcome::Failed;
        }
        // Which declared parameter each value binds.
        std::vector<std::pair<size_t, size_t>> bound;  // value index, declaration index
        for (size_t i = first, position = 0; i < params.size(); ++i, ++position) {
            size_t d = position;
            if (!params[i].name.empty()) {
                const std::string key = exec::LowerText(tds::Utf8OfUtf16(params[i].name));
                for (size_t k = 0; k < declared.size(); ++k) {
                    if (declared[k].key == key) d = k;
                }
            }
            if (d < declared.size()) bound.emplace_back(i, d);
        }
        std::vector<std::pair<size_t, exec::Value>> results;
        const bool finished = RunScript(
            w, statement.statement, declared,
            [&](exec::Runner& runner) {
                for (const Declared& d : declared) {
                    exec::Value v;
                    v.type = d.type;
                    runner.Bind(d.key, v);
                }
                for (const auto& [i, d] : bound) {
                    try {
                        runner.Bind(declared[d].key, exec::Convert(ValueOfWire(params[i].type, params[i].value), declared[d].type));
                    } catch (const exec::SqlError&) {
                    }
                }
            },
            [&](exec::Runner& runner) {
                for (const auto& [i, d] : bound) {
                    if (!params[i].IsOutput() || !declared[d].output) continue;
                    if (const exec::Value* v = runner.Variable(declared[d].key)) results.emplace_back(i, *v);
                }
            });
        if (!finished) return Outcome::Interrupted;
        w.ReturnStatus(0);
        if (handle) tds::WriteReturnValue(w, *handle, handle->sent);
        for (const auto& [i, v] : results) {
            tds::OutputSlot slot{static_cast<int>(i) + 1, params[i].name, params[i].type, params[i].value};
            tds::WriteReturnValue(w, slot, WireOfValue(params[i].type, v));
        }
        return Outcome::Done;
    }

    // sp_prepare(@handle OUTPUT, @params, @stmt [, @options]) and sp_prepexec,
    // which runs it at once with the values that follow.
    Outcome Prepare(TokenWriter& w, const std::vector<tds::RpcParam>& params, bool execute) {
        if (params.size() < 3) return Fail(w, "sp_prepare needs a handle, parameters and a statement");
        Prepared p{TextOfParam(params[1]), TextOfParam(params[2])};
        const int32_t handle = nextHandle_++;
        prepared_[handle] = p;
        tds::OutputSlot slot{1, params[0].name, params[0].type, Bytes{}};
        slot.sent = tds::FromHost(slot.type, Bytes{static_cast<uint8_t>(handle), static_cast<uint8_t>(handle >> 8),
                                                   static_cast<uint8_t>(handle >> 16), static_cast<uint8_t>(handle >> 24)});
        if (execute) return ExecuteSql(w, params, 3, p, slot);
        w.ReturnStatus(0);
        tds::WriteReturnValue(w, slot, slot.sent);
        return Outcome::Done;
    }

    Outcome ExecutePrepared(TokenWriter& w, const std::vector<tds::RpcParam>& params) {
        const std::optional<int32_t> handle = params.empty() ? std::nullopt : IntegerOfParam(params[0]);
        const auto it = handle ? prepared_.find(*handle) : prepared_.end();
        if (it == prepared_.end()) {
            w.Message(ErrorMessage(exec::ScriptError(0, "Could not find prepared statement with handle " +
                                                            (handle ? std::to_string(*handle) : std::string("NULL")) + ".", 8179),
                                   config_.serverName));
            return Outcome::Failed;
        }
        return ExecuteSql(w, params, 1, it->second);
    }

    Outcome Fail(TokenWriter& w, const std::string& why) {
        w.Message(ErrorMessage(exec::ScriptError(0, why), config_.serverName));
        return Outcome::Failed;
    }

    // Begin, commit and rollback change nothing, but answer as the client expects.
    bool Transaction(const Bytes& payload) {
        uint16_t type = 0;
        if (tds::DecodeError e = tds::ParseTransactionRequest(payload, version_, type); !e.empty()) return ProtocolError(e);
        TokenWriter w(version_);
        static const Bytes descriptor(8, 0);
        switch (type) {
        case tds::kTmBegin: w.EnvChangeBytes(tds::kEnvBeginTransaction, descriptor, {}); break;
        case tds::kTmCommit: w.EnvChangeBytes(tds::kEnvCommitTransaction, {}, descriptor); break;
        case tds::kTmRollback: w.EnvChangeBytes(tds::kEnvRollbackTransaction, {}, descriptor); break;
        default: break;
        }
        w.Done(tds::kTokenDone, 0, 0, 0);
        return Answer(w, false);
    }

    // An attention that came after its request was answered.
    bool AnswerAttention() {
        TokenWriter w(version_);
        w.Done(tds::kTokenDone, tds::kDoneAttention, 0, 0);
        return Send(tds::kReply, w.bytes());
    }

    // The answer goes out whole; or, when the client sent an attention
    // meanwhile, its output is dropped: the request ends with an empty answer
    // and the attention gets its own, so that a client reading "the request's
    // answer, then the acknowledgement" and one reading "until the
    // acknowledgement" both stop in the right place. A quick request's answer
    // goes out without the look for an attention (a system call): one sent
    // meanwhile is read next and acknowledged then, as the protocol allows.
    bool Answer(TokenWriter& w, bool interrupted) {
        const bool quick = !interrupted && std::chrono::steady_clock::now() - requestStart_ < std::chrono::milliseconds(1);
        // A wait cut short by an attention left it on the wire: it is taken
        // here, or the next read would acknowledge it a second time.
        const bool attention = !quick && connection_.TakeAttention();
        if (!interrupted && !attention) return Send(tds::kReply, w.bytes());
        TokenWriter end(version_);
        end.Done(tds::kTokenDone, 0, 0, 0);
        return Send(tds::kReply, end.bytes()) && AnswerAttention();
    }

    bool Send(uint8_t type, const Bytes& payload) {
        Bytes packets;
        tds::AppendPackets(packets, type, payload, packetSize_, spid_);
        return connection_.WriteAll(packets);
    }

    bool ProtocolError(const std::string& why) {
        Log("closing " + peer_ + ": " + why);
        return false;
    }

    Connection connection_;
    const ServerConfig& config_;
    std::string peer_;
    uint16_t spid_;
    ConnectionControl& control_;
    bool throttled_ = false;
    ServerProcedures procedures_;
    tds::DecodeLimits limits_;
    uint32_t version_ = tds::kTds74;
    uint32_t packetSize_ = tds::kDefaultPacketSize;
    std::string user_;
    std::map<int32_t, Prepared> prepared_;
    int32_t nextHandle_ = 1;
    std::chrono::steady_clock::time_point requestStart_;
};

}  // namespace

void Log(const std::string& line) {
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    std::cerr << "vrn-server: " << line << std::endl;
}

void ServeConnection(int fd, const ServerConfig& config, const std::string& peer, uint16_t spid, ConnectionControl& control) {
    // Whatever goes wrong in one connection (memory, above all) ends that one alone.
    try {
        Session(fd, config, peer, spid, control).Run();
    } catch (const std::exception& e) {
        Log("closing " + peer + ": " + e.what());
    } catch (...) {
        Log("closing " + peer + ": an unknown failure");
    }
}

}  // namespace vrn::server
