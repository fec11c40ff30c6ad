// Fault-tolerance members.
#include <sys/random.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <new>
#include <string>

#include "companion/object.h"
#include "companion/status.h"
#include "ftolerance/member_event.h"
#include "ftolerance/protocol/intervals.h"
#include "quorl/quorlft.h"

using namespace quorl::ftolerance;
using quorl::companion::fail;
using quorl::companion::Hold;
using quorl::companion::Type;

namespace {

// What tells a member from all others that there ever were.
bool drawId(uint64_t* id) noexcept {
    do {
        if (getrandom(id, sizeof *id, 0) != sizeof *id) return false;
    } while (*id == 0);
    return true;
}

Label ownLabel() {
    std::array<char, 65> host{};
    if (gethostname(host.data(), host.size() - 1) != 0) host = {'?'};
    const std::string process = "/" + std::to_string(getpid());
    return Label(std::string(host.data()).substr(0, Label::most - process.size()) + process);
}

quorl_status create(quorlftMember* member, quorlQueue queue, quorlftMemberCallback callback, quorlTransport transport,
                    const char* groupName, const MemberSettings& settings, const void* closure) {
    std::string subject;
    if (const quorl_status status = groupSubject(transport, groupName, &subject); status != QUORL_OK) return status;
    uint64_t id = 0;
    if (!drawId(&id)) return fail(QUORL_INIT_FAILURE, "the system gives no random number for the member");
    const auto made = std::make_shared<MemberEvent>(Member(id, settings, ownLabel()), transport, groupName,
                                                    std::move(subject), callback);
    quorlftMember published = 0;
    quorl_status status = quorl::companion::publishEvent(
        made, {.type = Type::member, .queue = queue, .closure = closure, .source = groupName}, &published);
    if (status != QUORL_OK) return status;
    status = MemberEvent::start(made, published);
    if (status != QUORL_OK) {
        const quorl::companion::KeptErrorText kept;
        quorl::companion::close(Type::member, published);
        return status;
    }
    *member = published;
    return QUORL_OK;
}

}  // namespace

extern "C" {

const char* quorlft_Version(void) noexcept {
    return quorl_Version();
}

quorl_status quorlftMember_Create(quorlftMember* member, quorlQueue queue, quorlftMemberCallback callback,
                                  quorlTransport transport, const char* groupName, quorl_u16 weight,
                                  quorl_u16 activeGoal, quorl_f64 heartbeatInterval, quorl_f64 preparationInterval,
                                  quorl_f64 activationInterval, const void* closure) noexcept {
    if (const quorl_status status = useLibrary(); status != QUORL_OK) return status;
    if (member == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the result is null");
    if (callback == nullptr) return fail(QUORL_INVALID_CALLBACK, "a member needs a callback");
    if (weight == 0) return fail(QUORL_INVALID_ARG, "the weight must be from 1 to 65535");
    if (activeGoal == 0) return fail(QUORL_INVALID_ARG, "the active goal must be from 1 to 65535");
    MemberSettings settings{weight, activeGoal, {}};
    if (const char* fault =
            intervalsFrom(heartbeatInterval, preparationInterval, activationInterval, &settings.intervals);
        fault != nullptr)
        return fail(QUORL_INVALID_ARG, "%s", fault);
    try {
        return create(member, queue, callback, transport, groupName, settings, closure);
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a member");
    }
}

quorl_status quorlftMember_Destroy(quorlftMember member) noexcept {
    return quorl::companion::close(Type::member, member);
}

quorl_status quorlftMember_GetToken(quorlftMember member, quorl_u64* token) noexcept {
    const Hold<MemberEvent> held(Type::member, member);
    if (!held) return held.status();
    if (token == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the token is null");
    *token = held->token();
    return QUORL_OK;
}

quorl_status quorlftMember_SetWeight(quorlftMember member, quorl_u16 weight) noexcept {
    const Hold<MemberEvent> held(Type::member, member);
    if (!held) return held.status();
    if (weight == 0) return fail(QUORL_INVALID_ARG, "the weight must be from 1 to 65535");
    held->setWeight(weight);
    return QUORL_OK;
}

}  // extern "C"
