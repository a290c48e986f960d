#include "host/tds/protocol.h"

#include <algorithm>

namespace vrn::tds {

const uint8_t kCollation[5] = {0x09, 0x04, 0xD0, 0x00, 0x34};

uint32_t AgreedVersion(uint32_t asked) {
    if (asked >= kTds74) return kTds74;
    for (uint32_t known : {kTds73B, kTds73A, kTds72, kTds71}) {
        if (asked >= known) return known;
    }
    // 7.1 without its revision (0x71000000), as some clients send it.
    return asked >= 0x71000000 ? uint32_t{kTds71} : 0u;
}

PacketHeader ReadPacketHeader(const uint8_t* b) {
    PacketHeader h;
    h.type = b[0];
    h.status = b[1];
    h.length = static_cast<uint16_t>(b[2] << 8 | b[3]);
    h.spid = static_cast<uint16_t>(b[4] << 8 | b[5]);
    h.id = b[6];
    return h;
}

MessageAssembler::Step MessageAssembler::Check(const PacketHeader& h) const {
    if (h.length < kHeaderSize || h.length > kMaxPacketSize) return Step::Broken;
    if (h.type != kAttention && open_ && h.type != type_) return Step::Broken;
    if (h.type != kAttention && open_ && h.length - kHeaderSize > maxBytes_ - payload_.size()) return Step::Broken;
    return Step::More;
}

MessageAssembler::Step MessageAssembler::Add(const PacketHeader& h, const uint8_t* body, size_t n) {
    if (Check(h) == Step::Broken || n != size_t{h.length} - kHeaderSize) return Step::Broken;
    if (!open_ || h.type == kAttention) payload_.clear();
    if (h.type == kAttention) {
        open_ = false;
        type_ = kAttention;
        return Step::Done;
    }
    if (n > maxBytes_ - payload_.size()) return Step::Broken;
    type_ = h.type;
    payload_.insert(payload_.end(), body, body + n);
    open_ = !(h.status & kStatusEndOfMessage);
    return open_ ? Step::More : Step::Done;
}

void AppendPackets(Bytes& out, uint8_t type, const Bytes& payload, uint32_t packetSize, uint16_t spid) {
    const size_t room = std::clamp<uint32_t>(packetSize, kMinPacketSize, kMaxPacketSize) - kHeaderSize;
    out.reserve(out.size() + payload.size() + (payload.size() / room + 1) * kHeaderSize);
    size_t at = 0;
    uint8_t id = 1;
    do {
        const size_t n = std::min(room, payload.size() - at);
        const bool last = at + n == payload.size();
        const size_t length = n + kHeaderSize;
        const uint8_t header[kHeaderSize] = {type, static_cast<uint8_t>(last ? kStatusEndOfMessage : 0),
                                             static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length),
                                             static_cast<uint8_t>(spid >> 8), static_cast<uint8_t>(spid), id++, 0};
        out.insert(out.end(), header, header + kHeaderSize);
        out.insert(out.end(), payload.begin() + static_cast<ptrdiff_t>(at), payload.begin() + static_cast<ptrdiff_t>(at + n));
        at += n;
    } while (at < payload.size());
}

// ---- Pre-login ---------------------------------------------------------------

namespace {

enum PreLoginOption : uint8_t {
    kOptionVersion = 0, kOptionEncryption = 1, kOptionInstance = 2, kOptionThreadId = 3, kOptionMars = 4,
    kOptionTerminator = 0xFF,
};

}  // namespace

