// A socket that listens on a free port of this machine.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

namespace quorltest {

// The caller closes it. backlog: connections that may wait to be accepted.
inline int listenOnLoopback(int backlog, int* port) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(listener, backlog), 0);
    socklen_t size = sizeof address;
    EXPECT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);
    *port = ntohs(address.sin_port);
    return listener;
}

}  // namespace quorltest
