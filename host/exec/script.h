// The T-SQL that vrn-exec understands, parsed into batches of statements:
// DECLARE, SET, EXEC, SELECT and PRINT of variables and literals, WAITFOR
// DELAY, split by GO.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/exec/values.h"

namespace vrn::exec {

// A mistake with the line where it was found. number is the server's error
// number for it where it has one (a server sends it as an ERROR token); near
// is the text a syntax error stopped at.
struct ScriptError : std::runtime_error {
    ScriptError(int line, const std::string& message, int32_t number = 0, std::string near = {})
        : std::runtime_error(message), line(line), number(number), near(std::move(near)) {}
    int line;
    int32_t number;
    std::string near;
};
enum : int32_t { kErrorSyntax = 102, kErrorUndeclared = 137, kErrorNoProcedure = 2812 };

// A literal, a variable, a system value (@@VERSION, SERVERPROPERTY('x')), or a CAST of one.
struct Expression {
    enum class Kind { Literal, Variable, System, Cast };
    Kind kind = Kind::Literal;
    Value literal;
    std::string variable;  // lower case: names are case-blind; a system value's name
    std::string argument;  // SERVERPROPERTY's property
    std::string written;   // the variable as the script writes it
    SqlType castType;
    std::shared_ptr<Expression> inner;
};

struct Declaration {
    std::string variable;
    SqlType type;
    std::optional<Expression> initial;
};

struct Argument {
    std::string name;  // @name = value; empty when passed by position
    Expression value;
    bool output = false;
};

struct SelectItem {
    Expression value;
    std::string header;
};

struct Statement {
    // Option: SET of a session option; Transaction: BEGIN, COMMIT, ROLLBACK. Both change nothing here.
    enum class Kind { Declare, Set, Exec, Select, Print, WaitFor, Option, Transaction };
    Kind kind = Kind::Print;
    int line = 0;
    std::vector<Declaration> declarations;  // Declare
    std::string target;                     // Set
    Expression value;                       // Set, Print
    std::string returnVariable;             // Exec: @rc = ..., or empty
    std::string procedure;                  // Exec: the last part of the name
    std::vector<Argument> arguments;        // Exec
    std::vector<SelectItem> items;          // Select
    uint32_t delayMilliseconds = 0;         // WaitFor
};

using Batch = std::vector<Statement>;

// The whole script, checked before anything runs: syntax, literals, types and
// the variables of each batch (declared once, before use).
// predeclared: variables the first batch may use without declaring them (lower case).
[[nodiscard]] std::vector<Batch> ParseScript(const std::string& utf8, const std::vector<std::string>& predeclared = {});

}  // namespace vrn::exec
