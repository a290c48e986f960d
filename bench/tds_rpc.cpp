// Round trips per second of one vrn_PercStrEval RPC through vrn-server, with
// FreeTDS's DB-Library (its lightest C client) on 1 and more connections at
// once (a process each) for a fixed time; beside it, the same call in this process through the
// host, the yardstick of what the network and the protocol add. Run by
// bench/tds-bench.sh, which runs pgbench beside it:
//   tds_rpc PORT USER SECONDS LIBRARY|- CONNECTIONS...   (password in $VRN_PASSWORD)
// A LIBRARY of - leaves the yardstick out; with $VRN_SERVER_PID, the server's
// processor time per call is given too, the logins left out.
#include <sybfront.h>
#include <sybdb.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "host/host.h"

namespace {

constexpr double kExpected = 0.8721;  // 10+5-2 as chained discounts: 0.9 * 0.95 * 1.02
using Clock = std::chrono::steady_clock;

int OnError(DBPROCESS*, int, int, int, char* text, char* osText) {
    std::fprintf(stderr, "tds_rpc: %s%s%s\n", text, osText ? " " : "", osText ? osText : "");
    return INT_CANCEL;
}

int OnMessage(DBPROCESS*, DBINT number, int, int severity, char* text, char*, char*, int) {
    if (severity > 10) std::fprintf(stderr, "tds_rpc: %d %s\n", static_cast<int>(number), text);
    return 0;
}

// One round trip: the RPC, its answer read to the end. False at a failure or a wrong answer.
bool Call(DBPROCESS* db) {
    static char text[] = "10+5-2";
    double result = 0;
    DBINT mode = 1;
    if (dbrpcinit(db, const_cast<char*>("vrn_PercStrEval"), 0) != SUCCEED ||
        dbrpcparam(db, nullptr, 0, SYBCHAR, -1, 6, reinterpret_cast<BYTE*>(text)) != SUCCEED ||
        dbrpcparam(db, nullptr, DBRPCRETURN, SYBFLT8, -1, -1, reinterpret_cast<BYTE*>(&result)) != SUCCEED ||
        dbrpcparam(db, nullptr, 0, SYBINT4, -1, -1, reinterpret_cast<BYTE*>(&mode)) != SUCCEED ||
        dbrpcsend(db) != SUCCEED || dbsqlok(db) != SUCCEED) {
        return false;
    }
    RETCODE r;
    while ((r = dbresults(db)) == SUCCEED) {
        while (dbnextrow(db) != NO_MORE_ROWS) {
        }
    }
    if (r == FAIL || !dbhasretstat(db) || dbretstatus(db) != 0 || dbnumrets(db) != 1 || dbretlen(db, 1) != 8) {
        return false;
    }
    std::memcpy(&result, dbretdata(db, 1), sizeof result);
    if (result != kExpected) {
        std::fprintf(stderr, "tds_rpc: a wrong answer (%.17g)\n", result);
        return false;
    }
    return true;
}

// One connection, in a process of its own (DB-Library serialises the threads
// of one process): logs in, says so on ready, waits for go to close, then
// calls for the given time. Its count, or -1 at a failure, goes to result.
[[noreturn]] void Connection(const std::string& server, const char* user, const char* password, double seconds, int ready,
                             int go, int result) {
    long calls = -1;
    if (dbinit() == SUCCEED) {
        dberrhandle(OnError);
        dbmsghandle(OnMessage);
        LOGINREC* login = dblogin();
        DBPROCESS* db = nullptr;
        if (login) {
            DBSETLUSER(login, user);
            DBSETLPWD(login, password);
            DBSETLAPP(login, "tds_rpc");
            DBSETLVERSION(login, DBVERSION_74);
            db = dbopen(login, server.c_str());
            dbloginfree(login);
        }
        const char byte = db ? 1 : 0;
        (void)!write(ready, &byte, 1);
        char ignored;
        (void)!read(go, &ignored, 1);  // 0 bytes: go has closed
        if (db) {
            calls = 0;
            const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
            while (Clock::now() < deadline) {
                if (!Call(db)) {
                    calls = -1;
                    break;
                }
                ++calls;
            }
            dbclose(db);
        }
        dbexit();
    }
    (void)!write(result, &calls, sizeof calls);
    _exit(0);
}

// The processor time of process pid so far, in seconds; 0 when it can't be read.
double ProcessorTime(pid_t pid) {
    FILE* f = std::fopen(("/proc/" + std::to_string(pid) + "/stat").c_str(), "r");
    if (!f) return 0;
    char line[1024] = {};
    const bool read = std::fgets(line, sizeof line, f) != nullptr;
    std::fclose(f);
    const char* fields = read ? std::strrchr(line, ')') : nullptr;  // the name may hold blanks
    unsigned long user = 0, system = 0;
    if (!fields || std::sscanf(fields + 2, "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu", &user, &system) != 2) return 0;
    return static_cast<double>(user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// Calls per second over n connections at once; a negative value at a failure.
// serverTime: the server's (pid) processor time while the calls ran, logins left out.
double Rate(const std::string& server, const char* user, const char* password, double seconds, int n, long& total,
            pid_t serverPid, double& serverTime) {
    int ready[2], go[2], result[2];
    if (pipe(ready) || pipe(go) || pipe(result)) return -1;
    std::vector<pid_t> children;
    for (int c = 0; c < n; ++c) {
        const pid_t child = fork();
        if (child == 0) {
            close(go[1]);
            Connection(server, user, password, seconds, ready[1], go[0], result[1]);
        }
        if (child > 0) children.push_back(child);
    }
    close(ready[1]);
    close(go[0]);
    close(result[1]);
    bool ok = static_cast<int>(children.size()) == n;
    for (size_t c = 0; c < children.size(); ++c) {
        char byte = 0;
        ok = read(ready[0], &byte, 1) == 1 && byte == 1 && ok;
    }
    const double serverBefore = serverPid ? ProcessorTime(serverPid) : 0;
    close(go[1]);  // every child starts now
    total = 0;
    for (size_t c = 0; c < children.size(); ++c) {
        long calls = -1;
        ok = read(result[0], &calls, sizeof calls) == static_cast<ssize_t>(sizeof calls) && calls >= 0 && ok;
        total += calls;
    }
    serverTime = serverPid ? ProcessorTime(serverPid) - serverBefore : 0;
    for (pid_t child : children) waitpid(child, nullptr, 0);
    close(ready[0]);
    close(result[0]);
    return ok ? total / seconds : -1;
}

// The yardstick: the same call through the host stand-in, in this process.
double InProcessRate(const std::string& library, double seconds) {
    const vrn::host::Library lib(library);
    const auto start = Clock::now();
    const auto end = start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    long calls = 0;
    while (Clock::now() < end) {
        const auto r = lib.Call("vrn_PercStrEval",
                                {vrn::host::VarChar("10+5-2"), vrn::host::Output(vrn::host::Float(0)), vrn::host::Int(1)});
        if (r.returnCode != 0) return 0;
        ++calls;
    }
    return calls / std::chrono::duration<double>(Clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        std::fprintf(stderr, "usage: tds_rpc PORT USER SECONDS LIBRARY|- CONNECTIONS...\n");
        return 2;
    }
    const char* password = std::getenv("VRN_PASSWORD");
    const char* serverPidText = std::getenv("VRN_SERVER_PID");
    const pid_t serverPid = serverPidText ? static_cast<pid_t>(std::atoi(serverPidText)) : 0;
    const std::string server = std::string("127.0.0.1:") + argv[1];
    const double seconds = std::atof(argv[3]);
    const bool measureYardstick = std::strcmp(argv[4], "-") != 0;
    const double yardstick = measureYardstick ? InProcessRate(argv[4], seconds) : 0;
    if (measureYardstick) std::printf("%-26s %10.0f calls/s\n", "in process (yardstick)", yardstick);
    std::fflush(stdout);  // not again in each child
    for (int i = 5; i < argc; ++i) {
        const int connections = std::atoi(argv[i]);
        long total = 0;
        double serverTime = 0;
        const double rate = Rate(server, argv[2], password ? password : "", seconds, connections, total, serverPid, serverTime);
        if (rate < 0) {
            std::fprintf(stderr, "tds_rpc: a connection failed\n");
            return 1;
        }
        const std::string label = std::to_string(connections) + (connections == 1 ? " connection" : " connections");
        std::printf("%-26s %10.0f calls/s  (%ld calls", label.c_str(), rate, total);
        if (measureYardstick) std::printf("; the yardstick's %.4f", rate / yardstick);
        if (serverPid && total > 0) std::printf("; the server's %.1f µs a call", serverTime * 1e6 / static_cast<double>(total));
        std::printf(")\n");
        std::fflush(stdout);
    }
    return 0;
}
