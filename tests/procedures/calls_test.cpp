// What a script can't show of each procedure: whether and where it completes
// the call and what sizes it delivers; with it, the rules of its parameters,
// one refused call each (the refusal texts show once in tests/sql). These are
// also the tests of the frame's judging of a call.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/procedures/calls.h"

namespace vrn {
namespace {

using host::Int;
using host::Null;
using host::NVarChar;
using host::Output;
using host::Param;
using host::VarChar;
using test::Code;
using test::Lib;

std::string Repeat(const std::string& piece, size_t times) {
    std::string text;
    while (times-- > 0) text += piece;
    return text;
}

TEST(Calls, RefusalsAndCompletionOfEveryProcedure) {
    const std::string inv = Code(0x80070057), folderInv = Code(0x80030057);
    const Param text = VarChar("10"), out30 = Output(VarChar("", 30)), flt = Output(host::Float(0));
    const Param bytes = host::VarBinary({0xFF}), count = Output(Int(7));
    Param oldVarBinary = bytes;
    oldVarBinary.type = 37;
    struct Case {
        const char* procedure;
        std::vector<Param> params;
        std::string trace;  // see test::Trace without texts
        bool failParamInfo = false;
    };
    const Case cases[] = {
        {"vrn_PercStrNormalize", {text, out30}, "0 O2:2 D"},
        {"vrn_PercStrNormalize", {VarChar(std::string(22, '1')), out30}, "0 M O2:0 D"},
        {"vrn_PercStrNormalize", {Output(text), out30}, "-1 M D"},
        {"vrn_PercStrNormalize", {text, VarChar("", 30)}, "-1 M D"},
        {"vrn_PercStrNormalize", {text, count}, "-1 M D"},
        {"vrn_PercStrEval", {text, flt, Int(1)}, "0 O2:8 D"},
        {"vrn_PercStrEval", {VarChar(std::string(21, '1')), flt, Int(1)}, "0 M O2:8 D"},
        {"vrn_PercStrEval", {text, flt, host::Float(1)}, inv + " M D"},
        {"vrn_PercStrEval", {text, host::Float(0), Int(1)}, inv + " M D"},
        // Neither formula procedure completes the call; the reader has no limit, the parser 998 bytes.
        {"vrn_PFormula_Eval", {VarChar("+1 "), flt}, "0 O2:8"},
        {"vrn_PFormula_Eval", {VarChar("x"), flt}, "-1 M"},
        {"vrn_PFormula_Eval", {VarChar(Repeat("+1 ", 5000)), flt}, "0 O2:8"},
        {"vrn_PFormula_Eval", {VarChar("+1 "), host::Float(0)}, inv + " M"},
        {"vrn_PFormula_Normalize", {VarChar("1"), out30}, "0 O2:3"},
        {"vrn_PFormula_Normalize", {VarChar(Repeat(".1", 499)), Output(VarChar("", 8000))}, "0 O2:2495"},
        {"vrn_PFormula_Normalize", {VarChar(Repeat(".1", 499) + " "), Output(VarChar("", 8000))}, "-4 M"},
        {"vrn_PFormula_Normalize", {VarChar("100"), Output(VarChar("", 5))}, "0 O2:5"},
        {"vrn_PFormula_Normalize", {VarChar("1"), flt}, inv + " M"},
        // A wrong GetMutex is 0, never the default wait, and completes nothing.
        {"vrn_PercStrSymb_GetMutex", {Null(38, 4)}, "0 M"},
        {"vrn_PercStrSymb_GetMutex", {Int(1), Int(1)}, "0 M"},
        {"vrn_PercStrSymb_Init", {Int(-1)}, inv + " M D"},  // above 2 as unsigned
        {"vrn_PercStrSymb_Init", {host::TinyInt(2)}, "0 D"},
        {"vrn_PercStrSymb_SetVar", {VarChar("Cliente"), Int(5)}, "-1 M D"},
        {"vrn_PercStrSymb_SetVar", {Null(167, 40), text}, "-1 D"},
        {"vrn_PercStrSymb_SetVar", {VarChar(std::string(40, 'a')), text}, "1 D"},  // no such name
        {"vrn_PercStrSymb_SetVar", {VarChar("Cliente"), VarChar(std::string(20, '1'))}, "0 D"},
        {"vrn_PercStrSymb_Eval", {text, count}, "-1 M D"},
        {"vrn_PercStrSymb_Eval", {VarChar(std::string(500, '(') + "5" + std::string(500, ')')), out30}, "0 O2:1 D"},
        {"vrn_PercStrSymb_Eval", {VarChar("MIN("), Output(VarChar("", 1))}, "-3 O2:0 D"},  // a failure fits
        {"vrn_PercStrSymb_Eval", {VarChar("10+10"), Output(VarChar("", 5))}, "0 O2:5 D"},
        {"vrn_PercStrSymb_ErrorInfo", {Output(host::SmallInt(0)), Output(host::TinyInt(0))}, "0 O1:4 O2:4 D"},
        {"vrn_PercStrSymb_ErrorInfo", {Int(0), Output(Int(0))}, inv + " M D"},
        {"vrn_PercStrSymb_ErrorInfo", {Output(Int(0)), out30}, inv + " M D"},
        // CountBitsOn completes before its message.
        {"vrn_CountBitsOn", {oldVarBinary, count}, "0 O2:4 D"},
        {"vrn_CountBitsOn", {bytes, Output(host::SmallInt(7))}, inv + " D M"},
        {"vrn_CountBitsOn", {Null(165, 1), count}, inv + " D M"},
        {"vrn_CountBitsOn", {bytes, Int(7)}, inv + " D M"},
        // Debugout never completes.
        {"vrn_Debugout", {}, inv + " M"},
        // GetFolderPath completes, but not a refusal; the CSIDL's direction isn't judged.
        {"vrn_GetFolderPath", {Output(Int(0x99)), out30}, inv + " D"},
        {"vrn_GetFolderPath", {Null(38, 4), out30}, folderInv + " M"},
        {"vrn_GetFolderPath", {Int(0x23), Output(host::Char("", 30))}, folderInv + " M"},
        {"vrn_GetSrvInfo", {Null(167, 10), out30}, inv + " M D"},
        {"vrn_GetSrvInfo", {text, Output(NVarChar(u"", 40))}, inv + " M D"},
        {"vrn_GetSrvInfo", {text, VarChar("", 30)}, inv + " M D"},
        {"vrn_StrToFile", {text, text, Int(1), Int(1)}, "-1 M D"},
        {"vrn_StrToFile", {Null(167, 10), text}, "-1 M D"},
        {"vrn_StrToFile", {text, text, Output(Int(1))}, "-1 M D"},
        {"vrn_StrToFile", {text, text, host::Float(1)}, "-1 M D"},
        {"vrn_StrToFile", {NVarChar(u"10"), text}, "-1 M D"},
        {"vrn_StrToFile", {text, text, Null(104, 1)}, "-1 M D"},
        // The one family that tells a call the host can't describe (the message
        // alone) from a refused one (the done first).
        {"vrn_Wts_TriggerEnum", {VarChar("x")}, inv + " M", true},
        {"vrn_Wts_TriggerEnum", {Int(1)}, inv + " D M"},
    };
    for (const Case& c : cases) {
        host::CallOptions options;
        options.failParamInfo = c.failParamInfo;
        EXPECT_EQ(test::Trace(Lib().Call(c.procedure, c.params, options), false), c.trace)
            << c.procedure << " #" << (&c - cases);
    }
}

TEST(Calls, Version) {
    for (const char* name : {"__GetXpVersion", "xp_GetVersion"}) EXPECT_EQ(Lib().CallNoArgs(name), 0x07000000) << name;
}

}  // namespace
}  // namespace vrn
