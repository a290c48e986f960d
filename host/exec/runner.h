// Runs parsed batches: keeps each batch's variables, calls procedures through
// a Procedures (the library loaded here, or a server), stores OUTPUT values back.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "host/exec/report.h"
#include "host/exec/script.h"
#include "host/host.h"

namespace vrn::exec {

// Where an EXEC goes. Call gives nullopt for a procedure it doesn't have, and
// throws ScriptError for a call it can't make.
class Procedures {
public:
    virtual ~Procedures() = default;
    struct Call {
        std::string procedure;
        std::vector<host::Param> params;
        std::vector<std::string> names;  // @name of each parameter passed by name, else empty
        std::vector<SqlType> types;      // each parameter's type as the script has it
        int line = 0;
    };
    [[nodiscard]] virtual std::optional<host::CallResult> Execute(const Call& call) = 0;
};

// The library at path, loaded at the first call, so that scripts without an
// EXEC need none; procedures are called by name, parameters in order.
[[nodiscard]] std::unique_ptr<Procedures> MakeLibraryProcedures(std::string path,
                                                                std::optional<std::u16string> instanceName);

// What @@SPID, @@SERVERNAME and SERVERPROPERTY('InstanceName') answer.
struct ServerFacts {
    std::string serverName = "VRN";
    std::string instanceName;
    int spid = 1;
};

struct RunOptions {
    Procedures* procedures = nullptr;  // none: the library of DefaultLibraryPath()
    ServerFacts facts;
    // WAITFOR DELAY; false when it was cut short (a client's attention).
    std::function<bool(uint32_t milliseconds)> wait;
};

// A WAITFOR cut short: the rest of the batch doesn't run.
struct Interrupted {};

class Runner {
public:
    Runner(RunOptions options, Reporter& reporter) : options_(std::move(options)), reporter_(reporter) {}
    // Throws ScriptError at the first statement that can't be done.
    void Run(const std::vector<Batch>& batches);
    // Variables visible to the next Run before its own DECLAREs (a server's
    // parameterised statement); read back after it by OutputOf.
    void Bind(const std::string& name, Value value) { bound_[name] = std::move(value); }
    [[nodiscard]] const Value* Variable(const std::string& name) const;

private:
    void Execute(const Statement& s);
    void Exec(const Statement& s);
    [[nodiscard]] Value Evaluate(const Expression& e);
    [[nodiscard]] Value SystemValue(const Expression& e, int line) const;

    RunOptions options_;
    Reporter& reporter_;
    std::map<std::string, Value> variables_;
    std::map<std::string, Value> bound_;
    std::unique_ptr<Procedures> ownProcedures_;  // when the options name none
};

}  // namespace vrn::exec
