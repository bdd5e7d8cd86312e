// SPDX-License-Identifier: Apache-2.0
//
// TLS: settings that are read once, and sessions.
#include "net/tls.hpp"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "net/address.hpp"
#include "net/certificate_names.hpp"
#include "net/revocation.hpp"
#include "net/stream.hpp"
#include "net/wire.hpp"

namespace net {

namespace {

// The first error that OpenSSL has noted, which is the cause of those after it.
std::string openssl_reason() {
    const unsigned long code = ERR_peek_error();
    const char *reason = ERR_reason_error_string(code);
    if (ERR_SYSTEM_ERROR(code)) {
        reason = std::strerror(static_cast<int>(ERR_GET_REASON(code)));
    }
    std::string text = reason != nullptr ? reason : "unknown error of OpenSSL";
    ERR_clear_error();
    return text;
}

// ---- the socket as OpenSSL sees it ---------------------------------------------------------
//
// OpenSSL's own way to write to a socket raises SIGPIPE when the server is gone, which ends
// a process that does not ignore that signal.

Wire &socket_of(BIO *bio) {
    return *static_cast<Wire *>(BIO_get_data(bio));
}

int bio_write(BIO *bio, const char *bytes, int size) {
    BIO_clear_retry_flags(bio);
    const ssize_t sent = socket_of(bio).send({bytes, static_cast<std::size_t>(size)});
    if (sent < 0 && (errno == EAGAIN || errno == EINTR)) {
        BIO_set_retry_write(bio);
    }
    return static_cast<int>(sent);
}

int bio_read(BIO *bio, char *buffer, int size) {
    BIO_clear_retry_flags(bio);
    const ssize_t taken = socket_of(bio).receive(buffer, static_cast<std::size_t>(size));
    if (taken < 0 && (errno == EAGAIN || errno == EINTR)) {
        BIO_set_retry_read(bio);
    } else if (taken == 0) {
        BIO_set_flags(bio, BIO_FLAGS_IN_EOF);
    }
    return static_cast<int>(taken);
}

long bio_control(BIO *bio, int command, long, void *) {
    switch (command) {
        case BIO_CTRL_FLUSH:
            return 1;
        case BIO_CTRL_EOF:
            return BIO_test_flags(bio, BIO_FLAGS_IN_EOF) != 0;
        default:
            return 0;
    }
}

BIO_METHOD *bio_method() {
    static BIO_METHOD *const method = [] {
        BIO_METHOD *made = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "socket without SIGPIPE");
        if (made != nullptr) {
            BIO_meth_set_write(made, bio_write);
            BIO_meth_set_read(made, bio_read);
            BIO_meth_set_ctrl(made, bio_control);
        }
        return made;
    }();
    return method;
}

// A key file with a passphrase must fail: by default OpenSSL asks on the terminal.
int no_passphrase(char *, int, int, void *) {
    return -1;
}

// SSL_set_tlsext_host_name() without the old cast in its definition.
long set_server_name(SSL *ssl, const std::string &name) {
    return SSL_ctrl(ssl, SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
                    const_cast<char *>(name.c_str()));
}

bool load(SSL_CTX *context, const TlsSettings &settings, std::string &error) {
    const auto failed = [&](const std::string &what) {
        error = what + ": " + openssl_reason();
        return false;
    };
    if (settings.ca_file.empty() ? SSL_CTX_set_default_verify_paths(context) != 1
                                 : SSL_CTX_load_verify_file(context, settings.ca_file.c_str()) != 1) {
        return failed(settings.ca_file.empty() ? "the system's certificates" : settings.ca_file);
    }
    if (!settings.crl_file.empty() && !use_revocation_lists(context, settings.crl_file, error)) {
        return false;
    }
    if (settings.certificate_file.empty() != settings.key_file.empty()) {
        error = settings.key_file.empty() ? settings.certificate_file + ": a certificate needs a key file too"
                                          : settings.key_file + ": a key needs a certificate file too";
        return false;
    }
    if (settings.certificate_file.empty()) {
        return true;
    }
    SSL_CTX_set_default_passwd_cb(context, no_passphrase);
    if (SSL_CTX_use_certificate_chain_file(context, settings.certificate_file.c_str()) != 1) {
        return failed(settings.certificate_file);
    }
    if (SSL_CTX_use_PrivateKey_file(context, settings.key_file.c_str(), SSL_FILETYPE_PEM) != 1) {
        return failed(settings.key_file);
    }
    return true;
}

}  // namespace

