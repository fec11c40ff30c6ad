// Being the scheduler: the certified listener towards the senders, what comes from it, and what the members are told.
#include "dqueue/protocol/scheduler.h"

#include <algorithm>
#include <new>

#include "certified/protocol/frame.h"
#include "certified/protocol/keyed_hash.h"
#include "certified/protocol/subject.h"
#include "quorl/quorl.h"

namespace quorl::dqueue {
namespace {

constexpr int64_t flushWithin = 20 * milliseconds;
constexpr int64_t beatLeast = 20 * milliseconds;

std::span<const uint8_t> bytesOf(const std::string& text) noexcept {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

}  // namespace

Scheduler::Scheduler(Shared& shared, const Term& term) : shared_(shared), term_(term) {}

Scheduler::~Scheduler() {
    for (const auto& worker : workers_) clearOverdue(*worker);
    for (Stream* stream : dirty_) {
        stream->dirty = false;
        --stream->pins;
    }
    for (const auto& [stream, number] : counting_) --stream->pins;
    shared_.streams.each([](Stream& stream) {
        stream.tasks.clear();
        stream.fresh.clear();
        stream.parked.clear();
        stream.source = stream.delivered = 0;
        stream.listener = 0;
    });
}

// ---- its time

void Scheduler::start() {
    addressEar();
    renew(term_);
}

void Scheduler::addressEar() {
    addressEar_ = shared_.openEar(certified::addressOf(shared_.settings.queue));
    allEar_ = shared_.openEar(std::string(certified::everybody));
}

void Scheduler::renew(const Term& term) {
    term_ = term;
    ++shared_.counts.reigns;
    settling_ = true;
    settlingUntil_ = shared_.now.monotonic + shared_.settings.intervals.activation;
    for (const auto& worker : workers_) {
        worker->attachment = 0;
        worker->offered = worker->inventoried = false;
        worker->unacknowledged.clear();
        worker->resendAt = INT64_MAX;
    }
    beatAt_ = shared_.now.monotonic;
    wanting_ = Wanting::session;
    plainIncarnation_ = certified::keyedHash(shared_.chance.key, "plain " + std::to_string(term.number)) | 1;
    lastPlain_ = 0;
    makeCertified();
    beat(false);
}

// A session of its own with each sender: what was kept for the queue comes to it, and no earlier session counts any more.
void Scheduler::makeCertified() {
    wanting_ = Wanting::session;
    const auto draw = [&](const char* what) {
        return certified::keyedHash(
            shared_.chance.key, what + std::to_string(term_.number) + "." + std::to_string(shared_.counts.sessions));
    };
    ++shared_.counts.sessions;
    certified::Settings settings;
    settings.name = shared_.settings.queue;
    settings.requestOld = true;
    settings.queue = true;
    settings.inFlight = shared_.settings.perStream;
    certified::Chance chance;
    chance.incarnation = draw("incarnation") | 1;
    chance.instance = draw("instance") | 1;
    chance.senderKey = {draw("sender 1"), draw("sender 2")};
    chance.listenerKey = {draw("listener 1"), draw("listener 2")};
    if (certified_)
        certifiedStep([&](certified::Machine& machine, certified::Output& out) { machine.close(shared_.now, out); });
    deliveries_.clear();
    forgetSources();
    certified_ = std::make_unique<certified::Machine>(settings, chance);
    certifiedStep([&](certified::Machine& machine, certified::Output& out) { machine.start(true, shared_.now, out); });
    for (const Pattern& pattern : patterns_) {
        certifiedStep([&](certified::Machine& machine, certified::Output& out) {
            machine.createListener(pattern.ear, pattern.text, shared_.now, out);
        });
    }
    limited_ = false;
    wanting_ = Wanting::nothing;
}

void Scheduler::forgetSources() {
    shared_.streams.each([](Stream& stream) {
        stream.source = stream.delivered = 0;
        stream.listener = 0;
    });
}

void Scheduler::end() noexcept {
    const auto tried = [](auto&& say) {
        try {
            say();
        } catch (const std::bad_alloc&) {
            // As if it had been lost on the way.
        }
    };
    tried([&] { flush(); });
    tried([&] {
        certifiedStep([&](certified::Machine& machine, certified::Output& out) { machine.close(shared_.now, out); });
    });
    for (const Pattern& pattern : patterns_) shared_.closeEar(pattern.ear);
    shared_.closeEar(addressEar_);
    shared_.closeEar(allEar_);
    tried([&] { beat(true); });
}

// ---- the certified machine

template <class F>
void Scheduler::certifiedStep(F&& call) {
    certifiedOut_.clear();
    const auto takeOver = [&] {
        try {
            for (auto& delivery : certifiedOut_.deliveries) deliveries_.push_back(std::move(delivery));
        } catch (const std::bad_alloc&) {
            // It will not deliver them again: its next session does.
            wanting_ = Wanting::session;
            throw;
        }
        for (auto& message : certifiedOut_.messages) shared_.out->messages.push_back(std::move(message));
        for (auto& event : certifiedOut_.events) shared_.out->certified.push_back(std::move(event));
    };
    try {
        call(*certified_, certifiedOut_);
    } catch (const std::bad_alloc&) {
        takeOver();
        throw;
    }
    takeOver();
}

void Scheduler::onCertified(companion::Message message, uint32_t ear) {
    uint32_t listener = 0;
    if (ear != addressEar_ && ear != allEar_) {
        if (std::ranges::find(patterns_, ear, &Pattern::ear) == patterns_.end()) return;  // late
        listener = ear;
    }
    certifiedStep([&](certified::Machine& machine, certified::Output& out) {
        machine.receive(std::move(message), listener, shared_.now, out);
    });
}

uint32_t Scheduler::listenerFor(std::string_view subject) const noexcept {
    for (const Pattern& pattern : patterns_) {
        if (certified::matches(pattern.text, subject)) return pattern.ear;
    }
    return 0;
}

void Scheduler::confirm(Stream& stream, uint64_t number, uint32_t listener) {
    if (stream.source == 0) return;
    if (listener == 0) listener = stream.listener = listenerFor(stream.subject);
    certifiedStep([&](certified::Machine& machine, certified::Output& out) {
        machine.confirm(listener, stream.source, number, certified::Machine::Confirm::soon, shared_.now, out);
    });
}

// Numbers come in their order. Those in between will not come: they are completed, or were given up.
void Scheduler::skipTo(Stream& stream, uint64_t number) {
    const uint64_t first = stream.delivered + 1;
    if (first == number) {
        stream.delivered = number;
        return;
    }
    std::vector<uint64_t> known;
    for (const auto& [at, task] : stream.tasks) {
        if (at >= first && at < number) known.push_back(at);
    }
    std::ranges::sort(known);
    uint64_t next = first;
    for (const uint64_t at : known) {
        if (at > next) stream.settled.add({next, at - 1});
        next = at + 1;
    }
    if (next < number) stream.settled.add({next, number - 1});
    markDirty(stream);
    stream.delivered = number;
}

void Scheduler::onDelivery(const certified::Delivery& delivery) {
    const companion::Message& message = delivery.message;
    const std::string_view subject = message.subject();
    // The name of data was not checked when it was decoded, and a task's stream has to be one that members can speak of.
    certified::Frame data;
    const bool named = !message.attributes().empty() &&
                       certified::decode(message.attributes(), &data) == certified::Decoded::frame &&
                       data.kind == certified::Kind::data && certified::validName(data.name);
    const bool kept = named && delivery.stream != 0;
    Stream* stream = shared_.streams.make(
        named ? StreamRef{data.name, data.incarnation, data.subjectId} : StreamRef{{}, plainIncarnation_, 0},
        shared_.now.monotonic);
    if (stream == nullptr) return;
    uint32_t listener = named ? stream->listener : 0;
    if (listener == 0) {
        listener = listenerFor(subject);
        if (named) stream->listener = listener;
    }
    if (named && stream->subject.empty()) stream->subject = subject;
    const uint64_t number = named ? data.number : lastPlain_ + 1;
    if (kept) stream->source = delivery.stream;
    // Of several whose patterns overlap one counts.
    if (delivery.listener != listener) {
        if (kept) confirm(*stream, number, delivery.listener);
        return;
    }
    if (!kept && full_) {
        ++shared_.counts.dropped;
        return;
    }
    if (kept && number > stream->delivered) skipTo(*stream, number);
    if (stream->settled.contains(number)) return confirm(*stream, number, listener);
    if (const auto found = stream->tasks.find(number); found != stream->tasks.end()) {
        ScheduledTask& task = *found->second;
        task.kept = task.kept || kept;
        if (task.message) return;
        task.message = message;
        task.size = static_cast<uint32_t>(message.image().size());
        taskBytes_ += task.size;
        if (task.state == State::awaited) {
            enqueue(task, false);
            if (shared_.settings.reassignments != 0 && task.reassigned > shared_.settings.reassignments)
                deadLetter(task);
        }
        return;
    }
    ScheduledTask& task = makeTask(*stream, number);
    if (!named) lastPlain_ = number;
    task.kept = kept;
    task.message = message;
    task.size = static_cast<uint32_t>(message.image().size());
    taskBytes_ += task.size;
    enqueue(task, false);
    if (shared_.settings.reassignments != 0 && task.reassigned > shared_.settings.reassignments) deadLetter(task);
}

// What all workers listen to, together.
void Scheduler::updatePatterns(const std::vector<std::string>& cancelled) {
    // What fails in the middle leaves the certified machine with other listeners than these.
    const Wanting before = std::exchange(wanting_, Wanting::patterns);
    std::vector<std::string_view> wanted;
    for (const auto& worker : workers_) {
        if (!worker->offered) continue;
        for (const std::string& pattern : worker->patterns) {
            if (std::ranges::find(wanted, pattern) == wanted.end()) wanted.push_back(pattern);
        }
    }
    bool changed = false;
    bool anew = false;
    for (const std::string_view text : wanted) {
        if (std::ranges::find(patterns_, text, &Pattern::text) != patterns_.end()) continue;
        if (patterns_.size() >= patternsMost) break;
        std::string own(text);
        makeRoom(patterns_, patterns_.size() + 1);
        const uint32_t ear = shared_.openEar(own);
        patterns_.push_back({std::move(own), ear});
        const Pattern& pattern = patterns_.back();
        certifiedStep([&](certified::Machine& machine, certified::Output& out) {
            machine.createListener(pattern.ear, pattern.text, shared_.now, out);
        });
        changed = true;
    }
    // Who is still to say what it listens to may be the one that does.
    for (size_t i = 0; i < patterns_.size() && !settling_;) {
        const Pattern pattern = patterns_[i];
        if (std::ranges::find(wanted, pattern.text) != wanted.end()) {
            ++i;
            continue;
        }
        patterns_.erase(patterns_.begin() + static_cast<ptrdiff_t>(i));
        shared_.closeEar(pattern.ear);
        changed = true;
        bool overlaps = false;
        shared_.streams.each([&](const Stream& stream) {
            overlaps = overlaps || (!stream.subject.empty() && certified::matches(pattern.text, stream.subject) &&
                                    listenerFor(stream.subject) != 0);
        });
        // With another listener of the same stream the certified machine would count as confirmed what this one has not. A new
        // session gets it again.
        anew = anew || overlaps;
        if (overlaps) continue;
        const bool cancel = std::ranges::find(cancelled, pattern.text) != cancelled.end();
        certifiedStep([&](certified::Machine& machine, certified::Output& out) {
            machine.destroyListener(pattern.ear, cancel, shared_.now, out);
        });
    }
    if (changed) shared_.streams.each([](Stream& stream) { stream.listener = 0; });
    if (anew || before != Wanting::nothing) makeCertified();
    if (changed || before != Wanting::nothing) {
        wanting_ = Wanting::patterns;
        dropUnwanted();
    }
    wanting_ = Wanting::nothing;
}

// Tasks that nobody can do stay with their senders.
void Scheduler::dropUnwanted() {
    std::vector<ScheduledTask*> unwanted;
    for (ScheduledTask& task : places_) {
        if ((task.state == State::waiting || task.state == State::parked) && listenerFor(task.message.subject()) == 0)
            unwanted.push_back(&task);
    }
    for (ScheduledTask* task : unwanted) {
        Stream& stream = *task->stream;
        stream.delivered = std::min(stream.delivered, task->number - 1);
        dropTask(*task);
    }
}

// ---- limits

void Scheduler::limitsChanged() {
    updateRoom();
}

void Scheduler::updateRoom() {
    const uint64_t messages = shared_.settings.backlogMessages;
    const uint64_t bytes = shared_.settings.backlogBytes;
    const bool over = (messages != 0 && unassigned_ >= messages) || (bytes != 0 && unassignedBytes_ >= bytes);
    const bool low = (messages == 0 || unassigned_ < messages - messages / 4) &&
                     (bytes == 0 || unassignedBytes_ < bytes - bytes / 4);
    if ((!full_ && over) || (full_ && low && !over)) {
        full_ = !full_;
        Event& event = shared_.tell(full_ ? Event::Kind::backlogFull : Event::Kind::backlogCleared);
        event.number = unassigned_;
        event.bytes = unassignedBytes_;
    }
    const uint64_t roomMessages = full_ ? 0 : messages == 0 ? UINT64_MAX : messages - unassigned_;
    const uint64_t roomBytes = full_ ? 0 : bytes == 0 ? UINT64_MAX : bytes - unassignedBytes_;
    if (roomMessages == UINT64_MAX && roomBytes == UINT64_MAX && !limited_) return;
    limited_ = roomMessages != UINT64_MAX || roomBytes != UINT64_MAX;
    certifiedStep([&](certified::Machine& machine, certified::Output& out) {
        machine.setRoom(roomMessages, roomBytes, shared_.now, out);
    });
}

void Scheduler::tickCertified() {
    certifiedStep([&](certified::Machine& machine, certified::Output& out) { machine.tick(shared_.now, out); });
}

void Scheduler::pump() {
    if (wanting_ == Wanting::patterns) updatePatterns({});
    if (wanting_ == Wanting::session) makeCertified();
    do {
        while (!deliveries_.empty()) {
            onDelivery(deliveries_.front());
            deliveries_.pop_front();
        }
        assign();
        updateRoom();
        if (certified_->due() <= shared_.now.monotonic) tickCertified();
    } while (!deliveries_.empty());
    if (!anyTaken_) return;
    anyTaken_ = false;
    Frame frame = shared_.frameOf(Kind::counted, term_);
    for (const std::string& list : taken_.take()) {
        frame.list = bytesOf(list);
        shared_.sendToAll(frame);
    }
}

// ---- telling

void Scheduler::beat(bool ends) {
    Frame frame = shared_.frameOf(Kind::beat, term_);
    frame.flags = ends ? flagEnds : 0;
    frame.unassigned = unassigned_;
    frame.unassignedBytes = unassignedBytes_;
    frame.completeTime = shared_.settings.completeTime;
    frame.limitMessages = shared_.settings.backlogMessages;
    frame.limitBytes = shared_.settings.backlogBytes;
    frame.limitReassignments = shared_.settings.reassignments;
    shared_.sendToAll(frame);
    shared_.sendTo(shared_.id, frame);
    const int64_t heartbeat = shared_.settings.intervals.heartbeat;
    beatAt_ = shared_.now.monotonic + (settling_ ? std::max(heartbeat / 4, beatLeast) : heartbeat);
}

void Scheduler::markDirty(Stream& stream) {
    if (stream.dirty) return;
    dirty_.push_back(&stream);
    stream.dirty = true;
    ++stream.pins;
    flushAt_ = std::min(flushAt_, shared_.now.monotonic + flushWithin);
}

// There is room.
void Scheduler::noteCount(ScheduledTask& task) noexcept {
    counting_.emplace_back(task.stream, task.number);
    ++task.stream->pins;
    flushAt_ = std::min(flushAt_, shared_.now.monotonic);
}

// What is settled since the last time, and everything up to where there are no gaps.
void Scheduler::flush() {
    GroupLists lists;
    const auto send = [&](Kind kind) {
        Frame frame = shared_.frameOf(kind, term_);
        for (const std::string& list : lists.take()) {
            frame.list = bytesOf(list);
            shared_.sendToAll(frame);
            shared_.sendTo(shared_.id, frame);
        }
    };
    for (Stream* stream : dirty_) {
        const uint64_t upTo = stream->settled.upTo();
        if (upTo != 0) lists.add(GroupKind::done, 0, stream->ref(), {1, upTo});
        auto& fresh = stream->fresh;
        std::ranges::sort(fresh);
        for (size_t i = 0; i < fresh.size();) {
            Range range{fresh[i], fresh[i]};
            while (++i < fresh.size() && fresh[i] <= range.last + 1) range.last = fresh[i];
            if (range.last <= upTo) continue;
            range.first = std::max(range.first, upTo + 1);
            lists.add(GroupKind::done, 0, stream->ref(), range);
        }
    }
    send(Kind::settled);
    for (Stream* stream : dirty_) {
        stream->fresh.clear();
        stream->dirty = false;
        --stream->pins;
    }
    dirty_.clear();
    for (const auto& [stream, number] : counting_) {
        const auto found = stream->tasks.find(number);
        if (found == stream->tasks.end()) continue;
        lists.add(GroupKind::count, found->second->reassigned, stream->ref(), {number, number});
    }
    send(Kind::counted);
    for (const auto& [stream, number] : counting_) --stream->pins;
    counting_.clear();
    flushAt_ = INT64_MAX;
}

void Scheduler::tellTask(Event::Kind kind, const ScheduledTask& task, const WorkerEntry* worker, const char* reason) {
    Event& event = shared_.out->events.emplace_back();
    event.kind = kind;
    if (worker != nullptr) {
        event.member = worker->member;
        event.label = worker->label;
    }
    event.sender = task.stream->name;
    event.subject = task.message ? std::string(task.message.subject()) : task.stream->subject;
    event.number = task.number;
    event.count = task.reassigned;
    event.reason = reason;
}

// ---- times

int64_t Scheduler::due() const noexcept {
    if (wanting_ != Wanting::nothing) return INT64_MIN;
    int64_t due = std::min({certified_->due(), beatAt_, flushAt_, resendAt_});
    if (settling_) due = std::min(due, settlingUntil_);
    if (shared_.settings.completeTime != 0 && !due_.empty())
        due = std::min(due, due_.first()->assignedAt + shared_.settings.completeTime);
    return due;
}

void Scheduler::tick() {
    const int64_t now = shared_.now.monotonic;
    if (certified_->due() <= now) tickCertified();
    lookWhetherSettled();
    while (shared_.settings.completeTime != 0 && !due_.empty() &&
           now - due_.first()->assignedAt >= shared_.settings.completeTime) {
        ScheduledTask& task = *due_.first();
        addOverdue(*task.worker, *task.stream, task.number, false);
        reassign(task, "the complete time has passed", true);
    }
    if (resendAt_ <= now) {
        for (const auto& worker : workers_) {
            if (worker->resendAt <= now) resend(*worker);
        }
        resendAt_ = INT64_MAX;
        for (const auto& worker : workers_) resendAt_ = std::min(resendAt_, worker->resendAt);
    }
    if (beatAt_ <= now) {
        beat(false);
        shared_.election.peers().each([&](const ftolerance::Peer& peer) {
            if (peer.last.state != ftolerance::State::left && find(peer.last.member) == nullptr)
                sendAnew(peer.last.member, 0);
        });
    }
    if (flushAt_ <= now) flush();
}

void Scheduler::count(Counts& counts) const noexcept {
    counts.unassigned = unassigned_;
    counts.unassignedBytes = unassignedBytes_;
    counts.assigned = assigned_;
    counts.memory += taskBytes_ + places_.size() * sizeof(ScheduledTask) + certified_->counts().memory;
    for (const auto& worker : workers_)
        counts.memory += sizeof(WorkerEntry) + worker->unacknowledged.size() * sizeof(WorkerEntry::HandedOut) +
                         worker->overdue.capacity() * sizeof(WorkerEntry::Overdue);
}

}  // namespace quorl::dqueue
