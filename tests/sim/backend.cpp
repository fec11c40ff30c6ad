// A backend for each node of a world.
#include "sim/backend.h"

#include <mutex>
#include <utility>
#include <vector>

#include "base/status.h"
#include "sim/world.h"
#include "transport/router.h"
#include "transport/transport.h"

namespace quorl::sim {
namespace {

using transport::Backend;
using transport::Listener;
using transport::Observer;
using transport::ObserverRef;
using transport::Observers;
using transport::Request;
using transport::Router;

constexpr size_t roomWhenShut = 16;  // messages

// What the program of a node and the transports over it share.
struct Port {
    Router router;
    Node* node = nullptr;
    bool shut = false;
    bool refused = false;  // a message, for want of room
    std::vector<message::ContentRef> waiting;
    Observers observers;  // of the transports over the node
};

// Hears everything: the router finds who listens.
class Hearing final : public Program {
  public:
    Hearing(Node& node, Port& port) : port_(port) { node.subscribe(">", 0); }
    void receive(uint32_t, const message::ContentRef& content) override {
        ThreadState& thread = *threadState();
        ReadGuard guard(thread);
        port_.router.route(thread, content);
    }

  private:
    Port& port_;
};

}  // namespace

struct SimulatedBus::State {
    explicit State(const Plan& given)
        : plan(given),
          ports(given.nodes),
          world(plan, [this](Node& node) { return std::make_unique<Hearing>(node, ports[node.number()]); }) {
        for (uint32_t i = 0; i < plan.nodes; ++i) {
            ports[i].node = &world.node(i);
            ports[i].observers.largestMessage(largest);
            ports[i].observers.connected();
        }
    }

    // Guards the world and what waits for it. Not held while a router adds or removes.
    std::mutex mutex;
    const Plan plan;
    std::vector<Port> ports;
    World world;
};

namespace {

class SimulatedBackend final : public Backend {
  public:
    SimulatedBackend(std::shared_ptr<SimulatedBus::State> state, uint32_t node)
        : state_(std::move(state)), port_(state_->ports[node]) {}

    quorl_status check(std::string_view subject) const noexcept override { return Router::check(subject); }

    quorl_status send(ThreadState&, message::ContentRef content) noexcept override {
        if (const quorl_status status = check(content.sendSubject()); status != QUORL_OK) return status;
        if (content.byteSize() > SimulatedBus::largest)
            return fail(QUORL_INVALID_SIZE, "the simulated bus carries messages of at most %u bytes",
                        SimulatedBus::largest);
        std::lock_guard lock(state_->mutex);
        if (closed_) return fail(QUORL_INVALID_TRANSPORT, "the transport was closed while the message was sent");
        if (port_.observers.state() != Observers::State::connected)
            return fail(QUORL_DAEMON_NOT_CONNECTED, "the simulated bus is away");
        if (!port_.shut) {
            port_.node->publish(std::move(content));
            return QUORL_OK;
        }
        if (port_.waiting.size() >= roomWhenShut) {
            port_.refused = true;
            return noRoom;
        }
        port_.waiting.push_back(std::move(content));
        return QUORL_OK;
    }
    void observe(ObserverRef observer) override { port_.observers.add(std::move(observer)); }
    void unobserve(const Observer& observer) noexcept override { port_.observers.remove(observer); }

    quorl_status deliver(ThreadState& thread, message::ContentRef content) noexcept override {
        return port_.router.route(thread, std::move(content));
    }

    quorl_status listen(Listener& listener) noexcept override {
        port_.router.add(listener);
        return QUORL_OK;
    }
    void unlisten(Listener& listener) noexcept override { port_.router.remove(listener); }
    quorl_status openRequest(Request& request) noexcept override {
        port_.router.add(request);
        return QUORL_OK;
    }
    void closeRequest(Request& request) noexcept override { port_.router.remove(request); }

    void close() noexcept override {
        std::lock_guard lock(state_->mutex);
        closed_ = true;
    }

  private:
    const std::shared_ptr<SimulatedBus::State> state_;
    Port& port_;
    bool closed_ = false;
};

}  // namespace

SimulatedBus::SimulatedBus(const Plan& plan) : state_(std::make_shared<State>(plan)) {}

SimulatedBus::~SimulatedBus() = default;

quorlTransport SimulatedBus::transport(uint32_t node) {
    quorlTransport made = 0;
    return transport::publishTransport(&made, std::make_unique<SimulatedBackend>(state_, node)) == QUORL_OK ? made : 0;
}

bool SimulatedBus::step() {
    std::lock_guard lock(state_->mutex);
    return state_->world.step();
}

void SimulatedBus::shut(uint32_t node) {
    std::lock_guard lock(state_->mutex);
    state_->ports[node].shut = true;
}

void SimulatedBus::open(uint32_t node) {
    std::lock_guard lock(state_->mutex);
    Port& port = state_->ports[node];
    port.shut = false;
    for (auto& content : std::exchange(port.waiting, {})) port.node->publish(std::move(content));
    if (std::exchange(port.refused, false)) port.observers.room();
}

void SimulatedBus::leave(uint32_t node) {
    state_->ports[node].observers.away({"the test says so", 0});
}

void SimulatedBus::comeBack(uint32_t node) {
    state_->ports[node].observers.back({});
}

void SimulatedBus::lose(uint32_t node, const char* reason) {
    state_->ports[node].observers.lost({reason, 0});
}

}  // namespace quorl::sim
