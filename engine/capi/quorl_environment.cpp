// The environment: opening and closing the library, its parameters, its version.
#include <new>
#include <string_view>
#include <vector>

#include "base/environment.h"
#include "base/status.h"
#include "companion/border.h"
#include "event/module.h"
#include "message/delivery.h"
#include "secure/credentials.h"
#include "transport/circuit/module.h"
#include "transport/module.h"
#include "transport/nats/module.h"
#include "transport/nats/port.h"
#include "transport/parameters.h"

using namespace quorl;

namespace {

constinit const environment::Module messages{
    .parameters = {}, .start = nullptr, .close = nullptr, .stop = nullptr, .forget = message::forgetAll};

quorl_status forgetCredentials() noexcept {
    secure::forgetCredentials();
    return QUORL_OK;
}

constinit const environment::Module credentials{
    .parameters = {}, .start = nullptr, .close = nullptr, .stop = forgetCredentials, .forget = nullptr};

// All parts of the library, each behind those that it stands on.
constexpr const environment::Module* modules[] = {
    &messages,
    &credentials,
    &event::timersModule,
    &transport::nats::module,
    &transport::module,
    &event::module,  // its events go before the transports that feed them
    &transport::circuit::module,
    &companion::border,  // whatever companions have goes while everything else works
};

}  // namespace

extern "C" {

quorl_status quorl_Open(void) noexcept {
    return environment::open(modules, nullptr);
}

quorl_status quorl_OpenEx(const char* pathname) noexcept {
    if (pathname == nullptr) return fail(QUORL_INVALID_ARG, "the path of the parameter file is null");
    return environment::open(modules, *pathname == '\0' ? nullptr : pathname);
}

quorl_status quorl_Close(void) noexcept {
    return environment::close(modules);
}

const char* quorl_Version(void) noexcept {
    return QUORL_VERSION;
}

quorl_status quorl_SetQRParameters(quorl_u32 count, const char** parameters) noexcept {
    try {
        std::vector<std::string_view> settings;
        for (quorl_u32 i = 0; i < count; ++i) {
            if (parameters == nullptr || parameters[i] == nullptr)
                return fail(QUORL_INVALID_ARG, "parameter %u of %u is null", i + 1, count);
            settings.emplace_back(parameters[i]);
        }
        return environment::setParameters(modules, settings);
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for %u parameters", count);
    }
}

quorl_bool quorl_IsIPM(void) noexcept {
    return environment::isOpenWithout(transport::parameters::daemon) ? QUORL_TRUE : QUORL_FALSE;
}

void quorl_DisableQRDMReadyCheck(void) noexcept {
    transport::nats::disableReadyCheck();
}

}  // extern "C"
