// Looking a name up and connecting to it, for the reason of the failure.
#include "transport/nats/probe.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "base/clock.h"

namespace quorl::transport::nats {
namespace {

struct FreeAddresses {
    void operator()(addrinfo* list) const noexcept { freeaddrinfo(list); }
};

class Socket {
  public:
    explicit Socket(int descriptor) noexcept : descriptor_(descriptor) {}
    ~Socket() {
        if (descriptor_ >= 0) ::close(descriptor_);
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    int get() const noexcept { return descriptor_; }

  private:
    const int descriptor_;
};

// 0 when connected, otherwise an error number.
int tryOne(const addrinfo& address, int64_t deadline) noexcept {
    const Socket socket(
        ::socket(address.ai_family, address.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, address.ai_protocol));
    if (socket.get() < 0) return errno;
    if (::connect(socket.get(), address.ai_addr, address.ai_addrlen) == 0) return 0;
    if (errno != EINPROGRESS) return errno;
    pollfd waited{socket.get(), POLLOUT, 0};
    for (;;) {
        const int64_t left = deadline - monotonicNow();
        const int ready = poll(&waited, 1, left <= 0 ? 0 : static_cast<int>(left / 1'000'000 + 1));
        if (ready == 0) return ETIMEDOUT;
        if (ready > 0) break;
        if (errno != EINTR) return errno;
    }
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) return errno;
    return error;
}

}  // namespace

std::string whyUnreachable(const Server& server, int64_t timeout) {
    const int64_t deadline = monotonicNow() + timeout;
    addrinfo wanted{};
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(server.host.c_str(), std::to_string(server.port).c_str(), &wanted, &found);
    if (error != 0) return std::string("the host is not known (") + gai_strerror(error) + ")";
    const std::unique_ptr<addrinfo, FreeAddresses> list(found);
    int last = 0;
    for (const addrinfo* address = found; address != nullptr; address = address->ai_next) {
        last = tryOne(*address, deadline);
        if (last == 0) return {};
    }
    if (last == ECONNREFUSED) return "refused";
    if (last == ETIMEDOUT) return "no answer";
    return strerrordesc_np(last) != nullptr ? strerrordesc_np(last) : "not reached";
}

}  // namespace quorl::transport::nats
