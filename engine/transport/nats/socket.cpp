// Connecting, TLS, and moving bytes.
#include "transport/nats/socket.h"

#include <arpa/inet.h>
#include <linux/sockios.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <new>

#include "base/c_locale.h"
#include "base/clock.h"

namespace quorl::transport::nats {
namespace {

struct FreeAddresses {
    void operator()(addrinfo* list) const noexcept { freeaddrinfo(list); }
};
struct FreeBio {
    void operator()(BIO* bio) const noexcept { BIO_free(bio); }
};
struct FreeCertificate {
    void operator()(X509* certificate) const noexcept { X509_free(certificate); }
};
struct FreeKey {
    void operator()(EVP_PKEY* key) const noexcept { EVP_PKEY_free(key); }
};
using Bio = std::unique_ptr<BIO, FreeBio>;
using Certificate = std::unique_ptr<X509, FreeCertificate>;

bool awaitSocket(int socket, short events, int64_t deadline) noexcept {
    pollfd waited{socket, events, 0};
    for (;;) {
        const int64_t left = deadline - monotonicNow();
        const int ready =
            poll(&waited, 1, left <= 0 ? 0 : static_cast<int>(std::min<int64_t>(left / 1'000'000 + 1, INT_MAX)));
        if (ready > 0) return true;
        if (ready == 0 && left <= 0) return false;
        if (ready < 0 && errno != EINTR) return false;
    }
}

// 0 when connected, otherwise an error number.
int connectSocket(int socket, const addrinfo& address, int64_t deadline) noexcept {
    if (::connect(socket, address.ai_addr, address.ai_addrlen) == 0) return 0;
    if (errno != EINPROGRESS) return errno;
    if (!awaitSocket(socket, POLLOUT, deadline)) return ETIMEDOUT;
    int error = 0;
    socklen_t size = sizeof error;
    return getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

std::string words(int error) {
    if (error == ECONNREFUSED) return "connection refused";
    if (error == ETIMEDOUT) return "no answer";
    const char* text = strerrordesc_np(error);
    return text != nullptr ? text : "not reached";
}

// ---- the way of OpenSSL to the socket: its own would raise SIGPIPE in a program that writes to a daemon that is gone

int writeToSocket(BIO* bio, const char* bytes, int size) {
    BIO_clear_retry_flags(bio);
    const int descriptor = *static_cast<const int*>(BIO_get_data(bio));
    const ssize_t sent = send(descriptor, bytes, static_cast<size_t>(size), MSG_NOSIGNAL);
    if (sent < 0 && (errno == EAGAIN || errno == EINTR)) BIO_set_retry_write(bio);
    return static_cast<int>(sent);
}

int readFromSocket(BIO* bio, char* bytes, int size) {
    BIO_clear_retry_flags(bio);
    const int descriptor = *static_cast<const int*>(BIO_get_data(bio));
    const ssize_t got = recv(descriptor, bytes, static_cast<size_t>(size), 0);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) BIO_set_retry_read(bio);
    if (got == 0) BIO_set_flags(bio, BIO_FLAGS_IN_EOF);
    return static_cast<int>(got);
}

long controlSocket(BIO* bio, int command, long, void*) {
    if (command == BIO_CTRL_FLUSH) return 1;
    if (command == BIO_CTRL_EOF) return BIO_test_flags(bio, BIO_FLAGS_IN_EOF) != 0 ? 1 : 0;
    return 0;
}

// Null: no memory. Made once, and kept; one that could not be made is tried again with the next connection.
const BIO_METHOD* socketMethod() noexcept {
    static constinit std::atomic<BIO_METHOD*> kept{nullptr};
    if (BIO_METHOD* made = kept.load(std::memory_order_acquire); made != nullptr) return made;
    BIO_METHOD* method = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "quorl socket");
    if (method == nullptr) return nullptr;
    BIO_meth_set_write(method, writeToSocket);
    BIO_meth_set_read(method, readFromSocket);
    BIO_meth_set_ctrl(method, controlSocket);
    BIO_METHOD* other = nullptr;
    if (kept.compare_exchange_strong(other, method, std::memory_order_acq_rel)) return method;
    BIO_meth_free(method);
    return other;
}

// What OpenSSL last complained of on this thread, as whoever runs the program can use it. A text that stays.
const char* lastWords() noexcept {
    const unsigned long error = ERR_peek_last_error();
    ERR_clear_error();
    switch (ERR_GET_LIB(error) == ERR_LIB_SSL ? ERR_GET_REASON(error) : 0) {
        case SSL_R_WRONG_VERSION_NUMBER:
        case SSL_R_HTTP_REQUEST:
        case SSL_R_PACKET_LENGTH_TOO_LONG:
        case SSL_R_RECORD_LENGTH_MISMATCH:
        case SSL_R_RECORD_TOO_SMALL:
        case SSL_R_LENGTH_MISMATCH:
        case SSL_R_LENGTH_TOO_LONG:
        case SSL_R_LENGTH_TOO_SHORT:
        case SSL_R_DATA_LENGTH_TOO_LONG:
        case SSL_R_ENCRYPTED_LENGTH_TOO_LONG:
        case SSL_R_BAD_RECORD_TYPE:
        case SSL_R_UNEXPECTED_RECORD:
        case SSL_R_UNEXPECTED_MESSAGE:
            return "what the daemon sends is not TLS: check host and port, and what passes the connection on between";
        case SSL_R_UNSUPPORTED_PROTOCOL:
        case SSL_R_UNSUPPORTED_SSL_VERSION:
        case SSL_R_NO_PROTOCOLS_AVAILABLE:
        case SSL_R_NO_SHARED_CIPHER:
        case SSL_R_WRONG_CIPHER_RETURNED:
        case SSL_R_TLSV1_ALERT_PROTOCOL_VERSION:
        case SSL_R_TLSV1_ALERT_INSUFFICIENT_SECURITY:
        case SSL_R_SSLV3_ALERT_HANDSHAKE_FAILURE:
            return "the daemon and this library have no version of TLS with a cipher in common: the daemon has to "
                   "offer "
                   "TLS 1.2 or 1.3";
        case SSL_R_DECRYPTION_FAILED:
        case SSL_R_DECRYPTION_FAILED_OR_BAD_RECORD_MAC:
        case SSL_R_SSLV3_ALERT_BAD_RECORD_MAC:
            return "bytes were changed on the way to or from the daemon: check what passes the connection on between";
        default:
            break;
    }
    const char* text = error != 0 ? ERR_reason_error_string(error) : nullptr;
    return text != nullptr ? text : "TLS failed";
}

Bio over(const secure::Secret& text) noexcept {
    return Bio(BIO_new_mem_buf(text.text(), static_cast<int>(text.size())));
}

// Calls use for each certificate of the text.
template <class F>
bool forEachCertificate(const secure::Secret& pem, F&& use) {
    const Bio bio = over(pem);
    if (bio == nullptr) return false;
    for (size_t count = 0;; ++count) {
        const Certificate certificate(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
        if (certificate == nullptr) {
            ERR_clear_error();
            return count != 0;
        }
        if (!use(count, certificate.get())) return false;
    }
}

// The key is not encrypted: nobody is asked for a password.
int noPassword(char*, int, int, void*) {
    return 0;
}

bool showIdentity(SSL_CTX* context, const secure::Credentials& credentials) {
    const bool shown = forEachCertificate(credentials.certPem, [&](size_t count, X509* certificate) {
        return (count == 0 ? SSL_CTX_use_certificate(context, certificate)
                           : static_cast<int>(SSL_CTX_add1_chain_cert(context, certificate))) == 1;
    });
    if (!shown) return false;
    const Bio bio = over(credentials.keyPem);
    if (bio == nullptr) return false;
    const std::unique_ptr<EVP_PKEY, FreeKey> key(PEM_read_bio_PrivateKey(bio.get(), nullptr, noPassword, nullptr));
    return key != nullptr && SSL_CTX_use_PrivateKey(context, key.get()) == 1;
}

// A certificate that the program trusts is enough, whoever has signed it.
bool trust(SSL_CTX* context, const secure::Credentials& credentials) {
    if (!credentials.caPem.present()) return SSL_CTX_set_default_verify_paths(context) == 1;
    X509_STORE* store = SSL_CTX_get_cert_store(context);
    X509_STORE_set_flags(store, X509_V_FLAG_PARTIAL_CHAIN);
    return forEachCertificate(credentials.caPem,
                              [&](size_t, X509* certificate) { return X509_STORE_add_cert(store, certificate) == 1; });
}

bool isAddress(const std::string& host) noexcept {
    in6_addr unused;
    return inet_pton(AF_INET, host.c_str(), &unused) == 1 || inet_pton(AF_INET6, host.c_str(), &unused) == 1;
}

// The certificate must be for that host.
bool expect(SSL* tls, const std::string& host) noexcept {
    if (isAddress(host)) return X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(tls), host.c_str()) == 1;
    SSL_set_hostflags(tls, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    return SSL_set1_host(tls, host.c_str()) == 1 && SSL_set_tlsext_host_name(tls, host.c_str()) == 1;
}

}  // namespace

std::unique_ptr<Socket> Socket::connect(const Server& server, int64_t deadline, std::string* why) {
    addrinfo wanted{};
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(server.host.c_str(), std::to_string(server.port).c_str(), &wanted, &found);
    if (error != 0) {
        const CLocale locale;
        *why = std::string("the host is not known (") + gai_strerror(error) + ")";
        return nullptr;
    }
    const std::unique_ptr<addrinfo, FreeAddresses> list(found);
    int64_t left = 0;
    for (const addrinfo* address = found; address != nullptr; address = address->ai_next) ++left;
    int last = EADDRNOTAVAIL;
    for (const addrinfo* address = found; address != nullptr; address = address->ai_next, --left) {
        const int socket =
            ::socket(address->ai_family, address->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, address->ai_protocol);
        if (socket < 0) {
            last = errno;
            continue;
        }
        std::unique_ptr<Socket> made(new (std::nothrow) Socket(socket));
        if (made == nullptr) {
            close(socket);
            throw std::bad_alloc();
        }
        // What is left is shared, so that an address that does not answer leaves time for the others.
        const int64_t now = monotonicNow();
        last = connectSocket(socket, *address, now + std::max<int64_t>(deadline - now, 0) / left);
        if (last != 0) continue;
        const int one = 1;
        setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        return made;
    }
    *why = words(last);
    return nullptr;
}

Socket::~Socket() {
    if (tls_ != nullptr) {
        SSL_shutdown(tls_);  // a good-bye, if the socket takes it
        SSL_free(tls_);
        ERR_clear_error();
    }
    SSL_CTX_free(context_);
    close(socket_);
}

bool Socket::startTls(const std::string& host, const secure::Credentials& credentials, int64_t deadline, bool* trusted,
                      std::string* why) {
    ERR_clear_error();
    context_ = SSL_CTX_new(TLS_client_method());
    if (context_ == nullptr || SSL_CTX_set_min_proto_version(context_, TLS1_2_VERSION) != 1 ||
        !trust(context_, credentials) || (credentials.certPem.present() && !showIdentity(context_, credentials))) {
        *why = lastWords();
        return false;
    }
    SSL_CTX_set_verify(context_, SSL_VERIFY_PEER, nullptr);
    SSL_CTX_set_mode(context_, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    SSL_CTX_set_options(context_, SSL_OP_NO_RENEGOTIATION | SSL_OP_IGNORE_UNEXPECTED_EOF);
    const BIO_METHOD* method = socketMethod();
    BIO* bio = method != nullptr ? BIO_new(method) : nullptr;
    tls_ = bio != nullptr ? SSL_new(context_) : nullptr;
    if (tls_ == nullptr) {
        BIO_free(bio);
        *why = lastWords();
        return false;
    }
    BIO_set_data(bio, &socket_);
    BIO_set_init(bio, 1);
    SSL_set_bio(tls_, bio, bio);
    if (!expect(tls_, host)) {
        *why = lastWords();
        return false;
    }
    for (;;) {
        ERR_clear_error();
        const int result = SSL_connect(tls_);
        if (result == 1) return true;
        short events;
        switch (SSL_get_error(tls_, result)) {
            case SSL_ERROR_WANT_READ:
                events = POLLIN;
                break;
            case SSL_ERROR_WANT_WRITE:
                events = POLLOUT;
                break;
            default: {
                const long verified = SSL_get_verify_result(tls_);
                *trusted = verified == X509_V_OK;
                *why = verified == X509_V_OK ? std::string(lastWords())
                                             : std::string("the daemon's certificate is not accepted: ") +
                                                   X509_verify_cert_error_string(verified);
                ERR_clear_error();
                return false;
            }
        }
        if (!awaitSocket(socket_, events, deadline)) {
            *why = "no end of the TLS handshake";
            return false;
        }
    }
}

ssize_t Socket::broken(const char* why) noexcept {
    try {
        if (reason_.empty()) reason_ = why;
    } catch (const std::bad_alloc&) {
        // It stays without words.
    }
    return -1;
}

// What a call that moved nothing means.
ssize_t Socket::afterTls(int result) noexcept {
    const int error = errno;
    switch (SSL_get_error(tls_, result)) {
        case SSL_ERROR_WANT_READ:
        case SSL_ERROR_WANT_WRITE:
            return 0;
        case SSL_ERROR_ZERO_RETURN:
            return broken("closed by the daemon");
        case SSL_ERROR_SYSCALL:
            return broken(error != 0 && strerrordesc_np(error) != nullptr ? strerrordesc_np(error)
                                                                          : "closed by the daemon");
        default:
            return broken(lastWords());
    }
}

ssize_t Socket::read(void* bytes, size_t size) noexcept {
    if (tls_ != nullptr) {
        ERR_clear_error();
        errno = 0;
        const int got = SSL_read(tls_, bytes, static_cast<int>(std::min<size_t>(size, INT_MAX)));
        return got > 0 ? got : afterTls(got);
    }
    const ssize_t got = recv(socket_, bytes, size, 0);
    if (got > 0) return got;
    if (got == 0) return broken("closed by the daemon");
    if (errno == EAGAIN || errno == EINTR) return 0;
    return broken(strerrordesc_np(errno));
}

ssize_t Socket::write(const void* bytes, size_t size) noexcept {
    if (size == 0) return 0;
    if (tls_ != nullptr) {
        ERR_clear_error();
        errno = 0;
        const int sent = SSL_write(tls_, bytes, static_cast<int>(std::min<size_t>(size, INT_MAX)));
        return sent > 0 ? sent : afterTls(sent);
    }
    const ssize_t sent = send(socket_, bytes, size, MSG_NOSIGNAL);
    if (sent >= 0) return sent;
    if (errno == EAGAIN || errno == EINTR) return 0;
    return broken(strerrordesc_np(errno));
}

bool Socket::pending() const noexcept {
    return tls_ != nullptr && SSL_pending(tls_) != 0;
}

size_t Socket::underWay() const noexcept {
    int bytes = 0;
    return ioctl(socket_, SIOCOUTQ, &bytes) == 0 && bytes > 0 ? static_cast<size_t>(bytes) : 0;
}

bool Socket::await(short events, int64_t deadline) const noexcept {
    return awaitSocket(socket_, events, deadline);
}

}  // namespace quorl::transport::nats
