// The parser driver shared by the three grammars: an LR machine over tables
// that percstr/lalr.h builds once per grammar, with three parallel stacks
// (states, values, locations) of 200 entries in its own frame that grow by
// doubling, in one block, up to 10000. No error recovery: the first syntax
// error ends the parse.
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

#include "percstr/build_once.h"
#include "percstr/lalr.h"
#include "percstr/scanner.h"

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

template <class Value, class Location, class Context>
class Reduction {
public:
    Reduction(Context* context, const Value* rhs, const Location* rhsLocations, Value& value, Location& location)
        : context(context), value(value), location(location), rhs_(rhs), rhsLocations_(rhsLocations) {}

    [[nodiscard]] const Value& operator[](int i) const { return rhs_[i - 1]; }
    [[nodiscard]] const Location& At(int i) const { return rhsLocations_[i - 1]; }
    void Abort() { aborted_ = true; }
    [[nodiscard]] bool Aborted() const { return aborted_; }

    Context* context;
    Value& value;
    Location& location;

private:
    const Value* rhs_;
    const Location* rhsLocations_;
    bool aborted_ = false;
};

// The token that the parser holds between reading and shifting it.
template <class Value, class Location>
struct Lookahead {
    int32_t terminal;
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
    static_assert(std::is_trivially_copyable_v<Value> && std::is_trivially_copyable_v<StackLocation>,
                  "stack entries are moved as bytes when the stacks grow");

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

