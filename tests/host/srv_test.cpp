// Where the host stand-in must be as strict as the server, so that the library's
// faults show here too: values without terminator, deliveries only to OUTPUT
// parameters and kept whole, row values read when the row is sent.
#include <gtest/gtest.h>

#include <cstring>

#include "frame/srv.h"
#include "host/host.h"

namespace vrn::host {
namespace {

TEST(SrvParams, ValuesWithoutTerminatorDeliveriesOnlyToOutputParameters) {
    char buffer[8];
    std::memset(buffer, 'X', sizeof buffer);
    std::vector<int> results;
    const CallResult r = Invoke(
        [&](SRV_PROC* p) {
            BYTE type, text[] = "abcdef";
            ULONG maxLength, actualLength;
            BOOL isNull;
            srv_paraminfo(p, 1, &type, &maxLength, &actualLength, reinterpret_cast<BYTE*>(buffer), &isNull);
            srv_sendmsg(p, SRV_MSG_INFO, 1, 1, 0, nullptr, 0, 0, reinterpret_cast<char*>(text), 3);
            results.push_back(srv_paramsetoutput(p, 1, text, 3, 0));  // not OUTPUT
            results.push_back(srv_paramsetoutput(p, 2, text, 6, 0));  // longer than maxLength 4
            results.push_back(srv_paramsetoutput(p, 2, nullptr, 5, 0));
            return 0;
        },
        {Char("ab", 4), Output(VarChar("", 4))});
    EXPECT_EQ(std::string(buffer, 5), "ab  X");
    EXPECT_EQ(results, (std::vector<int>{0, 0, 1}));
    ASSERT_EQ(r.outputs.size(), 2u);
    EXPECT_EQ(r.outputs[0].value.size(), 6u);  // kept whole, so a test sees the overrun
    EXPECT_TRUE(r.outputs[1].isNull);          // a null pointer with a length is NULL
    EXPECT_EQ(r.OutputOf(2), &r.outputs[1]);
    EXPECT_EQ(r.messages.at(0).text, "abc");
}

TEST(SrvRows, ValuesAreReadAtSendRowAndOddCallsFail) {
    std::vector<int> odd;
    const CallResult r = Invoke(
        [&](SRV_PROC* p) {
            char text[8] = "first";
            int16_t small = -2;
            odd.push_back(srv_sendrow(p));                                                   // no columns
            odd.push_back(srv_describe(p, 2, nullptr, -1, SRVINT4, 0, SRVINT4, 0, nullptr));  // not the next
            srv_describe(p, 0, const_cast<char*>("Name"), -1, SRVBIGVARCHAR, 20, SRVCHAR, 0, nullptr);
            srv_describe(p, 0, const_cast<char*>("Small"), -1, SRVINT4, 0, SRVINT2, 0, &small);
            odd.push_back(srv_setcoldata(p, 3, text));  // no such column
            srv_setcoldata(p, 1, text);
            srv_setcollen(p, 1, 5);
            std::memcpy(text, "FIRST", 5);
            srv_sendrow(p);
            odd.push_back(srv_describe(p, 0, nullptr, -1, SRVINT4, 0, SRVINT4, 0, nullptr));  // after a row
            srv_setcollen(p, 1, 0);  // NULL
            srv_sendrow(p);
            srv_senddone(p, SRV_DONE_MORE | SRV_DONE_COUNT, 0, 2);
            odd.push_back(srv_sendrow(p));  // the set is closed
            return 0;
        },
        {});
    EXPECT_EQ(odd, (std::vector<int>{0, 0, 0, 0, 0}));
    ASSERT_EQ(r.resultSets.size(), 1u);
    EXPECT_EQ(r.resultSets[0].rows, (std::vector<Row>{{Bytes{'F', 'I', 'R', 'S', 'T'}, Bytes{0xFE, 0xFF}},
                                                      {std::nullopt, Bytes{0xFE, 0xFF}}}));  // bindings stay
}

}  // namespace
}  // namespace vrn::host
