#include "host/exec/script.h"

#include <algorithm>
#include <cctype>
#include <set>

#include "host/exec/text.h"

namespace vrn::exec {

namespace {

enum class Tok { End, Go, Word, Variable, String, NString, Binary, Number, Symbol };

struct Token {
    Tok kind = Tok::End;
    std::string text;     // as written, UTF-8 (a string's content for String/NString)
    std::u32string chars;  // a string's content
    Bytes bytes;           // a binary literal's value
    bool bracketed = false;
    int line = 0;
};


std::string Utf8Of(const std::u32string& text) {
    std::string out;
    for (char32_t c : text) AppendUtf8(out, c);
    return out;
}

bool IsNameStart(char32_t c) { return (c < 0x80 && (std::isalpha(static_cast<int>(c)) || c == '_' || c == '#')) || c >= 0xC0; }
bool IsNamePart(char32_t c) {
    return IsNameStart(c) || (c < 0x80 && (std::isdigit(static_cast<int>(c)) || c == '@' || c == '$'));
}
bool IsDigit(char32_t c) { return c >= '0' && c <= '9'; }
int HexValue(char32_t c) {
    if (IsDigit(c)) return static_cast<int>(c - '0');
    if (c >= 'a' && c <= 'f') return static_cast<int>(c - 'a' + 10);
    if (c >= 'A' && c <= 'F') return static_cast<int>(c - 'A' + 10);
    return -1;
}

class Lexer {
public:
    explicit Lexer(std::u32string text) : text_(std::move(text)) {}

    std::vector<Token> Run() {
        std::vector<Token> tokens;
        for (;;) {
            SkipBlanksAndComments();
            Token token = Next();
            const bool end = token.kind == Tok::End;
            lastTokenLine_ = token.line;
            tokens.push_back(std::move(token));
            if (end) return tokens;
        }
    }

private:
    char32_t At(size_t i) const { return i < text_.size() ? text_[i] : U'\0'; }

    void SkipBlanksAndComments() {
        for (;;) {
            const char32_t c = At(pos_);
            if (pos_ >= text_.size()) return;
            if (c == '\n') {
                ++line_, ++pos_;
            } else if (c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v' || c == 0xFEFF) {
                ++pos_;
            } else if (c == '-' && At(pos_ + 1) == '-') {
                while (pos_ < text_.size() && At(pos_) != '\n') ++pos_;
            } else if (c == '/' && At(pos_ + 1) == '*') {
                SkipBlockComment();
            } else {
                return;
            }
        }
    }

    // Block comments nest, as the server reads them.
    void SkipBlockComment() {
        const int start = line_;
        int depth = 0;
        do {
            if (pos_ >= text_.size()) throw ScriptError(start, "missing end comment mark '*/'");
            if (At(pos_) == '/' && At(pos_ + 1) == '*') {
                ++depth, pos_ += 2;
            } else if (At(pos_) == '*' && At(pos_ + 1) == '/') {
                --depth, pos_ += 2;
            } else {
                if (At(pos_) == '\n') ++line_;
                ++pos_;
            }
        } while (depth > 0);
    }

    // GO separates batches when it stands alone on its line.
    bool AloneOnLine(size_t wordEnd) const {
        if (lastTokenLine_ == line_) return false;
        for (size_t i = wordEnd; i < text_.size() && text_[i] != '\n'; ++i) {
            if (text_[i] == '-' && At(i + 1) == '-') return true;
            if (text_[i] != ' ' && text_[i] != '\t' && text_[i] != '\r') return false;
        }
        return true;
    }

