// The certified attributes of messages.
#include "certified/time_limit.h"
#include "companion/status.h"
#include "quorl/quorlcm.h"

using namespace quorl::certified;
using quorl::companion::fail;

namespace {

quorl_status nullPlace() noexcept {
    return fail(QUORL_INVALID_ARG, "the pointer for the result is null");
}

}  // namespace

extern "C" {

quorl_status quorlMsg_GetCMSender(quorlMsg message, const char** sender) noexcept {
    return sender != nullptr ? getSender(message, sender) : nullPlace();
}

quorl_status quorlMsg_GetCMSequence(quorlMsg message, quorl_u64* sequence) noexcept {
    return sequence != nullptr ? getSequence(message, sequence) : nullPlace();
}

quorl_status quorlMsg_GetCMTimeLimit(quorlMsg message, quorl_f64* timeLimit) noexcept {
    return timeLimit != nullptr ? getTimeLimit(message, timeLimit) : nullPlace();
}

quorl_status quorlMsg_SetCMTimeLimit(quorlMsg message, quorl_f64 timeLimit) noexcept {
    return setTimeLimit(message, timeLimit);
}

}  // extern "C"
