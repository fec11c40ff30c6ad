// A monitor of this process: its machine on the host, listening on a plain transport, and the event by which its program hears.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "companion/driver.h"
#include "companion/object.h"
#include "ftolerance/group.h"
#include "ftolerance/protocol/monitor.h"
#include "quorl/quorlft.h"

namespace quorl::ftolerance {

class MonitorEvent final : public companion::EventObject, public companion::Driver<Monitor, MonitorOutput> {
  public:
    MonitorEvent(int64_t lostInterval, std::string group, quorlftMonitorCallback callback);

    // Once it has its id. QUORL_INVALID_TRANSPORT and others; then it is to be closed.
    static quorl_status start(const std::shared_ptr<MonitorEvent>& self, uint32_t id, uint32_t transport,
                              const std::string& subject) noexcept;

    void run(const companion::Delivery& delivery) noexcept override;
    void closed() noexcept override;
    void wake() noexcept override;
    void received(uint32_t listener, companion::Message&& message) noexcept override;

  private:
    void transmit(Monitor&, MonitorOutput&) noexcept override {}
    void deliver(MonitorOutput news) noexcept override;

    const quorlftMonitorCallback callback_;
    Who who_;  // complete before the first step
    std::atomic<uint32_t> listener_{0};
};

}  // namespace quorl::ftolerance
