#include "host/server/tls.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace vrn::server {

namespace {

struct FileClose {
    void operator()(FILE* f) const { std::fclose(f); }
};
struct X509Free {
    void operator()(X509* x) const { X509_free(x); }
};
struct KeyFree {
    void operator()(EVP_PKEY* k) const { EVP_PKEY_free(k); }
};

// Whether a file can be read by this process, and why not.
bool Readable(const std::string& file, const char* what, std::string& error) {
    const std::unique_ptr<FILE, FileClose> f(std::fopen(file.c_str(), "rb"));
    if (f) return true;
    error = std::string("cannot read the TLS ") + what + " " + file + ": " + std::strerror(errno);
    return false;
}

std::string TimeText(const ASN1_TIME* time) {
    BIO* text = BIO_new(BIO_s_mem());
    if (!text) return "?";
    std::string out = "?";
    char* data = nullptr;
    if (ASN1_TIME_print(text, time) == 1) {
        const long n = BIO_get_mem_data(text, &data);
        out.assign(data, static_cast<size_t>(std::max(n, 0L)));
    }
    BIO_free(text);
    return out;
}

}  // namespace

std::string TlsErrors() {
    std::string text;
    while (const unsigned long e = ERR_get_error()) {
        char line[256];
        ERR_error_string_n(e, line, sizeof line);
        if (!text.empty()) text += "; ";
        text += line;
    }
    return text.empty() ? "no reason given" : text;
}

std::unique_ptr<TlsContext> TlsContext::Load(const std::string& certificateFile, const std::string& keyFile,
                                             std::string& error) {
    if (!Readable(certificateFile, "certificate", error) || !Readable(keyFile, "key", error)) return nullptr;
    ERR_clear_error();
    std::unique_ptr<X509, X509Free> certificate;
    {
        const std::unique_ptr<FILE, FileClose> f(std::fopen(certificateFile.c_str(), "rb"));
        if (f) certificate.reset(PEM_read_X509(f.get(), nullptr, nullptr, nullptr));
    }
    if (!certificate) {
        error = "the TLS certificate " + certificateFile + " is not a PEM certificate: " + TlsErrors();
        return nullptr;
    }
    if (X509_cmp_current_time(X509_get0_notAfter(certificate.get())) <= 0) {
        error = "the TLS certificate " + certificateFile + " expired on " +
                TimeText(X509_get0_notAfter(certificate.get())) + ": make or get a new one";
        return nullptr;
    }
    if (X509_cmp_current_time(X509_get0_notBefore(certificate.get())) >= 0) {
        error = "the TLS certificate " + certificateFile + " is not valid before " +
                TimeText(X509_get0_notBefore(certificate.get())) + ": check the clock or the certificate";
        return nullptr;
    }
    std::unique_ptr<SSL_CTX, SslFree> ctx(SSL_CTX_new(TLS_server_method()));
    if (!ctx) {
        error = "TLS cannot start: " + TlsErrors();
        return nullptr;
    }
    // The drivers carry the handshake inside pre-login packets as TLS 1.2 does
    // it; 1.3's tickets after the handshake would reach them as stray records.
    SSL_CTX_set_min_proto_version(ctx.get(), TLS1_2_VERSION);
    SSL_CTX_set_max_proto_version(ctx.get(), TLS1_2_VERSION);
    SSL_CTX_set_options(ctx.get(), SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE);
    SSL_CTX_set_session_cache_mode(ctx.get(), SSL_SESS_CACHE_OFF);
    if (SSL_CTX_use_certificate_chain_file(ctx.get(), certificateFile.c_str()) != 1) {
        error = "the TLS certificate " + certificateFile + " cannot be used: " + TlsErrors();
        return nullptr;
    }
    std::unique_ptr<EVP_PKEY, KeyFree> key;
    {
        const std::unique_ptr<FILE, FileClose> f(std::fopen(keyFile.c_str(), "rb"));
        if (f) key.reset(PEM_read_PrivateKey(f.get(), nullptr, nullptr, nullptr));
    }
    if (!key) {
        error = "the TLS key " + keyFile + " is not a PEM private key without a passphrase: " + TlsErrors();
        return nullptr;
    }
    if (X509_check_private_key(certificate.get(), key.get()) != 1) {
        ERR_clear_error();
        error = "the TLS key " + keyFile + " does not match the certificate " + certificateFile;
        return nullptr;
    }
    if (SSL_CTX_use_PrivateKey(ctx.get(), key.get()) != 1 || SSL_CTX_check_private_key(ctx.get()) != 1) {
        error = "the TLS key " + keyFile + " cannot be used: " + TlsErrors();
        return nullptr;
    }
    return std::unique_ptr<TlsContext>(new TlsContext(ctx.release()));
}

SslSession TlsContext::NewSession() const {
    SslSession ssl(SSL_new(ctx_.get()));
    if (ssl) SSL_set_accept_state(ssl.get());
    return ssl;
}

}  // namespace vrn::server
