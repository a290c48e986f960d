// The host stand-in's srv_* as the library relies on them, driven by small
// procedures written inline.
#include <gtest/gtest.h>

#include <cstring>

#include "frame/srv.h"
#include "host/host.h"

namespace vrn::host {
namespace {

struct Info {
    int result = -7;
    BYTE type = 0xEE;
    ULONG maxLength = 0xEEEE, actualLength = 0xEEEE;
    BOOL isNull = 0xEE;
};

Info Describe(SRV_PROC* srvproc, int n, BYTE* data = nullptr) {
    Info i;
    i.result = srv_paraminfo(srvproc, n, &i.type, &i.maxLength, &i.actualLength, data, &i.isNull);
    return i;
}

TEST(SrvParams, DescribesEachParameterAndNothingPastTheCount) {
    std::vector<Info> seen;
    int count = -1;
    Invoke(
        [&](SRV_PROC* p) {
            count = srv_rpcparams(p);
            for (int n : {-1, 0, 1, 2, 3}) seen.push_back(Describe(p, n));
            return 0;
        },
        {VarChar("abc", 30), Output(Null(38, 4))});
    EXPECT_EQ(count, 2);
    ASSERT_EQ(seen.size(), 5u);
    // n < 1 and n past the count: result 0 (not 1) and every field 0.
    for (size_t i : {0u, 1u, 4u}) {
        EXPECT_EQ(seen[i].result, 0) << i;
        EXPECT_EQ(seen[i].type, 0) << i;
        EXPECT_EQ(seen[i].maxLength, 0u) << i;
        EXPECT_EQ(seen[i].actualLength, 0u) << i;
        EXPECT_EQ(seen[i].isNull, 0) << i;
    }
    EXPECT_EQ(seen[2].result, 1);
    EXPECT_EQ(seen[2].type, 167);
    EXPECT_EQ(seen[2].maxLength, 30u);
    EXPECT_EQ(seen[2].actualLength, 3u);
    EXPECT_EQ(seen[2].isNull, 0);
    EXPECT_EQ(seen[3].type, 38);
    EXPECT_EQ(seen[3].actualLength, 0u);
    EXPECT_EQ(seen[3].isNull, 1);
}

TEST(SrvParams, CopiesExactlyTheValueBytes) {
    struct Case {
        Param param;
        uint32_t expected;  // the 32-bit destination after the copy, set to 0 before
    };
    const Case cases[] = {
        {SmallInt(-1), 65535u},  // no sign extension
        {TinyInt(200), 200u},
        {Int(-2), 0xFFFFFFFEu},
        {Bit(true), 1u},
        {Null(38, 4), 0u},  // NULL leaves the destination alone
    };
    for (const Case& c : cases) {
        uint32_t value = 0;
        Invoke([&](SRV_PROC* p) { return Describe(p, 1, reinterpret_cast<BYTE*>(&value)).result; }, {c.param});
        EXPECT_EQ(value, c.expected) << int{c.param.type};
    }
    // Character values come without a terminator: the byte behind them is untouched.
    char buffer[8];
    std::memset(buffer, 'X', sizeof buffer);
    Invoke([&](SRV_PROC* p) { return Describe(p, 1, reinterpret_cast<BYTE*>(buffer)).result; },
           {Char("ab", 4)});
    EXPECT_EQ(std::string(buffer, 5), "ab  X");
}

TEST(SrvParams, StatusBitZeroIsOutput) {
    std::vector<int> status;
    Invoke(
        [&](SRV_PROC* p) {
            for (int n : {0, 1, 2, 3}) status.push_back(srv_paramstatus(p, n));
            return 0;
        },
        {Int(1), Output(Int(2))});
    EXPECT_EQ(status, (std::vector<int>{0, 0, 1, 0}));
}

TEST(SrvParams, OutputDeliveriesAreRecordedOnlyForOutputParameters) {
    std::vector<int> results;
    const CallResult r = Invoke(
        [&](SRV_PROC* p) {
            BYTE text[] = "abcdef";
            results.push_back(srv_paramsetoutput(p, 1, text, 3, 0));  // not OUTPUT
            results.push_back(srv_paramsetoutput(p, 2, text, 3, 0));
            results.push_back(srv_paramsetoutput(p, 2, text, 6, 0));  // longer than maxLength 4
            results.push_back(srv_paramsetoutput(p, 2, nullptr, 5, 0));
            results.push_back(srv_paramsetoutput(p, 3, text, 0, 1));
            results.push_back(srv_paramsetoutput(p, 9, text, 1, 0));
            return 0;
        },
        {VarChar("x"), Output(VarChar("", 4)), Output(Int(0))});
    EXPECT_EQ(results, (std::vector<int>{0, 1, 0, 1, 1, 0}));
    ASSERT_EQ(r.outputs.size(), 4u);
    EXPECT_EQ(r.outputs[0].value, Bytes({'a', 'b', 'c'}));
    EXPECT_EQ(r.outputs[1].value.size(), 6u);  // kept whole, so a test sees the overrun
    EXPECT_TRUE(r.outputs[2].isNull);          // a null pointer with a length is NULL
    EXPECT_TRUE(r.outputs[3].isNull);
    EXPECT_EQ(r.OutputOf(2), &r.outputs[2]);
    EXPECT_EQ(r.OutputOf(1), nullptr);
}

TEST(SrvMessages, EveryArgumentIsKept) {
    const CallResult r = Invoke(
        [](SRV_PROC* p) {
            char text[] = "vrn_X\nerrore \xE8";
            char name[] = "rpc";
            srv_sendmsg(p, SRV_MSG_INFO, 1, 1, 0, nullptr, 0, 0, text, -1);
            srv_sendmsg(p, SRV_MSG_ERROR, 2001, 16, 3, name, -1, 7, text, 5);
            srv_sendmsg(p, SRV_MSG_INFO, 1, 1, 0, nullptr, 0, 0, nullptr, -1);
            return 0;
        },
        {});
    ASSERT_EQ(r.messages.size(), 3u);
    const Message& info = r.messages[0];
    EXPECT_EQ(info.text, "vrn_X\nerrore \xE8");
    EXPECT_EQ(info.length, -1);
    EXPECT_TRUE(info.rpcNameNull);
    const Message& error = r.messages[1];
    EXPECT_EQ(error.type, SRV_MSG_ERROR);
    EXPECT_EQ(error.number, 2001);
    EXPECT_EQ(error.msgClass, 16);
    EXPECT_EQ(error.state, 3);
    EXPECT_EQ(error.rpcName, "rpc");
    EXPECT_EQ(error.lineNumber, 7);
    EXPECT_EQ(error.text, "vrn_X");
    EXPECT_EQ(r.messages[2].text, "");
}

TEST(SrvRows, ValuesAreReadAtSendRowWithTheirLengths) {
    const CallResult r = Invoke(
        [](SRV_PROC* p) {
            char name[] = "Name";
            srv_describe(p, 0, name, -1, SRVBIGVARCHAR, 20, SRVCHAR, 0, nullptr);
            srv_describe(p, 0, const_cast<char*>("Small"), -1, SRVINT4, 0, SRVINT2, 0, nullptr);
            srv_describe(p, 0, const_cast<char*>("Int"), -1, SRVINT4, 0, SRVINT4, 0, nullptr);
            char text[8] = "first";
            int16_t small = -2;
            int32_t whole = 70000;
            srv_setcoldata(p, 1, text);
            srv_setcollen(p, 1, 5);
            srv_setcoldata(p, 2, &small);
            srv_setcoldata(p, 3, &whole);
            std::memcpy(text, "FIRST", 5);  // read at srv_sendrow, not at srv_setcoldata
            srv_sendrow(p);
            srv_setcollen(p, 1, 0);  // NULL
            srv_setcoldata(p, 3, nullptr);
            srv_sendrow(p);
            srv_senddone(p, SRV_DONE_MORE | SRV_DONE_COUNT, 0, 2);
            return 0;
        },
        {});
    ASSERT_EQ(r.resultSets.size(), 1u);
    const ResultSet& set = r.resultSets[0];
    ASSERT_EQ(set.columns.size(), 3u);
    EXPECT_EQ(set.columns[0].name, "Name");
    EXPECT_EQ(set.columns[1].srcType, SRVINT2);
    ASSERT_EQ(set.rows.size(), 2u);
    EXPECT_EQ(set.rows[0][0], Bytes({'F', 'I', 'R', 'S', 'T'}));
    EXPECT_EQ(set.rows[0][1], Bytes({0xFE, 0xFF}));  // a smallint source takes 2 bytes
    EXPECT_EQ(set.rows[0][2], Bytes({0x70, 0x11, 0x01, 0x00}));
    EXPECT_EQ(set.rows[1][0], std::nullopt);
    EXPECT_EQ(set.rows[1][1], Bytes({0xFE, 0xFF}));  // bindings stay until changed
    EXPECT_EQ(set.rows[1][2], std::nullopt);
    EXPECT_EQ(r.rows, set.rows);
    EXPECT_EQ(r.order, (std::vector<EventKind>{EventKind::Describe, EventKind::Describe, EventKind::Describe,
                                                EventKind::Row, EventKind::Row, EventKind::Done}));
}

TEST(SrvRows, OddCallsFailWithoutRecording) {
    std::vector<int> results;
    const CallResult r = Invoke(
        [&](SRV_PROC* p) {
            int value = 1;
            results.push_back(srv_sendrow(p));                // no columns
            results.push_back(srv_setcoldata(p, 1, &value));  // no such column
            results.push_back(srv_describe(p, 2, nullptr, -1, SRVINT4, 0, SRVINT4, 0, nullptr));  // not the next
            results.push_back(srv_describe(p, 0, nullptr, -1, SRVINT4, 0, SRVINT4, 0, &value));
            results.push_back(srv_setcollen(p, 2, 4));
            results.push_back(srv_sendrow(p));
            results.push_back(srv_describe(p, 0, nullptr, -1, SRVINT4, 0, SRVINT4, 0, nullptr));  // after a row
            srv_senddone(p, SRV_DONE_MORE, 0, 0);
            results.push_back(srv_sendrow(p));  // the set is closed
            results.push_back(srv_describe(p, 0, nullptr, -1, SRVINT4, 0, SRVINT4, 0, &value));  // a new set
            return 0;
        },
        {});
    EXPECT_EQ(results, (std::vector<int>{0, 0, 0, 1, 0, 1, 0, 0, 1}));
    ASSERT_EQ(r.resultSets.size(), 2u);
    EXPECT_EQ(r.resultSets[0].rows.size(), 1u);
    EXPECT_EQ(r.resultSets[0].rows[0][0], Bytes({1, 0, 0, 0}));  // srv_describe's srcData binds the value
    EXPECT_TRUE(r.resultSets[1].rows.empty());
    EXPECT_EQ(r.columns.size(), 2u);
}

TEST(SrvInstance, NameIsNulTerminatedWideTextOrNull) {
    struct Seen {
        std::u16string name;
        bool null = true;
        int length = -1;
    };
    auto ask = [](const CallOptions& options, int field) {
        Seen seen;
        Invoke(
            [&](SRV_PROC* p) {
                const auto* name = static_cast<const char16_t*>(srv_pfieldex(p, field, &seen.length));
                seen.null = name == nullptr;
                if (name) seen.name = name;
                return 0;
            },
            {}, options);
        return seen;
    };
    CallOptions named;
    named.instanceName = u"SQL2019";
    const Seen withName = ask(named, SRV_INSTANCENAME);
    EXPECT_FALSE(withName.null);
    EXPECT_EQ(withName.name, u"SQL2019");
    EXPECT_EQ(withName.length, 14);
    EXPECT_TRUE(ask({}, SRV_INSTANCENAME).null);
    EXPECT_TRUE(ask(named, 37).null);
}

TEST(SrvRobustness, NullHandleAndFailingParamInfo) {
    BYTE type = 1;
    EXPECT_EQ(srv_rpcparams(nullptr), 0);
    EXPECT_EQ(srv_paramstatus(nullptr, 1), 0);
    EXPECT_EQ(srv_paraminfo(nullptr, 1, &type, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(type, 0);
    EXPECT_EQ(srv_paramsetoutput(nullptr, 1, nullptr, 0, 0), 0);
    EXPECT_EQ(srv_sendmsg(nullptr, 1, 1, 1, 0, nullptr, 0, 0, nullptr, -1), 0);
    EXPECT_EQ(srv_senddone(nullptr, 0, 0, 0), 0);
    EXPECT_EQ(srv_describe(nullptr, 0, nullptr, 0, 0, 0, 0, 0, nullptr), 0);
    EXPECT_EQ(srv_setcoldata(nullptr, 1, nullptr), 0);
    EXPECT_EQ(srv_setcollen(nullptr, 1, 0), 0);
    EXPECT_EQ(srv_sendrow(nullptr), 0);
    EXPECT_EQ(srv_pfieldex(nullptr, SRV_INSTANCENAME, nullptr), nullptr);

    CallOptions failing;
    failing.failParamInfo = true;
    Info seen;
    Invoke([&](SRV_PROC* p) { return (seen = Describe(p, 1)).result; }, {Int(5)}, failing);
    EXPECT_EQ(seen.result, 0);
    EXPECT_EQ(seen.type, 0);
}

}  // namespace
}  // namespace vrn::host
