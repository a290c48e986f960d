// Logins: salted, slow password hashes (PBKDF2-HMAC-SHA256, OpenSSL's) and
// the users file that holds them. No password is kept or compared in clear.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace vrn::server {

// "pbkdf2-sha256$ITERATIONS$SALT$HASH", salt and hash in hex; empty on failure.
[[nodiscard]] std::string HashPassword(const std::string& password);
// Whether password matches the hash, in a time that doesn't depend on where
// they differ. A malformed hash matches nothing.
[[nodiscard]] bool VerifyPassword(const std::string& password, const std::string& hash);

// NAME:HASH lines; blank lines and lines starting with # are skipped.
struct Users {
    std::map<std::string, std::string> hashes;  // by name as written
};
// Nullopt with a reason in error when the file can't be read or has a bad line.
[[nodiscard]] std::optional<Users> ReadUsers(const std::string& path, std::string& error);

// The users the server takes now: a re-read (SIGHUP) swaps them whole while
// logins in progress keep the set they started with.
class UsersStore {
public:
    explicit UsersStore(Users users) : users_(std::make_shared<const Users>(std::move(users))) {}
    [[nodiscard]] std::shared_ptr<const Users> Get() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return users_;
    }
    void Set(Users users) {
        auto next = std::make_shared<const Users>(std::move(users));
        const std::lock_guard<std::mutex> lock(mutex_);
        users_ = std::move(next);
    }

private:
    mutable std::mutex mutex_;
    std::shared_ptr<const Users> users_;
};

// Checks a login against the users: a name that isn't there costs a hash all the same.
[[nodiscard]] bool CheckLogin(const Users& users, const std::string& name, const std::string& password);

}  // namespace vrn::server
