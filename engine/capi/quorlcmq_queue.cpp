// Distributed queues.
#include <unistd.h>

#include <array>
#include <cstring>
#include <new>
#include <string>

#include "companion/certified.h"
#include "companion/module.h"
#include "companion/status.h"
#include "dqueue/member.h"
#include "dqueue/task_listener.h"
#include "ftolerance/protocol/intervals.h"
#include "quorl/private.h"
#include "quorl/quorlcmq.h"

using namespace quorl::dqueue;
using quorl::companion::CertifiedListener;
using quorl::companion::CertifiedTransport;
using quorl::companion::fail;
using quorl::companion::Hold;
using quorl::companion::ObjectRef;
using quorl::companion::Type;

namespace {

// Calls ask(member) with the member held.
template <class F>
quorl_status with(quorlcmTransport id, F&& ask) noexcept {
    const Hold<CertifiedTransport> held(Type::certifiedTransport, id);
    if (!held) return held.status();
    if (!held->isQueue()) return fail(QUORL_INVALID_TRANSPORT, "certified transport %u is no distributed queue", id);
    return ask(static_cast<QueueMember&>(*held));
}

// For people: host and process.
std::string ownLabel() {
    std::array<char, 65> host{};
    if (gethostname(host.data(), host.size() - 1) != 0) host = {'?'};
    const std::string process = "/" + std::to_string(getpid());
    return std::string(host.data()).substr(0, quorl::ftolerance::Label::most - process.size()) + process;
}

quorl_status checkWeight(uint32_t weight) noexcept {
    if (weight != 0 && weight <= workerWeightMost) return QUORL_OK;
    return fail(QUORL_INVALID_ARG, "a worker's weight of %u is out of range: it is from 1 to %u", weight,
                workerWeightMost);
}

quorl_status checkTasks(uint32_t tasks) noexcept {
    if (tasks <= workerTasksMost) return QUORL_OK;
    return fail(QUORL_INVALID_ARG, "%u tasks at once are out of range: a worker takes from 0 to %u", tasks,
                workerTasksMost);
}

}  // namespace