std::optional<PreLogin> ParsePreLogin(const Bytes& payload) {
    Reader r(payload);
    PreLogin p;
    for (int options = 0; options < 64; ++options) {
        const uint8_t option = r.U8();
        if (!r.ok()) return std::nullopt;
        if (option == kOptionTerminator) return p;
        const uint16_t offset = r.U16BigEndian();
        const uint16_t length = r.U16BigEndian();
        if (!r.ok() || size_t{offset} + length > payload.size()) return std::nullopt;
        Reader value(payload.data() + offset, length);
        switch (option) {
        case kOptionVersion: {
            const uint32_t high = value.U16BigEndian();
            p.version = high << 16 | value.U16BigEndian();
            break;
        }
        case kOptionEncryption: p.encryption = value.U8(); break;
        case kOptionMars: p.mars = length > 0 && value.U8() != 0; break;
        default: break;
        }
        if (!value.ok()) return std::nullopt;
    }
    return std::nullopt;
}

Bytes BuildPreLogin(const PreLogin& p) {
    struct Option {
        uint8_t token;
        Bytes value;
    };
    const Option options[] = {
        {kOptionVersion, {static_cast<uint8_t>(p.version >> 24), static_cast<uint8_t>(p.version >> 16),
                          static_cast<uint8_t>(p.version >> 8), static_cast<uint8_t>(p.version), 0, 0}},
        {kOptionEncryption, {p.encryption}},
        {kOptionInstance, {0}},
        {kOptionThreadId, {}},
        {kOptionMars, {static_cast<uint8_t>(p.mars)}},
    };
    Writer w;
    uint16_t offset = static_cast<uint16_t>(std::size(options) * 5 + 1);
    for (const Option& o : options) {
        w.U8(o.token);
        w.U16BigEndian(offset);
        w.U16BigEndian(static_cast<uint16_t>(o.value.size()));
        offset = static_cast<uint16_t>(offset + o.value.size());
    }
    w.U8(kOptionTerminator);
    for (const Option& o : options) w.Append(o.value);
    return std::move(w.bytes());
}

EncryptionAgreement AgreeEncryption(uint8_t clientAsks, bool serverHasCertificate) {
    // Without a certificate the server can't encrypt: a client that insists ends it.
    if (!serverHasCertificate) return {kEncryptNotSupported, Secrecy::None};
    switch (clientAsks) {
    case kEncryptOff: return {kEncryptOff, Secrecy::LoginOnly};
    case kEncryptOn:
    case kEncryptRequired: return {kEncryptOn, Secrecy::Whole};
    // Not supported, or a client certificate (the high bit), which this server can't check.
    default: return {kEncryptRequired, Secrecy::Refused};
    }
}

// ---- Login -------------------------------------------------------------------

namespace {

constexpr size_t kLogin71FixedSize = 86;
constexpr size_t kLoginFixedSize = 94;
constexpr uint8_t kIntegratedSecurity = 0x80;  // OptionFlags2
constexpr uint8_t kExtension = 0x10;           // OptionFlags3
constexpr uint8_t kFeatureTerminator = 0xFF;

// The password travels with each byte's nibbles swapped and XORed with 0xA5.
uint8_t Obfuscate(uint8_t b) { return static_cast<uint8_t>(((b << 4) | (b >> 4)) ^ 0xA5); }
uint8_t Clarify(uint8_t b) {
    b ^= 0xA5;
    return static_cast<uint8_t>((b << 4) | (b >> 4));
}

// A text field: its offset and length in characters, inside the message.
bool ReadField(Reader& fixed, const Bytes& payload, std::u16string& out) {
    const uint16_t offset = fixed.U16();
    const uint16_t characters = fixed.U16();
    if (!fixed.ok() || size_t{offset} + size_t{characters} * 2 > payload.size()) return false;
    Reader field(payload.data() + offset, size_t{characters} * 2);
    out = field.Utf16(characters);
    return field.ok();
}

bool ReadFeatures(const Bytes& payload, size_t offset, std::vector<uint8_t>& features) {
    if (offset >= payload.size()) return false;
    Reader r(payload.data() + offset, payload.size() - offset);
    for (int count = 0; count < 64; ++count) {
        const uint8_t id = r.U8();
        if (!r.ok()) return false;
        if (id == kFeatureTerminator) return true;
        const uint32_t length = r.U32();
        r.Skip(length);
        if (!r.ok()) return false;
        features.push_back(id);
    }
    return false;
}

}  // namespace

