// What vrn-exec prints: for people, like a SQL client, or one JSON object per line.
#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "host/exec/values.h"
#include "host/host.h"

namespace vrn::exec {

struct OutputVariable {
    std::string name;  // as written: @o
    Value value;       // after the call
};

struct ExecReport {
    std::string procedure;
    const host::CallResult* result = nullptr;
    std::vector<SqlType> parameterTypes;  // of each parameter as passed
    std::vector<OutputVariable> outputs;  // the OUTPUT variables, in parameter order
};

class Reporter {
public:
    virtual ~Reporter() = default;
    virtual void Exec(const ExecReport& report) = 0;
    virtual void Select(const std::vector<std::string>& headers, const std::vector<Value>& values) = 0;
    virtual void Print(const Value& value) = 0;
};

[[nodiscard]] std::unique_ptr<Reporter> MakeHumanReporter(std::ostream& out);
[[nodiscard]] std::unique_ptr<Reporter> MakeJsonReporter(std::ostream& out);

}  // namespace vrn::exec
