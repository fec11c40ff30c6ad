// Ends a connecting of libnats that does not end by itself: no later than its time, its socket is shut down.
//
// libnats bounds the waits of connecting, but not the whole: in a TLS handshake it blocks; the line that answers its CONNECT
// it reads byte for byte as long as bytes come; and when none come in time it tries again without a pause, with a byte
// more in memory each time, until the peer is gone. It shows its socket only when it has connected, so that the socket has
// to be found: among those of this process, by its peer's port and by the options that libnats gives all of its sockets.
// Those that were there before, and those of sessions that have connected, are not it.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <vector>

#include "base/futex.h"

namespace quorl::transport::nats {

class ConnectWatch {
  public:
    // Throws std::bad_alloc.
    ConnectWatch(uint16_t port, int64_t deadline);
    ~ConnectWatch() { end(); }
    ConnectWatch(const ConnectWatch&) = delete;
    ConnectWatch& operator=(const ConnectWatch&) = delete;

    // False: the system gives no thread for it.
    bool started() const noexcept { return started_; }
    // The connecting has ended. Whether it was ended here.
    bool end() noexcept;

  private:
    enum State : uint32_t { connecting, ended };

    void watch() noexcept;
    bool shutDown() noexcept;
    bool sought(int descriptor, uint64_t* inode) const noexcept;

    const uint16_t port_;
    const int64_t deadline_;
    std::vector<uint64_t> before_;  // inodes
    std::atomic<uint32_t> state_{connecting};
    std::atomic<bool> cut_{false};
    bool started_ = false;
    bool joined_ = false;
    pthread_t thread_{};
};

// The socket of a session that has connected; until it is destroyed, which must be before the socket is closed, no watch takes
// it for one that connects.
class ConnectedSocket {
  public:
    explicit ConnectedSocket(int descriptor) noexcept;
    ~ConnectedSocket();
    ConnectedSocket(const ConnectedSocket&) = delete;
    ConnectedSocket& operator=(const ConnectedSocket&) = delete;

  private:
    friend class ConnectWatch;
    const int descriptor_;
    ConnectedSocket* next_;
    ConnectedSocket* previous_ = nullptr;
};

}  // namespace quorl::transport::nats