std::optional<Login7> ParseLogin7(const Bytes& payload) {
    Reader r(payload);
    Login7 l;
    const uint32_t length = r.U32();
    l.version = r.U32();
    l.packetSize = r.U32();
    r.Skip(12);  // client program version, process id, connection id
    r.Skip(1);
    const uint8_t flags2 = r.U8();
    r.Skip(1);
    l.optionFlags3 = r.U8();
    r.Skip(8);  // time zone, LCID
    const size_t fixedSize = Is72(l.version) ? kLoginFixedSize : kLogin71FixedSize;
    if (!r.ok() || length != payload.size() || payload.size() < fixedSize) return std::nullopt;
    std::u16string password, unused;
    if (!ReadField(r, payload, l.hostName) || !ReadField(r, payload, l.userName)) return std::nullopt;
    const uint16_t passwordOffset = r.U16();
    const uint16_t passwordCharacters = r.U16();
    if (!ReadField(r, payload, l.appName) || !ReadField(r, payload, l.serverName)) return std::nullopt;
    const uint16_t extensionOffset = r.U16();
    const uint16_t extensionLength = r.U16();
    if (!ReadField(r, payload, l.libraryName) || !ReadField(r, payload, l.language) ||
        !ReadField(r, payload, l.database)) {
        return std::nullopt;
    }
    if (!r.ok() || size_t{passwordOffset} + size_t{passwordCharacters} * 2 > payload.size()) return std::nullopt;
    l.password.resize(size_t{passwordCharacters} * 2);
    for (size_t i = 0; i < l.password.size(); ++i) l.password[i] = static_cast<char>(Clarify(payload[passwordOffset + i]));
    l.integratedSecurity = (flags2 & kIntegratedSecurity) != 0;
    if (Is74(l.version) && (l.optionFlags3 & kExtension) && extensionLength >= 4) {
        if (size_t{extensionOffset} + 4 > payload.size()) return std::nullopt;
        Reader at(payload.data() + extensionOffset, 4);
        if (!ReadFeatures(payload, at.U32(), l.features)) return std::nullopt;
    }
    return l;
}

Bytes BuildLogin7(const Login7& login, const std::string& passwordUtf16) {
    const size_t fixedSize = Is72(login.version) ? kLoginFixedSize : kLogin71FixedSize;
    Writer w;
    w.U32(0);  // length, patched below
    w.U32(login.version);
    w.U32(login.packetSize);
    w.U32(0x07000000);  // client program version
    w.U32(0);           // process id
    w.U32(0);           // connection id
    w.U8(0xE0);         // OptionFlags1: USE DB and SET LANG warnings, init-db fatal
    w.U8(0x03);         // OptionFlags2: ODBC, language fatal
    w.U8(0);
    w.U8(0);
    w.U32(0);
    w.U32(0x0409);
    Writer data;
    auto field = [&](const std::u16string& text) {
        w.U16(static_cast<uint16_t>(fixedSize + data.size()));
        w.U16(static_cast<uint16_t>(text.size()));
        data.Utf16(text);
    };
    field(login.hostName);
    field(login.userName);
    w.U16(static_cast<uint16_t>(fixedSize + data.size()));
    w.U16(static_cast<uint16_t>(passwordUtf16.size() / 2));
    for (char c : passwordUtf16) data.U8(Obfuscate(static_cast<uint8_t>(c)));
    field(login.appName);
    field(login.serverName);
    w.U16(0), w.U16(0);  // no extension
    field(login.libraryName);
    field(login.language);
    field(login.database);
    for (int i = 0; i < 6; ++i) w.U8(0);  // client id
    w.U16(static_cast<uint16_t>(fixedSize + data.size())), w.U16(0);  // SSPI
    w.U16(static_cast<uint16_t>(fixedSize + data.size())), w.U16(0);  // attach file
    if (Is72(login.version)) {
        w.U16(static_cast<uint16_t>(fixedSize + data.size())), w.U16(0);  // change password
        w.U32(0);                                                          // long SSPI
    }
    w.Append(data.bytes());
    Bytes out = std::move(w.bytes());
    const auto length = static_cast<uint32_t>(out.size());
    for (int i = 0; i < 4; ++i) out[static_cast<size_t>(i)] = static_cast<uint8_t>(length >> (8 * i));
    return out;
}