    Token Next() {
        Token t;
        t.line = line_;
        if (pos_ >= text_.size()) return t;
        const char32_t c = At(pos_);
        if ((c == 'N' || c == 'n') && At(pos_ + 1) == '\'') {
            ++pos_;
            ReadString(t);
            t.kind = Tok::NString;
        } else if (c == '\'') {
            ReadString(t);
        } else if (c == '0' && (At(pos_ + 1) == 'x' || At(pos_ + 1) == 'X')) {
            ReadBinary(t);
        } else if (IsDigit(c) || (c == '.' && IsDigit(At(pos_ + 1)))) {
            ReadNumber(t);
        } else if (c == '@') {
            const size_t start = pos_++;
            while (IsNamePart(At(pos_))) ++pos_;
            t.kind = Tok::Variable;
            t.text = Utf8Of(text_.substr(start, pos_ - start));
        } else if (c == '[') {
            ReadBracketed(t);
        } else if (IsNameStart(c)) {
            const size_t start = pos_;
            while (IsNamePart(At(pos_))) ++pos_;
            t.kind = Tok::Word;
            t.text = Utf8Of(text_.substr(start, pos_ - start));
            if (LowerText(t.text) == "go" && AloneOnLine(pos_)) t.kind = Tok::Go;
        } else if (std::u32string_view(U"(),;=.+-*<>!").find(c) != std::u32string_view::npos) {
            t.kind = Tok::Symbol;
            t.text = static_cast<char>(c);
            ++pos_;
        } else {
            std::string shown;
            AppendUtf8(shown, c);
            throw ScriptError(line_, "unexpected character '" + shown + "'");
        }
        return t;
    }

    void ReadString(Token& t) {
        const int start = line_;
        ++pos_;
        for (;;) {
            if (pos_ >= text_.size()) throw ScriptError(start, "unclosed quotation mark after the character string");
            const char32_t c = text_[pos_++];
            if (c == '\'') {
                if (At(pos_) != '\'') break;
                ++pos_;
            }
            if (c == '\n') ++line_;
            t.chars += c;
        }
        t.kind = Tok::String;
        t.text = Utf8Of(t.chars);
    }

    // 0x with an odd number of digits reads as if led by a 0, as the server does.
    void ReadBinary(Token& t) {
        const size_t start = pos_;
        pos_ += 2;
        std::string digits;
        while (HexValue(At(pos_)) >= 0) digits += static_cast<char>(At(pos_++));
        if (IsNamePart(At(pos_))) throw ScriptError(line_, "'" + Utf8Of(text_.substr(start, pos_ + 1 - start)) + "' is no binary literal");
        if (digits.size() % 2) digits.insert(0, "0");
        for (size_t i = 0; i < digits.size(); i += 2) {
            t.bytes.push_back(static_cast<uint8_t>(HexValue(digits[i]) * 16 + HexValue(digits[i + 1])));
        }
        t.kind = Tok::Binary;
        t.text = Utf8Of(text_.substr(start, pos_ - start));
    }

    void ReadNumber(Token& t) {
        const size_t start = pos_;
        while (IsDigit(At(pos_))) ++pos_;
        if (At(pos_) == '.') {
            ++pos_;
            while (IsDigit(At(pos_))) ++pos_;
        }
        if (At(pos_) == 'e' || At(pos_) == 'E') {
            size_t after = pos_ + 1;
            if (At(after) == '+' || At(after) == '-') ++after;
            if (!IsDigit(At(after))) throw ScriptError(line_, "an exponent needs digits");
            pos_ = after;
            while (IsDigit(At(pos_))) ++pos_;
        }
        if (IsNameStart(At(pos_))) {
            throw ScriptError(line_, "'" + Utf8Of(text_.substr(start, pos_ + 1 - start)) + "' is no number");
        }
        t.kind = Tok::Number;
        t.text = Utf8Of(text_.substr(start, pos_ - start));
    }

    void ReadBracketed(Token& t) {
        const int start = line_;
        ++pos_;
        std::u32string name;
        for (;;) {
            if (pos_ >= text_.size()) throw ScriptError(start, "unclosed bracket in a name");
            const char32_t c = text_[pos_++];
            if (c == ']') {
                if (At(pos_) != ']') break;
                ++pos_;
            }
            name += c;
        }
        t.kind = Tok::Word;
        t.bracketed = true;
        t.text = Utf8Of(name);
    }

    std::u32string text_;
    size_t pos_ = 0;
    int line_ = 1;
    int lastTokenLine_ = 0;
};

class Parser {
public:
    Parser(std::vector<Token> tokens, const std::vector<std::string>& predeclared)
        : tokens_(std::move(tokens)), declared_(predeclared.begin(), predeclared.end()) {}

