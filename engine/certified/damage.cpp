// Advisories of damage: docs/reference/advisories.md lists their fields.
#include "certified/damage.h"

#include "companion/advisory.h"

namespace quorl::certified {

using companion::Field;

void tellFinding(std::string_view name, const Finding& finding) noexcept {
    const Field own("name", name);
    const Field file("file", std::string_view(finding.file));
    const Field offset("offset", static_cast<uint64_t>(finding.offset));
    const Field subject("subject", std::string_view(finding.subject));
    const Field first("first", finding.first);
    const Field last("last", finding.last);
    const Field reason("reason", std::string_view(finding.text));
    constexpr auto severity = companion::Severity::error;
    if (finding.subject.empty())
        return companion::advise(severity, "certified", "damaged", {own, file, offset, reason});
    if (finding.last == UINT64_MAX)
        return companion::advise(severity, "certified", "damaged", {own, file, offset, subject, first, reason});
    companion::advise(severity, "certified", "damaged", {own, file, offset, subject, first, last, reason});
}

void tellDamage(std::string_view name, const std::string& path, const Outcome& refused) noexcept {
    if (refused.status != QUORL_INVALID_FILE || !companion::advisoriesHeard()) return;
    struct Telling final : Inspector {
        explicit Telling(std::string_view whose) : name(whose) {}
        void finding(const Finding& finding) override { tellFinding(name, finding); }
        std::string_view name;
    } telling(name);
    Inspection found;
    inspect(path, telling, &found);
}

}  // namespace quorl::certified
