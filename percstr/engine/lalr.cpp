#include "percstr/engine/lalr.h"

#include <algorithm>
#include <bitset>
#include <cctype>
#include <map>
#include <optional>
#include <sstream>

namespace vrn::lalr {

namespace {

constexpr size_t kMaxTerminals = 256;
using TerminalSet = std::bitset<kMaxTerminals>;

struct Precedence {
    int level = 0;  // 0: none; higher binds tighter
    Assoc assoc = Assoc::Left;
};

struct Rule {
    int lhs = 0;             // nonterminal
    std::vector<int> rhs;    // symbols: terminals below terminalCount, then nonterminals
    Precedence precedence;
};

struct Item {
    int rule;
    int dot;
    auto operator<=>(const Item&) const = default;
};

struct State {
    std::vector<Item> kernel;  // sorted
    std::vector<TerminalSet> lookahead;  // per kernel item
    std::map<int, int> transitions;      // symbol -> state
};

struct ClosureItem {
    Item item;
    TerminalSet lookahead;
};

class Builder {
public:
    explicit Builder(const GrammarText& grammar) : grammar_(grammar) {}

    ParseTables Build() {
        ReadGrammar();
        if (!tables_.problems.empty()) return std::move(tables_);
        ComputeFirstSets();
        BuildStates();
        ComputeLookaheads();
        FillTables();
        return std::move(tables_);
    }

private:
    // ---- Reading the description.

    struct ProductionText {
        std::string lhs;
        std::vector<std::string> rhs;
        std::string precedenceName;
    };

    void Problem(const std::string& text) { tables_.problems.push_back(text); }

    static std::vector<std::string> Words(const std::string& text) {
        std::istringstream in(text);
        std::vector<std::string> words;
        for (std::string word; in >> word;) words.push_back(word);
        return words;
    }

    static bool IsCharLiteral(const std::string& word) {
        return word.size() >= 3 && word.front() == '\'' && word.back() == '\'';
    }

    std::optional<int32_t> CharCode(const std::string& word) {
        if (word.size() == 3) return static_cast<unsigned char>(word[1]);
        if (word.size() == 4 && word[1] == '\\') {
            switch (word[2]) {
                case 't': return '\t';
                case 'n': return '\n';
                case 'r': return '\r';
                default: return static_cast<unsigned char>(word[2]);
            }
        }
        Problem("bad character literal " + word);
        return std::nullopt;
    }

    int AddTerminal(const std::string& name, int32_t code) {
        auto found = terminalByName_.find(name);
        if (found != terminalByName_.end()) return found->second;
        const int terminal = static_cast<int>(terminalNames_.size());
        terminalNames_.push_back(name);
        terminalByName_[name] = terminal;
        if (code > 0) {
            if (static_cast<size_t>(code) >= tables_.translate.size()) {
                tables_.translate.resize(static_cast<size_t>(code) + 1, kUndefinedTerminal);
            }
            tables_.translate[static_cast<size_t>(code)] = static_cast<int16_t>(terminal);
        }
        return terminal;
    }

    // A terminal for a word of a production or precedence list, or -1.
    int TerminalOf(const std::string& word) {
        if (IsCharLiteral(word)) {
            const std::optional<int32_t> code = CharCode(word);
            return code ? AddTerminal(word, *code) : -1;
        }
        auto found = terminalByName_.find(word);
        return found == terminalByName_.end() ? -1 : found->second;
    }

    // The grammar's text into numbered terminals, nonterminals and rules; what
    // doesn't read is a problem, and the rest is read on.
    void ReadGrammar() {
        ReadTokens();
        const std::vector<ProductionText> texts = ReadProductions();
        if (texts.empty()) {
            Problem("no productions");
            return;
        }
        ReadPrecedence();
        NumberTerminals(texts);
        BuildRules(texts);
    }

    void ReadTokens() {
        AddTerminal("$end", 0);
        AddTerminal("$undefined", 0);
        for (const TokenName& token : grammar_.tokens) {
            if (token.code <= 0) Problem(std::string("token ") + token.name + " needs a code above 0");
            AddTerminal(token.name, token.code);
        }
    }

