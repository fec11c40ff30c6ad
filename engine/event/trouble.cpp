// Beginning, ending and telling of a queue's trouble.
#include "event/trouble.h"

#include <algorithm>
#include <new>
#include <string>

#include "base/clock.h"
#include "base/registry.h"
#include "event/queue.h"
#include "event/timer.h"
#include "transport/advisory.h"
#include "transport/listener.h"

namespace quorl::event {
namespace {

using transport::advise;
using transport::Severity;

const char* nameOf(quorlQueueLimitPolicy policy) noexcept {
    switch (policy) {
        case QUORLQUEUE_DISCARD_FIRST:
            return "discard_first";
        case QUORLQUEUE_DISCARD_LAST:
            return "discard_last";
        case QUORLQUEUE_DISCARD_NEW:
            return "discard_new";
        default:
            return "none";
    }
}

std::string_view patternOf(const Event& event) noexcept {
    if (event.kind == Kind::timer) return {};
    return static_cast<const transport::Listener&>(event).subject;
}

std::string_view subjectOf(const message::ContentRef& content) noexcept {
    return content ? content.sendSubject() : std::string_view();
}

// What the advisories of a queue begin with.
struct Names {
    explicit Names(Queue& queue) noexcept : id(queue.id) {
        try {
            Lock lock(queue.nameLock);
            name = queue.name;
        } catch (const std::bad_alloc&) {
            // Told without the name.
        }
    }
    uint32_t id;
    std::string name;
};

// What was over, copied under the locks.
struct Over {
    bool limit = false;
    bool highWater = false;
    uint64_t waiting = 0;
    uint64_t lost = 0;
    uint32_t mark = 0;
    int64_t began = 0;
    std::vector<SlowListener> slow;
};

void tellSlowEnd(const Names& names, const SlowListener& slow, int64_t now) noexcept {
    advise(Severity::info, "listener", "slow_end",
           {{"listener", slow.event->id},
            {"pattern", patternOf(*slow.event)},
            {"queue", names.id},
            {"name", names.name},
            {"lost", slow.lost},
            {"seconds", static_cast<double>(now - slow.began) * 1e-9}});
}

void tellOver(Queue& queue, const Over& over) noexcept {
    if (!transport::advisoriesHeard()) return;
    const Names names(queue);
    const int64_t now = monotonicNow();
    const double seconds = static_cast<double>(now - over.began) * 1e-9;
    for (const SlowListener& slow : over.slow) tellSlowEnd(names, slow, now);
    if (over.limit) {
        advise(Severity::info, "queue", "limit_end",
               {{"queue", names.id},
                {"name", names.name},
                {"waiting", over.waiting},
                {"lost", over.lost},
                {"seconds", seconds}});
    }
    if (over.highWater) {
        advise(Severity::info, "queue", "highwater_end",
               {{"queue", names.id},
                {"name", names.name},
                {"waiting", over.waiting},
                {"mark", over.mark},
                {"seconds", seconds}});
    }
}

}  // namespace

void lose(Queue& queue, Event& event, message::ContentRef content, Trouble* trouble) noexcept {
    ++queue.back.dropped;
    if (event.kind == Kind::timer && event.front.endless.load(std::memory_order_relaxed)) {
        try {
            trouble->hungry.push_back(event.id);
        } catch (const std::bad_alloc&) {
            // It stays silent until its interval is set again.
        }
    }
    if (transport::isAdvisory(content)) return;
    if (!queue.back.losing) {
        queue.back.losing = true;
        queue.back.lostSince = 0;
        queue.back.troubleBegan = monotonicNow();
        trouble->limitBegan = true;
        trouble->first = {&event, content};
        setThresholds(queue);
    }
    trouble->lost = ++queue.back.lostSince;
    if (event.kind == Kind::timer) return;
    if (event.back.slow == 0) {
        try {
            trouble->slow.reserve(trouble->slow.size() + 1);
            queue.back.slow.push_back({&event, 0, monotonicNow()});
            event.back.slow = static_cast<uint32_t>(queue.back.slow.size());
            trouble->slow.push_back({&event, std::move(content)});
        } catch (const std::bad_alloc&) {
            return;  // counted for the queue alone
        }
    }
    ++queue.back.slow[event.back.slow - 1].lost;
}

void endSlow(Queue& queue, Event& event, Trouble* trouble) noexcept {
    if (event.back.slow == 0) return;
    SlowListener& place = queue.back.slow[event.back.slow - 1];
    trouble->ended = place;
    place = queue.back.slow.back();
    place.event->back.slow = event.back.slow;
    queue.back.slow.pop_back();
    event.back.slow = 0;
}

void lookAtMark(Queue& queue, Trouble* trouble) noexcept {
    if (queue.back.highWater == 0 || queue.back.high || queue.back.limit.policy != QUORLQUEUE_DISCARD_NONE) return;
    if (queue.ring.backCount() - queue.front.removed.load(std::memory_order_relaxed) < queue.back.highWater) return;
    queue.back.high = true;
    queue.back.troubleBegan = monotonicNow();
    trouble->highWaterBegan = true;
    setThresholds(queue);
}

void setThresholds(Queue& queue) noexcept {
    const bool limited = queue.back.limit.policy != QUORLQUEUE_DISCARD_NONE;
    queue.back.lookAt = UINT64_MAX;
    if (limited) {
        queue.back.lookAt = queue.back.limit.maxEvents;
    } else if (queue.back.highWater != 0 && !queue.back.high) {
        queue.back.lookAt = queue.back.highWater - 1;
    }
    queue.back.countAt = std::min(queue.back.mostWaiting, queue.back.lookAt);
    queue.front.calmBelow = 0;
    if (queue.back.losing) queue.front.calmBelow = limited ? queue.back.limit.maxEvents / 2 + 1u : UINT64_MAX;
    if (queue.back.high) queue.front.calmBelow = limited ? UINT64_MAX : queue.back.highWater / 2 + 1;
}

void tell(Queue& queue, const Trouble& trouble) noexcept {
    if (transport::advisoriesHeard() && trouble.any()) {
        const Names names(queue);
        if (trouble.ended.event != nullptr) tellSlowEnd(names, trouble.ended, monotonicNow());
        Limit limit;
        {
            Lock lock(queue.back.lock);
            limit = queue.back.limit;
        }
        if (trouble.highWaterBegan) {
            advise(Severity::warn, "queue", "highwater_begin",
                   {{"queue", names.id},
                    {"name", names.name},
                    {"waiting", trouble.waiting},
                    {"mark", queue.back.highWater}});
        }
        if (trouble.limitBegan) {
            const Event& event = *trouble.first.event;
            const message::ContentRef& content = trouble.first.content;
            advise(Severity::warn, "queue", "limit_begin",
                   {{"queue", names.id},
                    {"name", names.name},
                    {"policy", nameOf(limit.policy)},
                    {"max_events", limit.maxEvents},
                    {"waiting", trouble.waiting},
                    {"lost", trouble.lost},
                    {"event", event.id},
                    {"pattern", patternOf(event)},
                    {"subject", subjectOf(content)},
                    {"first", content}});
        }
        for (const Trouble::Victim& victim : trouble.slow) {
            advise(Severity::warn, "listener", "slow_begin",
                   {{"listener", victim.event->id},
                    {"pattern", patternOf(*victim.event)},
                    {"queue", names.id},
                    {"name", names.name},
                    {"subject", subjectOf(victim.content)},
                    {"first", victim.content}});
        }
    }
    for (const uint32_t timer : trouble.hungry) fireSoon(timer);
}

void settle(Queue& queue) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return;
    Section section(*thread);
    Over over;
    {
        Lock front(queue.front.lock);
        Lock backLock(queue.back.lock);
        const uint64_t waiting = queue.waiting();
        if (waiting >= queue.front.calmBelow) return;
        over.limit = queue.back.losing;
        over.highWater = queue.back.high;
        over.waiting = waiting;
        over.lost = queue.back.lostSince;
        over.mark = queue.back.highWater;
        over.began = queue.back.troubleBegan;
        over.slow.swap(queue.back.slow);
        for (const SlowListener& slow : over.slow) slow.event->back.slow = 0;
        queue.back.losing = false;
        queue.back.high = false;
        setThresholds(queue);
    }
    tellOver(queue, over);
}

}  // namespace quorl::event
