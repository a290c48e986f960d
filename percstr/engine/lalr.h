// The LALR(1) table builder behind the parser driver. A grammar is given as
// text, one production per string, the way its table is written:
//
//     "expr: expr '+' expr"        a char in quotes is the token of that code
//     "expr: '-' expr %prec NEG"   %prec names the precedence of the production
//     "input:"                     an empty right side
//
// Names that stand on some left side are nonterminals, every other name must
// be a declared token. The left side of the first production is the start
// symbol. Shift/reduce choices are settled by precedence and associativity
// (a production takes the precedence of its last token that has one); what
// they don't settle is shifted, or reduced by the earlier production, and
// listed in Problems().
//
// Each state's most common reduction becomes its default: it is taken on any
// lookahead without a shift, so a production's action runs before a bad token
// is reported, and a state whose only action is one reduction reduces without
// asking for a lookahead.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vrn::lalr {

struct TokenName {
    const char* name;
    int32_t code;  // above 0
};

enum class Assoc { Left, Right, NonAssoc };

// One level of precedence; levels are listed from the loosest to the tightest.
struct PrecedenceLevel {
    Assoc assoc;
    const char* symbols;  // blank-separated: 'c' or names, also names only used after %prec
};

struct GrammarText {
    std::span<const TokenName> tokens;
    std::span<const PrecedenceLevel> precedence;
    std::vector<const char*> productions;  // production n is productions[n - 1]
};

// Terminal 0 is the end of the input (any code of 0 or below); terminal 1
// stands for codes the grammar doesn't know and matches nothing.
inline constexpr int kEndTerminal = 0;
inline constexpr int kUndefinedTerminal = 1;

// Action entries: above 0 shift to that state, below 0 reduce by production
// -entry, 0 the state's default reduction (or an error when it has none).
inline constexpr int16_t kDefaultAction = 0;
inline constexpr int16_t kErrorAction = INT16_MIN;   // a non-associative operator used twice
inline constexpr int16_t kAcceptAction = INT16_MAX;  // the end shifted behind the start symbol

struct ParseTables {
    int terminalCount = 0;
    int nonterminalCount = 0;
    int stateCount = 0;
    std::vector<int16_t> translate;       // token code -> terminal
    std::vector<int16_t> action;          // stateCount x terminalCount
    std::vector<int16_t> gotoState;       // stateCount x nonterminalCount, -1 none
    std::vector<uint16_t> defaultRule;    // per state, 0 none
    std::vector<uint8_t> needsLookahead;  // per state
    std::vector<uint16_t> ruleLhs;        // per production (0: the start production)
    std::vector<uint8_t> ruleLength;
    std::vector<std::string> problems;    // description faults and unsettled conflicts

    [[nodiscard]] int Terminal(int32_t code) const {
        if (code <= 0) return kEndTerminal;
        return static_cast<size_t>(code) < translate.size() ? translate[static_cast<size_t>(code)] : kUndefinedTerminal;
    }
    // The action of a state on a terminal, with the default resolved: a shift
    // (> 0), a reduction (< 0), kAcceptAction or kErrorAction.
    [[nodiscard]] int16_t Action(int state, int terminal) const {
        const int16_t entry = action[static_cast<size_t>(state) * terminalCount + terminal];
        if (entry != kDefaultAction) return entry;
        return defaultRule[state] != 0 ? static_cast<int16_t>(-defaultRule[state]) : kErrorAction;
    }
    [[nodiscard]] int Goto(int state, int nonterminal) const {
        return gotoState[static_cast<size_t>(state) * nonterminalCount + nonterminal];
    }
};

[[nodiscard]] ParseTables BuildParseTables(const GrammarText& grammar);

}  // namespace vrn::lalr
