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

// A mistake with the line where it was found.
struct ScriptError : std::runtime_error {
    ScriptError(int line, const std::string& message) : std::runtime_error(message), line(line) {}
    int line;
};

// A literal, a variable, or a CAST of either.
struct Expression {
    enum class Kind { Literal, Variable, Cast };
    Kind kind = Kind::Literal;
    Value literal;
    std::string variable;  // lower case: names are case-blind
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
    Expression value;
    bool output = false;
};

struct SelectItem {
    Expression value;
    std::string header;
};

struct Statement {
    enum class Kind { Declare, Set, Exec, Select, Print, WaitFor };
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
[[nodiscard]] std::vector<Batch> ParseScript(const std::string& utf8);

}  // namespace vrn::exec
