#include "host/server/limits.h"

#include <algorithm>

namespace vrn::server {

void LoginThrottle::Decay(Entry& e, Clock::time_point now) const {
    const auto quiet = now - e.lastFailure;
    if (quiet <= settings_.halfLife || e.penalty.count() == 0) return;
    const auto halvings = std::min<int64_t>(quiet / settings_.halfLife, 62);
    e.penalty = Duration(e.penalty.count() >> halvings);
    e.lastFailure += settings_.halfLife * halvings;
}

std::optional<LoginThrottle::Duration> LoginThrottle::Admit(const std::string& address, Clock::time_point now) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto it = entries_.find(address);
    if (it == entries_.end() || it->second.until <= now) return Duration(0);
    const auto wait = std::chrono::ceil<Duration>(it->second.until - now);
    if (wait > settings_.longest) return std::nullopt;
    return wait;
}

void LoginThrottle::Failed(const std::string& address, Clock::time_point now) {
    const std::lock_guard<std::mutex> lock(mutex_);
    auto it = entries_.find(address);
    if (it == entries_.end()) {
        MakeRoom(now);
        it = entries_.emplace(address, Entry{Duration(0), now, now}).first;
    }
    Entry& e = it->second;
    Decay(e, now);
    e.penalty = std::min(settings_.most, std::max(settings_.first, e.penalty * 2));
    e.until = std::max(e.until, now) + e.penalty;
    e.lastFailure = now;
}

size_t LoginThrottle::size() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return entries_.size();
}

void LoginThrottle::MakeRoom(Clock::time_point now) {
    if (entries_.size() < settings_.capacity) return;
    // Forgotten first: addresses whose wait is over and whose penalty has decayed away.
    for (auto it = entries_.begin(); it != entries_.end();) {
        Decay(it->second, now);
        if (it->second.until <= now && it->second.penalty < settings_.first) {
            it = entries_.erase(it);
        } else {
            ++it;
        }
    }
    if (entries_.size() < settings_.capacity) return;
    const auto soonest = std::min_element(entries_.begin(), entries_.end(),
                                          [](const auto& a, const auto& b) { return a.second.until < b.second.until; });
    entries_.erase(soonest);
}

}  // namespace vrn::server
