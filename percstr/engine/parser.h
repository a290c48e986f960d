// The parser driver shared by the three grammars: an LR machine over tables
// that percstr/engine/lalr.h builds once per grammar, with its stacks of states,
// values and locations (one array of entries) 200 deep in its own frame,
// growing by doubling, in one block, up to 10000. No error recovery: the first
// syntax error ends the parse.
//
// A grammar is a constexpr Grammar record: its tokens, precedence levels and
// a table of rules, each a production with its action beside it:
//
//     {"expr: expr '+' expr", [](Reduce& r) { r.value = r[1] + r[3]; }},
//
// r[i] is the value of the i-th right-side symbol, r.At(i) its location,
// r.value and r.location those of the left side (preset to the first
// symbol's value and the span of the right side), r.context the caller's
// record. r.Abort() ends the parse with result 1 once the action returns.
// A rule without an action keeps the preset value.
//
// Parser<kGrammar> takes the grammar at compile time: the token request and
// every action are direct calls that the compiler can inline into the loop,
// and each reduction knows its length.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "percstr/engine/build_once.h"
#include "percstr/engine/lalr.h"
#include "percstr/engine/scanner.h"

namespace vrn {

inline constexpr int32_t kParseAccepted = 0;
inline constexpr int32_t kParseSyntaxError = 1;
inline constexpr int32_t kParseExhausted = 2;

inline constexpr int kParserInitialDepth = 200;
inline constexpr int kParserMaxDepth = 10000;

// The location type of a grammar without locations, and the stack location
// of one whose actions don't read locations: it takes any location and keeps nothing.
struct NoLocation {
    constexpr NoLocation() = default;
    template <class Location>
    constexpr explicit NoLocation(const Location&) {}
};

inline NoLocation InitialLocation(NoLocation) { return {}; }
inline NoLocation SpanLocation(NoLocation, NoLocation) { return {}; }
inline NoLocation EmptyLocationAfter(NoLocation) { return {}; }

// Lines 1, columns 0.
inline TokenLocation InitialLocation(TokenLocation) { return TokenLocation{1, 0, 1, 0}; }
inline TokenLocation SpanLocation(const TokenLocation& first, const TokenLocation& last) {
    return TokenLocation{first.firstLine, first.firstColumn, last.lastLine, last.lastColumn};
}
// An empty right side takes the end of the symbol below it as start and end.
inline TokenLocation EmptyLocationAfter(const TokenLocation& below) {
    return TokenLocation{below.lastLine, below.lastColumn, below.lastLine, below.lastColumn};
}

// Where the stacks grow; tests make it fail.
struct ParserMemory {
    static inline void* (*allocate)(size_t bytes) = std::malloc;
    static inline void (*release)(void* block) = std::free;
};

// One entry of the parser's stacks: the states, values and locations run in
// parallel, so one array of entries holds all three.
template <class Value, class Location>
struct StackEntry {
    Value value;
    Location location;
    int16_t state;  // the offset of its row in the driver's table
};

template <class Value, class Location, class Context>
class Reduction {
public:
    using Entry = StackEntry<Value, Location>;

    Reduction(Context* context, const Entry* rhs, Value& value, Location& location)
        : context(context), value(value), location(location), rhs_(rhs) {}

    [[nodiscard]] const Value& operator[](int i) const { return rhs_[i - 1].value; }
    [[nodiscard]] const Location& At(int i) const { return rhs_[i - 1].location; }
    void Abort() { aborted_ = true; }
    [[nodiscard]] bool Aborted() const { return aborted_; }

    Context* context;
    Value& value;
    Location& location;

private:
    const Entry* rhs_;
    bool aborted_ = false;
};

// The token that the parser holds between reading and shifting it.
template <class Value, class Location>
struct Lookahead {
    int32_t column;  // its terminal's column in the driver's rows; 0 while none is held
    Value value;
    Location location;
};

// StackLocation is what the stacks keep for each symbol and the actions read
// (r.At, r.location): Location, or NoLocation for a grammar whose actions
// never ask, which saves the copying.
template <class Value, class Location, class Context, class StackLocation = Location>
struct Grammar {
    using ValueType = Value;
    using LocationType = Location;
    using StackLocationType = StackLocation;
    using ContextType = Context;
    using Reduce = Reduction<Value, StackLocation, Context>;
    struct Rule {
        const char* production;
        void (*action)(Reduce& r) = nullptr;
    };

