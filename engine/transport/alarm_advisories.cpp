// The fields of the advisories that tell of alarms.
#include "transport/alarm_advisories.h"

#include "event/alarm.h"
#include "transport/advisory.h"

namespace quorl::transport {
namespace {

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

std::string_view subjectOf(const message::ContentRef& content) noexcept {
    return content ? content.sendSubject() : std::string_view();
}

void tell(const event::AlarmTold& told) noexcept {
    using Kind = event::AlarmRecord::Kind;
    const event::AlarmRecord& record = told.record;
    switch (record.kind) {
        case Kind::limitBegin:
            advise(Severity::warn, "queue", "limit_begin",
                   {{"queue", told.queue},
                    {"name", told.name},
                    {"policy", nameOf(record.limit.policy)},
                    {"max_events", record.limit.maxEvents},
                    {"waiting", record.waiting},
                    {"lost", record.lost},
                    {"event", record.event},
                    {"pattern", record.source},
                    {"subject", subjectOf(record.first)},
                    {"first", record.first}});
            return;
        case Kind::limitEnd:
            advise(Severity::info, "queue", "limit_end",
                   {{"queue", told.queue},
                    {"name", told.name},
                    {"waiting", record.waiting},
                    {"lost", record.lost},
                    {"seconds", record.seconds}});
            return;
        case Kind::slowBegin:
            advise(Severity::warn, "listener", "slow_begin",
                   {{"listener", record.event},
                    {"pattern", record.source},
                    {"queue", told.queue},
                    {"name", told.name},
                    {"subject", subjectOf(record.first)},
                    {"first", record.first}});
            return;
        case Kind::slowEnd:
            advise(Severity::info, "listener", "slow_end",
                   {{"listener", record.event},
                    {"pattern", record.source},
                    {"queue", told.queue},
                    {"name", told.name},
                    {"lost", record.lost},
                    {"seconds", record.seconds}});
            return;
        case Kind::highwaterBegin:
            advise(Severity::warn, "queue", "highwater_begin",
                   {{"queue", told.queue}, {"name", told.name}, {"waiting", record.waiting}, {"mark", told.mark}});
            return;
        case Kind::highwaterEnd:
            advise(Severity::info, "queue", "highwater_end",
                   {{"queue", told.queue},
                    {"name", told.name},
                    {"waiting", record.waiting},
                    {"mark", told.mark},
                    {"seconds", record.seconds}});
            return;
    }
}

constexpr event::AlarmSink sink{advisoriesHeard, isAdvisory, tell};

}  // namespace

void tellAlarms() noexcept {
    event::setAlarmSink(&sink);
}

}  // namespace quorl::transport