    // Each production as words, its left side numbered as a nonterminal.
    std::vector<ProductionText> ReadProductions() {
        std::vector<ProductionText> texts;
        nonterminalNames_.push_back("$accept");
        for (const char* production : grammar_.productions) {
            const std::string text = production ? production : "";
            const size_t colon = text.find(':');
            ProductionText parsed;
            const std::vector<std::string> left = Words(text.substr(0, colon));
            if (colon == std::string::npos || left.size() != 1) {
                Problem("production without a single left side: " + text);
                continue;
            }
            parsed.lhs = left[0];
            std::vector<std::string> right = Words(text.substr(colon + 1));
            for (size_t i = 0; i < right.size(); ++i) {
                if (right[i] == "%prec") {
                    if (i + 2 != right.size()) Problem("%prec needs one name at the end: " + text);
                    else parsed.precedenceName = right[i + 1];
                    break;
                }
                parsed.rhs.push_back(right[i]);
            }
            if (!nonterminalByName_.contains(parsed.lhs)) {
                if (terminalByName_.contains(parsed.lhs)) Problem("token on a left side: " + text);
                nonterminalByName_[parsed.lhs] = static_cast<int>(nonterminalNames_.size());
                nonterminalNames_.push_back(parsed.lhs);
            }
            texts.push_back(std::move(parsed));
        }
        return texts;
    }

    void ReadPrecedence() {
        int level = 0;
        for (const PrecedenceLevel& precedence : grammar_.precedence) {
            ++level;
            for (const std::string& word : Words(precedence.symbols ? precedence.symbols : "")) {
                if (IsCharLiteral(word)) TerminalOf(word);
                precedenceOf_[word] = Precedence{level, precedence.assoc};
            }
        }
    }

    // Terminals first: every char literal of the productions needs its number
    // before the nonterminals are numbered behind them.
    void NumberTerminals(const std::vector<ProductionText>& texts) {
        for (const ProductionText& text : texts) {
            for (const std::string& word : text.rhs) {
                if (!nonterminalByName_.contains(word) && TerminalOf(word) < 0) {
                    Problem("unknown symbol " + word + " in production of " + text.lhs);
                }
            }
        }
        terminalCount_ = static_cast<int>(terminalNames_.size());
        if (static_cast<size_t>(terminalCount_) > kMaxTerminals) Problem("too many terminals");
    }

    // The rules in symbol numbers, each with its precedence: its last
    // terminal's, or the %prec level's.
    void BuildRules(const std::vector<ProductionText>& texts) {
        const int start = SymbolOf(texts.front().lhs);
        rules_.push_back(Rule{0, {start, kEndTerminal}, {}});
        for (const ProductionText& text : texts) {
            Rule rule;
            rule.lhs = nonterminalByName_[text.lhs];
            for (const std::string& word : text.rhs) {
                const int symbol = SymbolOf(word);
                rule.rhs.push_back(symbol);
                if (symbol < terminalCount_) {
                    auto found = precedenceOf_.find(word);
                    if (found != precedenceOf_.end()) rule.precedence = found->second;
                }
            }
            if (!text.precedenceName.empty()) {
                auto found = precedenceOf_.find(text.precedenceName);
                if (found == precedenceOf_.end()) Problem("%prec of an unknown level: " + text.precedenceName);
                else rule.precedence = found->second;
            }
            if (rule.rhs.size() > 255) Problem("production too long");
            rules_.push_back(std::move(rule));
        }
        nonterminalCount_ = static_cast<int>(nonterminalNames_.size());
        rulesOf_.resize(static_cast<size_t>(nonterminalCount_));
        for (size_t r = 1; r < rules_.size(); ++r) rulesOf_[static_cast<size_t>(rules_[r].lhs)].push_back(static_cast<int>(r));
        for (int n = 1; n < nonterminalCount_; ++n) {
            if (rulesOf_[static_cast<size_t>(n)].empty()) Problem("nonterminal without productions: " + nonterminalNames_[static_cast<size_t>(n)]);
        }
    }