    std::vector<Batch> Run() {
        std::vector<Batch> batches(1);
        for (;;) {
            const Token& t = Peek();
            if (t.kind == Tok::End) break;
            if (t.kind == Tok::Go) {
                ++pos_;
                batches.emplace_back();
                declared_.clear();
            } else if (IsSymbol(t, ";")) {
                ++pos_;
            } else {
                batches.back().push_back(ParseStatement(batches.back().empty()));
            }
        }
        batches.erase(std::remove_if(batches.begin(), batches.end(), [](const Batch& b) { return b.empty(); }),
                      batches.end());
        return batches;
    }

private:
    const Token& Peek(size_t ahead = 0) const { return tokens_[std::min(pos_ + ahead, tokens_.size() - 1)]; }
    const Token& Take() {
        const Token& t = Peek();
        if (pos_ < tokens_.size() - 1) ++pos_;
        return t;
    }
    static bool IsSymbol(const Token& t, const char* symbol) { return t.kind == Tok::Symbol && t.text == symbol; }
    static bool IsWord(const Token& t, const char* word) {
        return t.kind == Tok::Word && !t.bracketed && LowerText(t.text) == word;
    }

    static std::string Describe(const Token& t) {
        switch (t.kind) {
        case Tok::End: return "the end of the script";
        case Tok::Go: return "GO";
        case Tok::String: return "'" + t.text + "'";
        case Tok::NString: return "N'" + t.text + "'";
        default: return "'" + t.text + "'";
        }
    }

    [[noreturn]] void Fail(const std::string& expected) const {
        throw ScriptError(Peek().line, "expected " + expected + ", found " + Describe(Peek()), kErrorSyntax,
                          Peek().kind == Tok::End ? std::string() : Peek().text);
    }

    void Expect(const char* symbol) {
        if (!IsSymbol(Peek(), symbol)) Fail(std::string("'") + symbol + "'");
        Take();
    }

    template <class F>
    auto AtLine(int line, F f) -> decltype(f()) {
        try {
            return f();
        } catch (const SqlError& e) {
            throw ScriptError(line, e.what());
        }
    }

    // A batch may start with a procedure's name alone: EXEC is implied there.
    Statement ParseStatement(bool batchStart = false) {
        const Token& first = Peek();
        Statement s;
        s.line = first.line;
        if (batchStart && first.kind == Tok::Word && (first.bracketed || !StartsStatement(first))) {
            ParseExec(s);
        } else if (IsWord(first, "declare")) {
            Take();
            ParseDeclare(s);
        } else if (IsWord(first, "set") && Peek(1).kind == Tok::Word) {
            Take();
            SkipOption(s);
        } else if (IsWord(first, "set")) {
            Take();
            ParseSet(s);
        } else if (IsWord(first, "begin") || IsWord(first, "commit") || IsWord(first, "rollback") ||
                   IsWord(first, "save")) {
            Take();
            ParseTransaction(s);
        } else if (IsWord(first, "if")) {
            Take();
            return ParseTransactionIf();
        } else if (IsWord(first, "exec") || IsWord(first, "execute")) {
            Take();
            ParseExec(s);
        } else if (IsWord(first, "select")) {
            Take();
            ParseSelect(s);
        } else if (IsWord(first, "print")) {
            Take();
            s.kind = Statement::Kind::Print;
            s.value = ParseExpression();
        } else if (IsWord(first, "waitfor")) {
            Take();
            ParseWaitFor(s);
        } else {
            Fail("a statement (DECLARE, SET, EXEC, SELECT, PRINT, WAITFOR or GO)");
        }
        return s;
    }

    // SET NOCOUNT ON, SET TRANSACTION ISOLATION LEVEL ..., SET TEXTSIZE n: what
    // drivers send on connect, taken and ignored up to the next statement.
    void SkipOption(Statement& s) {
        s.kind = Statement::Kind::Option;
        while (Peek().kind != Tok::End && Peek().kind != Tok::Go && !IsSymbol(Peek(), ";") &&
               !(Peek().kind == Tok::Word && StartsStatement(Peek()))) {
            Take();
        }
    }