// ---- Tokens ------------------------------------------------------------------

void TokenWriter::EnvChange(uint8_t type, std::u16string_view newValue, std::u16string_view oldValue) {
    w_.U8(kTokenEnvChange);
    const size_t at = w_.Mark16();
    w_.U8(type);
    w_.BVarChar(newValue);
    w_.BVarChar(oldValue);
    w_.Patch16(at);
}

void TokenWriter::EnvChangeBytes(uint8_t type, const Bytes& newValue, const Bytes& oldValue) {
    w_.U8(kTokenEnvChange);
    const size_t at = w_.Mark16();
    w_.U8(type);
    w_.U8(static_cast<uint8_t>(newValue.size()));
    w_.Append(newValue);
    w_.U8(static_cast<uint8_t>(oldValue.size()));
    w_.Append(oldValue);
    w_.Patch16(at);
}

void TokenWriter::Message(const tds::Message& m) {
    w_.U8(m.error ? kTokenError : kTokenInfo);
    const size_t at = w_.Mark16();
    w_.U32(static_cast<uint32_t>(m.number));
    w_.U8(m.state);
    w_.U8(m.msgClass);
    // The token's length is 16 bits: a text is cut to what fits beside the names.
    w_.UsVarChar(std::u16string_view(m.text).substr(0, 32000));
    w_.BVarChar(m.server);
    w_.BVarChar(m.procedure);
    if (Is72(version_)) w_.U32(m.line); else w_.U16(static_cast<uint16_t>(m.line));
    w_.Patch16(at);
}

void TokenWriter::LoginAck(std::u16string_view program, uint32_t programVersion) {
    w_.U8(kTokenLoginAck);
    const size_t at = w_.Mark16();
    w_.U8(1);  // T-SQL
    for (int shift = 24; shift >= 0; shift -= 8) w_.U8(static_cast<uint8_t>(version_ >> shift));
    w_.BVarChar(program);
    for (int shift = 24; shift >= 0; shift -= 8) w_.U8(static_cast<uint8_t>(programVersion >> shift));
    w_.Patch16(at);
}

void TokenWriter::FeatureExtAck() {
    w_.U8(kTokenFeatureExtAck);
    w_.U8(kFeatureTerminator);
}

void TokenWriter::Done(uint8_t token, uint16_t status, uint16_t command, uint64_t count) {
    lastDone_ = w_.size();
    w_.U8(token);
    w_.U16(status);
    w_.U16(command);
    if (Is72(version_)) w_.U64(count); else w_.U32(static_cast<uint32_t>(count));
}

void TokenWriter::Finish() {
    const size_t doneSize = 1 + 2 + 2 + (Is72(version_) ? 8 : 4);
    Bytes& b = w_.bytes();
    if (lastDone_ != SIZE_MAX && lastDone_ + doneSize == b.size() && b[lastDone_] != kTokenDoneInProc) {
        b[lastDone_ + 1] &= static_cast<uint8_t>(~kDoneMore);
        return;
    }
    Done(kTokenDone, 0, 0, 0);
}

void TokenWriter::ReturnStatus(int32_t status) {
    w_.U8(kTokenReturnStatus);
    w_.U32(static_cast<uint32_t>(status));
}

}  // namespace vrn::tds
