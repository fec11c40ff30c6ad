// Fault-tolerance monitors.
#include <memory>
#include <new>
#include <string>

#include "companion/object.h"
#include "companion/status.h"
#include "ftolerance/monitor_event.h"
#include "ftolerance/protocol/intervals.h"
#include "quorl/quorlft.h"

using namespace quorl::ftolerance;
using quorl::companion::fail;
using quorl::companion::Type;

namespace {

quorl_status create(quorlftMonitor* monitor, quorlQueue queue, quorlftMonitorCallback callback,
                    quorlTransport transport, const char* groupName, int64_t lostInterval, const void* closure) {
    std::string subject;
    if (const quorl_status status = groupSubject(transport, groupName, &subject); status != QUORL_OK) return status;
    const auto made = std::make_shared<MonitorEvent>(lostInterval, groupName, callback);
    quorlftMonitor published = 0;
    quorl_status status = quorl::companion::publishEvent(
        made, {.type = Type::monitor, .queue = queue, .closure = closure, .source = groupName}, &published);
    if (status != QUORL_OK) return status;
    status = MonitorEvent::start(made, published, transport, subject);
    if (status != QUORL_OK) {
        const quorl::companion::KeptErrorText kept;
        quorl::companion::close(Type::monitor, published);
        return status;
    }
    *monitor = published;
    return QUORL_OK;
}

}  // namespace

extern "C" {

quorl_status quorlftMonitor_Create(quorlftMonitor* monitor, quorlQueue queue, quorlftMonitorCallback callback,
                                   quorlTransport transport, const char* groupName, quorl_f64 lostInterval,
                                   const void* closure) noexcept {
    if (const quorl_status status = useLibrary(); status != QUORL_OK) return status;
    if (monitor == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the result is null");
    if (callback == nullptr) return fail(QUORL_INVALID_CALLBACK, "a monitor needs a callback");
    int64_t interval = 0;
    if (const char* fault = lostIntervalFrom(lostInterval, &interval); fault != nullptr)
        return fail(QUORL_INVALID_ARG, "%s", fault);
    try {
        return create(monitor, queue, callback, transport, groupName, interval, closure);
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a monitor");
    }
}

quorl_status quorlftMonitor_Destroy(quorlftMonitor monitor) noexcept {
    return quorl::companion::close(Type::monitor, monitor);
}

}  // extern "C"
