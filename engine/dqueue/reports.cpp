// What a member tells: advisories, dead letters, and the answer to who asks how
// the queue is.
#include <algorithm>
#include <iterator>
#include <new>
#include <vector>

#include "certified/advisories.h"
#include "companion/advisory.h"
#include "companion/builder.h"
#include "companion/status.h"
#include "companion/transport.h"
#include "dqueue/letters.h"
#include "dqueue/member.h"

namespace quorl::dqueue {

using companion::advise;
using companion::Field;
using companion::Message;
using companion::Severity;

void QueueMember::tell(const News& news) const noexcept {
    if ((news.events.empty() && news.certified.empty()) || !companion::advisoriesHeard()) return;
    const companion::KeptErrorText kept;
    for (const certified::Event& event : news.certified) certified::tell(event, id_, queue_);
    for (const Event& event : news.events) tell(event);
}

// Fields without a value are left out where they are texts, and told where they
// are numbers.
void QueueMember::tell(const Event& event) const noexcept {
    constexpr std::string_view source = "dqueue";
    std::string who;
    try {
        if (event.member != 0) who = memberText(event.member);
    } catch (const std::bad_alloc&) {
        return;
    }
    const Field transport("transport", id_.load());
    const Field queue("queue", std::string_view(queue_));
    const Field member("member", std::string_view(who));
    const Field label("label", std::string_view(event.label));
    const Field sender("sender", std::string_view(event.sender));
    const Field subject("subject", std::string_view(event.subject));
    const Field number("number", event.number);
    const Field reason("reason", event.reason);
    switch (event.kind) {
        case Event::Kind::schedulerChanged:
            return advise(Severity::info, source, "scheduler_changed", {transport, queue, member, label});
        case Event::Kind::disagreement:
            return advise(Severity::warn, source, "disagreement", {transport, queue, member, label, reason});
        case Event::Kind::newerMember:
            return advise(Severity::warn, source, "newer_member", {transport, queue, member, label});
        case Event::Kind::crowded:
            return advise(Severity::warn, source, "crowded", {transport, queue, {"members", event.number}});
        case Event::Kind::workerJoined:
            return advise(Severity::info, source, "worker_joined",
                          {transport, queue, member, label, {"tasks", event.number}});
        case Event::Kind::workerLost:
            return advise(Severity::warn, source, "worker_lost",
                          {transport, queue, member, label, {"held", event.number}});
        case Event::Kind::workerLeft:
            return advise(Severity::info, source, "worker_left", {transport, queue, member, label});
        case Event::Kind::taskReassigned:
            return advise(
                Severity::warn, source, "task_reassigned",
                {transport, queue, member, label, sender, subject, number, {"reassigned", event.count}, reason});
        case Event::Kind::backlogFull:
            return advise(Severity::warn, source, "backlog_full",
                          {transport, queue, {"messages", event.number}, {"bytes", event.bytes}});
        case Event::Kind::backlogCleared:
            return advise(Severity::info, source, "backlog_cleared",
                          {transport, queue, {"messages", event.number}, {"bytes", event.bytes}});
        case Event::Kind::deadLetter:
            return advise(Severity::error, source, "dead_letter",
                          {transport, queue, sender, subject, number, {"reassigned", event.count}});
        case Event::Kind::completedTwice:
            return advise(Severity::warn, source, "completed_twice",
                          {transport, queue, member, label, sender, subject, number});
    }
}

// Under the lock: the letters of the step, and those that wait for memory.
void QueueMember::bury() noexcept {
    if (letters_.empty()) {
        letters_.swap(out_.deadLetters);
    } else {
        try {
            letters_.insert(letters_.end(), std::make_move_iterator(out_.deadLetters.begin()),
                            std::make_move_iterator(out_.deadLetters.end()));
        } catch (const std::bad_alloc&) {
            // They are told as advisories alone.
        }
    }
    std::erase_if(letters_, [&](const DeadLetter& letter) {
        Message message;
        const quorl_status status = letterOf(letter, queue_, &message);
        if (status == QUORL_NO_MEMORY || (status == QUORL_OK && !enqueue(std::move(message)))) return false;
        if (status == QUORL_OK) ++figures().deadLetters;
        return true;
    });
}

// The scheduler alone answers: it knows.
void QueueMember::answerStatus(const Message& question) noexcept {
    if (question.replySubject().empty()) return;
    const companion::KeptErrorText kept;
    Message answer;
    try {
        const std::lock_guard lock(lock_);
        const Counts counts = machine_.counts();
        if (!counts.scheduler) return;
        std::vector<Message> workers;
        for (const WorkerReview& worker : machine_.workers()) {
            companion::Builder one;
            one.text("member", memberText(worker.member))
                .text("label", worker.label)
                .u32("weight", worker.weight)
                .u32("tasks", worker.tasks)
                .u32("held", worker.held)
                .u64("handed_out", worker.handedOut)
                .boolean("leaving", worker.leaving);
            if (one.message({}, &workers.emplace_back()) != QUORL_OK) return;
        }
        companion::Builder whole;
        whole.text("queue", queue_)
            .text("scheduler", memberText(machine_.id()))
            .u64("members", counts.members)
            .u64("unassigned", counts.unassigned)
            .u64("unassigned_bytes", counts.unassignedBytes)
            .u64("assigned", counts.assigned)
            .u64("handed_out", counts.handedOut)
            .u64("completed", counts.settled - std::min(counts.settled, counts.deadLetters))
            .u64("completed_twice", counts.completedTwice)
            .u64("reassigned", counts.reassigned)
            .u64("dead_letters", counts.deadLetters)
            .messages("workers", workers);
        if (whole.message({}, &answer) != QUORL_OK) return;
    } catch (const std::bad_alloc&) {
        return;
    }
    if (answer.withSubjects(question.replySubject(), {}, &answer) == QUORL_OK) companion::send(transport_, answer);
}

}  // namespace quorl::dqueue