    std::span<const lalr::TokenName> tokens;
    std::span<const lalr::PrecedenceLevel> precedence;
    std::span<const Rule> rules;
    // The token request: the code, 0 or below for the end of the input.
    int32_t (*nextToken)(Value* value, Location* location, Context* context);
    // Records a syntax error or exhausted stacks at the lookahead's location.
    void (*recordError)(Context* context, const Location& location);
    // A process-wide lookahead for a grammar that keeps it there; null: in the frame.
    Lookahead<Value, Location>* sharedLookahead = nullptr;
};

// The number of symbols on the right side of a production text: the words
// behind the colon, up to a %prec.
constexpr int RightSideLength(const char* production) {
    while (*production != 0 && *production != ':') ++production;
    int words = 0;
    bool inWord = false;
    for (const char* p = *production ? production + 1 : production; *p != 0; ++p) {
        const bool blank = *p == ' ' || *p == '\t';
        if (!blank && !inWord) {
            if (*p == '%') break;
            ++words;
        }
        inWord = !blank;
    }
    return words;
}

template <const auto& G>
class Parser {
public:
    using GrammarType = std::remove_cvref_t<decltype(G)>;
    using Value = typename GrammarType::ValueType;
    using Location = typename GrammarType::LocationType;
    using StackLocation = typename GrammarType::StackLocationType;
    using Context = typename GrammarType::ContextType;
    using Reduce = typename GrammarType::Reduce;
    using Entry = StackEntry<Value, StackLocation>;
    static_assert(std::is_trivially_copyable_v<Entry>, "stack entries are moved as bytes when the stacks grow");

    // The grammar's parser with its tables, built at the first call; null
    // when memory ran out for them (the next call tries again).
    [[nodiscard]] static const Parser* Get() noexcept {
        return BuiltOrNull([]() -> const Parser& {
            static const Parser parser;
            return parser;
        });
    }

    // kParseAccepted, kParseSyntaxError (also for an aborting action) or kParseExhausted.
    [[nodiscard]] int32_t Parse(Context* context) const;

    [[nodiscard]] const lalr::ParseTables& Tables() const { return tables_; }

private:
    static constexpr size_t kRuleCount = G.rules.size();

    Parser() : tables_(lalr::BuildParseTables(GrammarText())) { BuildDriverTables(); }

    static lalr::GrammarText GrammarText() {
        lalr::GrammarText text{G.tokens, G.precedence, {}};
        for (const auto& rule : G.rules) text.productions.push_back(rule.production);
        return text;
    }

    // A row's entry for "no token held" in a state that needs one.
    static constexpr int16_t kReadToken = INT16_MIN + 1;

    // Token codes the translation covers: every byte and the grammar's named tokens.
    static constexpr int32_t kCodeCount = [] {
        int32_t most = 255;
        for (const lalr::TokenName& token : G.tokens) most = token.code > most ? token.code : most;
        return most + 1;
    }();
    // Where the rows begin in table_, behind the translation and the goto columns.
    static constexpr size_t kRowsAt = static_cast<size_t>(kCodeCount) + kRuleCount + 1;