extern "C" {

quorl_status quorlcmTransport_CreateDistributedQueueEx(quorlcmTransport* cmTransport, quorlTransport transport,
                                                       const char* cmName, quorl_u32 workerWeight,
                                                       quorl_u32 workerTasks, quorl_u16 schedulerWeight,
                                                       quorl_f64 schedulerHeartbeat,
                                                       quorl_f64 schedulerActivation) noexcept {
    if (cmTransport == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the result is null");
    // First: in a library that was never opened there are no parameters to read.
    if (const quorl_status status = useModule(); status != QUORL_OK) return status;
    if (cmName == nullptr) return fail(QUORL_INVALID_NAME, "a distributed queue needs a name, and it is null");
    if (const quorl_status status = checkWeight(workerWeight); status != QUORL_OK) return status;
    if (const quorl_status status = checkTasks(workerTasks); status != QUORL_OK) return status;
    if (schedulerWeight == 0) return fail(QUORL_INVALID_ARG, "the scheduler's weight is 0: it is from 1 to 65535");
    try {
        Settings settings;
        settings.queue = std::string(cmName, strnlen(cmName, QUORL_SUBJECT_MAX + 1));
        if (settings.queue.starts_with('_'))
            return fail(QUORL_INVALID_NAME,
                        "\"%.64s\" is not a valid name of a queue: it begins with \"_\", as the system's do",
                        settings.queue.c_str());
        settings.workerWeight = workerWeight;
        settings.workerTasks = workerTasks;
        settings.schedulerWeight = schedulerWeight;
        if (const char* fault =
                quorl::ftolerance::intervalsFrom(schedulerHeartbeat, 0, schedulerActivation, &settings.intervals);
            fault != nullptr)
            return fail(QUORL_INVALID_ARG, "%s", fault);
        settings.label = ownLabel();
        settings.reassignments = quorl::companion::parameters::reassignments();
        if (const char* fault = check(settings); fault != nullptr)
            return fail(QUORL_INVALID_NAME, "\"%.64s\": %s", settings.queue.c_str(), fault);
        return QueueMember::create(transport, settings, cmTransport);
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a distributed queue");
    }
}

quorl_status quorlcmTransport_SetCompleteTime(quorlcmTransport cmTransport, quorl_f64 completeTime) noexcept {
    return with(cmTransport, [&](QueueMember& member) {
        int64_t limit = 0;
        if (const char* fault = completeTimeFrom(completeTime, &limit); fault != nullptr)
            return fail(QUORL_INVALID_ARG, "%s", fault);
        return member.call(
            [&](Machine& machine, Now now, Output& out) { return machine.setCompleteTime(limit, now, out); });
    });
}

quorl_status quorlcmTransport_SetTaskBacklogLimit(quorlcmTransport cmTransport, quorl_u32 kind,
                                                  quorl_u32 limit) noexcept {
    return with(cmTransport, [&](QueueMember& member) {
        if (kind != QUORLCMQ_BACKLOG_MESSAGES && kind != QUORLCMQ_BACKLOG_BYTES)
            return fail(QUORL_INVALID_ARG,
                        "there is no backlog limit of the kind %u: 0 is in messages, "
                        "1 in bytes",
                        kind);
        return member.setBacklogLimit(kind == QUORLCMQ_BACKLOG_BYTES, limit);
    });
}

quorl_status quorlcmTransport_SetWorkerWeight(quorlcmTransport cmTransport, quorl_u32 workerWeight) noexcept {
    return with(cmTransport, [&](QueueMember& member) {
        if (const quorl_status status = checkWeight(workerWeight); status != QUORL_OK) return status;
        return member.call(
            [&](Machine& machine, Now now, Output& out) { return machine.setWorkerWeight(workerWeight, now, out); });
    });
}

quorl_status quorlcmTransport_SetWorkerTasks(quorlcmTransport cmTransport, quorl_u32 workerTasks) noexcept {
    return with(cmTransport, [&](QueueMember& member) {
        if (const quorl_status status = checkTasks(workerTasks); status != QUORL_OK) return status;
        return member.setWorkerTasks(workerTasks);
    });
}

quorl_status quorlcmTransport_GetUnassignedMessageCount(quorlcmTransport cmTransport, quorl_u32* count) noexcept {
    if (count == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the result is null");
    return with(cmTransport, [&](QueueMember& member) {
        const uint64_t unassigned = member.unassigned();
        *count = unassigned < UINT32_MAX ? static_cast<quorl_u32>(unassigned) : UINT32_MAX;
        return QUORL_OK;
    });
}

quorl_status quorlcmEvent_ReturnMsg(quorlcmEvent listener, quorlMsg message) noexcept {
    const Hold<CertifiedListener> held(Type::certifiedListener, listener);
    if (!held) return held.status();
    if (!held->takesTasks()) return fail(QUORL_INVALID_EVENT, "certified listener %u takes no tasks", listener);
    return static_cast<TaskListener&>(*held).giveBack(message);
}

quorl_status _quorlcmq_Complete(void* record, quorl_u32, quorl_u32, quorl_u32, quorl_u32, quorl_u32,
                                quorl_u32 dqsn) noexcept {
    ObjectRef object;
    quorl_u32 id = 0;
    if (const quorl_status status = quorl::companion::objectOf(record, Type::certifiedTransport, &object, &id);
        status != QUORL_OK)
        return status;
    auto& transport = static_cast<CertifiedTransport&>(*object);
    if (!transport.isQueue()) return fail(QUORL_NOT_PERMITTED, "certified transport %u is no distributed queue", id);
    auto& member = static_cast<QueueMember&>(transport);
    return (dqsn & QUORL_DQ_RETURN_BIT) != 0 ? member.giveBack(dqsn & ~QUORL_DQ_RETURN_BIT) : member.complete(dqsn);
}

}  // extern "C"
