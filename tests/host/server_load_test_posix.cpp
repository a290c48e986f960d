// vrn-server under load: many connections at once on loopback, every family
// of procedures mixed, each answer printed as vrn-exec prints it and compared
// with what the library in this process gives for the same script. Bounded in
// calls and time; VRN_LOAD=small (the sanitizer build) makes it smaller.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <atomic>
#include <barrier>
#include <cstdio>
#include <sstream>

#include "host/exec/report.h"
#include "host/exec/runner.h"
#include "host/exec/script.h"
#include "host/tds/client.h"
#include "tests/host/server_process.h"

namespace vrn {
namespace {

using namespace tds::testing_server;

struct Scale {
    int connections;
    int steps;  // per connection, half before the memory is first read, half after
    std::chrono::seconds limit;
};

Scale ScaleOfEnvironment() {
    const char* load = std::getenv("VRN_LOAD");
    if (load && std::string(load) == "small") return {100, 8, 80s};
    return {200, 20, 50s};
}

// A users line with few iterations: the logins of hundreds of connections at
// once would otherwise be the test's whole time.
std::string CheapUserLine(const std::string& name, const std::string& password) {
    const unsigned char salt[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    unsigned char hash[32];
    PKCS5_PBKDF2_HMAC(password.data(), static_cast<int>(password.size()), salt, sizeof salt, 1000, EVP_sha256(), sizeof hash, hash);
    auto hex = [](const unsigned char* bytes, size_t n) {
        std::string out;
        char digits[3];
        for (size_t i = 0; i < n; ++i) std::snprintf(digits, sizeof digits, "%02x", bytes[i]), out += digits;
        return out;
    };
    return name + ":pbkdf2-sha256$1000$" + hex(salt, sizeof salt) + "$" + hex(hash, sizeof hash) + "\n";
}

// Step `step` of connection `c`: one family per connection, by its number.
std::string Script(int c, int step) {
    const std::string n = std::to_string(c), i = std::to_string(step);
    switch (c % 5) {
    case 0:
        return "DECLARE @r float\nEXEC vrn_PercStrEval '" + std::to_string(c % 40) + "+" + i + "-2', @r OUTPUT, " +
               std::to_string(step % 3) + "\n";
    case 1: return "DECLARE @v float = 100\nEXEC vrn_PFormula_Eval '=100 +" + n + "% -" + i + "& *2', @v OUTPUT\n";
    case 2:  // the symbolic protocol, under the lock the client holds across its calls
        return "DECLARE @r varchar(30)\nEXEC vrn_PercStrSymb_GetMutex 60000\nEXEC vrn_PercStrSymb_Init 1\n"
               "EXEC vrn_PercStrSymb_SetVar 'Cliente', '10+" + n + "'\nEXEC vrn_PercStrSymb_SetVar 'Articolo', '" + i + "'\n"
               "EXEC vrn_PercStrSymb_Eval 'MAX(Cliente,Articolo)+2', @r OUTPUT\nEXEC vrn_PercStrSymb_ReleaseMutex\n";
    case 3: {
        char name[80];
        std::snprintf(name, sizeof name, "N'{00000000-0000-0000-0000-%012d}-DITTA1'", c);
        const std::string task = name;
        return "DECLARE @f int\nEXEC vrn_Wts_TaskCreate " + task + ", NULL, N'/bin/true', N'', NULL, NULL, N'', NULL, 1, 0, 0\n" +
               "EXEC vrn_Wts_TaskSetFlags " + task + ", " + std::to_string(4 * (step % 2)) + "\nEXEC vrn_Wts_TaskGetFlags " + task +
               ", @f OUTPUT\nEXEC vrn_Wts_TaskDelete " + task + "\n";
    }
    default: {
        char bits[8];
        std::snprintf(bits, sizeof bits, "%04X", (c * 131 + step * 17) & 0xFFFF);
        return "DECLARE @n int\nEXEC vrn_CountBitsOn 0x" + std::string(bits) + ", @n OUTPUT\n";
    }
    }
}

// What vrn-exec prints for the script through these procedures.
std::string Printed(exec::Procedures& procedures, const std::string& script) {
    std::ostringstream out;
    exec::RunOptions options;
    options.procedures = &procedures;
    const std::unique_ptr<exec::Reporter> reporter = exec::MakeHumanReporter(out);
    try {
        exec::Runner(options, *reporter).Run(exec::ParseScript(script));
    } catch (const exec::ScriptError& e) {
        out << "error: " << e.what() << "\n";
    }
    return out.str();
}

TEST(ServerLoad, ManyConnectionsEveryFamilyRightAnswersFlatMemory) {
    if (!ServerProcess::Available()) GTEST_SKIP() << "VRN_SERVER and VRN_LIB name vrn-server and the library";
    const Scale scale = ScaleOfEnvironment();
    // A small quarantine, so that a sanitized server's memory settles too.
    const char* asan = std::getenv("ASAN_OPTIONS");
    setenv("ASAN_OPTIONS", (std::string(asan ? asan : "") + ":quarantine_size_mb=2").c_str(), 1);
    ServerProcess server("load", {"--max-connections", std::to_string(scale.connections + 10)}, CheapUserLine("load", "load"));
    ASSERT_TRUE(server.started()) << server.Log();

    // The answers the library gives here, each script in turn, with a task store of its own.
    const std::string localTasks = server.folder() + "/local_tasks";
    (void)std::system(("mkdir -p '" + localTasks + "'").c_str());
    setenv("VRN_TASK_STORE", localTasks.c_str(), 1);
    std::vector<std::vector<std::string>> expected(static_cast<size_t>(scale.connections));
    {
        const auto local = exec::MakeLibraryProcedures(std::getenv("VRN_LIB"), std::nullopt);
        for (int c = 0; c < scale.connections; ++c) {
            for (int step = 0; step < scale.steps; ++step) {
                const std::string answer = Printed(*local, Script(c, step));
                // Every script is one the library answers: a comparison of two failures would prove nothing.
                ASSERT_TRUE(answer.find("(return status") != std::string::npos && answer.find("error:") == std::string::npos) << answer;
                expected[static_cast<size_t>(c)].push_back(answer);
            }
        }
    }

    const auto started = std::chrono::steady_clock::now();
    std::atomic<int> answered{0}, wrong{0}, failed{0};
    std::vector<std::string> firstWrong(1);
    std::mutex wrongMutex;
    long memory[2] = {0, 0};
    std::barrier halves(scale.connections + 1);
    const auto deadline = std::chrono::steady_clock::now() + scale.limit;
    auto client = [&](int c) {
        std::unique_ptr<exec::Procedures> p;
        try {
            p = tds::ConnectProcedures({server.address(), "load", "load", tds::kTds74});
        } catch (const exec::ScriptError&) {
            ++failed;
        }
        halves.arrive_and_wait();  // all connected
        for (int half = 0; half < 2; ++half) {
            for (int step = half * scale.steps / 2; p && step < (half + 1) * scale.steps / 2; ++step) {
                if (std::chrono::steady_clock::now() > deadline) break;
                const std::string got = Printed(*p, Script(c, step));
                if (got == expected[static_cast<size_t>(c)][static_cast<size_t>(step)]) {
                    ++answered;
                } else {
                    ++wrong;
                    const std::lock_guard<std::mutex> lock(wrongMutex);
                    if (firstWrong[0].empty()) firstWrong[0] = Script(c, step) + "gave:\n" + got + "instead of:\n" + expected[static_cast<size_t>(c)][static_cast<size_t>(step)];
                }
            }
            halves.arrive_and_wait();  // the half is done: the memory is read
            halves.arrive_and_wait();
        }
    };
    std::vector<std::thread> threads;
    for (int c = 0; c < scale.connections; ++c) threads.emplace_back(client, c);
    halves.arrive_and_wait();
    for (long& m : memory) {
        halves.arrive_and_wait();
        m = ProcStatus(server.pid(), "VmRSS");
        halves.arrive_and_wait();
    }
    for (std::thread& t : threads) t.join();
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started);

    EXPECT_EQ(failed, 0) << "connections refused";
    EXPECT_EQ(wrong, 0) << firstWrong[0];
    EXPECT_EQ(answered, scale.connections * scale.steps) << "answers lost or out of time";
    // The first half settles the allocators; the second may not grow past a little.
    EXPECT_LE(memory[1], memory[0] + std::max(4096L, memory[0] / 20)) << "VmRSS " << memory[0] << " kB, then " << memory[1] << " kB";
    std::printf("load: %d connections, %d scripts answered in %lld ms, VmRSS %ld kB after the first half, %ld kB after the second\n",
                scale.connections, answered.load(), static_cast<long long>(took.count()), memory[0], memory[1]);

    // No lock left held: a new client takes it at once.
    const auto last = tds::ConnectProcedures({server.address(), "load", "load", tds::kTds74});
    EXPECT_NE(Printed(*last, "EXEC vrn_PercStrSymb_GetMutex 100\n").find("(return status = 1)"), std::string::npos);
    EXPECT_NE(Printed(*last, "EXEC vrn_PercStrSymb_ReleaseMutex\n").find("(return status = 1)"), std::string::npos);
    EXPECT_EQ(server.Stop(), 0) << server.Log().substr(0, 2000);
}

}  // namespace
}  // namespace vrn