    // BEGIN TRAN[SACTION] [name], COMMIT, ROLLBACK, SAVE: there is nothing to transact.
    void ParseTransaction(Statement& s) {
        s.kind = Statement::Kind::Transaction;
        if (IsWord(Peek(), "tran") || IsWord(Peek(), "transaction") || IsWord(Peek(), "work")) {
            Take();
            if (Peek().kind == Tok::Variable || (Peek().kind == Tok::Word && !StartsStatement(Peek()))) Take();
        } else if (IsWord(tokens_[pos_ - 1], "begin") || IsWord(tokens_[pos_ - 1], "save")) {
            Fail("TRAN or TRANSACTION");
        }
    }

    // IF @@TRANCOUNT > 0 COMMIT|ROLLBACK ..., as drivers end a transaction.
    Statement ParseTransactionIf() {
        if (Peek().kind != Tok::Variable || LowerText(Peek().text) != "@@trancount") Fail("@@TRANCOUNT (IF takes no other condition)");
        Take();
        Expect(">");
        if (Peek().kind != Tok::Number || Peek().text != "0") Fail("0");
        Take();
        const Token& next = Peek();
        if (!IsWord(next, "commit") && !IsWord(next, "rollback")) Fail("COMMIT or ROLLBACK");
        return ParseStatement();
    }

    void ParseDeclare(Statement& s) {
        s.kind = Statement::Kind::Declare;
        do {
            const Token& name = Peek();
            if (name.kind != Tok::Variable) Fail("a variable name");
            Take();
            const std::string key = LowerText(name.text);
            if (!declared_.insert(key).second) {
                throw ScriptError(name.line, "The variable name '" + name.text +
                                                 "' has already been declared. Variable names must be unique "
                                                 "within a query batch or stored procedure.");
            }
            if (IsWord(Peek(), "as")) Take();
            Declaration d;
            d.variable = key;
            d.type = ParseType(false);
            if (IsSymbol(Peek(), "=")) {
                Take();
                d.initial = ParseExpression();
            }
            s.declarations.push_back(std::move(d));
        } while (IsSymbol(Peek(), ",") && (Take(), true));
    }

    void ParseSet(Statement& s) {
        s.kind = Statement::Kind::Set;
        if (Peek().kind != Tok::Variable) Fail("a variable (only SET @variable = value is supported)");
        s.target = VariableKey(Take());
        Expect("=");
        s.value = ParseExpression();
    }

    void ParseExec(Statement& s) {
        s.kind = Statement::Kind::Exec;
        if (Peek().kind == Tok::Variable) {
            s.returnVariable = VariableKey(Take());
            Expect("=");
        }
        if (Peek().kind != Tok::Word) Fail("a procedure name");
        s.procedure = Take().text;
        // database.schema.name, parts may be empty (master..name): the last part counts.
        while (IsSymbol(Peek(), ".")) {
            Take();
            if (IsSymbol(Peek(), ".")) continue;
            if (Peek().kind != Tok::Word) Fail("a procedure name after '.'");
            s.procedure = Take().text;
        }
        if (!StartsExpression()) return;
        do {
            Argument a;
            if (Peek().kind == Tok::Variable && IsSymbol(Peek(1), "=")) {
                a.name = Take().text;
                Take();
            }
            a.value = ParseExpression();
            if (IsWord(Peek(), "output") || IsWord(Peek(), "out")) {
                if (a.value.kind != Expression::Kind::Variable) {
                    throw ScriptError(Peek().line, "OUTPUT needs a variable to receive the value");
                }
                Take();
                a.output = true;
            }
            s.arguments.push_back(std::move(a));
        } while (IsSymbol(Peek(), ",") && (Take(), true));
    }

