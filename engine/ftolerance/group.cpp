// The module of libquorlft, and its advisories.
#include "ftolerance/group.h"

#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "companion/advisory.h"
#include "companion/module.h"
#include "companion/status.h"
#include "companion/transport.h"
#include "ftolerance/answers.h"

namespace quorl::ftolerance {
namespace {

using companion::Severity;

constinit companion::Host onlyHost("quorl-ft", "quorl.ft");

void stopHost() noexcept {
    onlyHost.stop();
}
constinit companion::Module module{.name = "fault_tolerance", .close = stopHost, .answer = answer};

const char* nameOf(Event event) noexcept {
    switch (event) {
        case Event::joined:
            return "joined";
        case Event::left:
            return "left";
        case Event::lost:
            return "lost";
        case Event::changed:
            return "changed";
        case Event::disagreement:
            return "disagreement";
        case Event::tooMany:
            return "too_many";
        case Event::unheard:
            return "unheard";
        case Event::slow:
            return "slow";
        case Event::paused:
            return "paused";
        case Event::impostor:
            return "impostor";
        case Event::crowded:
            return "crowded";
        case Event::malformed:
            return "malformed";
    }
    return "";
}

const char* nameOf(State state) noexcept {
    switch (state) {
        case State::joining:
            return "joining";
        case State::standby:
            return "standby";
        case State::claiming:
            return "claiming";
        case State::active:
            return "active";
        case State::yielding:
            return "yielding";
        case State::left:
            return "left";
    }
    return "";
}

const char* nameOf(Cause cause) noexcept {
    switch (cause) {
        case Cause::rank:
            return "rank";
        case Cause::paused:
            return "paused";
        case Cause::unheard:
            return "unheard";
        case Cause::cutOff:
            return "transport destroyed";
        case Cause::token:
            return "token";
    }
    return "";
}

double seconds(int64_t nanoseconds) noexcept {
    return static_cast<double>(nanoseconds) / 1e9;
}

bool isAtRest(Event event) noexcept {
    return event == Event::joined || event == Event::left || event == Event::changed;
}

// What number is, by the event.
bool countsMembers(Event event) noexcept {
    return event == Event::tooMany || event == Event::crowded;
}

}  // namespace

companion::Host& host() noexcept {
    return onlyHost;
}

quorl_status useLibrary() noexcept {
    return companion::use(module);
}

Now now() noexcept {
    return {companion::monotonicNow(), companion::wallNow()};
}

quorl_status groupSubject(uint32_t transport, const char* name, std::string* subject) {
    if (name == nullptr) return companion::fail(QUORL_INVALID_SUBJECT, "the group has no name: it is null");
    constexpr std::string_view prefix = "_QUORL.FT.";
    constexpr size_t most = QUORL_SUBJECT_MAX - prefix.size();
    const size_t length = std::strlen(name);
    if (length > most)
        return companion::fail(QUORL_INVALID_SUBJECT,
                               "group \"%.32s...\": the name has %zu bytes, and may have %zu at most", name, length,
                               most);
    if (length == 0) return companion::fail(QUORL_INVALID_SUBJECT, "group \"\": the name is empty");
    if (name[0] == '_')
        return companion::fail(QUORL_INVALID_SUBJECT, "group \"%.64s\": what starts with \"_\" belongs to the system",
                               name);
    std::string full = std::string(prefix) + name;
    quorl_status status = companion::checkSubject(transport, full);
    if (status != QUORL_OK) {
        // Told of the name, which is what the caller knows.
        if (const quorl_status own = companion::checkSubject(transport, name); own != QUORL_OK) status = own;
        return companion::failWithin(status, "group \"%.64s\"", name);
    }
    *subject = std::move(full);
    return QUORL_OK;
}

quorl_status sendFrame(uint32_t transport, const std::string& subject, const Frame& frame) noexcept {
    const Block block = encode(frame);
    companion::Message message;
    quorl_status status = companion::Message::empty(subject, &message);
    if (status == QUORL_OK) status = message.withAttributes(block.span(), &message);
    return status == QUORL_OK ? companion::send(transport, message) : status;
}

void tell(const Who& who, const Advisory& advisory) noexcept {
    if (!companion::advisoriesHeard()) return;
    const Severity severity = isAtRest(advisory.event) ? Severity::info : Severity::warn;
    const Frame& about = advisory.about;
    if (advisory.event == Event::malformed)
        return companion::advise(severity, "ft", nameOf(advisory.event),
                                 {{who.role, who.id},
                                  {"group", who.group},
                                  {"reason", advisory.reason},
                                  {"suppressed", advisory.suppressed}});
    if (about.member == 0)
        return companion::advise(severity, "ft", nameOf(advisory.event),
                                 {{who.role, who.id},
                                  {"group", who.group},
                                  {"seconds", seconds(static_cast<int64_t>(advisory.number))},
                                  {"suppressed", advisory.suppressed}});
    std::array<char, 17> peer;
    std::snprintf(peer.data(), peer.size(), "%016" PRIx64, about.member);
    const bool counts = countsMembers(advisory.event);
    companion::advise(severity, "ft", nameOf(advisory.event),
                      {{who.role, who.id},
                       {"group", who.group},
                       {"peer", peer.data()},
                       {"label", about.label.text()},
                       {"state", nameOf(about.state)},
                       {"weight", uint32_t{about.weight}},
                       {"goal", uint32_t{about.goal}},
                       {"heartbeat", seconds(about.intervals.heartbeat)},
                       {"preparation", seconds(about.intervals.preparation)},
                       {"activation", seconds(about.intervals.activation)},
                       {"token", tokenOf(about.activation, about.member)},
                       {"members", counts ? advisory.number : uint64_t{0}},
                       {"seconds", counts ? 0.0 : seconds(static_cast<int64_t>(advisory.number))},
                       {"suppressed", advisory.suppressed}});
}

void tell(const Who& who, const Told& told) noexcept {
    if (told.action == Action::prepare || !companion::advisoriesHeard()) return;
    companion::advise(
        Severity::info, "ft", told.action == Action::activate ? "activated" : "deactivated",
        {{who.role, who.id}, {"group", who.group}, {"token", told.token}, {"reason", nameOf(told.cause)}});
}

}  // namespace quorl::ftolerance
