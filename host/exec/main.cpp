// vrn-exec: runs T-SQL batches against the library as the server would call it.
#include <cstdlib>
#include <cstring>
#include <map>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "host/exec/command_line.h"
#include "host/exec/environment.h"
#include "host/exec/runner.h"
#include "host/exec/script.h"
#include "host/exec/text.h"
#include "host/tds/client.h"

namespace {

constexpr const char* kUsage =
    "usage: vrn-exec [--lib PATH] [--json] [--instance NAME] [--task-store DIR] [-Q TEXT | FILE | -]\n"
    "       vrn-exec [--lib PATH] [--task-store DIR] --run-due\n"
    "       vrn-exec --server HOST:PORT --user NAME [--tds 7.1|7.2|7.3|7.4] [--json] [-Q TEXT | FILE | -]\n"
    "Runs T-SQL batches (DECLARE, SET, EXEC, SELECT, PRINT, GO) against the library.\n"
    "  -Q TEXT          run TEXT; otherwise FILE, or standard input when none or '-'\n"
    "  --lib PATH       the library to load (default: $VRN_LIB, else libvrn.so of the build)\n"
    "  --json           one JSON object per EXEC instead of a client's text\n"
    "  --instance NAME  the instance name the host gives the procedures (none by default)\n"
    "  --task-store DIR the folder of the scheduled tasks (sets VRN_TASK_STORE)\n"
    "  --run-due        start the stored tasks that came due since the previous look, and end\n"
    "  --server ADDR    call the procedures on a server over TDS instead, as NAME with the\n"
    "                   password in $VRN_PASSWORD; --tds: the protocol version to ask for\n";

struct Options {
    std::string library;
    bool json = false;
    std::optional<std::string> instance;
    std::optional<std::string> query;
    std::optional<std::string> file;
    bool runDue = false;
    std::optional<std::string> server;
    std::string user;
    uint32_t tdsVersion = 0x74000004;
};

int UsageError(const std::string& why) {
    std::cerr << "vrn-exec: " << why << "\n" << kUsage;
    return 2;
}

std::optional<std::u16string> Utf16Of(const std::string& utf8) {
    const std::optional<std::u32string> text = vrn::exec::DecodeUtf8(utf8);
    if (!text) return std::nullopt;
    const vrn::exec::Bytes bytes = vrn::exec::EncodeUtf16(*text);
    std::u16string out;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) out += static_cast<char16_t>(bytes[i] | (bytes[i + 1] << 8));
    return out;
}

// The library's own look at the task store: one call, no script.
int RunDue(const std::string& library) {
    try {
        const vrn::host::Library lib(library);
        const int32_t result = lib.CallNoArgs("vrn_TaskStoreRunDue");
        if (result < 0) {
            std::cerr << "vrn-exec: the task store answered 0x" << std::hex << static_cast<uint32_t>(result) << "\n";
            return 1;
        }
        return 0;
    } catch (const std::exception& e) {
        std::cerr << "vrn-exec: " << e.what() << "\n";
        return 1;
    }
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    vrn::exec::CommandLine line(argc, argv);
    while (line.Next()) {
        const std::string& arg = line.arg();
        auto value = [&](const char* option) { return line.Value(option); };
        if (arg == "-h" || arg == "--help") {
            std::cout << kUsage;
            return 0;
        } else if (arg == "--json") {
            o.json = true;
        } else if (auto v = value("--lib")) {
            o.library = *v;
        } else if (auto v = value("--instance")) {
            o.instance = *v;
        } else if (auto v = value("--task-store")) {
            if (v->empty()) return UsageError("--task-store needs a folder");
            if (!vrn::exec::SetEnvironment("VRN_TASK_STORE", v->c_str())) return UsageError("can't set VRN_TASK_STORE");
        } else if (auto v = value("--server")) {
            o.server = *v;
        } else if (auto v = value("--user")) {
            o.user = *v;
        } else if (auto v = value("--tds")) {
            const std::map<std::string, uint32_t> versions = {
                {"7.1", 0x71000001}, {"7.2", 0x72090002}, {"7.3", 0x730B0003}, {"7.4", 0x74000004}};
            if (!versions.count(*v)) return UsageError("--tds takes 7.1, 7.2, 7.3 or 7.4");
            o.tdsVersion = versions.at(*v);
        } else if (arg == "--run-due") {
            o.runDue = true;
        } else if (auto v = value("-Q")) {
            o.query = *v;
        } else if (arg.size() > 1 && arg[0] == '-') {
            return UsageError("unknown option " + arg);
        } else if (o.file) {
            return UsageError("one script at a time");
        } else {
            o.file = arg;
        }
        if (line.missing()) return UsageError(arg + " needs a value");
    }
    if (o.query && o.file) return UsageError("give -Q or a file, not both");
    if (o.runDue) {
        if (o.query || o.file) return UsageError("--run-due runs no script");
        return RunDue(o.library.empty() ? vrn::host::DefaultLibraryPath() : o.library);
    }

    std::string script;
    if (o.query) {
        script = *o.query;
    } else if (o.file && *o.file != "-") {
        std::ifstream in(*o.file, std::ios::binary);
        if (!in) {
            std::cerr << "vrn-exec: cannot read " << *o.file << ": " << std::strerror(errno) << "\n";
            return 1;
        }
        script.assign(std::istreambuf_iterator<char>(in), {});
    } else {
        script.assign(std::istreambuf_iterator<char>(std::cin), {});
    }

    std::optional<std::u16string> instanceName;
    if (o.instance) {
        instanceName = Utf16Of(*o.instance);
        if (!instanceName) return UsageError("the instance name isn't UTF-8");
    }
    std::unique_ptr<vrn::exec::Procedures> procedures;
    if (o.server) {
        if (o.instance) return UsageError("--instance is the server's, not the client's");
        const char* password = std::getenv("VRN_PASSWORD");
        try {
            procedures = vrn::tds::ConnectProcedures({*o.server, o.user, password ? password : "", o.tdsVersion});
        } catch (const vrn::exec::ScriptError& e) {
            std::cerr << "vrn-exec: " << *o.server << ": " << e.what() << "\n";
            return 1;
        }
    } else {
        procedures = vrn::exec::MakeLibraryProcedures(o.library.empty() ? vrn::host::DefaultLibraryPath() : o.library,
                                                      instanceName);
    }
    vrn::exec::RunOptions run;
    run.procedures = procedures.get();
    std::unique_ptr<vrn::exec::Reporter> reporter =
        o.json ? vrn::exec::MakeJsonReporter(std::cout) : vrn::exec::MakeHumanReporter(std::cout);
    try {
        vrn::exec::Runner(run, *reporter).Run(vrn::exec::ParseScript(script));
    } catch (const vrn::exec::ScriptError& e) {
        std::cout.flush();
        std::cerr << "vrn-exec: line " << e.line << ": " << e.what() << "\n";
        return 1;
    }
    return 0;
}
