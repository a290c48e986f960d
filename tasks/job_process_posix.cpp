#include "tasks/job_process_posix.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "tasks/local_time_posix.h"
#include "tasks/trigger_schedule.h"

namespace vrn::tasks::jobs {
namespace {

// What the watching process tells the caller once the application started, or failed to.
struct StartReport {
    int32_t error = 0;  // errno of the failed start; 0 when it runs
    int32_t pid = 0;
    uint64_t pidStart = 0;
};

// Everything the forked processes use, made before the fork: after it they
// allocate nothing, since the host may be threaded.
struct Launch {
    std::string application;
    std::vector<std::string> arguments;  // argv[0] first
    std::vector<char*> argv;
    std::string directory;
    const char* folder = nullptr;
    const char* fileName = nullptr;
    uint64_t identity = 0;
    uint32_t maxRunTime = 0;
    int niceness = 0;
};

// The scheduler's priority classes as niceness; realtime is as high as a
// task may go here.
int NicenessOf(uint32_t priorityClass) {
    static constexpr struct {
        uint32_t priorityClass;
        int niceness;
    } kTable[] = {
        {0x40, 19},     // idle
        {0x4000, 10},   // below normal
        {0x20, 0},      // normal
        {0x8000, -5},   // above normal
        {0x80, -10},    // high
        {0x100, -10},   // realtime
    };
    for (const auto& row : kTable) {
        if (row.priorityClass == priorityClass) return row.niceness;
    }
    return 0;
}

// The run may last the task's maximum run time, and not past the end of a
// duration that kills it.
uint32_t RunTimeLimit(const Definition& d, int64_t now) {
    const std::optional<int64_t> kill = KillTime(d.triggers, now, SystemTimeZone());
    if (!kill) return d.maxRunTime;
    const uint64_t left = static_cast<uint64_t>(*kill - now) * 1000;
    return left < d.maxRunTime ? static_cast<uint32_t>(left) : d.maxRunTime;
}

volatile sig_atomic_t timedOut = 0;
void OnAlarm(int) { timedOut = 1; }

bool ReadAll(int fd, void* out, size_t size) {
    auto* p = static_cast<uint8_t*>(out);
    while (size > 0) {
        const ssize_t n = read(fd, p, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        p += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

// The application's process: its own group, default signals, then exec.
[[noreturn]] void BecomeApplication(const Launch& launch, int errorPipe) {
    setpgid(0, 0);
    // A priority the user may not raise to runs at normal.
    if (setpriority(PRIO_PROCESS, 0, launch.niceness) != 0) setpriority(PRIO_PROCESS, 0, 0);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    for (int sig = 1; sig < NSIG; ++sig) signal(sig, SIG_DFL);
    int error = 0;
    if (!launch.directory.empty() && chdir(launch.directory.c_str()) != 0) {
        error = errno;
    } else {
        execvp(launch.application.c_str(), launch.argv.data());
        error = errno;
    }
    (void)WriteAll(errorPipe, &error, sizeof error);
    _exit(127);
}

// The watching process: out of the caller's session, holding none of its
// descriptors; starts the application, reports, waits, records the end.
[[noreturn]] void Watch(const Launch& launch, int reportPipe) {
    setsid();
    // Above the standard descriptors, which are about to be replaced.
    if (const int moved = fcntl(reportPipe, F_DUPFD, 10); moved >= 0) reportPipe = moved;
    const int null = open("/dev/null", O_RDWR);
    for (int fd = 0; fd < 3 && null >= 0; ++fd) dup2(null, fd);
    if (reportPipe > 3) close_range(3, static_cast<unsigned>(reportPipe) - 1, 0);
    close_range(static_cast<unsigned>(reportPipe) + 1, ~0u, 0);
    (void)!chdir("/");  // pin no mount; every path used from here is absolute
    signal(SIGCHLD, SIG_DFL);
    sigset_t none;  // the caller's thread may block the alarm below
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);

    StartReport report;
    int errorPipe[2];
    if (pipe2(errorPipe, O_CLOEXEC) != 0) {
        report.error = errno;
        (void)WriteAll(reportPipe, &report, sizeof report);
        _exit(0);
    }
    const pid_t child = fork();
    if (child == 0) {
        close(errorPipe[0]);
        BecomeApplication(launch, errorPipe[1]);
    }
    close(errorPipe[1]);
    if (child < 0) {
        report.error = errno;
        (void)WriteAll(reportPipe, &report, sizeof report);
        _exit(0);
    }
    setpgid(child, child);  // also here, so the group exists before the caller hears of it
    int status = 0;
    if (ReadAll(errorPipe[0], &report.error, sizeof report.error)) {
        while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
        }
        (void)WriteAll(reportPipe, &report, sizeof report);
        _exit(0);
    }
    close(errorPipe[0]);
    report.pid = child;
    report.pidStart = ProcessStart(child).value_or(0);
    (void)WriteAll(reportPipe, &report, sizeof report);
    close(reportPipe);

    if (launch.maxRunTime != 0xFFFFFFFFu) {
        struct sigaction action {};
        action.sa_handler = OnAlarm;  // no SA_RESTART: the wait below must wake
        sigaction(SIGALRM, &action, nullptr);
        alarm(launch.maxRunTime / 1000 + (launch.maxRunTime % 1000 != 0 || launch.maxRunTime == 0 ? 1 : 0));
    }
    bool killed = false;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) _exit(0);
        if (timedOut != 0 && !killed) {
            kill(-child, SIGKILL);
            killed = true;
        }
    }
    const uint32_t code = WIFEXITED(status) ? static_cast<uint32_t>(WEXITSTATUS(status))
                                            : 128u + static_cast<uint32_t>(WTERMSIG(status));
    RecordRunEnd(launch.folder, launch.fileName, launch.identity, child, code);
    _exit(0);
}

// Starts the application through a short-lived child, which the caller reaps
// at once; the watcher it leaves behind belongs to init from then on.
StartReport Start(const Launch& launch) {
    StartReport report;
    int reportPipe[2];
    if (pipe2(reportPipe, O_CLOEXEC) != 0) {
        report.error = errno;
        return report;
    }
    const pid_t first = fork();
    if (first == 0) {
        close(reportPipe[0]);
        const pid_t watcher = fork();
        if (watcher == 0) Watch(launch, reportPipe[1]);
        _exit(watcher < 0 ? 1 : 0);
    }
    close(reportPipe[1]);
    if (first < 0) {
        report.error = errno;
    } else {
        while (waitpid(first, nullptr, 0) < 0 && errno == EINTR) {
        }
        if (!ReadAll(reportPipe[0], &report, sizeof report)) report.error = ECHILD;
    }
    close(reportPipe[0]);
    return report;
}

}  // namespace

