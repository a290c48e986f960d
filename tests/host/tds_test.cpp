// The TDS decoder and the type mapping where a client would notice a slip:
// logins read back with their password, versions and encryption agreed, packets joined and
// refused, parameters mapped to the host's codes and outputs fitted to the
// client's types. Whole answers are the golden scripts' through vrn-server.
#include <gtest/gtest.h>

#include <cstring>

#include "host/tds/requests.h"

namespace vrn::tds {
namespace {

Bytes Le(std::initializer_list<int> bytes) {
    Bytes out;
    for (int b : bytes) out.push_back(static_cast<uint8_t>(b));
    return out;
}

TEST(TdsLogin, ReadsBackWhatAClientSendsAtEachVersion) {
    for (uint32_t version : {kTds71, kTds74}) {
        Login7 sent;
        sent.version = version;
        sent.packetSize = 8000;
        sent.userName = u"golden";
        sent.database = u"master";
        sent.appName = u"app";
        const std::string password = std::string("p\0\xE8\0", 4);  // "pè" in UTF-16LE
        const Bytes message = BuildLogin7(sent, password);
        const std::optional<Login7> got = ParseLogin7(message);
        ASSERT_TRUE(got) << std::hex << version;
        EXPECT_EQ(got->version, version);
        EXPECT_EQ(got->packetSize, 8000u);
        EXPECT_EQ(got->userName, u"golden");
        EXPECT_EQ(got->database, u"master");
        EXPECT_EQ(got->password, password);
        // Cut short, or with the user name's offset past the end: refused.
        EXPECT_FALSE(ParseLogin7(Bytes(message.begin(), message.end() - 1)));
        Bytes lying = message;
        lying[40] = 0xFF, lying[41] = 0xFF;
        EXPECT_FALSE(ParseLogin7(lying));
    }
}

TEST(TdsLogin, AgreesOnTheNewestVersionBothKnow) {
    const struct {
        uint32_t asked, agreed;
    } cases[] = {
        {kTds70, 0}, {0x71000000, kTds71}, {kTds71, kTds71}, {kTds72, kTds72}, {kTds73A, kTds73A},
        {kTds73B, kTds73B}, {kTds74, kTds74}, {0x75000000, kTds74}, {0x08000000, 0},
    };
    for (const auto& c : cases) EXPECT_EQ(AgreedVersion(c.asked), c.agreed) << std::hex << c.asked;
}

TEST(TdsPreLogin, AgreesOnEncryptionAsTheClientAndTheCertificateAllow) {
    const struct {
        uint8_t asked;
        bool certificate;
        uint8_t answer;
        Secrecy secrecy;
    } cases[] = {
        {kEncryptOff, false, kEncryptNotSupported, Secrecy::None},
        {kEncryptRequired, false, kEncryptNotSupported, Secrecy::None},  // the client gives up
        {kEncryptOff, true, kEncryptOff, Secrecy::LoginOnly},
        {kEncryptOn, true, kEncryptOn, Secrecy::Whole},
        {kEncryptRequired, true, kEncryptOn, Secrecy::Whole},
        {kEncryptNotSupported, true, kEncryptRequired, Secrecy::Refused},
        {0x81, true, kEncryptRequired, Secrecy::Refused},  // with a client certificate
    };
    for (const auto& c : cases) {
        const EncryptionAgreement got = AgreeEncryption(c.asked, c.certificate);
        EXPECT_EQ(got.answer, c.answer) << int{c.asked} << " " << c.certificate;
        EXPECT_EQ(got.secrecy, c.secrecy) << int{c.asked} << " " << c.certificate;
        // The answer reads back as sent.
        PreLogin answer;
        answer.encryption = got.answer;
        EXPECT_EQ(ParsePreLogin(BuildPreLogin(answer))->encryption, c.answer);
    }
}

TEST(TdsPackets, JoinsMessagesAndRefusesWhatLies) {
    auto header = [](uint8_t type, uint8_t status, uint16_t length) {
        const uint8_t h[8] = {type, status, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length), 0, 0, 1, 0};
        return ReadPacketHeader(h);
    };
    const uint8_t body[4] = {1, 2, 3, 4};
    using Step = MessageAssembler::Step;
    MessageAssembler a(6);
    EXPECT_EQ(a.Add(header(kRpc, 0, 12), body, 4), Step::More);
    EXPECT_EQ(a.Add(header(kRpc, 1, 10), body, 2), Step::Done);
    EXPECT_EQ(a.payload(), Le({1, 2, 3, 4, 1, 2}));
    EXPECT_EQ(a.Add(header(kRpc, 0, 12), body, 4), Step::More);
    EXPECT_EQ(a.Add(header(kAttention, 1, 8), body, 0), Step::Done);  // drops the message begun
    EXPECT_EQ(a.type(), kAttention);
    EXPECT_EQ(a.Add(header(kRpc, 0, 12), body, 4), Step::More);
    EXPECT_EQ(a.Add(header(kSqlBatch, 1, 12), body, 4), Step::Broken);  // another type inside a message
    MessageAssembler b(6);
    EXPECT_EQ(b.Add(header(kRpc, 0, 12), body, 4), Step::More);
    EXPECT_EQ(b.Check(header(kRpc, 1, 12)), Step::Broken);  // over the request limit
    EXPECT_EQ(b.Check(header(kRpc, 1, 7)), Step::Broken);   // shorter than its header
    EXPECT_EQ(b.Check(header(kRpc, 1, 32768)), Step::Broken);