std::shared_ptr<const TlsContext> TlsContext::make(const TlsSettings &settings, std::string &error) {
    ERR_clear_error();
    SSL_CTX *context = SSL_CTX_new(TLS_client_method());
    if (context == nullptr) {
        error = "TLS: " + openssl_reason();
        return nullptr;
    }
    std::shared_ptr<const TlsContext> made(new TlsContext(context));
    SSL_CTX_set_min_proto_version(context, settings.version_1_3_only ? TLS1_3_VERSION : TLS1_2_VERSION);
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
    SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
    SSL_CTX_set_mode(context, SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER | SSL_MODE_RELEASE_BUFFERS);
    if (!load(context, settings, error)) {
        return nullptr;
    }
    TlsSession::show_keys(context);
    return made;
}

TlsContext::~TlsContext() {
    SSL_CTX_free(context_);
}

// ---- a session ----------------------------------------------------------------------------

TlsSession::TlsSession(ssl_ctx_st *context, Wire &socket, const std::string &name)
    : socket_(socket), ssl_(nullptr), name_(name) {
    ERR_clear_error();
    if (name.empty() || name.find('\0') != std::string::npos) {
        reason_ = "there is no name to check the server's certificate with";
        return;
    }
    ssl_ = SSL_new(context);
    BIO *bio = bio_method() != nullptr ? BIO_new(bio_method()) : nullptr;
    if (ssl_ == nullptr || bio == nullptr) {
        BIO_free(bio);
        SSL_free(ssl_);
        ssl_ = nullptr;
        reason_ = "TLS: " + openssl_reason();
        return;
    }
    BIO_set_data(bio, &socket);
    BIO_set_init(bio, 1);
    SSL_set_bio(ssl_, bio, bio);
    SSL_set_hostflags(ssl_, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT);
    // An address is not sent to the server as the name that is wanted (RFC 6066, 3).
    const bool is_address = Address::parse(name, 0).has_value();
    const bool set = is_address ? X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl_), name.c_str()) == 1
                                : SSL_set1_host(ssl_, name.c_str()) == 1 && set_server_name(ssl_, name) == 1;
    if (!set) {
        SSL_free(ssl_);
        ssl_ = nullptr;
        reason_ = "\"" + name + "\" cannot be the name in a certificate";
        return;
    }
    SSL_set_connect_state(ssl_);
    SSL_set_app_data(ssl_, this);
    SSL_set_verify(ssl_, SSL_VERIFY_PEER, on_verified);
}

void TlsSession::show_keys(ssl_ctx_st *context) {
    SSL_CTX_set_keylog_callback(context, [](const SSL *ssl, const char *line) {
        const auto *self = static_cast<const TlsSession *>(SSL_get_app_data(ssl));
        if (Tap *const tap = self != nullptr ? self->socket_.loop().tap() : nullptr; tap != nullptr) {
            tap->tls_key(line);
        }
    });
}

TlsSession::~TlsSession() {
    SSL_free(ssl_);
}

// Why an error of OpenSSL has ended the session; advice where its own words do not give it.
std::string TlsSession::openssl_failure() const {
    const int reason = ERR_GET_REASON(ERR_peek_error());
    const bool is_version =
        reason == SSL_R_TLSV1_ALERT_PROTOCOL_VERSION || reason == SSL_R_UNSUPPORTED_PROTOCOL;
    return "TLS: " + openssl_reason() +
           (is_version ? std::string("; the server offers only older versions of TLS than ") +
                             oldest_version() + ", which is needed"
                       : "");
}