std::vector<std::u16string> SplitCommandLine(std::u16string_view line) {
    std::vector<std::u16string> out;
    const auto blank = [](char16_t c) { return c == u' ' || c == u'\t'; };
    size_t i = 0;
    for (;;) {
        while (i < line.size() && blank(line[i])) ++i;
        if (i == line.size()) return out;
        std::u16string arg;
        bool quoted = false;
        while (i < line.size() && (quoted || !blank(line[i]))) {
            if (line[i] == u'\\') {
                size_t count = 0;
                while (i < line.size() && line[i] == u'\\') ++count, ++i;
                if (i < line.size() && line[i] == u'"') {
                    arg.append(count / 2, u'\\');
                    if (count % 2 == 1) arg += u'"', ++i;
                } else {
                    arg.append(count, u'\\');
                }
            } else if (line[i] == u'"') {
                if (quoted && i + 1 < line.size() && line[i + 1] == u'"') {
                    arg += u'"';
                    i += 2;
                } else {
                    quoted = !quoted;
                    ++i;
                }
            } else {
                arg += line[i++];
            }
        }
        out.push_back(std::move(arg));
    }
}

std::optional<uint64_t> ProcessStart(int32_t pid) {
    if (pid <= 0) return std::nullopt;
    // "/proc/<pid>/stat", built by hand: the watcher calls this after fork.
    char path[32] = "/proc/";
    char digits[12];
    int n = 0;
    for (int32_t v = pid; v > 0; v /= 10) digits[n++] = static_cast<char>('0' + v % 10);
    size_t at = 6;
    while (n > 0) path[at++] = digits[--n];
    std::memcpy(path + at, "/stat", 6);

    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    char text[1024];
    const ssize_t got = read(fd, text, sizeof text - 1);
    close(fd);
    if (got <= 0) return std::nullopt;
    text[got] = '\0';
    // The name in parentheses may hold anything; the fields follow the last ')'.
    const char* p = std::strrchr(text, ')');
    if (p == nullptr || p[1] != ' ' || p[2] == 'Z' || p[2] == 'X') return std::nullopt;
    int field = 3;  // the state
    for (p += 2; *p != '\0' && field < 22; ++p) {
        if (*p == ' ') ++field;
    }
    if (field != 22 || *p < '0' || *p > '9') return std::nullopt;
    uint64_t start = 0;
    for (; *p >= '0' && *p <= '9'; ++p) start = start * 10 + static_cast<uint64_t>(*p - '0');
    return start;
}