    void ParseSelect(Statement& s) {
        s.kind = Statement::Kind::Select;
        do {
            if (Peek().kind == Tok::Variable && IsSymbol(Peek(1), "=")) {
                throw ScriptError(Peek().line, "SELECT @variable = value is not supported: use SET");
            }
            SelectItem item;
            const Token& start = Peek();
            item.header = start.kind == Tok::Variable && start.text.rfind("@@", 0) != 0 ? start.text : "";
            item.value = ParseExpression();
            if (IsWord(Peek(), "as")) {
                Take();
                if (Peek().kind != Tok::Word && Peek().kind != Tok::String) Fail("a column name after AS");
                item.header = Take().text;
            } else if (Peek().kind == Tok::Word && !StartsStatement(Peek())) {
                item.header = Take().text;
            }
            s.items.push_back(std::move(item));
        } while (IsSymbol(Peek(), ",") && (Take(), true));
    }

    // WAITFOR DELAY 'hh:mm:ss[.fff]', the hours below 24.
    void ParseWaitFor(Statement& s) {
        s.kind = Statement::Kind::WaitFor;
        if (!IsWord(Peek(), "delay")) Fail("DELAY (only WAITFOR DELAY 'hh:mm:ss' is supported)");
        Take();
        if (Peek().kind != Tok::String) Fail("a time as 'hh:mm:ss'");
        const std::string text = Peek().text;
        auto digits = [&](size_t at, size_t count) {
            uint32_t value = 0;
            for (size_t i = at; i < at + count; ++i) {
                if (i >= text.size() || !std::isdigit(static_cast<unsigned char>(text[i]))) return UINT32_MAX;
                value = value * 10 + static_cast<uint32_t>(text[i] - '0');
            }
            return value;
        };
        const uint32_t hours = digits(0, 2), minutes = digits(3, 2), seconds = digits(6, 2);
        const size_t fraction = text.size() > 9 ? text.size() - 9 : 0;
        const uint32_t milliseconds = fraction > 0 ? digits(9, fraction) * (fraction == 1 ? 100 : fraction == 2 ? 10 : 1) : 0;
        const bool shaped = (text.size() == 8 || (text.size() > 9 && text.size() <= 12 && text[8] == '.')) &&
                            text[2] == ':' && text[5] == ':';
        if (!shaped || hours > 23 || minutes > 59 || seconds > 59 || milliseconds > 999) {
            Fail("a time as 'hh:mm:ss'");
        }
        Take();
        s.delayMilliseconds = ((hours * 60 + minutes) * 60 + seconds) * 1000 + milliseconds;
    }

    static bool StartsStatement(const Token& t) {
        for (const char* keyword : {"declare", "set", "exec", "execute", "select", "print", "waitfor", "begin",
                                    "commit", "rollback", "save", "if"}) {
            if (IsWord(t, keyword)) return true;
        }
        return false;
    }

    bool StartsExpression() const {
        const Token& t = Peek();
        switch (t.kind) {
        case Tok::String: case Tok::NString: case Tok::Binary: case Tok::Number: case Tok::Variable: return true;
        case Tok::Symbol: return t.text == "-" || t.text == "+" || t.text == "(";
        case Tok::Word:
            return IsWord(t, "null") || IsWord(t, "cast") || IsWord(t, "convert") || IsWord(t, "serverproperty");
        default: return false;
        }
    }

    std::string VariableKey(const Token& t) {
        const std::string key = LowerText(t.text);
        if (key.rfind("@@", 0) == 0) throw ScriptError(t.line, "system variables (" + t.text + ") can't be set", kErrorSyntax, t.text);
        if (!declared_.count(key)) {
            throw ScriptError(t.line, "Must declare the scalar variable \"" + t.text + "\".", kErrorUndeclared);
        }
        return key;
    }

    Expression Literal(Value v) {
        Expression e;
        e.literal = std::move(v);
        return e;
    }

