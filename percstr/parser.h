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

    explicit Parser(const GrammarType& grammar) : grammar_(grammar), tables_(lalr::BuildParseTables(GrammarTextOf(grammar))) {}

    // kParseAccepted, kParseSyntaxError (also for an aborting action) or kParseExhausted.
    [[nodiscard]] int32_t Parse(Context* context) const;

    [[nodiscard]] const lalr::ParseTables& Tables() const { return tables_; }

private:
    static lalr::GrammarText GrammarTextOf(const GrammarType& grammar) {
        lalr::GrammarText text{grammar.tokens, grammar.precedence, {}};
        for (const auto& rule : grammar.rules) text.productions.push_back(rule.production);
        return text;
    }

    class Stacks;

    const GrammarType& grammar_;
    lalr::ParseTables tables_;
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

    // Called when the entry at top has been written: false when the stacks
    // are full and can't grow.
    [[nodiscard]] bool Room(int top) {
        if (top < capacity_ - 1) return true;
        if (capacity_ >= kParserMaxDepth) return false;
        const int capacity = capacity_ * 2 < kParserMaxDepth ? capacity_ * 2 : kParserMaxDepth;
        const size_t cap = static_cast<size_t>(capacity);
        const size_t locationsAt = AlignUp(cap * sizeof(Value), alignof(Location));
        const size_t statesAt = AlignUp(locationsAt + cap * sizeof(Location), alignof(int16_t));
        auto* block = static_cast<unsigned char*>(ParserMemory::allocate(statesAt + cap * sizeof(int16_t)));
        if (block == nullptr) return false;
        const size_t used = static_cast<size_t>(top) + 1;
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
        capacity_ = capacity;
        return true;
    }

private:
    static_assert(alignof(Value) <= alignof(std::max_align_t) && alignof(Location) <= alignof(std::max_align_t));
    static size_t AlignUp(size_t offset, size_t alignment) { return (offset + alignment - 1) / alignment * alignment; }

    int capacity_ = kParserInitialDepth;
    void* block_ = nullptr;
    int16_t initialStates_[kParserInitialDepth];
    Value initialValues_[kParserInitialDepth];
    Location initialLocations_[kParserInitialDepth];
};

template <class Value, class Location, class Context>
int32_t Parser<Value, Location, Context>::Parse(Context* context) const {
    constexpr int32_t kNoLookahead = -1;
    const lalr::ParseTables& tables = tables_;
    if (tables.stateCount == 0) return kParseSyntaxError;  // a grammar that didn't build

    Lookahead<Value, Location> local;
    Lookahead<Value, Location>& lookahead = grammar_.sharedLookahead ? *grammar_.sharedLookahead : local;
    lookahead.terminal = kNoLookahead;
    lookahead.value = Value{};
    lookahead.location = InitialLocation(Location{});

    Stacks stacks;
    int top = 0;
    int state = 0;
    stacks.states[0] = 0;
    stacks.values[0] = Value{};
    stacks.locations[0] = lookahead.location;

    for (;;) {
        int16_t action;
        if (!tables.needsLookahead[static_cast<size_t>(state)]) {
            action = static_cast<int16_t>(-tables.defaultRule[static_cast<size_t>(state)]);
        } else {
            if (lookahead.terminal == kNoLookahead) {
                const int32_t code = grammar_.nextToken(&lookahead.value, &lookahead.location, context);
                lookahead.terminal = tables.Terminal(code);
            }
            action = tables.Action(state, lookahead.terminal);
        }

        if (action == lalr::kAcceptAction) return kParseAccepted;
        if (action == lalr::kErrorAction) {
            grammar_.recordError(context, lookahead.location);
            return kParseSyntaxError;
        }
        if (action > 0) {
            state = action;
            ++top;
            stacks.states[top] = static_cast<int16_t>(state);
            stacks.values[top] = lookahead.value;
            stacks.locations[top] = lookahead.location;
            lookahead.terminal = kNoLookahead;
        } else {
            const size_t rule = static_cast<size_t>(-action);
            const int length = tables.ruleLength[rule];
            const int first = top - length + 1;
            Value value = length > 0 ? stacks.values[first] : Value{};
            Location location = length > 0 ? SpanLocation(stacks.locations[first], stacks.locations[top])
                                           : EmptyLocationAfter(stacks.locations[top]);
            bool aborted = false;
            if (const auto run = grammar_.rules[rule - 1].action) {
                typename GrammarType::Reduce reduce(context, stacks.values + first, stacks.locations + first, value, location);
                run(reduce);
                aborted = reduce.Aborted();
            }
            top -= length;
            if (aborted) return kParseSyntaxError;
            state = tables.Goto(stacks.states[top], tables.ruleLhs[rule]);
            ++top;
            stacks.states[top] = static_cast<int16_t>(state);
            stacks.values[top] = value;
            stacks.locations[top] = location;
        }
        if (!stacks.Room(top)) {
            grammar_.recordError(context, lookahead.location);
            return kParseExhausted;
        }
    }
}

}  // namespace vrn
