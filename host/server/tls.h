// The server's certificate and key, checked once at start, and the TLS
// sessions of its connections.
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>

namespace vrn::server {

struct SslFree {
    void operator()(SSL* ssl) const { SSL_free(ssl); }
    void operator()(SSL_CTX* ctx) const { SSL_CTX_free(ctx); }
};
using SslSession = std::unique_ptr<SSL, SslFree>;

class TlsContext {
public:
    // Nullptr and why, in a line an operator can act on, when a file can't be
    // read, the certificate has expired or isn't valid yet, or the key isn't
    // the certificate's.
    static std::unique_ptr<TlsContext> Load(const std::string& certificateFile, const std::string& keyFile,
                                            std::string& error);

    // A server-side session; nullptr when memory ran out.
    [[nodiscard]] SslSession NewSession() const;

private:
    explicit TlsContext(SSL_CTX* ctx) : ctx_(ctx) {}
    std::unique_ptr<SSL_CTX, SslFree> ctx_;
};

// OpenSSL's queued errors as one line, the queue emptied.
std::string TlsErrors();

}  // namespace vrn::server
