// The list of the modules of companions, and the border's own place among the modules of the library.
#include "companion/module.h"

#include <atomic>

#include "base/environment.h"
#include "base/mutex.h"
#include "companion/border.h"
#include "companion/objects.h"
#include "companion/parameters.h"
#include "transport/local.h"
#include "transport/statistics.h"

namespace quorl::companion {
namespace {

constinit Mutex adding;
// The newest first; only ever grows.
constinit std::atomic<Module*> modules{nullptr};

bool known(const Module& module) noexcept {
    for (const Module* each = modules.load(std::memory_order_acquire); each != nullptr; each = each->next) {
        if (each == &module) return true;
    }
    return false;
}

template <class F>
void forEach(F&& call) noexcept {
    for (Module* each = modules.load(std::memory_order_acquire); each != nullptr; each = each->next) call(*each);
}

void fill(message::Builder& message) noexcept {
    forEach([&](const Module& module) {
        if (module.statistics == nullptr) return;
        message::Builder own;
        Statistics statistics(own);
        module.statistics(statistics);
        message.message(module.name, own);
    });
}

constinit transport::statistics::Part part{fill};

bool answer(std::string_view asked, message::Builder& message) noexcept {
    const size_t end = asked.find('.');
    if (end == std::string_view::npos) return false;
    for (Module* each = modules.load(std::memory_order_acquire); each != nullptr; each = each->next) {
        if (each->answer == nullptr || asked.substr(0, end) != each->name) continue;
        Statistics fields(message);
        return each->answer(asked.substr(end + 1), fields);
    }
    return false;
}

quorl_status start() noexcept {
    objects::watchTransports();
    transport::statistics::add(part);
    transport::local::answerBy(answer);
    return QUORL_OK;
}

void close() noexcept {
    objects::closeAll();
    forEach([](const Module& module) {
        if (module.close != nullptr) module.close();
    });
}

quorl_status stop() noexcept {
    forEach([](const Module& module) {
        if (module.stopped != nullptr) module.stopped();
    });
    return QUORL_OK;
}

void forget() noexcept {
    forEach([](const Module& module) {
        if (module.forget != nullptr) module.forget();
    });
}

}  // namespace

constinit const environment::Module border{
    .parameters = parameters::all, .start = start, .close = close, .stop = stop, .forget = forget};

quorl_status use(Module& module) noexcept {
    if (!environment::isOpen()) return environment::requireOpen();
    if (known(module)) return QUORL_OK;
    Lock lock(adding);
    if (known(module)) return QUORL_OK;
    module.next = modules.load(std::memory_order_relaxed);
    modules.store(&module, std::memory_order_release);
    return QUORL_OK;
}

uint32_t parameters::pendingMegabytes() noexcept {
    return environment::parameters().of(certifiedPending);
}

}  // namespace quorl::companion
