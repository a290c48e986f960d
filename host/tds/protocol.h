// The TDS protocol as vrn-server and vrn-exec's client speak it: packets,
// pre-login, login, requests and the tokens of an answer. Everything read from
// the wire goes through a bounds-checked Reader; a decoder answers a message
// that lies about its lengths with an error, never with a read past its end.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/tds/wire.h"

namespace vrn::tds {

// ---- Versions ----------------------------------------------------------------

// As LOGIN7 carries them (little-endian on the wire).
enum : uint32_t {
    kTds70 = 0x70000000,
    kTds71 = 0x71000001,
    kTds72 = 0x72090002,
    kTds73A = 0x730A0003,
    kTds73B = 0x730B0003,
    kTds74 = 0x74000004,
};
// The layouts change at 7.2 (ALL_HEADERS, 8-byte done counts, max types) and 7.4 (feature ack).
inline bool Is72(uint32_t version) { return version >= kTds72; }
inline bool Is74(uint32_t version) { return version >= kTds74; }
// The version to answer a client's: the newest both know; 0 when it is older than 7.1.
uint32_t AgreedVersion(uint32_t asked);

// ---- Packets -----------------------------------------------------------------

enum PacketType : uint8_t {
    kSqlBatch = 1,
    kRpc = 3,
    kReply = 4,
    kAttention = 6,
    kTransactionManager = 14,
    kLogin7 = 16,
    kPreLogin = 18,
};
constexpr uint8_t kStatusEndOfMessage = 0x01;
constexpr size_t kHeaderSize = 8;
constexpr uint32_t kMinPacketSize = 512;
constexpr uint32_t kMaxPacketSize = 32767;
constexpr uint32_t kDefaultPacketSize = 4096;

struct PacketHeader {
    uint8_t type = 0;
    uint8_t status = 0;
    uint16_t length = 0;  // with the header
    uint16_t spid = 0;
    uint8_t id = 0;
};
PacketHeader ReadPacketHeader(const uint8_t* eightBytes);

// Joins packets into messages. An attention stands alone, dropping a message
// in progress; a packet of another type inside a message, a length out of
// bounds or a message over maxBytes breaks the connection.
class MessageAssembler {
public:
    enum class Step { More, Done, Broken };
    explicit MessageAssembler(size_t maxBytes) : maxBytes_(maxBytes) {}
    // How many body bytes follow this header; Broken when it lies.
    [[nodiscard]] Step Check(const PacketHeader& h) const;
    // The packet's body; Done when the message is whole (type() and payload()).
    [[nodiscard]] Step Add(const PacketHeader& h, const uint8_t* body, size_t n);
    [[nodiscard]] uint8_t type() const { return type_; }
    [[nodiscard]] Bytes& payload() { return payload_; }

private:
    size_t maxBytes_;
    uint8_t type_ = 0;
    bool open_ = false;
    Bytes payload_;
};

// A whole message split into packets of at most packetSize bytes.
void AppendPackets(Bytes& out, uint8_t type, const Bytes& payload, uint32_t packetSize, uint16_t spid = 0);

// ---- Pre-login ---------------------------------------------------------------

enum Encryption : uint8_t { kEncryptOff = 0, kEncryptOn = 1, kEncryptNotSupported = 2, kEncryptRequired = 3 };

struct PreLogin {
    uint32_t version = 0;  // the sender's program version
    uint8_t encryption = kEncryptNotSupported;
    bool mars = false;
};
std::optional<PreLogin> ParsePreLogin(const Bytes& payload);
Bytes BuildPreLogin(const PreLogin& p);

// What a server answers a client's encryption option, and what then travels
// encrypted: nothing, the login alone, or everything. Refused: the client
// won't encrypt and the server has a certificate; the answer says encryption
// is required and the connection closes.
enum class Secrecy { None, LoginOnly, Whole, Refused };
struct EncryptionAgreement {
    uint8_t answer = kEncryptNotSupported;
    Secrecy secrecy = Secrecy::None;
};
EncryptionAgreement AgreeEncryption(uint8_t clientAsks, bool serverHasCertificate);

// ---- Login -------------------------------------------------------------------

struct Login7 {
    uint32_t version = 0;
    uint32_t packetSize = 0;
    uint8_t optionFlags3 = 0;
    std::u16string hostName, userName, appName, serverName, libraryName, language, database;
    std::string password;              // de-obfuscated, UTF-16LE bytes; wiped by its owner
    std::vector<uint8_t> features;     // ids of the feature extensions asked for
    bool integratedSecurity = false;   // a login without a name, which this server can't take
};
// Nullopt for a message whose offsets or lengths don't fit it.
std::optional<Login7> ParseLogin7(const Bytes& payload);
// What a client sends (vrn-exec's client): the password obfuscated as the protocol asks.
Bytes BuildLogin7(const Login7& login, const std::string& passwordUtf16);

// ---- Tokens ------------------------------------------------------------------

enum Token : uint8_t {
    kTokenReturnStatus = 0x79,
    kTokenColMetadata = 0x81,
    kTokenError = 0xAA,
    kTokenInfo = 0xAB,
    kTokenReturnValue = 0xAC,
    kTokenLoginAck = 0xAD,
    kTokenFeatureExtAck = 0xAE,
    kTokenRow = 0xD1,
    kTokenEnvChange = 0xE3,
    kTokenDone = 0xFD,
    kTokenDoneProc = 0xFE,
    kTokenDoneInProc = 0xFF,
};
enum : uint16_t { kDoneMore = 0x01, kDoneError = 0x02, kDoneCount = 0x10, kDoneAttention = 0x20 };
enum : uint8_t {
    kEnvDatabase = 1, kEnvLanguage = 2, kEnvPacketSize = 4, kEnvCollation = 7,
    kEnvBeginTransaction = 8, kEnvCommitTransaction = 9, kEnvRollbackTransaction = 10,
};

struct Message {
    bool error = false;  // ERROR token; else INFO
    int32_t number = 0;
    uint8_t state = 0;
    uint8_t msgClass = 0;
    std::u16string text, server, procedure;
    uint32_t line = 0;
};

// Writers of one answer. Version decides the layouts that changed.
class TokenWriter {
public:
    // Room for a usual answer from the start: its tokens don't grow the buffer.
    explicit TokenWriter(uint32_t version) : version_(version) { w_.bytes().reserve(512); }
    Bytes& bytes() { return w_.bytes(); }
    Writer& raw() { return w_; }
    [[nodiscard]] uint32_t version() const { return version_; }

    void EnvChange(uint8_t type, std::u16string_view newValue, std::u16string_view oldValue);
    void EnvChangeBytes(uint8_t type, const Bytes& newValue, const Bytes& oldValue);
    void Message(const tds::Message& m);
    void LoginAck(std::u16string_view program, uint32_t programVersion);
    void FeatureExtAck();  // acknowledges none of the features asked for
    void Done(uint8_t token, uint16_t status, uint16_t command, uint64_t count);
    // Ends the answer: the last done, when it is the last token, loses its
    // "more"; otherwise a final DONE follows.
    void Finish();
    void ReturnStatus(int32_t status);

private:
    uint32_t version_;
    Writer w_;
    size_t lastDone_ = SIZE_MAX;  // where the last done token starts
};

// The collation this server gives its character data: Latin1 General, case
// insensitive, accent sensitive, code page 1252.
extern const uint8_t kCollation[5];

}  // namespace vrn::tds
