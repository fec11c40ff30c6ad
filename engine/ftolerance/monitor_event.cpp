// Counts travel to the program's queue as numbers.
#include "ftolerance/monitor_event.h"

#include <utility>

#include "companion/status.h"

namespace quorl::ftolerance {

MonitorEvent::MonitorEvent(int64_t lostInterval, std::string group, quorlftMonitorCallback callback)
    : Driver(ftolerance::host(), Monitor(lostInterval)), callback_(callback), who_{"monitor", 0, std::move(group)} {}

// The machine starts before anything comes in for it.
quorl_status MonitorEvent::start(const std::shared_ptr<MonitorEvent>& self, uint32_t id, uint32_t transport,
                                 const std::string& subject) noexcept {
    self->who_.id = id;
    quorl_status status = self->host().add(self);
    if (status != QUORL_OK) return status;
    status = self->step([](Monitor& machine, MonitorOutput& out) {
        machine.start(now(), out);
        return QUORL_OK;
    });
    if (status != QUORL_OK) return companion::fail(status, "no memory for a monitor");
    uint32_t listener = 0;
    status = self->host().listen(*self, transport, subject, &listener);
    self->listener_ = listener;
    return status;
}

void MonitorEvent::run(const companion::Delivery& delivery) noexcept {
    callback_(delivery.event, who_.group.c_str(), delivery.tag, const_cast<void*>(delivery.closure));
}

void MonitorEvent::closed() noexcept {
    host().unlisten(listener_.exchange(0));
    host().remove(*this);
}

void MonitorEvent::wake() noexcept {
    step([](Monitor& machine, MonitorOutput& out) {
        machine.tick(now(), out);
        return QUORL_OK;
    });
}

void MonitorEvent::received(uint32_t, companion::Message&& message) noexcept {
    step([&](Monitor& machine, MonitorOutput& out) {
        machine.receive(message.attributes(), now(), out);
        return QUORL_OK;
    });
}

void MonitorEvent::deliver(MonitorOutput news) noexcept {
    const companion::KeptErrorText kept;
    for (const Advisory& advisory : news.advisories) tell(who_, advisory);
    for (const uint32_t count : news.counts) companion::post(companion::Type::monitor, who_.id, {}, count);
}

}  // namespace quorl::ftolerance