    // The driver's own form of the tables, all in table_ so that one register
    // reaches them: per token code its terminal's column (1 + terminal); per
    // production the column of its left side's gotos; then one row per state,
    // known by its offset from the first. Column 0 of a row is the action while
    // no token is held: the reduction a state takes without reading one, or
    // kReadToken. Then come the actions per terminal, the default written into
    // the empty entries, and the gotos per nonterminal.
    void BuildDriverTables() {
        const int terminals = tables_.terminalCount;
        const int width = 1 + terminals + tables_.nonterminalCount;
        if (static_cast<int64_t>(tables_.stateCount) * width >= lalr::kAcceptAction) {
            tables_.problems.push_back("too many states for 16-bit rows");
            tables_.stateCount = 0;
            return;
        }
        auto offsetOf = [&](int state) { return static_cast<int16_t>(state * width); };
        table_.assign(kRowsAt + static_cast<size_t>(tables_.stateCount) * static_cast<size_t>(width), 0);
        for (int32_t code = 1; code < kCodeCount; ++code) {
            table_[static_cast<size_t>(code)] = static_cast<int16_t>(1 + tables_.Terminal(code));
        }
        for (size_t rule = 0; rule < tables_.ruleLhs.size() && rule <= kRuleCount; ++rule) {
            table_[static_cast<size_t>(kCodeCount) + rule] = static_cast<int16_t>(1 + terminals + tables_.ruleLhs[rule]);
        }
        int16_t* const rows = &table_[kRowsAt];
        for (int state = 0; state < tables_.stateCount; ++state) {
            int16_t* row = rows + offsetOf(state);
            const size_t at = static_cast<size_t>(state);
            const bool immediate = !tables_.needsLookahead[at] && tables_.defaultRule[at] != 0;
            row[0] = immediate ? static_cast<int16_t>(-tables_.defaultRule[at]) : kReadToken;
            for (int terminal = 0; terminal < terminals; ++terminal) {
                const int16_t action = tables_.Action(state, terminal);
                const bool shift = action > 0 && action != lalr::kAcceptAction;
                row[1 + terminal] = shift ? offsetOf(action) : action;
            }
            for (int nonterminal = 0; nonterminal < tables_.nonterminalCount; ++nonterminal) {
                const int to = tables_.Goto(state, nonterminal);
                row[1 + terminals + nonterminal] = to < 0 ? int16_t{-1} : offsetOf(to);
            }
        }
        // The driver counts each right side itself; the builder must agree.
        for (size_t rule = 0; rule < kRuleCount && rule + 1 < tables_.ruleLength.size(); ++rule) {
            if (tables_.ruleLength[rule + 1] != RightSideLength(G.rules[rule].production)) {
                tables_.problems.push_back(std::string("right side miscounted in \"") + G.rules[rule].production + "\"");
                tables_.stateCount = 0;
            }
        }
    }

    class Stacks;
    struct Frame;

    template <size_t I>
    static int ReduceBy(Frame& frame, Value& value, StackLocation& location);
    template <size_t... I>
    static int ReduceDispatch(int rule, Frame& frame, Value& value, StackLocation& location,
                              std::index_sequence<I...>);

    lalr::ParseTables tables_;
    std::vector<int16_t> table_;
};

// The stacks: first in the frame, then in one block of the heap.
template <const auto& G>
class Parser<G>::Stacks {
public:
    Stacks() = default;
    Stacks(const Stacks&) = delete;
    Stacks& operator=(const Stacks&) = delete;
    ~Stacks() {
        if (block_ != nullptr) ParserMemory::release(block_);
    }

    Entry* entries = initial_;
    int capacity = kParserInitialDepth;

    // Called when the last entry of the capacity has been written: doubles
    // the capacity, up to kParserMaxDepth, in one new block. False when the
    // stacks are at the limit or the block can't be had.
    [[nodiscard]] bool Grow() {
        if (capacity >= kParserMaxDepth) return false;
        const int grown = capacity * 2 < kParserMaxDepth ? capacity * 2 : kParserMaxDepth;
        auto* block = static_cast<Entry*>(ParserMemory::allocate(static_cast<size_t>(grown) * sizeof(Entry)));
        if (block == nullptr) return false;
        std::memcpy(static_cast<void*>(block), entries, static_cast<size_t>(capacity) * sizeof(Entry));
        if (block_ != nullptr) ParserMemory::release(block_);
        block_ = block;
        entries = block;
        capacity = grown;
        return true;
    }

private:
    static_assert(alignof(Entry) <= alignof(std::max_align_t));

