// Runs parsed batches: keeps each batch's variables, calls procedures of the
// loaded library through the host stand-in, stores OUTPUT values back.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "host/exec/report.h"
#include "host/exec/script.h"
#include "host/host.h"

namespace vrn::exec {

struct RunOptions {
    std::string libraryPath;
    std::optional<std::u16string> instanceName;
};

class Runner {
public:
    Runner(RunOptions options, Reporter& reporter) : options_(std::move(options)), reporter_(reporter) {}
    // Throws ScriptError at the first statement that can't be done.
    void Run(const std::vector<Batch>& batches);

private:
    void Execute(const Statement& s);
    void Exec(const Statement& s);
    [[nodiscard]] Value Evaluate(const Expression& e);
    // Loaded at the first EXEC, so scripts without one need no library.
    const host::Library& LoadLibrary(int line);

    RunOptions options_;
    Reporter& reporter_;
    std::map<std::string, Value> variables_;
    std::unique_ptr<host::Library> library_;
};

}  // namespace vrn::exec
