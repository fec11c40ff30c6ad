// What the events of a machine are told as: docs/reference/advisories.md lists them.
#include "certified/advisories.h"

#include "companion/advisory.h"

namespace quorl::certified {

using companion::advise;
using companion::Field;
using companion::Severity;

// Fields without a value are left out where they are texts, and told where they are numbers.
void tell(const Event& event, uint32_t id, std::string_view name, std::string_view failure) noexcept {
    if (!companion::advisoriesHeard()) return;
    constexpr std::string_view source = "certified";
    const Field transport("transport", id);
    const Field own("name", name);
    const Field listener("listener", std::string_view(event.name));
    const Field sender("sender", std::string_view(event.name));
    const Field subject("subject", std::string_view(event.subject));
    const Field first("first", event.first);
    const Field last("last", event.last);
    const Field reason("reason", event.reason);
    switch (event.kind) {
        case Event::Kind::registered:
            return advise(Severity::info, source, "registered", {transport, own, listener, subject, first});
        case Event::Kind::ended:
            return advise(Severity::info, source, "ended",
                          {transport, own, listener, subject, {"unconfirmed", event.last}, reason});
        case Event::Kind::confirmed:
            return advise(Severity::info, source, "confirmed", {transport, own, listener, subject, first, last});
        case Event::Kind::completed:
            return advise(Severity::info, source, "completed", {transport, own, subject, first, last});
        case Event::Kind::settled:
            return advise(Severity::info, source, "settled", {transport, own, subject, first, last});
        case Event::Kind::expired:
            return advise(Severity::warn, source, "expired", {transport, own, subject, first, last});
        case Event::Kind::undelivered:
            return advise(Severity::error, source, "undelivered",
                          {transport, own, listener, subject, first, last, reason});
        case Event::Kind::lagging:
            return advise(Severity::warn, source, "lagging",
                          {transport, own, listener, subject, first, {"unconfirmed", event.last}});
        case Event::Kind::nearlyFull:
            return advise(Severity::warn, source, "nearly_full",
                          {transport, own, {"bytes", event.first}, {"limit", event.last}});
        case Event::Kind::noLongerFull:
            return advise(Severity::info, source, "no_longer_full",
                          {transport, own, {"bytes", event.first}, {"limit", event.last}});
        case Event::Kind::refused:
            return advise(Severity::warn, source, "refused", {transport, own, listener, subject, reason});
        case Event::Kind::storageFailed:
            return advise(Severity::error, source, "storage_failed", {transport, own, {"reason", failure}});
        case Event::Kind::storageWorks:
            return advise(Severity::info, source, "storage_works", {transport, own});
        case Event::Kind::listening:
            return advise(Severity::info, source, "listening", {transport, own, sender, subject, first});
        case Event::Kind::skipped:
            return advise(Severity::error, source, "skipped", {transport, own, sender, subject, first, last, reason});
        case Event::Kind::stopped:
            return advise(Severity::warn, source, "stopped", {transport, own, sender, subject, reason});
        case Event::Kind::senderStartedAnew:
            return advise(Severity::warn, source, "sender_started_anew", {transport, own, sender});
        case Event::Kind::nameTaken:
            return advise(Severity::error, source, "name_taken", {transport, own});
        case Event::Kind::nameContested:
            return advise(Severity::warn, source, "name_contested", {transport, own});
        case Event::Kind::nameFree:
            return advise(Severity::info, source, "name_free", {transport, own});
        case Event::Kind::newerPeer:
            return advise(Severity::warn, source, "newer_peer", {transport, own, subject});
    }
}

}  // namespace quorl::certified
