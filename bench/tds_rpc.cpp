// Round trips per second of one vrn_PercStrEval RPC through vrn-server, with
// FreeTDS's ODBC driver (C's client interface) on 1 and more connections at
// once for a fixed time; beside it, the same call in this process through the
// host, the yardstick of what the network and the protocol add. Run by
// bench/tds-bench.sh:
//   tds_rpc PORT USER SECONDS LIBRARY CONNECTIONS...   (password in $VRN_PASSWORD)
#include <sql.h>
#include <sqlext.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "host/host.h"

namespace {

constexpr double kExpected = 0.8721;  // 10+5-2 as chained discounts: 0.9 * 0.95 * 1.02
constexpr const char* kDriver = "/usr/lib/x86_64-linux-gnu/odbc/libtdsodbc.so";
using Clock = std::chrono::steady_clock;

bool Ok(SQLRETURN r) { return r == SQL_SUCCESS || r == SQL_SUCCESS_WITH_INFO; }

// One connection's calls until the deadline; -1 at a wrong answer or a failure.
long Calls(const std::string& connect, Clock::time_point deadline) {
    SQLHENV env = nullptr;
    SQLHDBC dbc = nullptr;
    SQLHSTMT stmt = nullptr;
    long calls = -1;
    SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &env);
    SQLSetEnvAttr(env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    SQLAllocHandle(SQL_HANDLE_DBC, env, &dbc);
    char text[] = "10+5-2";
    SQLLEN textLength = 6, resultLength = 0, modeLength = 0, statusLength = 0;
    double result = 0;
    SQLINTEGER mode = 1, status = -1;
    if (Ok(SQLDriverConnect(dbc, nullptr, reinterpret_cast<SQLCHAR*>(const_cast<char*>(connect.c_str())), SQL_NTS,
                            nullptr, 0, nullptr, SQL_DRIVER_NOPROMPT)) &&
        Ok(SQLAllocHandle(SQL_HANDLE_STMT, dbc, &stmt)) &&
        Ok(SQLPrepare(stmt, reinterpret_cast<SQLCHAR*>(const_cast<char*>("{? = CALL vrn_PercStrEval(?, ?, ?)}")), SQL_NTS)) &&
        Ok(SQLBindParameter(stmt, 1, SQL_PARAM_OUTPUT, SQL_C_SLONG, SQL_INTEGER, 0, 0, &status, 0, &statusLength)) &&
        Ok(SQLBindParameter(stmt, 2, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_VARCHAR, 20, 0, text, sizeof text, &textLength)) &&
        Ok(SQLBindParameter(stmt, 3, SQL_PARAM_OUTPUT, SQL_C_DOUBLE, SQL_FLOAT, 15, 0, &result, 0, &resultLength)) &&
        Ok(SQLBindParameter(stmt, 4, SQL_PARAM_INPUT, SQL_C_SLONG, SQL_INTEGER, 0, 0, &mode, 0, &modeLength))) {
        calls = 0;
        while (Clock::now() < deadline) {
            result = 0;
            status = -1;
            const SQLRETURN executed = SQLExecute(stmt);  // no row set: SQL_NO_DATA
            if (!Ok(executed) && executed != SQL_NO_DATA) {
                calls = -1;
                break;
            }
            while (Ok(SQLMoreResults(stmt))) {
            }
            if (result != kExpected || status != 0) {
                std::fprintf(stderr, "tds_rpc: a wrong answer (%.17g, status %d)\n", result, static_cast<int>(status));
                calls = -1;
                break;
            }
            ++calls;
        }
    }
    if (calls < 0) {
        SQLCHAR state[6] = {}, message[512] = {};
        SQLINTEGER native = 0;
        SQLSMALLINT length = 0;
        if (Ok(SQLGetDiagRec(stmt ? SQL_HANDLE_STMT : SQL_HANDLE_DBC, stmt ? stmt : dbc, 1, state, &native, message,
                             sizeof message, &length))) {
            std::fprintf(stderr, "tds_rpc: %s %s\n", state, message);
        }
    }
    if (stmt) SQLFreeHandle(SQL_HANDLE_STMT, stmt);
    SQLDisconnect(dbc);
    SQLFreeHandle(SQL_HANDLE_DBC, dbc);
    SQLFreeHandle(SQL_HANDLE_ENV, env);
    return calls;
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
    if (argc < 6) {
        std::fprintf(stderr, "usage: tds_rpc PORT USER SECONDS LIBRARY CONNECTIONS...\n");
        return 2;
    }
    const char* password = std::getenv("VRN_PASSWORD");
    const std::string connect = std::string("DRIVER=") + kDriver + ";SERVER=127.0.0.1;PORT=" + argv[1] + ";UID=" + argv[2] +
                                ";PWD=" + (password ? password : "") + ";TDS_Version=7.4;ClientCharset=UTF-8";
    const double seconds = std::atof(argv[3]);
    const double yardstick = InProcessRate(argv[4], seconds);
    std::printf("%-26s %10.0f calls/s\n", "in process (yardstick)", yardstick);
    for (int i = 5; i < argc; ++i) {
        const int connections = std::atoi(argv[i]);
        std::vector<long> counts(static_cast<size_t>(connections));
        std::vector<std::thread> threads;
        const auto start = Clock::now();
        const auto deadline = start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
        for (int c = 0; c < connections; ++c) {
            threads.emplace_back([&, c] { counts[static_cast<size_t>(c)] = Calls(connect, deadline); });
        }
        for (std::thread& t : threads) t.join();
        const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
        long total = 0;
        for (long n : counts) {
            if (n < 0) return 1;
            total += n;
        }
        const std::string label = std::to_string(connections) + (connections == 1 ? " connection" : " connections");
        std::printf("%-26s %10.0f calls/s  (%ld calls; the yardstick's %.4f)\n", label.c_str(), total / elapsed, total,
                    total / elapsed / yardstick);
    }
    return 0;
}