    Bytes packets;
    AppendPackets(packets, kReply, Bytes(1000, 7), 512);
    ASSERT_EQ(packets.size(), 1000u + 2 * kHeaderSize);
    EXPECT_EQ(ReadPacketHeader(packets.data()).status, 0);
    EXPECT_EQ(ReadPacketHeader(packets.data() + 512).length, 1000 - 504 + 8);
    EXPECT_EQ(ReadPacketHeader(packets.data() + 512).status, kStatusEndOfMessage);
}

// One parameter: a name, OUTPUT or not, TYPE_INFO and value, behind an RPC of vrn_X at 7.1.
Bytes RpcOf(const Bytes& param) {
    Bytes m = Le({5, 0, 'v', 0, 'r', 0, 'n', 0, '_', 0, 'X', 0, 0, 0});  // the name, no options
    m.insert(m.end(), param.begin(), param.end());
    return m;
}

TEST(TdsRpc, MapsEachTypeToTheCodeTheProceduresJudge) {
    const struct {
        Bytes param;  // status, TYPE_INFO, value
        uint8_t code;
        uint32_t maxLength;
        Bytes value;
    } cases[] = {
        {Le({0, 0x26, 1, 1, 200}), 48, 1, Le({200})},                 // tinyint
        {Le({0, 0x26, 2, 2, 0xFF, 0xFF}), 52, 2, Le({0xFF, 0xFF})},   // smallint
        {Le({0, 0x26, 4, 4, 1, 0, 0, 0}), 38, 4, Le({1, 0, 0, 0})},   // int
        {Le({0, 0x26, 8, 8, 1, 0, 0, 0, 0, 0, 0, 0}), 127, 8, Le({1, 0, 0, 0, 0, 0, 0, 0})},  // bigint: refused
        {Le({0, 0x38, 7, 0, 0, 0}), 56, 4, Le({7, 0, 0, 0})},         // a fixed int
        {Le({0, 0x68, 1, 1, 1}), 104, 1, Le({1})},                    // bit
        {Le({0, 0x6D, 4, 4, 0, 0, 0x80, 0x3F}), 109, 4, Le({0, 0, 0x80, 0x3F})},  // real
        {Le({0, 0x6A, 5, 5, 2, 5, 1, 0x39, 0x30, 0, 0}), 106, 17,                 // decimal(5,2) 123.45
         Le({1, 0x39, 0x30, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0})},
        {Le({0, 0xA7, 20, 0, 9, 4, 0xD0, 0, 0x34, 2, 0, 'a', 'b'}), 167, 20, Le({'a', 'b'})},
        {Le({0, 0xE7, 8, 0, 9, 4, 0xD0, 0, 0x34, 2, 0, 'a', 0}), 231, 8, Le({'a', 0})},
        {Le({0, 0x23, 0xFF, 0xFF, 0, 0, 9, 4, 0xD0, 0, 0x34, 3, 0, 0, 0, 'x', 'y', 'z'}), 35, 3, Le({'x', 'y', 'z'})},
        {Le({0, 0x6E, 8, 8, 0, 0, 0, 0, 0, 0, 0, 0}), 110, 8, Bytes(8, 0)},  // money: refused
    };
    for (const auto& c : cases) {
        Bytes param = Le({0});  // no name
        param.insert(param.end(), c.param.begin(), c.param.end());
        std::vector<RpcCall> calls;
        SCOPED_TRACE(int{c.code});
        ASSERT_EQ(ParseRpc(RpcOf(param), kTds71, {}, calls), "");
        ASSERT_EQ(calls.size(), 1u);
        ASSERT_EQ(calls[0].params.size(), 1u);
        const HostValue h = ToHost(calls[0].params[0].type, calls[0].params[0].value);
        EXPECT_EQ(h.code, c.code);
        EXPECT_EQ(h.maxLength, c.maxLength) << int{c.code};
        EXPECT_EQ(h.value, c.value) << int{c.code};
    }
}

TEST(TdsRpc, RefusesWhatLiesAboutItsLength) {
    const Bytes lies[] = {
        Le({0, 0, 0xA7, 4, 0, 9, 4, 0xD0, 0, 0x34, 5, 0, 'a', 'b', 'c', 'd', 'e'}),  // a value over its declared length
        Le({0, 0, 0xA7, 4, 0, 9, 4, 0xD0, 0, 0x34, 3, 0, 'a'}),                      // past the end
        Le({0, 0, 0x26, 3, 3, 1, 2, 3}),                                             // an int of 3 bytes
        Le({0, 0, 0xE7, 0xFF, 0xFF, 9, 4, 0xD0, 0, 0x34, 4, 0, 0, 0, 0, 0, 0, 0,    // a PLP chunk past the end
            9, 0, 0, 0, 'a', 0}),
        Le({0, 0, 0xF3, 0}),  // a table-valued parameter
    };
    for (const Bytes& param : lies) {
        std::vector<RpcCall> calls;
        Bytes message = Le({22, 0, 0, 0, 18, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0});  // ALL_HEADERS
        const Bytes call = RpcOf(param);
        message.insert(message.end(), call.begin(), call.end());
        EXPECT_NE(ParseRpc(message, kTds74, {}, calls), "");
    }
    const Bytes many = Le({0, 0, 0x26, 1, 1, 0, 0, 0, 0x26, 1, 1, 0, 0, 0, 0x26, 1, 1, 0});
    std::vector<RpcCall> calls;
    DecodeLimits limits;
    limits.maxParams = 2;
    EXPECT_NE(ParseRpc(RpcOf(many), kTds71, limits, calls), "");
}

TEST(TdsOutputs, FitTheClientsTypeWhateverWasDelivered) {
    const Bytes four = Le({0xFE, 0xFF, 0xFF, 0xFF});  // -2 as an int
    double d = 0.855;
    Bytes eight(8);
    std::memcpy(eight.data(), &d, 8);
    EXPECT_EQ(FromHost(TypeOfHost(52, 2), four), Le({0xFE, 0xFF}));
    EXPECT_EQ(FromHost(TypeOfHost(38, 8), four), Le({0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
    float f = 0;
    const Value real = FromHost(TypeOfHost(109, 4), eight);
    std::memcpy(&f, real->data(), 4);
    EXPECT_EQ(f, 0.855f);
    EXPECT_EQ(FromHost(TypeOfHost(167, 3), Le({'a', 'b', 'c', 'd'})), Le({'a', 'b', 'c'}));
    EXPECT_EQ(FromHost(TypeOfHost(231, 3), Le({'a', 0, 'b', 0})), Le({'a', 0}));  // whole characters only
    EXPECT_EQ(FromHost(TypeOfHost(104, 1), Le({5})), Le({1}));
    EXPECT_FALSE(FromHost(TypeOfHost(38, 4), std::nullopt));
}

}  // namespace
}  // namespace vrn::tds
