#include "tasks/run_due_posix.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>

#include "frame/procedure.h"
#include "tasks/job_process_posix.h"
#include "tasks/local_time_posix.h"

namespace vrn::tasks::jobs {
namespace {

constexpr char kLookName[] = ".last-look";
constexpr char kBusyName[] = ".run-due.lock";

// The time of the previous look; none on the first.
std::optional<int64_t> PreviousLook(const Store& store) {
    const int fd = open((store.Folder() + "/" + kLookName).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    char text[32];
    const ssize_t n = read(fd, text, sizeof text);
    close(fd);
    int64_t seconds = 0;
    if (n <= 0 || std::from_chars(text, text + n, seconds).ec != std::errc()) return std::nullopt;
    return seconds;
}

int32_t KeepLook(const Store& store, int64_t now) {
    const std::string text = std::to_string(now) + "\n";
    return ErrnoResult(WriteImage(store.Folder().c_str(), kLookName, reinterpret_cast<const uint8_t*>(text.data()),
                                  text.size()));
}

void RemoveDoneTask(const Store& store, const std::string& name, int64_t now, const TimeZone& zone) {
    StoreLock lock;
    Record record;
    if (store.Lock(&lock) < 0 || store.Read(name, &record) < 0 || !IsDoneForGood(record, now, zone)) return;
    (void)store.Remove(name);
}

}  // namespace

int32_t RunDue(const Store& store, int64_t now, const TimeZone& zone, std::vector<std::string>* started) {
    // One look at a time; one that finds another at work leaves the window to it.
    struct Busy {
        int fd;
        ~Busy() {
            if (fd >= 0) close(fd);
        }
    } const busy{open((store.Folder() + "/" + kBusyName).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)};
    if (busy.fd < 0) return ErrnoResult(errno);
    if (flock(busy.fd, LOCK_EX | LOCK_NB) != 0) return errno == EWOULDBLOCK ? kOk : ErrnoResult(errno);

    {
        StoreLock sweep;  // a look writes too, so it sweeps as writers do
        if (const int32_t result = store.Lock(&sweep); result < 0) return result;
    }
    const std::optional<int64_t> previous = PreviousLook(store);
    if (previous && *previous < now) {
        std::vector<std::string> names;
        int32_t result = store.List(&names);
        if (result < 0) return result;
        for (const std::string& name : names) {
            Record record;
            if (store.Read(name, &record) < 0) continue;
            const NextRun next = NextTaskRun(record.definition.triggers, *previous + 1, zone, record.identity);
            if (next.kind != NextRunKind::kTime || next.instant > now || IsRunning(record.run) ||
                (record.definition.flags & kTaskFlagDisabled) != 0) {
                // A run that ended while starts were left, and none is now.
                if (IsDoneForGood(record, now, zone)) RemoveDoneTask(store, name, now, zone);
                continue;
            }
            Record after;
            if (RunStoredTask(store, name, now, &after) >= 0 && started != nullptr) started->push_back(name);
        }
    }
    return KeepLook(store, now);
}

}  // namespace vrn::tasks::jobs

// For vrn-exec --run-due: the due tasks of the store that VRN_TASK_STORE (or
// the user's state folder) names, now.
VRN_EXPORT int32_t vrn_TaskStoreRunDue(void) {
    return vrn::Shielded(
        [] {
            vrn::tasks::jobs::Store store;
            const int32_t result = vrn::tasks::jobs::Store::Open(vrn::tasks::jobs::DefaultFolder(), &store);
            if (result < 0) return result;
            return vrn::tasks::jobs::RunDue(store, vrn::tasks::NowInstant(), vrn::tasks::SystemTimeZone(), nullptr);
        },
        vrn::tasks::kOutOfMemory);
}
