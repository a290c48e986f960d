// The parser driver shared by the three grammars: an LR machine over tables
// that percstr/lalr.h builds once per grammar, with three parallel stacks
// (states, values, locations) of 200 entries in its own frame that grow by
// doubling, in one block, up to 10000. No error recovery: the first syntax
// error ends the parse.
//
// A grammar is a Grammar record: its tokens, precedence levels and a table
// of rules, each a production with its action beside it:
//
//     {"expr: expr '+' expr", [](Reduce& r) { r.value = r[1] + r[3]; }},
//
// r[i] is the value of the i-th right-side symbol, r.At(i) its location,
// r.value and r.location those of the left side (preset to the first
// symbol's value and the span of the right side), r.context the caller's
// record. r.Abort() ends the parse with result 1 once the action returns.
// A rule without an action keeps the preset value.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <type_traits>
#include <vector>

#include "percstr/lalr.h"
#include "percstr/scanner.h"

namespace vrn {

inline constexpr int32_t kParseAccepted = 0;
inline constexpr int32_t kParseSyntaxError = 1;
inline constexpr int32_t kParseExhausted = 2;

inline constexpr int kParserInitialDepth = 200;
inline constexpr int kParserMaxDepth = 10000;

// The location type of a grammar without locations.
struct NoLocation {};

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
class Parser;

template <class Value, class Location, class Context>
class Reduction {
public:
    Reduction(Context* context, Value* rhs, Location* rhsLocations, Value& value, Location& location)
        : context(context), value(value), location(location), rhs_(rhs), rhsLocations_(rhsLocations) {}

    [[nodiscard]] const Value& operator[](int i) const { return rhs_[i - 1]; }
    [[nodiscard]] const Location& At(int i) const { return rhsLocations_[i - 1]; }
    void Abort() { aborted_ = true; }
    [[nodiscard]] bool Aborted() const { return aborted_; }

    Context* context;
    Value& value;
    Location& location;

private:
    friend class Parser<Value, Location, Context>;

    // The driver keeps one record for the whole parse and points it at each
    // right side in turn.
    void Begin(Value* rhs, Location* rhsLocations) {
        rhs_ = rhs;
        rhsLocations_ = rhsLocations;
        aborted_ = false;
    }

    Value* rhs_;
    Location* rhsLocations_;
    bool aborted_ = false;
};

// The token that the parser holds between reading and shifting it.
template <class Value, class Location>
struct Lookahead {
    int32_t terminal;
    Value value;
    Location location;
};

template <class Value, class Location, class Context>
struct Grammar {
    using Reduce = Reduction<Value, Location, Context>;
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

template <class Value, class Location, class Context>
class Parser {
public:
    using GrammarType = Grammar<Value, Location, Context>;
    static_assert(std::is_trivially_copyable_v<Value> && std::is_trivially_copyable_v<Location>,
                  "stack entries are moved as bytes when the stacks grow");

    explicit Parser(const GrammarType& grammar)
        : grammar_(grammar), tables_(lalr::BuildParseTables(GrammarTextOf(grammar))) {
        BuildDriverTables();
    }

    // kParseAccepted, kParseSyntaxError (also for an aborting action) or kParseExhausted.
    [[nodiscard]] int32_t Parse(Context* context) const;

    [[nodiscard]] const lalr::ParseTables& Tables() const { return tables_; }

private:
    static lalr::GrammarText GrammarTextOf(const GrammarType& grammar) {
        lalr::GrammarText text{grammar.tokens, grammar.precedence, {}};
        for (const auto& rule : grammar.rules) text.productions.push_back(rule.production);
        return text;
    }

    // What a reduction needs of its production, in one place.
    struct RuleStep {
        void (*action)(typename GrammarType::Reduce& r);
        uint16_t lhs;
        uint8_t length;
    };

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
        ruleSteps_.resize(tables_.ruleLhs.size());
        for (size_t rule = 1; rule < ruleSteps_.size() && rule <= grammar_.rules.size(); ++rule) {
            ruleSteps_[rule] = RuleStep{grammar_.rules[rule - 1].action, tables_.ruleLhs[rule], tables_.ruleLength[rule]};
        }
    }

    class Stacks;

    const GrammarType& grammar_;
    lalr::ParseTables tables_;
    std::vector<int16_t> resolvedAction_;
    std::vector<int16_t> immediateAction_;
    std::vector<RuleStep> ruleSteps_;  // per production, 0 unused
};

// The three stacks: first in the frame, then in one block of the heap.
template <class Value, class Location, class Context>
class Parser<Value, Location, Context>::Stacks {
public:
    Stacks() = default;
    Stacks(const Stacks&) = delete;
    Stacks& operator=(const Stacks&) = delete;
    ~Stacks() {
        if (block_ != nullptr) ParserMemory::release(block_);
    }

    int16_t* states = initialStates_;
    Value* values = initialValues_;
    Location* locations = initialLocations_;
    int capacity = kParserInitialDepth;