bool IsRunning(const RunState& run) {
    return (run.flags & kRunRunning) != 0 && ProcessStart(run.pid) == std::optional<uint64_t>(run.pidStart);
}

int32_t RunStoredTask(const Store& store, const std::string& fileName, int64_t now, Record* after) {
    StoreLock lock;
    int32_t result = store.Lock(&lock);
    if (result < 0) return result;
    Record record;
    if ((result = store.Read(fileName, &record)) < 0) return result;
    *after = record;
    if (IsRunning(record.run)) return kOk;
    const Definition& d = record.definition;
    if (d.application.empty()) return kTaskNotReady;

    Launch launch;
    launch.folder = store.Folder().c_str();
    launch.fileName = fileName.c_str();
    launch.identity = record.identity;
    launch.maxRunTime = RunTimeLimit(d, now);
    launch.niceness = NicenessOf(d.priority);
    std::optional<std::string> application = ToUtf8(d.application);
    std::optional<std::string> directory = ToUtf8(d.workingDirectory);
    bool readable = application && directory;
    if (readable) {
        launch.application = std::move(*application);
        launch.directory = directory->empty() ? HomeFolder() : std::move(*directory);
        launch.arguments.push_back(launch.application);
        for (const std::u16string& arg : SplitCommandLine(d.parameters)) {
            std::optional<std::string> utf8 = ToUtf8(arg);
            readable = readable && utf8.has_value();
            launch.arguments.push_back(utf8.value_or(""));
        }
        for (std::string& arg : launch.arguments) launch.argv.push_back(arg.data());
        launch.argv.push_back(nullptr);
    }
    const StartReport report = readable ? Start(launch) : StartReport{EINVAL, 0, 0};

    RunState& run = record.run;
    run.lastRun = ToSystemTime(now, SystemTimeZone());
    run.flags = kRunStarted | (report.error == 0 ? kRunRunning : 0);
    run.startResult = report.error == 0 ? kOk : report.error == EINVAL ? kInvalidArgument : ErrnoResult(report.error);
    run.pid = report.pid;
    run.pidStart = report.pidStart;
    MarkLastRun(&record, now);
    result = store.Write(fileName, record);
    *after = record;
    return result;
}

void MarkLastRun(Record* record, int64_t now) {
    const Definition& d = record->definition;
    RunState& run = record->run;
    run.flags &= ~kRunDeleteWhenDone;
    if ((run.flags & kRunRunning) != 0 && (d.flags & kTaskFlagDeleteWhenDone) != 0 &&
        NextTaskRun(d.triggers, now + 1, SystemTimeZone(), record->identity).kind != NextRunKind::kTime) {
        run.flags |= kRunDeleteWhenDone;
    }
}

bool IsDoneForGood(const Record& record, int64_t now, const TimeZone& zone) {
    const Definition& d = record.definition;
    return (d.flags & kTaskFlagDeleteWhenDone) != 0 && (record.run.flags & kRunStarted) != 0 &&
           record.run.startResult == kOk && !IsRunning(record.run) &&
           NextTaskRun(d.triggers, now + 1, zone, record.identity).kind != NextRunKind::kTime;
}

int32_t TerminateStoredTask(const Store& store, const std::string& fileName, Record* after) {
    StoreLock lock;
    int32_t result = store.Lock(&lock);
    if (result < 0) return result;
    Record record;
    if ((result = store.Read(fileName, &record)) < 0) return result;
    *after = record;
    if (!IsRunning(record.run)) return kTaskNotRunning;
    record.run.flags |= kRunTerminated;
    if ((result = store.Write(fileName, record)) < 0) return result;
    kill(-record.run.pid, SIGKILL);
    *after = record;
    return kOk;
}

}  // namespace vrn::tasks::jobs