    // The driver's own forms of the tables: the action table with each
    // state's default written into its empty entries, and per state the
    // reduction it takes without reading a token (0: it reads one).
    void BuildDriverTables() {
        const size_t terminals = static_cast<size_t>(tables_.terminalCount);
        resolvedAction_.resize(static_cast<size_t>(tables_.stateCount) * terminals);
        immediateAction_.assign(static_cast<size_t>(tables_.stateCount), 0);
        for (int state = 0; state < tables_.stateCount; ++state) {
            for (int terminal = 0; terminal < tables_.terminalCount; ++terminal) {
                resolvedAction_[static_cast<size_t>(state) * terminals + static_cast<size_t>(terminal)] =
                    tables_.Action(state, terminal);
            }
            const size_t at = static_cast<size_t>(state);
            if (!tables_.needsLookahead[at] && tables_.defaultRule[at] != 0) {
                immediateAction_[at] = static_cast<int16_t>(-tables_.defaultRule[at]);
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
    std::vector<int16_t> resolvedAction_;
    std::vector<int16_t> immediateAction_;
};

// The three stacks: first in the frame, then in one block of the heap.
template <const auto& G>
class Parser<G>::Stacks {
public:
    Stacks() = default;
    Stacks(const Stacks&) = delete;
    Stacks& operator=(const Stacks&) = delete;
    ~Stacks() {
        if (block_ != nullptr) ParserMemory::release(block_);
    }

    int16_t* states = initialStates_;
    Value* values = initialValues_;
    StackLocation* locations = initialLocations_;
    int capacity = kParserInitialDepth;

    // Called when the last entry of the capacity has been written: doubles
    // the capacity, up to kParserMaxDepth, in one new block. False when the
    // stacks are at the limit or the block can't be had.
    [[nodiscard]] bool Grow() {
        if (capacity >= kParserMaxDepth) return false;
        const int grown = capacity * 2 < kParserMaxDepth ? capacity * 2 : kParserMaxDepth;
        const size_t cap = static_cast<size_t>(grown);
        const size_t locationsAt = AlignUp(cap * sizeof(Value), alignof(StackLocation));
        const size_t statesAt = AlignUp(locationsAt + cap * sizeof(StackLocation), alignof(int16_t));
        auto* block = static_cast<unsigned char*>(ParserMemory::allocate(statesAt + cap * sizeof(int16_t)));
        if (block == nullptr) return false;
        const size_t used = static_cast<size_t>(capacity);
        auto* newValues = reinterpret_cast<Value*>(block);
        auto* newLocations = reinterpret_cast<StackLocation*>(block + locationsAt);
        auto* newStates = reinterpret_cast<int16_t*>(block + statesAt);
        std::memcpy(static_cast<void*>(newValues), values, used * sizeof(Value));
        std::memcpy(static_cast<void*>(newLocations), locations, used * sizeof(StackLocation));
        std::memcpy(newStates, states, used * sizeof(int16_t));
        if (block_ != nullptr) ParserMemory::release(block_);
        block_ = block;
        values = newValues;
        locations = newLocations;
        states = newStates;
        capacity = grown;
        return true;
    }

private:
    static_assert(alignof(Value) <= alignof(std::max_align_t) && alignof(StackLocation) <= alignof(std::max_align_t));
    static size_t AlignUp(size_t offset, size_t alignment) { return (offset + alignment - 1) / alignment * alignment; }

    void* block_ = nullptr;
    int16_t initialStates_[kParserInitialDepth];
    Value initialValues_[kParserInitialDepth];
    StackLocation initialLocations_[kParserInitialDepth];
};

// What a reduction reads: the stacks' arrays, the top entry and the caller's record.
template <const auto& G>
struct Parser<G>::Frame {
    Value* values;
    StackLocation* locations;
    int top;
    Context* context;
};

// Rule I + 1: the left side's value and location from the right side's, and
// the action. The right side's length, or -1 when the action aborted.
template <const auto& G>
template <size_t I>
inline int Parser<G>::ReduceBy(Frame& frame, Value& value, StackLocation& location) {
    constexpr int length = RightSideLength(G.rules[I].production);
    const int first = frame.top - length + 1;
    if constexpr (length > 0) {
        value = frame.values[first];
        location = SpanLocation(frame.locations[first], frame.locations[frame.top]);
    } else {
        value = Value{};
        location = EmptyLocationAfter(frame.locations[frame.top]);
    }
    if constexpr (G.rules[I].action != nullptr) {
        Reduce reduce(frame.context, frame.values + first, frame.locations + first, value, location);
        G.rules[I].action(reduce);
        if (reduce.Aborted()) return -1;
    }
    return length;
}

// Runs the reduction by `rule` (1-based); its right side's length, or -1
// when the action aborted. The equality chain compiles to one jump table.
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
    constexpr int32_t kNoLookahead = -1;
    if (tables_.stateCount == 0) return kParseSyntaxError;  // a grammar that didn't build

    // The tables as plain arrays in locals: the vectors would be read anew
    // behind every store to the stacks.
    const int16_t* const actions = resolvedAction_.data();
    const int16_t* const immediate = immediateAction_.data();
    const int16_t* const gotos = tables_.gotoState.data();
    const uint16_t* const ruleLhs = tables_.ruleLhs.data();
    const int16_t* const translate = tables_.translate.data();
    const int32_t translated = static_cast<int32_t>(tables_.translate.size());
    const size_t terminalCount = static_cast<size_t>(tables_.terminalCount);
    const size_t nonterminalCount = static_cast<size_t>(tables_.nonterminalCount);

    Lookahead<Value, Location> local;
    constexpr bool kShared = G.sharedLookahead != nullptr;
    Lookahead<Value, Location>& lookahead = [&]() -> Lookahead<Value, Location>& {
        if constexpr (kShared) return *G.sharedLookahead;
        else return local;
    }();
    lookahead.terminal = kNoLookahead;
    lookahead.value = Value{};
    lookahead.location = InitialLocation(Location{});

    Stacks stacks;
    int16_t* states = stacks.states;
    Frame frame{stacks.values, stacks.locations, 0, context};
    int lastEntry = stacks.capacity - 1;
    int state = 0;
    states[0] = 0;
    frame.values[0] = Value{};
    frame.locations[0] = StackLocation(lookahead.location);

    Value value;
    StackLocation location;
    for (;;) {
        int action = immediate[state];
        if (action == 0) {
            if (lookahead.terminal == kNoLookahead) {
                // As lalr::ParseTables::Terminal: 0 or below ends the input, an unknown code matches nothing.
                const int32_t code = G.nextToken(&lookahead.value, &lookahead.location, context);
                lookahead.terminal = code <= 0          ? lalr::kEndTerminal
                                     : code < translated ? translate[code]
                                                         : lalr::kUndefinedTerminal;
            }
            action = actions[static_cast<size_t>(state) * terminalCount + static_cast<size_t>(lookahead.terminal)];
        }

        if (action > 0) {
            if (action == lalr::kAcceptAction) return kParseAccepted;
            state = action;
            ++frame.top;
            states[frame.top] = static_cast<int16_t>(state);
            frame.values[frame.top] = lookahead.value;
            frame.locations[frame.top] = StackLocation(lookahead.location);
            lookahead.terminal = kNoLookahead;
        } else if (action == lalr::kErrorAction) {
            G.recordError(context, lookahead.location);
            return kParseSyntaxError;
        } else {
            const int length = ReduceDispatch(-action, frame, value, location, std::make_index_sequence<kRuleCount>{});
            if (length < 0) return kParseSyntaxError;
            frame.top -= length;
            state = gotos[static_cast<size_t>(states[frame.top]) * nonterminalCount + ruleLhs[-action]];
            ++frame.top;
            states[frame.top] = static_cast<int16_t>(state);
            frame.values[frame.top] = value;
            frame.locations[frame.top] = location;
        }
        if (frame.top == lastEntry) {
            if (!stacks.Grow()) {
                G.recordError(context, lookahead.location);
                return kParseExhausted;
            }
            states = stacks.states;
            frame.values = stacks.values;
            frame.locations = stacks.locations;
            lastEntry = stacks.capacity - 1;
        }
    }
}

}  // namespace vrn