    int SymbolOf(const std::string& word) {
        auto nonterminal = nonterminalByName_.find(word);
        if (nonterminal != nonterminalByName_.end()) return terminalCount_ + nonterminal->second;
        const int terminal = TerminalOf(word);
        return terminal < 0 ? kUndefinedTerminal : terminal;
    }

    bool IsNonterminal(int symbol) const { return symbol >= terminalCount_; }
    std::string SymbolName(int symbol) const {
        return IsNonterminal(symbol) ? nonterminalNames_[static_cast<size_t>(symbol - terminalCount_)]
                                     : terminalNames_[static_cast<size_t>(symbol)];
    }

    // ---- First sets.

    void ComputeFirstSets() {
        first_.assign(static_cast<size_t>(nonterminalCount_), {});
        nullable_.assign(static_cast<size_t>(nonterminalCount_), false);
        for (bool changed = true; changed;) {
            changed = false;
            for (const Rule& rule : rules_) {
                TerminalSet first;
                const bool nullable = FirstOf(rule.rhs, 0, first);
                const size_t lhs = static_cast<size_t>(rule.lhs);
                if ((first_[lhs] | first) != first_[lhs]) {
                    first_[lhs] |= first;
                    changed = true;
                }
                if (nullable && !nullable_[lhs]) {
                    nullable_[lhs] = true;
                    changed = true;
                }
            }
        }
    }

    // Adds FIRST of symbols[from..] to first; true when they can derive nothing.
    bool FirstOf(const std::vector<int>& symbols, size_t from, TerminalSet& first) const {
        for (size_t i = from; i < symbols.size(); ++i) {
            const int symbol = symbols[i];
            if (!IsNonterminal(symbol)) {
                first.set(static_cast<size_t>(symbol));
                return false;
            }
            const size_t n = static_cast<size_t>(symbol - terminalCount_);
            first |= first_[n];
            if (!nullable_[n]) return false;
        }
        return true;
    }

    // ---- The LR(0) automaton.

    std::vector<Item> Closure0(const std::vector<Item>& kernel) const {
        std::vector<Item> items = kernel;
        std::vector<bool> added(static_cast<size_t>(nonterminalCount_));
        for (size_t i = 0; i < items.size(); ++i) {
            const Rule& rule = rules_[static_cast<size_t>(items[i].rule)];
            if (items[i].dot >= static_cast<int>(rule.rhs.size())) continue;
            const int symbol = rule.rhs[static_cast<size_t>(items[i].dot)];
            if (!IsNonterminal(symbol) || added[static_cast<size_t>(symbol - terminalCount_)]) continue;
            added[static_cast<size_t>(symbol - terminalCount_)] = true;
            for (int r : rulesOf_[static_cast<size_t>(symbol - terminalCount_)]) items.push_back(Item{r, 0});
        }
        return items;
    }

    void BuildStates() {
        std::map<std::vector<Item>, int> ids;
        states_.push_back(State{{Item{0, 0}}, {}, {}});
        ids[states_[0].kernel] = 0;
        for (size_t s = 0; s < states_.size(); ++s) {
            std::map<int, std::vector<Item>> advanced;
            for (const Item& item : Closure0(states_[s].kernel)) {
                const Rule& rule = rules_[static_cast<size_t>(item.rule)];
                if (item.dot >= static_cast<int>(rule.rhs.size())) continue;
                const int symbol = rule.rhs[static_cast<size_t>(item.dot)];
                if (item.rule == 0 && symbol == kEndTerminal) continue;  // accepted, not shifted
                advanced[symbol].push_back(Item{item.rule, item.dot + 1});
            }
            for (auto& [symbol, kernel] : advanced) {
                std::sort(kernel.begin(), kernel.end());
                kernel.erase(std::unique(kernel.begin(), kernel.end()), kernel.end());
                auto [it, added] = ids.try_emplace(kernel, static_cast<int>(states_.size()));
                if (added) states_.push_back(State{kernel, {}, {}});
                states_[s].transitions[symbol] = it->second;
            }
        }
        for (State& state : states_) state.lookahead.assign(state.kernel.size(), {});
    }

    // ---- Lookaheads: propagated through the LR(1) closure of every state
    // until nothing changes.

