// Advisories and statistics of companions.
#include "companion/advisory.h"

#include "base/status.h"
#include "companion/access.h"
#include "transport/advisory.h"

namespace quorl::companion {
namespace {

transport::Severity coreOf(Severity severity) noexcept {
    switch (severity) {
        case Severity::info:
            return transport::Severity::info;
        case Severity::warn:
            return transport::Severity::warn;
        default:
            return transport::Severity::error;
    }
}

void add(message::Builder& message, const Field& field, const message::ContentRef& content) noexcept {
    const auto as = [&](const auto& value) { transport::AdvisoryField(field.name, value).addTo(message); };
    switch (field.kind) {
        case Field::Kind::boolean:
            return as(field.number.boolean);
        case Field::Kind::u32:
            return as(field.number.u32);
        case Field::Kind::u64:
            return as(field.number.u64);
        case Field::Kind::f64:
            return as(field.number.f64);
        case Field::Kind::text:
            return as(field.text);
        case Field::Kind::message:
            return as(content);
    }
}

}  // namespace

bool advisoriesHeard() noexcept {
    return transport::advisoriesHeard();
}

void advise(Severity severity, std::string_view source, std::string_view name,
            std::initializer_list<Field> fields) noexcept {
    if (!transport::advisoriesHeard()) return;
    const KeptErrorText kept;
    message::Builder message;
    for (const Field& field : fields) {
        const bool whole = field.kind == Field::Kind::message && field.message != nullptr && *field.message;
        add(message, field, whole ? Access::content(*field.message) : message::ContentRef());
    }
    transport::advise(coreOf(severity), source, name, message);
}

Statistics& Statistics::u32(const char* name, uint32_t value) noexcept {
    into_.u32(name, value);
    return *this;
}

Statistics& Statistics::u64(const char* name, uint64_t value) noexcept {
    into_.u64(name, value);
    return *this;
}

Statistics& Statistics::f64(const char* name, double value) noexcept {
    into_.f64(name, value);
    return *this;
}

Statistics& Statistics::text(const char* name, std::string_view value) noexcept {
    into_.text(name, value);
    return *this;
}

}  // namespace quorl::companion