    void* block_ = nullptr;
    Entry initial_[kParserInitialDepth];
};

// What a reduction reads: the stack's entries, the top one and the caller's record.
template <const auto& G>
struct Parser<G>::Frame {
    Entry* entries;
    int top;
    Context* context;
};

// Rule I + 1: the left side's value and location from the right side's, and
// the action. The right side's length, or -1 when the action aborted.
template <const auto& G>
template <size_t I>
inline int Parser<G>::ReduceBy(Frame& frame, Value& value, StackLocation& location) {
    constexpr int length = RightSideLength(G.rules[I].production);
    const Entry* const rhs = frame.entries + (frame.top - length + 1);
    if constexpr (length > 0) {
        value = rhs[0].value;
        location = SpanLocation(rhs[0].location, rhs[length - 1].location);
    } else {
        value = Value{};
        location = EmptyLocationAfter(frame.entries[frame.top].location);
    }
    if constexpr (G.rules[I].action != nullptr) {
        Reduce reduce(frame.context, rhs, value, location);
        G.rules[I].action(reduce);
        if (reduce.Aborted()) return -1;
    }
    return length;
}

template <const auto& G>
template <size_t... I>
inline int Parser<G>::ReduceDispatch(int rule, Frame& frame, Value& value, StackLocation& location,
                                     std::index_sequence<I...>) {
    int length = -1;
    (void)((rule == static_cast<int>(I + 1) && (length = ReduceBy<I>(frame, value, location), true)) || ...);
    return length;
}

template <const auto& G>
int32_t Parser<G>::Parse(Context* context) const {
    if (tables_.stateCount == 0) return kParseSyntaxError;  // a grammar that didn't build

    // The tables as plain arrays in locals: the vectors would be read anew
    // behind every store to the stacks.
    const int16_t* const rows = table_.data() + kRowsAt;
    const int16_t* const columnOfCode = rows - kRowsAt;
    const int16_t* const gotoColumn = rows - kRuleCount - 1;

    // The lookahead in locals; a grammar that keeps it process-wide gets a
    // copy of each token read.
    int column = 0;  // its terminal's column in a row; 0 while none is held
    Value tokenValue{};
    Location tokenLocation = InitialLocation(Location{});
    if constexpr (G.sharedLookahead != nullptr) *G.sharedLookahead = {column, tokenValue, tokenLocation};

    Stacks stacks;
    Frame frame{stacks.entries, 0, context};
    int lastEntry = stacks.capacity - 1;
    int state = 0;  // the offset of its row
    frame.entries[0].state = 0;
    frame.entries[0].location = StackLocation(tokenLocation);

    Value value;
    StackLocation location;
    for (;;) {
        int action = rows[state + column];
        if (action == kReadToken) {
            // As lalr::ParseTables::Terminal: 0 or below ends the input, an unknown code matches nothing.
            const int32_t code = G.nextToken(&tokenValue, &tokenLocation, context);
            column = code <= 0 ? 1 + lalr::kEndTerminal : code < kCodeCount ? columnOfCode[code] : 1 + lalr::kUndefinedTerminal;
            if constexpr (G.sharedLookahead != nullptr) *G.sharedLookahead = {column, tokenValue, tokenLocation};
            action = rows[state + column];
        }

        if (action > 0) {
            if (action == lalr::kAcceptAction) return kParseAccepted;
            state = action;
            Entry& pushed = frame.entries[++frame.top];
            pushed.state = static_cast<int16_t>(state);
            pushed.value = tokenValue;
            pushed.location = StackLocation(tokenLocation);
            column = 0;
        } else if (action == lalr::kErrorAction) {
            G.recordError(context, tokenLocation);
            return kParseSyntaxError;
        } else {
            const int length = ReduceDispatch(-action, frame, value, location, std::make_index_sequence<kRuleCount>{});
            if (length < 0) return kParseSyntaxError;
            frame.top -= length;
            state = rows[frame.entries[frame.top].state + gotoColumn[-action]];
            Entry& pushed = frame.entries[++frame.top];
            pushed.state = static_cast<int16_t>(state);
            pushed.value = value;
            pushed.location = location;
        }
        if (frame.top == lastEntry) {
            if (!stacks.Grow()) {
                G.recordError(context, tokenLocation);
                return kParseExhausted;
            }
            frame.entries = stacks.entries;
            lastEntry = stacks.capacity - 1;
        }
    }
}

}  // namespace vrn
