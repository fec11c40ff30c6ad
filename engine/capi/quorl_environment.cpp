// The environment: opening and closing the library, its parameters, its version.
#include <new>
#include <string_view>
#include <vector>

#include "base/environment.h"
#include "base/reclaimer.h"
#include "base/registry.h"
#include "base/status.h"
#include "event/group.h"
#include "event/queue.h"
#include "event/timer.h"
#include "message/delivery.h"
#include "secure/credentials.h"
#include "transport/alarm_advisories.h"
#include "transport/circuit/circuit.h"
#include "transport/nats/port.h"
#include "transport/transport.h"

using namespace quorl;

namespace {

quorl_status stop() noexcept {
    registry::end();
    transport::circuit::stop();
    // Events first, so that nothing new starts; then what they came from.
    registry::forEachOpen(QUORL_OBJECT_EVENT, [](uint32_t id) { event::destroyEvent(id, nullptr); });
    registry::forEachOpen(QUORL_OBJECT_QUEUE_GROUP, [](uint32_t id) { event::destroyGroup(id); });
    registry::forEachOpen(QUORL_OBJECT_QUEUE, [](uint32_t id) { event::destroyQueue(id, nullptr, nullptr, true); });
    registry::forEachOpen(QUORL_OBJECT_TRANSPORT, [](uint32_t id) { transport::destroyTransport(id, false); });
    reclaimer::finish();
    const quorl_status status = transport::nats::stop();
    event::stopTimers();
    secure::forgetCredentials();
    return status;
}

quorl_status start() noexcept {
    if (threadState() == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    quorl_status status = reclaimer::start();
    if (status != QUORL_OK) return status;
    registry::begin();
    transport::tellAlarms();
    transport::nats::start();
    status = event::createDefaultQueue();
    if (status != QUORL_OK) {
        const KeptErrorText kept;
        stop();
    }
    return status;
}

constexpr environment::Engine engine{start, stop, message::forgetAll};

}  // namespace

extern "C" {

quorl_status quorl_Open(void) {
    return environment::open(engine, nullptr);
}

quorl_status quorl_OpenEx(const char* pathname) {
    if (pathname == nullptr) return fail(QUORL_INVALID_ARG, "no path of a parameter file");
    return environment::open(engine, *pathname == '\0' ? nullptr : pathname);
}

quorl_status quorl_Close(void) {
    return environment::close(engine);
}

const char* quorl_Version(void) {
    return QUORL_VERSION;
}

quorl_status quorl_SetQRParameters(quorl_u32 count, const char** parameters) {
    try {
        std::vector<std::string_view> settings;
        for (quorl_u32 i = 0; i < count; ++i) {
            if (parameters == nullptr || parameters[i] == nullptr)
                return fail(QUORL_INVALID_ARG, "parameter %u of %u is null", i + 1, count);
            settings.emplace_back(parameters[i]);
        }
        return environment::setParameters(settings);
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for %u parameters", count);
    }
}

quorl_bool quorl_IsIPM(void) {
    return environment::isIpm() ? QUORL_TRUE : QUORL_FALSE;
}

void quorl_DisableQRDMReadyCheck(void) {
    environment::disableReadyCheck();
}

}  // extern "C"
