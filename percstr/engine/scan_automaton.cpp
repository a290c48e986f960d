// Builds a scanner's automaton from its rule table: each pattern becomes a
// small nondeterministic machine, and the subset construction over their
// union gives one deterministic table over classes of equivalent bytes.
#include <algorithm>
#include <bitset>
#include <cctype>
#include <limits>
#include <map>

#include "percstr/engine/scanner.h"

namespace vrn {

namespace {

using ByteSet = std::bitset<256>;
constexpr int kUnbounded = -1;

struct NfaState {
    ByteSet on;       // bytes that lead to target
    int target = -1;  // -1: no byte transition
    std::vector<int> epsilon;
    uint16_t rule = 0;  // 1-based rule accepted here
};

struct Piece {
    ByteSet bytes;
    int min = 1;
    int max = 1;  // kUnbounded for * and +
};

// Reads one pattern into its pieces; records what it can't read.
class PatternReader {
public:
    PatternReader(const ScanRule& rule, std::vector<std::string>& problems)
        : text_(rule.pattern ? rule.pattern : ""), ignoreCase_(rule.ignoreCase), problems_(problems) {}

    std::vector<Piece> Read() {
        std::vector<Piece> pieces;
        while (text_[at_] != 0 && ok_) {
            Piece piece{Atom()};
            ReadQuantifier(piece);
            if (ignoreCase_) FoldCase(piece.bytes);
            pieces.push_back(piece);
        }
        if (pieces.empty() && ok_) Fail("empty pattern");
        return ok_ ? pieces : std::vector<Piece>{};
    }

private:
    void Fail(const char* what) {
        if (ok_) problems_.push_back(std::string(what) + " in pattern \"" + text_ + "\"");
        ok_ = false;
    }

    static void FoldCase(ByteSet& bytes) {
        for (int c = 'A'; c <= 'Z'; ++c) {
            if (bytes[c] || bytes[c + 32]) bytes.set(c).set(c + 32);
        }
    }

    static int HexValue(char c) {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    }

    // One byte, escapes resolved.
    int Byte() {
        char c = text_[at_++];
        if (c != '\\') return static_cast<unsigned char>(c);
        c = text_[at_++];
        switch (c) {
            case 't': return '\t';
            case 'r': return '\r';
            case 'n': return '\n';
            case '0': return 0;
            case 'x': {
                const int high = HexValue(text_[at_]);
                const int low = high < 0 ? -1 : HexValue(text_[at_ + 1]);
                if (low < 0) {
                    Fail("bad \\x escape");
                    return 0;
                }
                at_ += 2;
                return high * 16 + low;
            }
            case 0:
                --at_;
                Fail("pattern ends in \\");
                return 0;
            default: return static_cast<unsigned char>(c);
        }
    }

    ByteSet Atom() {
        ByteSet bytes;
        if (text_[at_] == '.') {
            ++at_;
            return bytes.set();
        }
        if (text_[at_] != '[') return bytes.set(static_cast<size_t>(Byte()));
        ++at_;
        const bool negate = text_[at_] == '^';
        if (negate) ++at_;
        while (ok_ && text_[at_] != ']') {
            if (text_[at_] == 0) {
                Fail("unclosed [");
                break;
            }
            const int first = Byte();
            int last = first;
            if (text_[at_] == '-' && text_[at_ + 1] != ']' && text_[at_ + 1] != 0) {
                ++at_;
                last = Byte();
            }
            if (last < first) Fail("reversed range");
            for (int c = first; c <= last; ++c) bytes.set(static_cast<size_t>(c));
        }
        ++at_;
        if (negate) bytes.flip();
        return bytes;
    }

    int Number() {
        if (!std::isdigit(static_cast<unsigned char>(text_[at_]))) {
            Fail("bad count");
            return 0;
        }
        int value = 0;
        while (std::isdigit(static_cast<unsigned char>(text_[at_]))) value = value * 10 + (text_[at_++] - '0');
        return value;
    }

    void ReadQuantifier(Piece& piece) {
        switch (text_[at_]) {
            case '?': ++at_; piece.min = 0; piece.max = 1; return;
            case '*': ++at_; piece.min = 0; piece.max = kUnbounded; return;
            case '+': ++at_; piece.min = 1; piece.max = kUnbounded; return;
            case '{': break;
            default: return;
        }
        ++at_;
        piece.min = piece.max = Number();
        if (text_[at_] == ',') {
            ++at_;
            piece.max = text_[at_] == '}' ? kUnbounded : Number();
        }
        if (text_[at_] != '}') Fail("unclosed {");
        else ++at_;
        if (piece.max != kUnbounded && piece.max < piece.min) Fail("count range reversed");
    }

    std::string text_;
    bool ignoreCase_;
    std::vector<std::string>& problems_;
    size_t at_ = 0;
    bool ok_ = true;
};

class Nfa {
public:
    Nfa() { states_.emplace_back(); }  // 0: the start of every rule

    void AddRule(const std::vector<Piece>& pieces, uint16_t rule) {
        int current = NewState();
        states_[0].epsilon.push_back(current);
        for (const Piece& piece : pieces) current = AddPiece(current, piece);
        states_[current].rule = rule;
    }

    const std::vector<NfaState>& States() const { return states_; }

private:
    int NewState() {
        states_.emplace_back();
        return static_cast<int>(states_.size()) - 1;
    }

    void Step(int from, const ByteSet& bytes, int to) {
        states_[from].on = bytes;
        states_[from].target = to;
    }

