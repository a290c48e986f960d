// What keeps one client from taking the server: failed logins slowed down
// per address, so that a password can't be guessed at network speed.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace vrn::server {

// Each failure from an address makes the next login from there wait longer
// (doubling, up to a cap); the penalty halves for each quiet minute. Failures
// queue behind one another, so parallel guesses don't go faster than serial
// ones. Only addresses are kept, never names or passwords, and at most
// `capacity` of them: when full, the one whose wait ends first goes.
class LoginThrottle {
public:
    using Clock = std::chrono::steady_clock;
    using Duration = std::chrono::milliseconds;

    struct Settings {
        Duration first{250};         // the wait after one failure
        Duration most{8000};         // the largest step
        Duration longest{30000};     // a login that would wait longer is refused unchecked
        Duration halfLife{60000};    // the penalty halves after this long without a failure
        size_t capacity = 4096;
    };

    LoginThrottle() : LoginThrottle(Settings{}) {}
    explicit LoginThrottle(const Settings& settings) : settings_(settings) {}

    // How long a login from address waits before its password is checked;
    // nullopt when it would wait too long and is refused without a check.
    [[nodiscard]] std::optional<Duration> Admit(const std::string& address, Clock::time_point now);
    void Failed(const std::string& address, Clock::time_point now);
    [[nodiscard]] size_t size() const;

private:
    struct Entry {
        Duration penalty{0};
        Clock::time_point until;       // logins wait until then
        Clock::time_point lastFailure;
    };
    void Decay(Entry& e, Clock::time_point now) const;
    void MakeRoom(Clock::time_point now);

    Settings settings_;
    mutable std::mutex mutex_;
    std::map<std::string, Entry> entries_;
};

}  // namespace vrn::server