    // Called when the last entry of the capacity has been written: doubles
    // the capacity, up to kParserMaxDepth, in one new block. False when the
    // stacks are at the limit or the block can't be had.
    [[nodiscard]] bool Grow() {
        if (capacity >= kParserMaxDepth) return false;
        const int grown = capacity * 2 < kParserMaxDepth ? capacity * 2 : kParserMaxDepth;
        const size_t cap = static_cast<size_t>(grown);
        const size_t locationsAt = AlignUp(cap * sizeof(Value), alignof(Location));
        const size_t statesAt = AlignUp(locationsAt + cap * sizeof(Location), alignof(int16_t));
        auto* block = static_cast<unsigned char*>(ParserMemory::allocate(statesAt + cap * sizeof(int16_t)));
        if (block == nullptr) return false;
        const size_t used = static_cast<size_t>(capacity);
        auto* newValues = reinterpret_cast<Value*>(block);
        auto* newLocations = reinterpret_cast<Location*>(block + locationsAt);
        auto* newStates = reinterpret_cast<int16_t*>(block + statesAt);
        std::memcpy(static_cast<void*>(newValues), values, used * sizeof(Value));
        std::memcpy(static_cast<void*>(newLocations), locations, used * sizeof(Location));
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
    static_assert(alignof(Value) <= alignof(std::max_align_t) && alignof(Location) <= alignof(std::max_align_t));
    static size_t AlignUp(size_t offset, size_t alignment) { return (offset + alignment - 1) / alignment * alignment; }

    void* block_ = nullptr;
    int16_t initialStates_[kParserInitialDepth];
    Value initialValues_[kParserInitialDepth];
    Location initialLocations_[kParserInitialDepth];
};

template <class Value, class Location, class Context>
int32_t Parser<Value, Location, Context>::Parse(Context* context) const {
    constexpr int32_t kNoLookahead = -1;
    if (tables_.stateCount == 0) return kParseSyntaxError;  // a grammar that didn't build

    // The tables as plain arrays: the token requests and actions are calls
    // the compiler can't see through, and the vectors would be read anew after each.
    const int16_t* const actions = resolvedAction_.data();
    const int16_t* const immediate = immediateAction_.data();
    const int16_t* const gotos = tables_.gotoState.data();
    const RuleStep* const steps = ruleSteps_.data();
    const size_t terminalCount = static_cast<size_t>(tables_.terminalCount);
    const size_t nonterminalCount = static_cast<size_t>(tables_.nonterminalCount);
    const auto nextToken = grammar_.nextToken;

    Lookahead<Value, Location> local;
    Lookahead<Value, Location>& lookahead = grammar_.sharedLookahead ? *grammar_.sharedLookahead : local;
    lookahead.terminal = kNoLookahead;
    lookahead.value = Value{};
    lookahead.location = InitialLocation(Location{});

    // The stacks' arrays in locals, which no call can change behind our back.
    Stacks stacks;
    int16_t* states = stacks.states;
    Value* values = stacks.values;
    Location* locations = stacks.locations;
    int lastEntry = stacks.capacity - 1;
    int top = 0;
    int state = 0;
    states[0] = 0;
    values[0] = Value{};
    locations[0] = lookahead.location;

    // The left side of the reduction under way.
    Value value{};
    Location location = lookahead.location;
    typename GrammarType::Reduce reduce(context, values, locations, value, location);

    for (;;) {
        int action = immediate[state];
        if (action == 0) {
            if (lookahead.terminal == kNoLookahead) {
                lookahead.terminal = tables_.Terminal(nextToken(&lookahead.value, &lookahead.location, context));
            }
            action = actions[static_cast<size_t>(state) * terminalCount + static_cast<size_t>(lookahead.terminal)];
        }

        if (action > 0) {
            if (action == lalr::kAcceptAction) return kParseAccepted;
            state = action;
            ++top;
            states[top] = static_cast<int16_t>(state);
            values[top] = lookahead.value;
            locations[top] = lookahead.location;
            lookahead.terminal = kNoLookahead;
        } else if (action == lalr::kErrorAction) {
            grammar_.recordError(context, lookahead.location);
            return kParseSyntaxError;
        } else {
            const RuleStep& step = steps[-action];
            const int length = step.length;
            const int first = top - length + 1;
            value = length > 0 ? values[first] : Value{};
            location = length > 0 ? SpanLocation(locations[first], locations[top]) : EmptyLocationAfter(locations[top]);
            if (const auto run = step.action) {
                reduce.Begin(values + first, locations + first);
                run(reduce);
                if (reduce.Aborted()) return kParseSyntaxError;
            }
            top -= length;
            state = gotos[static_cast<size_t>(states[top]) * nonterminalCount + step.lhs];
            ++top;
            states[top] = static_cast<int16_t>(state);
            values[top] = value;
            locations[top] = location;
        }
        if (top == lastEntry) {
            if (!stacks.Grow()) {
                grammar_.recordError(context, lookahead.location);
                return kParseExhausted;
            }
            states = stacks.states;
            values = stacks.values;
            locations = stacks.locations;
            lastEntry = stacks.capacity - 1;
        }
    }
}

}  // namespace vrn
