// Making and closing members of distributed queues, and carrying out the steps
// of their machines.
#include "dqueue/member.h"

#include <sys/random.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "certified/protocol/subject.h"
#include "companion/module.h"
#include "companion/status.h"
#include "companion/transport.h"
#include "dqueue/letters.h"
#include "dqueue/task_listener.h"

namespace quorl::dqueue {

using companion::fail;
using companion::Message;
using companion::Type;

namespace {

constexpr int64_t pauseWithoutRoom = 2'000'000;  // nanoseconds
constexpr int64_t pauseWithoutMemory = 10'000'000;
constexpr int64_t lastWords = 2'000'000'000;  // to wait for room when it closes
// Messages that wait for room; what is beyond is as if it were lost, but for dead letters: nobody sends those again.
constexpr size_t backlogMost = 20'000;
constexpr uint32_t noEar = UINT32_MAX;  // of the library's listener for questions about the status

quorl_status noMemory() noexcept {
    return fail(QUORL_NO_MEMORY, "no memory for a distributed queue");
}

bool draw(void* to, size_t size) noexcept {
    auto* bytes = static_cast<unsigned char*>(to);
    for (size_t have = 0; have < size;) {
        const ssize_t got = getrandom(bytes + have, size - have, 0);
        if (got <= 0) return false;
        have += static_cast<size_t>(got);
    }
    return true;
}

}  // namespace

QueueMember::QueueMember(uint32_t transport, const Settings& settings, const Chance& chance)
    : transport_(transport),
      queue_(settings.queue),
      statusSubject_("_QUORL.DQ.STATUS." + settings.queue),
      machine_(settings, chance) {}

QueueMember::~QueueMember() = default;

// ---- coming

quorl_status QueueMember::create(uint32_t transport, const Settings& settings, uint32_t* id) {
    Chance chance;
    do {
        if (!draw(&chance.member, sizeof chance.member) || !draw(chance.key.data(), sizeof chance.key))
            return fail(QUORL_OS_ERROR, "the system provides no random numbers");
    } while (chance.member == 0);
    const auto member = std::make_shared<QueueMember>(transport, settings, chance);
    member->makeRoomForDropped(settings.workerTasks);
    uint32_t made = 0;
    ++figures().members;
    quorl_status status = companion::publish(member, {.type = Type::certifiedTransport, .transport = transport}, &made);
    if (status != QUORL_OK) {
        --figures().members;
        return status;
    }
    member->id_ = made;
    status = member->start();
    if (status != QUORL_OK) {
        companion::KeptErrorText kept;
        companion::close(Type::certifiedTransport, made);
        return status;
    }
    *id = made;
    return QUORL_OK;
}

quorl_status QueueMember::start() noexcept {
    if (const quorl_status status = host().add(shared_from_this()); status != QUORL_OK) return status;
    for (const std::string_view subject :
         {std::string_view(machine_.address()), std::string_view(machine_.groupSubject()),
          std::string_view(statusSubject_)}) {
        uint32_t ear = 0;
        if (const quorl_status status = host().listen(*this, transport_, subject, &ear); status != QUORL_OK)
            return status;
        try {
            const std::lock_guard lock(lock_);
            ears_.emplace(ear, subject == statusSubject_ ? noEar : 0);
        } catch (const std::bad_alloc&) {
            host().unlisten(ear);
            return noMemory();
        }
    }
    return call([](Machine& machine, Now now, Output& out) {
        machine.start(now, out);
        return QUORL_OK;
    });
}

// ---- going

// The id stays good while tasks are held, so that the program can complete
// them.
quorl_status QueueMember::leave(quorlcmTransportOnComplete completion, const void* closure) noexcept {
    bool again = false;
    const quorl_status status = step([&](Machine& machine, Now now, Output& out) {
        again = leaveBy_ != 0;
        if (again) return QUORL_INVALID_TRANSPORT;
        leaveBy_ = now.monotonic + int64_t{companion::parameters::leaveSeconds()} * 1'000'000'000;
        completeWith(completion, closure);
        machine.leave(now, out);
        return QUORL_OK;
    });
    if (again) return fail(QUORL_INVALID_TRANSPORT, "distributed queue %u is being destroyed already", id_.load());
    return explain(status);
}

void QueueMember::closed() noexcept {
    std::vector<uint32_t> listeners;
    std::map<uint32_t, uint32_t> ears;
    {
        const std::lock_guard lock(lock_);
        listeners.swap(listeners_);
    }
    // Each finds its listener here, and gives back the tasks that it held.
    for (const uint32_t listener : listeners) companion::close(Type::certifiedListener, listener);
    step(
        [&](Machine& machine, Now now, Output& out) {
            ended_ = true;
            machine.close(now, out);
            return QUORL_OK;
        },
        true);
    if (!host().isHostThread()) flushAll(companion::monotonicNow() + lastWords);
    {
        const std::lock_guard lock(lock_);
        ears.swap(ears_);
        missing_.clear();
    }
    for (const auto& [ear, number] : ears) host().unlisten(ear);
    host().remove(*this);
    --figures().members;
}

void QueueMember::completed() noexcept {
    CertifiedTransport::complete(id_);
}

// The others are to get what it holds now, and not when they have noticed that it is silent.
void QueueMember::parentCloses() noexcept {
    cutOff_.store(true, std::memory_order_release);
    step([&](Machine& machine, Now now, Output& out) {
        machine.close(now, out);
        if (leaveBy_ != 0) machine.leave(now, out);
        return QUORL_OK;
    });
    if (!host().isHostThread()) flushAll(companion::monotonicNow() + lastWords);
}

void QueueMember::parentClosed() noexcept {
    const std::lock_guard lock(lock_);
    backlog_.clear();
    missing_.clear();
}

// ---- steps; all of this under the lock

void QueueMember::carryOut(quorl_status status) noexcept {
    const companion::KeptErrorText kept;
    for (const Ear& ear : out_.ears) open(ear);
    bury();
    for (Message& message : out_.messages) {
        if (backlog_.size() < backlogMost) enqueue(std::move(message));
    }
    flush();
    for (Task& task : out_.tasks) post(task);
    int64_t due = machine_.due();
    const int64_t present = companion::monotonicNow();
    if (!backlog_.empty()) due = std::min(due, present + pauseWithoutRoom);
    if (!missing_.empty() || !letters_.empty()) due = std::min(due, present + pauseWithoutMemory);
    if (leaveBy_ != 0) due = std::min(due, leaveBy_);
    // A machine that had no memory may be due at once again.
    if (status == QUORL_NO_MEMORY) due = std::max(due, present + pauseWithoutMemory);
    if (due != INT64_MAX && !ended_) host().schedule(*this, due);
}

// An ear that finds no memory is tried again; what it would have heard
// meanwhile is as if it had been lost.
void QueueMember::open(const Ear& ear) noexcept {
    try {
        if (ear.subject.empty()) {
            std::erase_if(missing_, [&](const Ear& each) { return each.number == ear.number; });
            const auto known =
                std::find_if(ears_.begin(), ears_.end(), [&](const auto& each) { return each.second == ear.number; });
            if (known == ears_.end()) return;
            host().unlisten(known->first);
            ears_.erase(known);
            return;
        }
        uint32_t listener = 0;
        if (const quorl_status status = host().listen(*this, transport_, ear.subject, &listener);
            status == QUORL_NO_MEMORY) {
            missing_.push_back(ear);
        } else if (status == QUORL_OK) {
            try {
                ears_.emplace(listener, ear.number);
            } catch (const std::bad_alloc&) {
                host().unlisten(listener);
                missing_.push_back(ear);
            }
        }
    } catch (const std::bad_alloc&) {
        // The senders ask again, and the machine hears nothing on that subject
        // until it is the scheduler anew.
    }
}

void QueueMember::openMissing() noexcept {
    std::vector<Ear> again;
    again.swap(missing_);
    for (const Ear& ear : again) open(ear);
}

// False: there was no memory; most messages are then as if they had been lost.
bool QueueMember::enqueue(Message&& message) noexcept {
    try {
        backlog_.push_back(std::move(message));
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

// Sends what there is room for.
void QueueMember::flush() noexcept {
    while (!backlog_.empty()) {
        if (companion::send(transport_, backlog_.front()) == companion::noRoom) return;
        backlog_.pop_front();
    }
}

void QueueMember::post(Task& task) noexcept {
    Message message = std::move(task.message);
    if (!task.certified) {
        if (const quorl_status status = numbered(message, task.number, &message); status != QUORL_OK) {
            drop(task.number);
            return;
        }
    }
    // A listener that is gone has given back what it held, this task too.
    if (companion::post(Type::certifiedListener, task.listener, message, task.number) == QUORL_OK)
        ++figures().delivered;
}

// Waits for room, for as long as messages wait for some. Not on the host's
// thread, and not under the lock.
void QueueMember::flushAll(int64_t deadline) noexcept {
    for (;;) {
        const uint32_t seen = companion::roomReports(transport_);
        {
            const std::lock_guard lock(lock_);
            flush();
            if (backlog_.empty()) return;
        }
        if (companion::monotonicNow() >= deadline || companion::awaitRoom(transport_, seen, deadline) != QUORL_OK)
            return;
    }
}

// ---- the host's thread

void QueueMember::wake() noexcept {
    const companion::Hold<QueueMember> held(Type::certifiedTransport, id_);
    if (!held) return;
    takeDropped();
    bool late = false;
    step([&](Machine& machine, Now now, Output& out) {
        late = leaveBy_ != 0 && now.monotonic >= leaveBy_;
        openMissing();
        machine.tick(now, out);
        return QUORL_OK;
    });
    if (late || left_.load()) companion::close(Type::certifiedTransport, id_);
}

void QueueMember::received(uint32_t ear, Message&& message) noexcept {
    const companion::Hold<QueueMember> held(Type::certifiedTransport, id_);
    if (!held) return;
    bool asks = false;
    step([&](Machine& machine, Now now, Output& out) {
        const auto known = ears_.find(ear);
        if (known == ears_.end()) return QUORL_OK;
        asks = known->second == noEar;
        if (!asks) machine.receive(std::move(message), known->second, now, out);
        return QUORL_OK;
    });
    if (asks) answerStatus(message);
}

void QueueMember::takeDropped() noexcept {
    for (;;) {
        uint32_t task = 0;
        {
            const std::lock_guard lock(droppedLock_);
            if (dropped_.empty()) return;
            task = dropped_.back();
            dropped_.pop_back();
        }
        step([&](Machine& machine, Now now, Output& out) { return machine.giveBack(task, now, out); });
    }
}

// A task that is dropped for want of memory finds room among them. Of very many there is no room for all, as a rule not used.
// Throws std::bad_alloc.
void QueueMember::makeRoomForDropped(uint32_t tasks) {
    constexpr uint32_t most = 65'536;
    const std::lock_guard lock(droppedLock_);
    dropped_.reserve(std::min(tasks, most));
}

// ---- the program

void QueueMember::drop(uint32_t task) noexcept {
    try {
        const std::lock_guard lock(droppedLock_);
        dropped_.push_back(task);
    } catch (const std::bad_alloc&) {
        return;  // the complete time, or the end of the listener, gives it back
    }
    ++figures().dropped;
    host().schedule(*this, companion::monotonicNow());
}

quorl_status QueueMember::complete(uint32_t task) noexcept {
    const quorl_status status =
        call([&](Machine& machine, Now now, Output& out) { return machine.complete(task, now, out); });
    if (status == QUORL_OK) ++figures().completed;
    return status;
}

quorl_status QueueMember::giveBack(uint32_t task) noexcept {
    return call([&](Machine& machine, Now now, Output& out) { return machine.giveBack(task, now, out); });
}

template <class F>
quorl_status QueueMember::onTask(const Message& message, F&& change) noexcept {
    return call([&](Machine& machine, Now now, Output& out) {
        const uint32_t task = machine.taskOf(message);
        return task != 0 ? change(machine, task, now, out) : QUORL_NOT_FOUND;
    });
}

quorl_status QueueMember::complete(const Message& message) noexcept {
    const quorl_status status = onTask(message, [](Machine& machine, uint32_t task, Now now, Output& out) {
        return machine.complete(task, now, out);
    });
    if (status == QUORL_OK) ++figures().completed;
    return status;
}

quorl_status QueueMember::giveBack(const Message& message) noexcept {
    return onTask(message, [](Machine& machine, uint32_t task, Now now, Output& out) {
        return machine.giveBack(task, now, out);
    });
}

quorl_status QueueMember::setWorkerTasks(uint32_t tasks) noexcept {
    try {
        makeRoomForDropped(tasks);
    } catch (const std::bad_alloc&) {
        return noMemory();
    }
    return call([&](Machine& machine, Now now, Output& out) { return machine.setWorkerTasks(tasks, now, out); });
}

quorl_status QueueMember::setBacklogLimit(bool inBytes, uint32_t limit) noexcept {
    return call([&](Machine& machine, Now now, Output& out) {
        uint64_t& changed = inBytes ? backlogBytes_ : backlogMessages_;
        const uint64_t before = std::exchange(changed, limit);
        const quorl_status status = machine.setBacklog(backlogMessages_, backlogBytes_, now, out);
        if (status != QUORL_OK) changed = before;
        return status;
    });
}

uint64_t QueueMember::unassigned() noexcept {
    const std::lock_guard lock(lock_);
    return machine_.counts().unassigned;
}

quorl_status QueueMember::listen(uint32_t queue, quorlcmEventCallback callback, const char* pattern,
                                 const void* closure, uint32_t* id) noexcept {
    try {
        if (pattern == nullptr || !certified::validPattern({pattern, strnlen(pattern, QUORL_SUBJECT_MAX + 1)}))
            return fail(QUORL_INVALID_SUBJECT, "\"%.*s\" is not a valid subject to listen to", QUORL_SUBJECT_MAX,
                        pattern != nullptr ? pattern : "");
        if (*pattern == '_')
            return fail(QUORL_INVALID_SUBJECT, "\"%s\" is the system's: tasks are sent to subjects of the program",
                        pattern);
        const auto listener = std::make_shared<TaskListener>(shared_from_this(), callback, closure);
        uint32_t made = 0;
        quorl_status status = companion::publishEvent(
            listener,
            {.type = Type::certifiedListener, .queue = queue, .closure = closure, .source = pattern, .owner = id_},
            &made);
        if (status != QUORL_OK) return status;
        listener->published(made);
        status = call([&](Machine& machine, Now now, Output& out) {
            listeners_.push_back(made);
            return machine.createListener(made, pattern, now, out);
        });
        if (status != QUORL_OK) {
            companion::KeptErrorText kept;
            companion::close(Type::certifiedListener, made);
            return status;
        }
        *id = made;
        return QUORL_OK;
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a certified listener");
    }
}

void QueueMember::unlisten(uint32_t listener, bool cancel) noexcept {
    companion::KeptErrorText kept;
    step([&](Machine& machine, Now now, Output& out) {
        std::erase(listeners_, listener);
        machine.destroyListener(listener, cancel, now, out);
        return QUORL_OK;
    });
}

// ---- what a status of the machine means

quorl_status QueueMember::explain(quorl_status status) const noexcept {
    switch (status) {
        case QUORL_OK:
            return status;
        case QUORL_INVALID_TRANSPORT:
            if (isCutOff()) return fail(status, "the transport of distributed queue %u has been destroyed", id_.load());
            return fail(status, "distributed queue %u does not exist or has been destroyed", id_.load());
        case QUORL_INVALID_SUBJECT:
            return fail(status, "the subject is malformed or the system's");
        case QUORL_NOT_FOUND:
            if (isCutOff())
                return fail(
                    status,
                    "this member of the queue \"%s\" does not hold the task any more: it went to another worker "
                    "when the transport was destroyed",
                    queue_.c_str());
            return fail(status,
                        "this member of the queue \"%s\" does not hold the task: it "
                        "was completed before, or given to "
                        "another worker when its complete time had passed",
                        queue_.c_str());
        case QUORL_QUEUE_LIMIT:
            return fail(status, "this member of the queue \"%s\" listens to as many subjects as it may",
                        queue_.c_str());
        case QUORL_NO_MEMORY:
            return noMemory();
        default:
            return fail(status, "the value is out of range");
    }
}

}  // namespace quorl::dqueue