// OpenSSL forgets the certificate of a server that it refuses.
int TlsSession::on_verified(int is_good, x509_store_ctx_st *store) {
    const int error = X509_STORE_CTX_get_error(store);
    if (is_good == 0 && (error == X509_V_ERR_HOSTNAME_MISMATCH || error == X509_V_ERR_IP_ADDRESS_MISMATCH)) {
        auto *ssl =
            static_cast<SSL *>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
        auto *self = static_cast<TlsSession *>(SSL_get_app_data(ssl));
        self->mismatch_ = ": " + name_mismatch(X509_STORE_CTX_get0_cert(store), self->name_);
    }
    return is_good;
}

const char *TlsSession::oldest_version() const {
    return SSL_get_min_proto_version(ssl_) == TLS1_3_VERSION ? "1.3" : "1.2";
}

// Why a connection may have been closed. Some servers send no alert when no version suits them. With
// TLS 1.3 this side has agreed before the server looks at its certificate, and the alert of a
// server that refuses it is lost when it closes the connection at once.
std::string TlsSession::guess() const {
    if (!connected_) {
        return std::string(
                   " before TLS was agreed on; it may not speak TLS there, or only versions before ") +
               oldest_version();
    }
    return received_ ? ""
                     : "; it may demand a certificate of this side, or not trust the one that it was shown";
}

TlsSession::Result TlsSession::result_of(int rc) {
    switch (SSL_get_error(ssl_, rc)) {
        case SSL_ERROR_NONE:
            return Result::kDone;
        case SSL_ERROR_WANT_READ:
            return Result::kWantRead;
        case SSL_ERROR_WANT_WRITE:
            return Result::kWantWrite;
        case SSL_ERROR_ZERO_RETURN:
            return Result::kEnded;
        case SSL_ERROR_SYSCALL: {
            const int error = errno;
            reason_ = error == 0 ? "the server has closed the connection" : std::strerror(error);
            reason_ += guess();
            ERR_clear_error();
            return Result::kFailed;
        }
        default:
            break;
    }
    const long verified = SSL_get_verify_result(ssl_);
    if (!connected_ && verified != X509_V_OK) {
        reason_ = std::string("the server's certificate is refused: ") +
                  X509_verify_cert_error_string(verified) + mismatch_ + advice_on_refusal(verified);
        ERR_clear_error();
    } else if (ERR_GET_REASON(ERR_peek_error()) == SSL_R_UNEXPECTED_EOF_WHILE_READING) {
        reason_ = std::string("the server has closed the connection") +
                  (connected_ ? " without ending TLS" : "") + guess();
        ERR_clear_error();
    } else {
        reason_ = openssl_failure();
    }
    return Result::kFailed;
}

TlsSession::Result TlsSession::connect() {
    if (ssl_ == nullptr) {
        return Result::kFailed;
    }
    ERR_clear_error();
    errno = 0;
    const Result result = result_of(SSL_connect(ssl_));
    connected_ = result == Result::kDone;
    return result;
}

TlsSession::Result TlsSession::read(char *buffer, std::size_t size, std::size_t &taken) {
    ERR_clear_error();
    errno = 0;
    taken = 0;
    const Result result = result_of(SSL_read_ex(ssl_, buffer, size, &taken));
    received_ = received_ || taken > 0;
    return result;
}

TlsSession::Result TlsSession::write(std::string_view bytes) {
    ERR_clear_error();
    errno = 0;
    std::size_t written;
    return result_of(SSL_write_ex(ssl_, bytes.data(), bytes.size(), &written));
}

void TlsSession::shut_down() {
    if (connected_ && reason_.empty()) {
        ERR_clear_error();
        SSL_shutdown(ssl_);
        ERR_clear_error();
    }
}

}  // namespace net
