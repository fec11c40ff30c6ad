// A socket to one server, plain or with TLS: what opens it waits up to a deadline, reading and writing never wait.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "secure/credentials.h"
#include "transport/nats/address.h"

struct ssl_ctx_st;
struct ssl_st;

namespace quorl::transport::nats {

class Socket {
  public:
    // Connects to the first address of the server's host that takes it. Null: none, and *why says why. Looking up the host's
    // name may take longer than the deadline, as the system does it. Throws std::bad_alloc.
    static std::unique_ptr<Socket> connect(const Server& server, int64_t deadline, std::string* why);

    ~Socket();
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    // From here on with TLS. Certificate and name of the server are checked: against the authorities of the credentials, or
    // the system's when there are none. False: *why says why, and *trusted whether it
    // is the other side that refused. Throws std::bad_alloc.
    bool startTls(const std::string& host, const secure::Credentials& credentials, int64_t deadline, bool* trusted,
                  std::string* why);

    int socket() const noexcept { return socket_; }

    // Bytes; 0: none for now; -1: the link is broken, or the other side has ended it.
    ssize_t read(void* bytes, size_t size) noexcept;
    ssize_t write(const void* bytes, size_t size) noexcept;

    // Whether bytes wait here that the socket does not show any more.
    bool pending() const noexcept;
    // Waits until the socket can be read, or written. False: not by the deadline.
    bool await(short events, int64_t deadline) const noexcept;
    // Bytes that were written and that the other side's system has not confirmed.
    size_t underWay() const noexcept;
    // Why it is broken, in words.
    const std::string& reason() const noexcept { return reason_; }

  private:
    explicit Socket(int socket) noexcept : socket_(socket) {}
    ssize_t broken(const char* why) noexcept;
    ssize_t afterTls(int result) noexcept;

    int socket_;  // set once
    ssl_ctx_st* context_ = nullptr;
    ssl_st* tls_ = nullptr;  // null: plain
    std::string reason_;
};

}  // namespace quorl::transport::nats
