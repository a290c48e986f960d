#include "host/exec/runner.h"

#include <cctype>
#include <chrono>
#include <thread>

#include "host/exec/text.h"

namespace vrn::exec {

namespace {

// The library of this process, loaded at the first EXEC.
class LibraryProcedures final : public Procedures {
public:
    LibraryProcedures(std::string path, std::optional<std::u16string> instanceName)
        : path_(std::move(path)), instanceName_(std::move(instanceName)) {}

    std::optional<host::CallResult> Execute(const Call& call) override {
        for (const std::string& name : call.names) {
            if (!name.empty()) {
                throw ScriptError(call.line, "named parameters (" + name +
                                                 " = value) are not supported: pass the parameters in order");
            }
        }
        const host::Library& library = Load(call.line);
        host::CallOptions options;
        options.instanceName = instanceName_;
        return library.CallIfExported(call.procedure, call.params, options);
    }

private:
    const host::Library& Load(int line) {
        if (!library_) {
            try {
                library_ = std::make_unique<host::Library>(path_);
            } catch (const std::exception& e) {
                throw ScriptError(line, std::string("cannot load the library: ") + e.what());
            }
            // The server asks the library's version right after loading it.
            if (library_->Has("__GetXpVersion")) (void)library_->CallNoArgs("__GetXpVersion");
        }
        return *library_;
    }

    std::string path_;
    std::optional<std::u16string> instanceName_;
    std::unique_ptr<host::Library> library_;
};

Value Text(const std::string& utf8) {
    const std::optional<std::u32string> text = DecodeUtf8(utf8);
    return NStringLiteral(text ? *text : U"");
}

Value Number(long long n, const char* type) { return Convert(NumberLiteral(std::to_string(n)), ParseType(type, {}, false)); }

}  // namespace

std::unique_ptr<Procedures> MakeLibraryProcedures(std::string path, std::optional<std::u16string> instanceName) {
    return std::make_unique<LibraryProcedures>(std::move(path), std::move(instanceName));
}

const Value* Runner::Variable(const std::string& name) const {
    const auto it = variables_.find(name);
    return it == variables_.end() ? nullptr : &it->second;
}

void Runner::Run(const std::vector<Batch>& batches) {
    bool first = true;
    for (const Batch& batch : batches) {
        variables_.clear();  // variables live for one batch
        if (first) variables_ = bound_;
        first = false;
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
    case Statement::Kind::WaitFor:
        if (options_.wait) {
            if (!options_.wait(s.delayMilliseconds)) throw Interrupted{};
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(s.delayMilliseconds));
        }
        break;
    case Statement::Kind::Option: case Statement::Kind::Transaction: break;
    }
}

Value Runner::Evaluate(const Expression& e) {
    switch (e.kind) {
    case Expression::Kind::Literal: return e.literal;
    case Expression::Kind::Variable: return variables_.at(e.variable);
    case Expression::Kind::System: return SystemValue(e, 0);
    case Expression::Kind::Cast: return Convert(Evaluate(*e.inner), e.castType);
    }
    return e.literal;
}

// What drivers ask a server on connect. A property the server doesn't know is NULL.
Value Runner::SystemValue(const Expression& e, int line) const {
    const ServerFacts& f = options_.facts;
    if (e.variable == "serverproperty") {
        const std::string property = LowerText(e.argument);
        if (property == "productversion") return Text("10.50.1600.1");
        if (property == "productlevel") return Text("RTM");
        if (property == "edition") return Text("Vrn");
        if (property == "engineedition") return Number(2, "int");
        if (property == "servername") return Text(f.serverName);
        if (property == "instancename") return f.instanceName.empty() ? NullLiteral() : Text(f.instanceName);
        if (property == "collation") return Text("SQL_Latin1_General_CP1_CI_AS");
        if (property == "machinename") return Text(f.serverName);
        return NullLiteral();
    }
    if (e.variable == "@@version") return Text("Vrn procedure server 10.50.1600.1");
    if (e.variable == "@@spid") return Number(f.spid, "smallint");
    if (e.variable == "@@max_precision") return Number(38, "tinyint");
    if (e.variable == "@@trancount" || e.variable == "@@error" || e.variable == "@@rowcount") return Number(0, "int");
    if (e.variable == "@@servername") return Text(f.serverName);
    if (e.variable == "@@servicename") return Text(f.instanceName.empty() ? f.serverName : f.instanceName);
    if (e.variable == "@@language") return Text("us_english");
    if (e.variable == "@@textsize") return Number(2147483647, "int");
    throw ScriptError(line, "Must declare the scalar variable \"" + e.variable + "\".", kErrorUndeclared);
}

void Runner::Exec(const Statement& s) {
    Procedures::Call call;
    call.procedure = s.procedure;
    call.line = s.line;
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
        call.params.push_back(std::move(p));
        call.names.push_back(a.name);
        call.types.push_back(v.type);
        report.parameterTypes.push_back(v.type);
    }
    if (!options_.procedures) {
        ownProcedures_ = MakeLibraryProcedures(host::DefaultLibraryPath(), std::nullopt);
        options_.procedures = ownProcedures_.get();
    }
    const std::optional<host::CallResult> result = options_.procedures->Execute(call);
    if (!result) {
        throw ScriptError(s.line, "Could not find stored procedure '" + s.procedure + "'.", kErrorNoProcedure);
    }

    // An OUTPUT variable takes the last value delivered to it, and keeps its own when none came.
    for (size_t i = 0; i < s.arguments.size(); ++i) {
        const Argument& a = s.arguments[i];
        if (!a.output) continue;
        Value& variable = variables_.at(a.value.variable);
        if (const host::OutputValue* delivered = result->OutputOf(static_cast<int>(i) + 1)) {
            variable = FromDelivery(variable.type, delivered->value, delivered->isNull);
        }
        report.outputs.push_back({a.value.written, variable});
    }
    if (!s.returnVariable.empty()) {
        Value& rc = variables_.at(s.returnVariable);
        rc = Convert(NumberLiteral(std::to_string(result->returnCode)), rc.type);
    }
    report.result = &*result;
    reporter_.Exec(report);
}

}  // namespace vrn::exec
