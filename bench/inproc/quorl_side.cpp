// Our library over its embedded bus: each message is created, filled, sent and destroyed; a dispatcher thread runs the
// listener, which reads the field.
#include <cstring>
#include <thread>
#include <vector>

#include "inproc/sides.h"
#include "support/quorl.h"
#include "support/stream.h"

namespace bench::inproc {
namespace {

// Dispatches one queue on a thread of its own until a callback says that it is done.
struct Subscriber {
    explicit Subscriber(Receiver& r) : receiver(r) {}
    Receiver& receiver;
    bool done = false;  // the dispatcher's own

    static void onMessage(quorlEvent, quorlMsg message, void* closure) {
        auto* self = static_cast<Subscriber*>(closure);
        auto [bytes, size] = payloadOf(message);
        self->done = !self->receiver.on(bytes, size);
    }
};

struct Echo {
    const Bus& bus;
    bool done = false;  // the dispatcher's own

    static void onMessage(quorlEvent, quorlMsg message, void* closure) {
        auto* self = static_cast<Echo*>(closure);
        auto [bytes, size] = payloadOf(message);
        if (Payload::numberOf(bytes) == kEnd) {
            self->done = true;
            return;
        }
        self->bus.publish("bench.back", bytes, size);
    }
};

struct Answer {
    void* place = nullptr;
    size_t size = 0;

    static void onMessage(quorlEvent, quorlMsg message, void* closure) {
        auto* self = static_cast<Answer*>(closure);
        auto [bytes, size] = payloadOf(message);
        std::memcpy(self->place, bytes, size);
        self->size = size;
    }
};

}  // namespace

std::vector<double> quorlStream(size_t size) {
    Bus bus;
    Queue queue;
    StreamState state;
    Receiver receiver(state, size);
    Subscriber subscriber(receiver);
    Listener listener(bus, queue, "bench.stream", Subscriber::onMessage, &subscriber);
    std::thread dispatcher([&] {
        while (!subscriber.done) need(quorlQueue_TimedDispatch(queue.id(), -1), "dispatch");
    });
    double rate = streamRate(state, size, windowFor(size),
                             [&](const void* bytes, size_t length) { bus.publish("bench.stream", bytes, length); });
    dispatcher.join();
    return {rate};
}

std::vector<double> quorlRoundTrips(size_t size) {
    Bus bus;
    Queue there;
    Queue back;
    Echo echo{bus};
    Answer answer;
    Listener echoListener(bus, there, "bench.there", Echo::onMessage, &echo);
    Listener answerListener(bus, back, "bench.back", Answer::onMessage, &answer);
    std::thread dispatcher([&] {
        while (!echo.done) need(quorlQueue_TimedDispatch(there.id(), -1), "dispatch");
    });
    std::vector<double> times = roundTrips(size, [&](const void* bytes, size_t length, void* place) {
        answer.place = place;
        bus.publish("bench.there", bytes, length);
        need(quorlQueue_TimedDispatch(back.id(), -1), "dispatch");
        return answer.size;
    });
    Payload end(size);
    bus.publish("bench.there", end.numbered(kEnd), size);
    dispatcher.join();
    return times;
}

}  // namespace bench::inproc
