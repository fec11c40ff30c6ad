// Finding the socket that libnats connects, and shutting it down.
#include "transport/nats/connect_watch.h"

#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "base/clock.h"
#include "base/mutex.h"

namespace quorl::transport::nats {
namespace {

// After the first time it is looked again this often, since libnats may have gone on to another address of the same host.
constexpr int64_t lookAgain = 20'000'000;

constinit Mutex listLock;
constinit ConnectedSocket* first = nullptr;  // guarded by listLock

struct CloseDirectory {
    void operator()(DIR* directory) const noexcept { closedir(directory); }
};

template <class F>
void forEachDescriptor(F&& visit) {
    const std::unique_ptr<DIR, CloseDirectory> directory(opendir("/proc/self/fd"));
    if (directory == nullptr) return;
    while (const dirent* entry = readdir(directory.get())) {
        if (entry->d_name[0] != '.') visit(std::atoi(entry->d_name));
    }
}

template <class T>
bool option(int descriptor, int level, int name, T* value) noexcept {
    socklen_t size = sizeof *value;
    return getsockopt(descriptor, level, name, value, &size) == 0;
}

}  // namespace

ConnectedSocket::ConnectedSocket(int descriptor) noexcept : descriptor_(descriptor) {
    Lock lock(listLock);
    next_ = first;
    if (next_ != nullptr) next_->previous_ = this;
    first = this;
}

ConnectedSocket::~ConnectedSocket() {
    Lock lock(listLock);
    if (next_ != nullptr) next_->previous_ = previous_;
    (previous_ != nullptr ? previous_->next_ : first) = next_;
}

ConnectWatch::ConnectWatch(uint16_t port, int64_t deadline) : port_(port), deadline_(deadline) {
    forEachDescriptor([&](int descriptor) {
        uint64_t inode;
        if (sought(descriptor, &inode)) before_.push_back(inode);
    });
    started_ = pthread_create(
                   &thread_, nullptr,
                   [](void* watch) -> void* {
                       static_cast<ConnectWatch*>(watch)->watch();
                       return nullptr;
                   },
                   this) == 0;
    if (started_) pthread_setname_np(thread_, "quorl-connect");
}

bool ConnectWatch::end() noexcept {
    if (started_ && !joined_) {
        state_.store(ended, std::memory_order_release);
        futexWake(state_);
        pthread_join(thread_, nullptr);
        joined_ = true;
    }
    return cut_.load(std::memory_order_relaxed);
}

void ConnectWatch::watch() noexcept {
    for (int64_t until = deadline_; state_.load(std::memory_order_acquire) == connecting;) {
        if (futexWait(state_, connecting, until)) continue;
        if (shutDown()) cut_.store(true, std::memory_order_relaxed);
        until = monotonicNow() + lookAgain;
    }
}

// Whether it is, by what can be seen of it, a socket of libnats with such a peer.
bool ConnectWatch::sought(int descriptor, uint64_t* inode) const noexcept {
    sockaddr_in6 peer{};  // the larger of the two, with the port at the same place
    socklen_t size = sizeof peer;
    if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) != 0) return false;
    if ((peer.sin6_family != AF_INET && peer.sin6_family != AF_INET6) || ntohs(peer.sin6_port) != port_) return false;
    int undelayed = 0;
    int reused = 0;
    linger lingering{};
    struct stat status {};
    if (!option(descriptor, IPPROTO_TCP, TCP_NODELAY, &undelayed) ||
        !option(descriptor, SOL_SOCKET, SO_REUSEADDR, &reused) ||
        !option(descriptor, SOL_SOCKET, SO_LINGER, &lingering) || fstat(descriptor, &status) != 0)
        return false;
    *inode = status.st_ino;
    return undelayed != 0 && reused != 0 && lingering.l_onoff != 0 && lingering.l_linger == 0;
}

// Whether there was one.
bool ConnectWatch::shutDown() noexcept {
    bool found = false;
    Lock lock(listLock);
    forEachDescriptor([&](int descriptor) {
        uint64_t inode;
        if (!sought(descriptor, &inode)) return;
        for (const ConnectedSocket* one = first; one != nullptr; one = one->next_) {
            if (one->descriptor_ == descriptor) return;
        }
        // Looked at once more by a descriptor of its own: the other may have become something else meanwhile.
        const int held = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
        if (held < 0) return;
        if (sought(held, &inode) && std::find(before_.begin(), before_.end(), inode) == before_.end()) {
            shutdown(held, SHUT_RDWR);
            // What has come in already could still be read, for seconds: it is thrown away.
            while (recv(held, nullptr, SIZE_MAX / 2, MSG_TRUNC | MSG_DONTWAIT) > 0) {
            }
            found = true;
        }
        close(held);
    });
    return found;
}

}  // namespace quorl::transport::nats
