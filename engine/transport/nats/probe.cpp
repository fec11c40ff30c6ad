// Looking a name up and connecting to it, for the reason of the failure.
#include "transport/nats/probe.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>

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

// 0 when one of the events has come, otherwise an error number.
int await(int socket, short events, int64_t deadline) noexcept {
    pollfd waited{socket, events, 0};
    for (;;) {
        const int64_t left = deadline - monotonicNow();
        const int ready = poll(&waited, 1, left <= 0 ? 0 : static_cast<int>(left / 1'000'000 + 1));
        if (ready == 0) return ETIMEDOUT;
        if (ready > 0) return 0;
        if (errno != EINTR) return errno;
    }
}

Socket socketFor(const addrinfo& address) noexcept {
    return Socket(::socket(address.ai_family, address.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, address.ai_protocol));
}

// 0 when connected, otherwise an error number.
int tryOne(const Socket& socket, const addrinfo& address, int64_t deadline) noexcept {
    if (socket.get() < 0) return errno;
    if (::connect(socket.get(), address.ai_addr, address.ai_addrlen) == 0) return 0;
    if (errno != EINPROGRESS) return errno;
    if (const int error = await(socket.get(), POLLOUT, deadline); error != 0) return error;
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) return errno;
    return error;
}

using Addresses = std::unique_ptr<addrinfo, FreeAddresses>;

// 0, or an error number of the resolver.
int lookUp(const Server& server, Addresses* list) {
    addrinfo wanted{};
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(server.host.c_str(), std::to_string(server.port).c_str(), &wanted, &found);
    if (error == 0) list->reset(found);
    return error;
}

}  // namespace

std::string whyUnreachable(const Server& server, int64_t timeout) {
    const int64_t deadline = monotonicNow() + timeout;
    Addresses list;
    if (const int error = lookUp(server, &list); error != 0)
        return std::string("the host is not known (") + gai_strerror(error) + ")";
    int last = 0;
    for (const addrinfo* address = list.get(); address != nullptr; address = address->ai_next) {
        const Socket socket = socketFor(*address);
        last = tryOne(socket, *address, deadline);
        if (last == 0) return {};
    }
    if (last == ECONNREFUSED) return "refused";
    if (last == ETIMEDOUT) return "no answer";
    return strerrordesc_np(last) != nullptr ? strerrordesc_np(last) : "not reached";
}

bool demandsCertificate(const Server& server, int64_t timeout) {
    const int64_t deadline = monotonicNow() + timeout;
    Addresses list;
    if (lookUp(server, &list) != 0) return false;
    for (const addrinfo* address = list.get(); address != nullptr; address = address->ai_next) {
        const Socket socket = socketFor(*address);
        if (tryOne(socket, *address, deadline) != 0) continue;
        std::array<char, 4096> greeting;
        size_t size = 0;
        while (size < greeting.size() && await(socket.get(), POLLIN, deadline) == 0) {
            const ssize_t count = recv(socket.get(), greeting.data() + size, greeting.size() - size, 0);
            if (count <= 0) break;
            size += static_cast<size_t>(count);
            const std::string_view read(greeting.data(), size);
            if (read.find('\n') != std::string_view::npos)
                return read.find("\"tls_verify\":true") != std::string_view::npos;
        }
        return false;
    }
    return false;
}

}  // namespace quorl::transport::nats