    Expression ParseExpression() {
        const Token& t = Peek();
        const int line = t.line;
        switch (t.kind) {
        case Tok::String: Take(); return AtLine(line, [&] { return Literal(StringLiteral(t.chars)); });
        case Tok::NString: Take(); return Literal(NStringLiteral(t.chars));
        case Tok::Binary: Take(); return Literal(BinaryLiteral(t.bytes));
        case Tok::Number: Take(); return AtLine(line, [&] { return Literal(NumberLiteral(t.text)); });
        case Tok::Variable: {
            Take();
            if (LowerText(t.text).rfind("@@", 0) == 0) return SystemValue(LowerText(t.text), {});
            Expression e;
            e.kind = Expression::Kind::Variable;
            e.variable = VariableKey(t);
            e.written = t.text;
            return e;
        }
        default: break;
        }
        if (IsSymbol(t, "-") || IsSymbol(t, "+")) {
            const std::string sign = Take().text;
            if (Peek().kind != Tok::Number) Fail("a number after '" + sign + "'");
            const std::string number = Take().text;
            return AtLine(line, [&] { return Literal(NumberLiteral(sign + number)); });
        }
        if (IsSymbol(t, "(")) {
            Take();
            Expression e = ParseExpression();
            Expect(")");
            return e;
        }
        if (IsWord(t, "null")) {
            Take();
            return Literal(NullLiteral());
        }
        if (IsWord(t, "serverproperty")) {
            Take();
            Expect("(");
            if (Peek().kind != Tok::String && Peek().kind != Tok::NString) Fail("a property name");
            const std::string property = Take().text;
            Expect(")");
            return SystemValue("serverproperty", property);
        }
        if (IsWord(t, "cast")) {
            Take();
            Expect("(");
            Expression inner = ParseExpression();
            if (!IsWord(Peek(), "as")) Fail("AS");
            Take();
            SqlType type = ParseType(true);
            Expect(")");
            return CastOf(std::move(inner), std::move(type), line);
        }
        if (IsWord(t, "convert")) {
            Take();
            Expect("(");
            SqlType type = ParseType(true);
            Expect(",");
            Expression inner = ParseExpression();
            Expect(")");
            return CastOf(std::move(inner), std::move(type), line);
        }
        Fail("a value (a literal, a variable, NULL or CAST)");
    }

    static Expression SystemValue(std::string name, std::string argument) {
        Expression e;
        e.kind = Expression::Kind::System;
        e.variable = std::move(name);
        e.argument = std::move(argument);
        return e;
    }

    // A CAST of a literal is done once, here, so its mistakes show before anything runs.
    Expression CastOf(Expression inner, SqlType type, int line) {
        if (inner.kind == Expression::Kind::Literal) {
            return AtLine(line, [&] { return Literal(Convert(inner.literal, type)); });
        }
        Expression e;
        e.kind = Expression::Kind::Cast;
        e.castType = std::move(type);
        e.inner = std::make_shared<Expression>(std::move(inner));
        return e;
    }

    SqlType ParseType(bool inCast) {
        const Token& name = Peek();
        if (name.kind != Tok::Word) Fail("a type name");
        Take();
        std::vector<std::string> args;
        if (IsSymbol(Peek(), "(")) {
            Take();
            do {
                if (Peek().kind != Tok::Number && !IsWord(Peek(), "max")) Fail("a length");
                args.push_back(Take().text);
            } while (IsSymbol(Peek(), ",") && (Take(), true));
            Expect(")");
        }
        return AtLine(name.line, [&] { return vrn::exec::ParseType(name.text, args, inCast); });
    }

    std::vector<Token> tokens_;
    size_t pos_ = 0;
    std::set<std::string> declared_;
};

// The line of the first byte that isn't UTF-8.
int FirstBadUtf8Line(const std::string& text) {
    int line = 1;
    size_t start = 0;
    while (start <= text.size()) {
        const size_t end = text.find('\n', start);
        const std::string_view part(text.data() + start, (end == std::string::npos ? text.size() : end) - start);
        if (!DecodeUtf8(part)) return line;
        if (end == std::string::npos) break;
        start = end + 1;
        ++line;
    }
    return line;
}

}  // namespace

std::vector<Batch> ParseScript(const std::string& utf8, const std::vector<std::string>& predeclared) {
    std::optional<std::u32string> text = DecodeUtf8(utf8);
    if (!text) throw ScriptError(FirstBadUtf8Line(utf8), "the script isn't valid UTF-8");
    return Parser(Lexer(std::move(*text)).Run(), predeclared).Run();
}

}  // namespace vrn::exec