    // Each state gets at most one byte transition, so every copy of a piece
    // starts in a fresh state.
    int AddPiece(int current, const Piece& piece) {
        for (int i = 0; i < piece.min; ++i) {
            const int next = NewState();
            Step(current, piece.bytes, next);
            current = next;
        }
        if (piece.max == kUnbounded) {
            const int loop = NewState();
            const int after = NewState();
            Step(loop, piece.bytes, loop);
            states_[loop].epsilon.push_back(after);
            states_[current].epsilon.push_back(loop);
            return after;
        }
        std::vector<int> mayStop;
        for (int i = piece.min; i < piece.max; ++i) {
            const int next = NewState();
            Step(current, piece.bytes, next);
            mayStop.push_back(current);
            current = next;
        }
        for (int state : mayStop) states_[state].epsilon.push_back(current);
        return current;
    }

    std::vector<NfaState> states_;
};

using StateSet = std::vector<int>;  // sorted

StateSet Closure(const std::vector<NfaState>& nfa, StateSet set) {
    std::vector<bool> seen(nfa.size());
    for (int s : set) seen[s] = true;
    for (size_t i = 0; i < set.size(); ++i) {
        for (int t : nfa[set[i]].epsilon) {
            if (!seen[t]) {
                seen[t] = true;
                set.push_back(t);
            }
        }
    }
    std::sort(set.begin(), set.end());
    return set;
}

}  // namespace

void ScanAutomaton::Build(std::span<const ScanRule> rules) {
    Nfa nfa;
    for (size_t i = 0; i < rules.size(); ++i) {
        const std::vector<Piece> pieces = PatternReader(rules[i], problems_).Read();
        if (!pieces.empty()) nfa.AddRule(pieces, static_cast<uint16_t>(i + 1));
    }
    const std::vector<NfaState>& states = nfa.States();

    // Bytes that every transition treats alike share one class.
    std::map<std::vector<bool>, uint8_t> classes;
    uint8_t representative[256] = {};
    for (int byte = 0; byte < 256; ++byte) {
        std::vector<bool> signature;
        for (const NfaState& state : states) {
            if (state.target >= 0) signature.push_back(state.on[byte]);
        }
        auto [it, added] = classes.try_emplace(signature, static_cast<uint8_t>(classes.size()));
        if (added) representative[it->second] = static_cast<uint8_t>(byte);
        classOf_[byte] = it->second;
    }
    const size_t classCount = classes.size();

    std::map<StateSet, uint16_t> ids;
    std::vector<StateSet> sets;
    auto idOf = [&](StateSet set) -> uint16_t {
        auto [it, added] = ids.try_emplace(set, static_cast<uint16_t>(sets.size()));
        if (added) sets.push_back(std::move(set));
        return it->second;
    };
    idOf({});                    // kDead
    idOf(Closure(states, {0}));  // kStart

    std::vector<uint16_t> next;  // per state, per class
    std::vector<uint16_t> acceptedRule;  // per state
    for (size_t current = 0; current < sets.size(); ++current) {
        if (sets.size() >= std::numeric_limits<uint16_t>::max()) {
            problems_.push_back("automaton too large");
            return;
        }
        uint16_t rule = 0;
        for (int s : sets[current]) {
            if (states[s].rule != 0 && (rule == 0 || states[s].rule < rule)) rule = states[s].rule;
        }
        acceptedRule.push_back(rule);
        for (size_t c = 0; c < classCount; ++c) {
            StateSet moved;
            for (int s : sets[current]) {
                if (states[s].target >= 0 && states[s].on[representative[c]]) moved.push_back(states[s].target);
            }
            std::sort(moved.begin(), moved.end());
            moved.erase(std::unique(moved.begin(), moved.end()), moved.end());
            next.push_back(moved.empty() ? uint16_t{0} : idOf(Closure(states, std::move(moved))));
        }
    }
    LayOutRows(next, acceptedRule, classCount);
}

// The matching loop's form: a row per state, known by its offset, with the
// offset of the next state per class and the state's rule in its last column.
// The accepting states come last, so that one comparison tells them.
void ScanAutomaton::LayOutRows(const std::vector<uint16_t>& next, const std::vector<uint16_t>& rules,
                               size_t classCount) {
    constexpr size_t kStartState = 1;
    const size_t count = rules.size();
    size_t width = 1;
    while (width < classCount + 1) width *= 2;
    if (count * width > std::numeric_limits<uint16_t>::max()) {
        problems_.push_back("automaton too large");
        return;
    }

    std::vector<size_t> order(count);  // new number of each state: dead, start, the others, the accepting
    size_t numbered = 0;
    order[0] = numbered++;
    if (count > kStartState) order[kStartState] = numbered++;
    for (bool accepting : {false, true}) {
        if (accepting) firstAccepting_ = static_cast<uint32_t>(numbered * width);
        for (size_t state = kStartState + 1; state < count; ++state) {
            if ((rules[state] != 0) == accepting) order[state] = numbered++;
        }
    }

    rows_.assign(count * width, 0);
    for (size_t state = 0; state < count; ++state) {
        uint16_t* row = &rows_[order[state] * width];
        for (size_t c = 0; c < classCount; ++c) row[c] = static_cast<uint16_t>(order[next[state * classCount + c]] * width);
        row[width - 1] = rules[state];
    }
    ruleColumn_ = static_cast<uint32_t>(width - 1);
    start_ = static_cast<uint32_t>(count > kStartState ? width : 0);
}

}  // namespace vrn
