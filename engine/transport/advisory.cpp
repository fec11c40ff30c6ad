// Building advisories.
#include "transport/advisory.h"

#include <string>

#include "base/status.h"
#include "base/thread_state.h"
#include "transport/local.h"

namespace quorl::transport {
namespace {

constexpr uint32_t largestInner = 1u << 20;  // bytes of a message inside an advisory

const char* prefixOf(Severity severity) noexcept {
    switch (severity) {
        case Severity::info:
            return "_QUORL.INFO.";
        case Severity::warn:
            return "_QUORL.WARN.";
        default:
            return "_QUORL.ERROR.";
    }
}

void publish(ThreadState& thread, message::ContentRef content) noexcept {
    if (!isAdvisory(content)) return;
    ReadGuard guard(thread);
    local::publish(thread, std::move(content));
}

}  // namespace

void AdvisoryField::addTo(message::Builder& message) const noexcept {
    switch (kind_) {
        case Kind::boolean:
            message.boolean(name_, value_.boolean);
            break;
        case Kind::u32:
            message.u32(name_, value_.u32);
            break;
        case Kind::u64:
            message.u64(name_, value_.u64);
            break;
        case Kind::f64:
            message.f64(name_, value_.f64);
            break;
        case Kind::text:
            if (!text_.empty()) message.text(name_, text_);
            break;
        case Kind::texts:
            if (!value_.texts->empty()) message.texts(name_, *value_.texts);
            break;
        case Kind::message:
            if (value_.content != nullptr && value_.content->byteSize() <= largestInner)
                message.message(name_, *value_.content);
            break;
    }
    message.forgive();
}

bool advisoriesHeard() noexcept {
    return local::heard();
}

void advise(Severity severity, std::string_view source, std::string_view name,
            std::initializer_list<AdvisoryField> fields) noexcept {
    if (!local::heard()) return;
    const KeptErrorText kept;
    message::Builder message;
    for (const AdvisoryField& field : fields) field.addTo(message);
    advise(severity, source, name, message);
}

void advise(Severity severity, std::string_view source, std::string_view name, message::Builder& message) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return;
    try {
        std::string subject(prefixOf(severity));
        subject.append(source).append(1, '.').append(name);
        message::ContentRef content;
        if (message.content(subject, &content) == QUORL_OK) publish(*thread, std::move(content));
    } catch (const std::bad_alloc&) {
        // Not told.
    }
}

bool isAdvisory(const message::ContentRef& content) noexcept {
    return content && local::staysHere(content.sendSubject());
}

}  // namespace quorl::transport