    std::vector<ClosureItem> Closure1(const State& state) const {
        std::vector<ClosureItem> items;
        std::map<Item, size_t> index;
        for (size_t k = 0; k < state.kernel.size(); ++k) {
            index[state.kernel[k]] = items.size();
            items.push_back(ClosureItem{state.kernel[k], state.lookahead[k]});
        }
        for (bool changed = true; changed;) {
            changed = false;
            for (size_t i = 0; i < items.size(); ++i) {
                const Rule& rule = rules_[static_cast<size_t>(items[i].item.rule)];
                const size_t dot = static_cast<size_t>(items[i].item.dot);
                if (dot >= rule.rhs.size() || !IsNonterminal(rule.rhs[dot])) continue;
                TerminalSet lookahead;
                if (FirstOf(rule.rhs, dot + 1, lookahead)) lookahead |= items[i].lookahead;
                for (int r : rulesOf_[static_cast<size_t>(rule.rhs[dot] - terminalCount_)]) {
                    auto [it, added] = index.try_emplace(Item{r, 0}, items.size());
                    if (added) items.push_back(ClosureItem{Item{r, 0}, {}});
                    TerminalSet& target = items[it->second].lookahead;
                    if ((target | lookahead) != target) {
                        target |= lookahead;
                        changed = true;
                    }
                }
            }
        }
        return items;
    }

    void ComputeLookaheads() {
        for (bool changed = true; changed;) {
            changed = false;
            for (State& state : states_) {
                for (const ClosureItem& closed : Closure1(state)) {
                    const Rule& rule = rules_[static_cast<size_t>(closed.item.rule)];
                    if (closed.item.dot >= static_cast<int>(rule.rhs.size())) continue;
                    auto to = state.transitions.find(rule.rhs[static_cast<size_t>(closed.item.dot)]);
                    if (to == state.transitions.end()) continue;
                    State& target = states_[static_cast<size_t>(to->second)];
                    const Item advanced{closed.item.rule, closed.item.dot + 1};
                    const size_t k = static_cast<size_t>(
                        std::lower_bound(target.kernel.begin(), target.kernel.end(), advanced) - target.kernel.begin());
                    if ((target.lookahead[k] | closed.lookahead) != target.lookahead[k]) {
                        target.lookahead[k] |= closed.lookahead;
                        changed = true;
                    }
                }
            }
        }
    }

    // ---- Tables.

    std::string ConflictText(const char* kind, size_t state, int terminal) const {
        return std::string(kind) + " conflict in state " + std::to_string(state) + " on " + SymbolName(terminal);
    }

    // The entry of one terminal in one state: shift or the reductions it may take.
    int16_t Resolve(size_t s, int terminal, int shiftTo, std::vector<int>& reductions) {
        std::sort(reductions.begin(), reductions.end());
        if (reductions.size() > 1) Problem(ConflictText("reduce/reduce", s, terminal));
        if (reductions.empty()) return shiftTo > 0 ? static_cast<int16_t>(shiftTo) : kDefaultAction;
        const int reduce = reductions.front();
        if (shiftTo <= 0) return static_cast<int16_t>(-reduce);

        const Precedence& ruleLevel = rules_[static_cast<size_t>(reduce)].precedence;
        auto found = precedenceOf_.find(terminalNames_[static_cast<size_t>(terminal)]);
        if (ruleLevel.level == 0 || found == precedenceOf_.end()) {
            Problem(ConflictText("shift/reduce", s, terminal));
            return static_cast<int16_t>(shiftTo);
        }
        const Precedence& tokenLevel = found->second;
        if (tokenLevel.level > ruleLevel.level) return static_cast<int16_t>(shiftTo);
        if (tokenLevel.level < ruleLevel.level) return static_cast<int16_t>(-reduce);
        switch (tokenLevel.assoc) {
            case Assoc::Left: return static_cast<int16_t>(-reduce);
            case Assoc::Right: return static_cast<int16_t>(shiftTo);
            case Assoc::NonAssoc: return kErrorAction;
        }
        return kErrorAction;
    }

