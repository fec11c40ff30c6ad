// libzmq over inproc, PUB and SUB. XPUB_NODROP: a full pipe blocks the publisher instead of dropping.
#include <zmq.h>

#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "inproc/sides.h"
#include "support/stream.h"

namespace bench::inproc {
namespace {

void need(bool fine, const char* what) {
    if (!fine) fail(std::string("libzmq: ") + what + ": " + zmq_strerror(zmq_errno()));
}

struct TermContext {
    void operator()(void* context) const { zmq_ctx_term(context); }
};
struct CloseSocket {
    void operator()(void* socket) const { zmq_close(socket); }
};
using Context = std::unique_ptr<void, TermContext>;
using Socket = std::unique_ptr<void, CloseSocket>;

Socket open(const Context& context, int type, const char* address) {
    Socket socket(zmq_socket(context.get(), type));
    need(socket != nullptr, "socket");
    auto set = [&](int option, int value) {
        need(zmq_setsockopt(socket.get(), option, &value, sizeof value) == 0, "option");
    };
    set(ZMQ_SNDHWM, 10'000);
    set(ZMQ_RCVHWM, 10'000);
    set(ZMQ_LINGER, 0);
    if (type == ZMQ_PUB) {
        set(ZMQ_XPUB_NODROP, 1);
        need(zmq_bind(socket.get(), address) == 0, "bind");
    } else {
        need(zmq_setsockopt(socket.get(), ZMQ_SUBSCRIBE, "", 0) == 0, "subscribe");
        need(zmq_connect(socket.get(), address) == 0, "connect");
    }
    return socket;
}

void send(const Socket& socket, const void* bytes, size_t size) {
    need(zmq_send(socket.get(), bytes, size, 0) == static_cast<int>(size), "send");
}

// Calls on(bytes, size) for each message until it answers false.
template <class F>
void receive(const Socket& socket, F&& on) {
    zmq_msg_t message;
    zmq_msg_init(&message);
    do {
        need(zmq_msg_recv(&message, socket.get(), 0) >= 0, "receive");
    } while (on(zmq_msg_data(&message), zmq_msg_size(&message)));
    zmq_msg_close(&message);
}

}  // namespace

std::vector<double> zmqStream(size_t size) {
    Context context(zmq_ctx_new());
    Socket out = open(context, ZMQ_PUB, "inproc://stream");
    StreamState state;
    std::thread subscriber([&] {
        Socket in = open(context, ZMQ_SUB, "inproc://stream");
        Receiver receiver(state, size);
        receive(in, [&](const void* bytes, size_t length) { return receiver.on(bytes, length); });
    });
    double rate = streamRate(state, size, 0, [&](const void* bytes, size_t length) { send(out, bytes, length); });
    subscriber.join();
    return {rate};
}

std::vector<double> zmqRoundTrips(size_t size) {
    Context context(zmq_ctx_new());
    Socket there = open(context, ZMQ_PUB, "inproc://there");
    Socket thereIn = open(context, ZMQ_SUB, "inproc://there");
    Socket back = open(context, ZMQ_PUB, "inproc://back");
    Socket backIn = open(context, ZMQ_SUB, "inproc://back");
    // A publisher learns of a subscription when it next sends; until then what it sends is dropped.
    auto settle = [&](const Socket& out, const Socket& in) {
        int limit = 10;
        need(zmq_setsockopt(in.get(), ZMQ_RCVTIMEO, &limit, sizeof limit) == 0, "option");
        char byte = 0;
        do {
            send(out, &byte, 1);
        } while (zmq_recv(in.get(), &byte, 1, 0) < 0);
        while (zmq_recv(in.get(), &byte, 1, 0) >= 0) continue;
        limit = -1;
        need(zmq_setsockopt(in.get(), ZMQ_RCVTIMEO, &limit, sizeof limit) == 0, "option");
    };
    settle(there, thereIn);
    settle(back, backIn);

    std::thread echo([&] {
        receive(thereIn, [&](const void* bytes, size_t length) {
            if (Payload::numberOf(bytes) == kEnd) return false;
            send(back, bytes, length);
            return true;
        });
    });
    std::vector<double> times = roundTrips(size, [&](const void* bytes, size_t length, void* answer) {
        send(there, bytes, length);
        int got = zmq_recv(backIn.get(), answer, length, 0);
        need(got >= 0, "receive");
        return static_cast<size_t>(got);
    });
    Payload end(size);
    send(there, end.numbered(kEnd), size);
    echo.join();
    return times;
}

}  // namespace bench::inproc
