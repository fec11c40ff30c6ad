// The buses of this process, and the ports on them.
#include "transport/embedded/bus.h"

#include <new>
#include <string>

#include "base/status.h"
#include "transport/router.h"

namespace quorl::transport::embedded {
namespace {

constinit Mutex busesLock;

struct Bus {
    Bus(std::string_view busService, std::string_view busNetwork) : service(busService), network(busNetwork) {}

    const std::string service;
    const std::string network;
    uint32_t ports GUARDED_BY(busesLock) = 0;
    Bus* next GUARDED_BY(busesLock) = nullptr;
    Router router;
};

constinit Bus* buses GUARDED_BY(busesLock) = nullptr;

Bus* joinBus(std::string_view service, std::string_view network) {
    Lock lock(busesLock);
    Bus* bus = buses;
    while (bus != nullptr && (bus->service != service || bus->network != network)) bus = bus->next;
    if (bus == nullptr) {
        bus = new Bus(service, network);
        bus->next = buses;
        buses = bus;
    }
    ++bus->ports;
    return bus;
}

// Frees the bus with its last port.
void leaveBus(Bus* bus) noexcept {
    std::unique_ptr<Bus> last;
    Lock lock(busesLock);
    if (--bus->ports != 0) return;
    Bus** link = &buses;
    while (*link != bus) link = &(*link)->next;
    *link = bus->next;
    last.reset(bus);
}

// Goes when no call of its transport can be inside it any more, and none of its listeners is left.
class Port final : public Backend {
  public:
    explicit Port(Bus* bus) noexcept : bus_(bus) {}
    ~Port() override { leaveBus(bus_); }

    quorl_status check(std::string_view subject) const noexcept override { return Router::check(subject); }

    quorl_status send(ThreadState& thread, message::ContentRef content) noexcept override {
        return bus_->router.route(thread, std::move(content));
    }

    quorl_status listen(Listener& listener) noexcept override {
        return guarded([&] { bus_->router.add(listener); });
    }
    void unlisten(Listener& listener) noexcept override { bus_->router.remove(listener); }

    quorl_status openRequest(Request& request) noexcept override {
        return guarded([&] { bus_->router.add(request); });
    }
    void closeRequest(Request& request) noexcept override { bus_->router.remove(request); }

    // It is there, and stays.
    void observe(ObserverRef observer) override {
        observer->largestMessage(QUORL_MSG_MAX_SIZE);
        observer->connected();
    }

    Passage passage(std::string_view, int64_t now) noexcept override {
        Passage passage = Passage::open(now);
        passage.lossless = true;
        return passage;
    }

  private:
    template <class F>
    static quorl_status guarded(F&& change) noexcept {
        try {
            change();
            return QUORL_OK;
        } catch (const std::bad_alloc&) {
            return fail(QUORL_NO_MEMORY, "no memory for a message on the embedded bus");
        }
    }

    Bus* const bus_;
};

}  // namespace

std::unique_ptr<Backend> openPort(std::string_view service, std::string_view network) {
    Bus* bus = joinBus(service, network);
    try {
        return std::make_unique<Port>(bus);
    } catch (const std::bad_alloc&) {
        leaveBus(bus);
        throw;
    }
}

}  // namespace quorl::transport::embedded
