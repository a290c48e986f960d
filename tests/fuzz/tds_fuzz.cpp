// vrn-server's request decoder: packets joined into messages, pre-login,
// LOGIN7, batches, RPC parameters of every type (PLP included) and
// transaction requests, at each TDS version. Besides crashes and reads past
// the buffer: every parameter the decoder accepts reaches the host within its
// declared length, and writes back to the same TYPE_INFO and value.
#include <string>

#include "host/tds/requests.h"
#include "tests/fuzz/fuzz.h"

namespace vrn::fuzz {
namespace {

constexpr uint32_t kVersions[] = {tds::kTds71, tds::kTds72, tds::kTds73A, tds::kTds73B, tds::kTds74};
constexpr size_t kMaxRequest = 1u << 20;

bool SameType(const tds::TypeInfo& a, const tds::TypeInfo& b) {
    return a.type == b.type && a.length == b.length && a.precision == b.precision && a.scale == b.scale &&
           std::equal(a.collation, a.collation + 5, b.collation);
}

tds::RpcParam RoundTrip(const tds::RpcParam& p, uint32_t version) {
    tds::Writer w;
    tds::WriteTypeInfo(w, p.type, version);
    tds::WriteValue(w, p.type, p.value);
    tds::Reader r(w.bytes());
    tds::RpcParam back;
    if (!tds::ReadTypeInfo(r, back.type, version) || !tds::ReadValue(r, back.type, back.value, kMaxRequest) || !r.AtEnd()) {
        Broken("a parameter that doesn't read back");
    }
    return back;
}

void CheckParam(const tds::RpcParam& p, uint32_t version) {
    const tds::HostValue h = tds::ToHost(p.type, p.value);
    if (h.value && h.code != 35 && h.code != 99 && h.code != 34 && h.code != 98 && h.value->size() > h.maxLength) {
        Broken("a value of " + std::to_string(h.value->size()) + " bytes over its maxLength " + std::to_string(h.maxLength));
    }
    // Written and read back, a parameter reads as itself from the second time
    // on (the first may normalise a value, such as a bit of 5).
    tds::RpcParam once = RoundTrip(p, version), twice = RoundTrip(once, version);
    if (p.type.type != tds::kXml && !SameType(once.type, p.type)) Broken("a TYPE_INFO that writes back otherwise");
    if (!SameType(once.type, twice.type) || once.value != twice.value) Broken("a value that writes back otherwise");
}

void Decode(uint8_t type, const tds::Bytes& payload, uint32_t version) {
    switch (type) {
    case tds::kPreLogin: (void)tds::ParsePreLogin(payload); break;
    case tds::kLogin7: (void)tds::ParseLogin7(payload); break;
    case tds::kSqlBatch: {
        std::u16string text;
        (void)tds::ParseSqlBatch(payload, version, text);
        break;
    }
    case tds::kTransactionManager: {
        uint16_t request = 0;
        (void)tds::ParseTransactionRequest(payload, version, request);
        break;
    }
    case tds::kRpc: {
        std::vector<tds::RpcCall> calls;
        tds::DecodeLimits limits;
        limits.maxValueBytes = kMaxRequest;
        if (!tds::ParseRpc(payload, version, limits, calls).empty()) break;
        for (const tds::RpcCall& call : calls) {
            for (const tds::RpcParam& p : call.params) CheckParam(p, version);
        }
        break;
    }
    default: break;
    }
}

}  // namespace

// Byte 0: the TDS version; byte 1: a message type, or 0 for a stream of
// packets; the rest: the message, or the stream.
int RunOne(const std::string& input) {
    if (input.size() < 2) return -1;
    const uint32_t version = kVersions[static_cast<uint8_t>(input[0]) % std::size(kVersions)];
    const auto type = static_cast<uint8_t>(input[1]);
    const tds::Bytes body(input.begin() + 2, input.end());
    if (type != 0) {
        Decode(type, body, version);
        return 0;
    }
    tds::MessageAssembler assembler(kMaxRequest);
    for (size_t at = 0; at + tds::kHeaderSize <= body.size();) {
        const tds::PacketHeader h = tds::ReadPacketHeader(body.data() + at);
        if (assembler.Check(h) == tds::MessageAssembler::Step::Broken) break;
        const size_t n = h.length - tds::kHeaderSize;
        if (at + tds::kHeaderSize + n > body.size()) break;
        const auto step = assembler.Add(h, body.data() + at + tds::kHeaderSize, n);
        if (step == tds::MessageAssembler::Step::Broken) break;
        if (step == tds::MessageAssembler::Step::Done) Decode(assembler.type(), assembler.payload(), version);
        at += tds::kHeaderSize + n;
    }
    return 0;
}

}  // namespace vrn::fuzz