    void FillTables() {
        if (states_.size() >= static_cast<size_t>(INT16_MAX) || rules_.size() >= static_cast<size_t>(INT16_MAX)) {
            Problem("grammar too large");
            return;
        }
        const size_t terminals = static_cast<size_t>(terminalCount_);
        tables_.terminalCount = terminalCount_;
        tables_.nonterminalCount = nonterminalCount_;
        tables_.stateCount = static_cast<int>(states_.size());
        tables_.action.assign(states_.size() * terminals, kDefaultAction);
        tables_.gotoState.assign(states_.size() * static_cast<size_t>(nonterminalCount_), -1);
        tables_.defaultRule.assign(states_.size(), 0);
        tables_.needsLookahead.assign(states_.size(), 1);
        for (const Rule& rule : rules_) {
            tables_.ruleLhs.push_back(static_cast<uint16_t>(rule.lhs));
            tables_.ruleLength.push_back(static_cast<uint8_t>(rule.rhs.size()));
        }

        for (size_t s = 0; s < states_.size(); ++s) {
            const State& state = states_[s];
            std::vector<std::vector<int>> reductions(terminals);
            bool accepts = false;
            for (const ClosureItem& closed : Closure1(state)) {
                const Rule& rule = rules_[static_cast<size_t>(closed.item.rule)];
                if (closed.item.rule == 0 && closed.item.dot == 1) accepts = true;
                if (closed.item.dot != static_cast<int>(rule.rhs.size())) continue;
                for (size_t t = 0; t < terminals; ++t) {
                    if (closed.lookahead[t]) reductions[t].push_back(closed.item.rule);
                }
            }
            for (const auto& [symbol, to] : state.transitions) {
                if (IsNonterminal(symbol)) {
                    tables_.gotoState[s * static_cast<size_t>(nonterminalCount_) + static_cast<size_t>(symbol - terminalCount_)] =
                        static_cast<int16_t>(to);
                }
            }
            int16_t* row = &tables_.action[s * terminals];
            for (size_t t = 0; t < terminals; ++t) {
                auto shift = state.transitions.find(static_cast<int>(t));
                const int shiftTo = shift == state.transitions.end() ? 0 : shift->second;
                row[t] = Resolve(s, static_cast<int>(t), shiftTo, reductions[t]);
            }
            if (accepts) row[kEndTerminal] = kAcceptAction;
            ChooseDefault(s, row);
        }
    }

    // The most common reduction of the state becomes its default, and the
    // entries that say nothing else fall to it.
    void ChooseDefault(size_t s, int16_t* row) {
        const size_t terminals = static_cast<size_t>(terminalCount_);
        std::map<int, int> counts;
        for (size_t t = 0; t < terminals; ++t) {
            if (row[t] < 0 && row[t] != kErrorAction) ++counts[-row[t]];
        }
        int chosen = 0;
        int most = 0;
        for (const auto& [rule, count] : counts) {
            if (count > most) {
                most = count;
                chosen = rule;
            }
        }
        tables_.defaultRule[s] = static_cast<uint16_t>(chosen);
        if (chosen == 0) return;
        bool onlyDefault = true;
        for (size_t t = 0; t < terminals; ++t) {
            if (row[t] == -chosen) row[t] = kDefaultAction;
            if (row[t] != kDefaultAction) onlyDefault = false;
        }
        tables_.needsLookahead[s] = onlyDefault ? 0 : 1;
    }

    const GrammarText& grammar_;
    ParseTables tables_;
    std::vector<std::string> terminalNames_;
    std::map<std::string, int> terminalByName_;
    std::vector<std::string> nonterminalNames_;
    std::map<std::string, int> nonterminalByName_;
    std::map<std::string, Precedence> precedenceOf_;
    int terminalCount_ = 0;
    int nonterminalCount_ = 0;
    std::vector<Rule> rules_;
    std::vector<std::vector<int>> rulesOf_;
    std::vector<TerminalSet> first_;
    std::vector<bool> nullable_;
    std::vector<State> states_;
};

}  // namespace

ParseTables BuildParseTables(const GrammarText& grammar) { return Builder(grammar).Build(); }

}  // namespace vrn::lalr
