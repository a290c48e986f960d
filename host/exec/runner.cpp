#include "host/exec/runner.h"

#include <chrono>
#include <thread>

namespace vrn::exec {

void Runner::Run(const std::vector<Batch>& batches) {
    for (const Batch& batch : batches) {
        variables_.clear();  // variables live for one batch
        for (const Statement& s : batch) {
            try {
                Execute(s);
            } catch (const SqlError& e) {
                throw ScriptError(s.line, e.what());
            }
        }
    }
}

void Runner::Execute(const Statement& s) {
    switch (s.kind) {
    case Statement::Kind::Declare:
        for (const Declaration& d : s.declarations) {
            Value v;
            v.type = d.type;
            variables_[d.variable] = d.initial ? Convert(Evaluate(*d.initial), d.type) : v;
        }
        break;
    case Statement::Kind::Set: {
        Value& target = variables_.at(s.target);
        target = Convert(Evaluate(s.value), target.type);
        break;
    }
    case Statement::Kind::Exec: Exec(s); break;
    case Statement::Kind::Select: {
        std::vector<std::string> headers;
        std::vector<Value> values;
        for (const SelectItem& item : s.items) {
            headers.push_back(item.header);
            values.push_back(Evaluate(item.value));
        }
        reporter_.Select(headers, values);
        break;
    }
    case Statement::Kind::Print: reporter_.Print(Evaluate(s.value)); break;
    case Statement::Kind::WaitFor: std::this_thread::sleep_for(std::chrono::milliseconds(s.delayMilliseconds)); break;
    }
}

Value Runner::Evaluate(const Expression& e) {
    switch (e.kind) {
    case Expression::Kind::Literal: return e.literal;
    case Expression::Kind::Variable: return variables_.at(e.variable);
    case Expression::Kind::Cast: return Convert(Evaluate(*e.inner), e.castType);
    }
    return e.literal;
}

const host::Library& Runner::LoadLibrary(int line) {
    if (!library_) {
        try {
            library_ = std::make_unique<host::Library>(options_.libraryPath);
        } catch (const std::exception& e) {
            throw ScriptError(line, std::string("cannot load the library: ") + e.what());
        }
        // The server asks the library's version right after loading it.
        if (library_->Has("__GetXpVersion")) (void)library_->CallNoArgs("__GetXpVersion");
    }
    return *library_;
}

void Runner::Exec(const Statement& s) {
    std::vector<host::Param> params;
    ExecReport report;
    report.procedure = s.procedure;
    for (const Argument& a : s.arguments) {
        const Value v = Evaluate(a.value);
        host::Param p;
        p.type = v.type.code;
        p.maxLength = v.MaxLength();
        p.value = v.bytes;
        p.isNull = v.isNull;
        p.isOutput = a.output;
        params.push_back(std::move(p));
        report.parameterTypes.push_back(v.type);
    }
    const host::Library& library = LoadLibrary(s.line);
    if (!library.Has(s.procedure)) throw ScriptError(s.line, "Could not find stored procedure '" + s.procedure + "'.");
    host::CallOptions options;
    options.instanceName = options_.instanceName;
    const host::CallResult result = library.Call(s.procedure, std::move(params), options);

    // An OUTPUT variable takes the last value delivered to it, and keeps its own when none came.
    for (size_t i = 0; i < s.arguments.size(); ++i) {
        const Argument& a = s.arguments[i];
        if (!a.output) continue;
        Value& variable = variables_.at(a.value.variable);
        if (const host::OutputValue* delivered = result.OutputOf(static_cast<int>(i) + 1)) {
            variable = FromDelivery(variable.type, delivered->value, delivered->isNull);
        }
        report.outputs.push_back({a.value.written, variable});
    }
    if (!s.returnVariable.empty()) {
        Value& rc = variables_.at(s.returnVariable);
        rc = Convert(NumberLiteral(std::to_string(result.returnCode)), rc.type);
    }
    report.result = &result;
    reporter_.Exec(report);
}

}  // namespace vrn::exec
