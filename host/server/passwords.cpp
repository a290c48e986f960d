#include "host/server/passwords.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <fstream>
#include <vector>

namespace vrn::server {

namespace {

constexpr const char* kScheme = "pbkdf2-sha256";
constexpr unsigned kIterations = 310000;
constexpr size_t kSaltBytes = 16;
constexpr size_t kHashBytes = 32;
constexpr unsigned kMaxIterations = 10000000;  // a hash that would take minutes is refused

std::string Hex(const std::vector<unsigned char>& bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string out;
    for (unsigned char b : bytes) out += kDigits[b >> 4], out += kDigits[b & 15];
    return out;
}

std::optional<std::vector<unsigned char>> FromHex(const std::string& text) {
    if (text.size() % 2) return std::nullopt;
    std::vector<unsigned char> out;
    for (size_t i = 0; i < text.size(); i += 2) {
        auto digit = [](char c) { return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1; };
        const int high = digit(text[i]), low = digit(text[i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        out.push_back(static_cast<unsigned char>(high * 16 + low));
    }
    return out;
}

std::vector<unsigned char> Derive(const std::string& password, const std::vector<unsigned char>& salt,
                                  unsigned iterations, size_t length) {
    std::vector<unsigned char> out(length);
    if (PKCS5_PBKDF2_HMAC(password.data(), static_cast<int>(password.size()), salt.data(), static_cast<int>(salt.size()),
                          static_cast<int>(iterations), EVP_sha256(), static_cast<int>(length), out.data()) != 1) {
        return {};
    }
    return out;
}

struct Parsed {
    unsigned iterations = 0;
    std::vector<unsigned char> salt, hash;
};

std::optional<Parsed> Parse(const std::string& text) {
    const size_t a = text.find('$'), b = text.find('$', a + 1), c = text.find('$', b + 1);
    if (a == std::string::npos || b == std::string::npos || c == std::string::npos) return std::nullopt;
    if (text.compare(0, a, kScheme) != 0) return std::nullopt;
    Parsed p;
    try {
        const unsigned long n = std::stoul(text.substr(a + 1, b - a - 1));
        if (n < 1 || n > kMaxIterations) return std::nullopt;
        p.iterations = static_cast<unsigned>(n);
    } catch (const std::exception&) {
        return std::nullopt;
    }
    auto salt = FromHex(text.substr(b + 1, c - b - 1));
    auto hash = FromHex(text.substr(c + 1));
    if (!salt || !hash || salt->empty() || hash->empty()) return std::nullopt;
    p.salt = std::move(*salt);
    p.hash = std::move(*hash);
    return p;
}

}  // namespace

std::string HashPassword(const std::string& password) {
    std::vector<unsigned char> salt(kSaltBytes);
    if (RAND_bytes(salt.data(), static_cast<int>(salt.size())) != 1) return {};
    const std::vector<unsigned char> hash = Derive(password, salt, kIterations, kHashBytes);
    if (hash.empty()) return {};
    return std::string(kScheme) + "$" + std::to_string(kIterations) + "$" + Hex(salt) + "$" + Hex(hash);
}

bool VerifyPassword(const std::string& password, const std::string& hash) {
    const std::optional<Parsed> p = Parse(hash);
    if (!p) return false;
    const std::vector<unsigned char> derived = Derive(password, p->salt, p->iterations, p->hash.size());
    return derived.size() == p->hash.size() && CRYPTO_memcmp(derived.data(), p->hash.data(), derived.size()) == 0;
}

std::optional<Users> ReadUsers(const std::string& path, std::string& error) {
    std::ifstream in(path);
    if (!in) {
        error = "cannot read the users file " + path;
        return std::nullopt;
    }
    Users users;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty() || line[0] == '#') continue;
        const size_t colon = line.find(':');
        if (colon == 0 || colon == std::string::npos || !Parse(line.substr(colon + 1))) {
            error = path + ":" + std::to_string(number) + ": not a NAME:HASH line (make the hash with --hash-password)";
            return std::nullopt;
        }
        users.hashes[line.substr(0, colon)] = line.substr(colon + 1);
    }
    return users;
}

bool CheckLogin(const Users& users, const std::string& name, const std::string& password) {
    const auto it = users.hashes.find(name);
    if (it == users.hashes.end()) {
        // The same work for an unknown name, so that timing doesn't tell names apart.
        static const std::string decoy = HashPassword("");
        (void)VerifyPassword(password, decoy);
        return false;
    }
    return VerifyPassword(password, it->second);
}

}  // namespace vrn::server
