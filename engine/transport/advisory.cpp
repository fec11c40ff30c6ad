// Building advisories.
#include "transport/advisory.h"

#include <string>

#include "base/status.h"
#include "base/support.h"
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
    Section section(thread);
    local::publish(thread, std::move(content));
}

}  // namespace

void AdvisoryField::addTo(quorlMsg message) const noexcept {
    switch (kind_) {
        case Kind::boolean:
            quorlMsg_AddBoolEx(message, name_, value_.boolean ? QUORL_TRUE : QUORL_FALSE, 0);
            return;
        case Kind::u32:
            quorlMsg_AddU32Ex(message, name_, value_.u32, 0);
            return;
        case Kind::u64:
            quorlMsg_AddU64Ex(message, name_, value_.u64, 0);
            return;
        case Kind::f64:
            quorlMsg_AddF64Ex(message, name_, value_.f64, 0);
            return;
        case Kind::text:
            if (text_.empty()) return;
            try {
                quorlMsg_AddStringEx(message, name_, std::string(text_).c_str(), 0);
            } catch (const std::bad_alloc&) {
                // Left out.
            }
            return;
        case Kind::texts:
            if (value_.texts->empty()) return;
            try {
                std::vector<const char*> texts;
                for (const std::string& text : *value_.texts) texts.push_back(text.c_str());
                quorlMsg_AddStringArrayEx(message, name_, texts.data(), static_cast<quorl_u32>(texts.size()), 0);
            } catch (const std::bad_alloc&) {
                // Left out.
            }
            return;
        case Kind::message: {
            if (value_.content == nullptr || value_.content->byteSize() > largestInner) return;
            quorlMsg inner;
            if (message::handOver(*value_.content, &inner) != QUORL_OK) return;
            quorlMsg_AddMsgEx(message, name_, inner, 0);
            quorlMsg_Destroy(inner);
            return;
        }
    }
}

bool advisoriesHeard() noexcept {
    return local::heard();
}

void advise(Severity severity, std::string_view source, std::string_view name,
            std::initializer_list<AdvisoryField> fields) noexcept {
    if (!local::heard()) return;
    ThreadState* thread = threadState();
    if (thread == nullptr) return;
    const KeptErrorText kept;
    quorlMsg message;
    if (quorlMsg_Create(&message) != QUORL_OK) return;
    message::ContentRef content;
    try {
        std::string subject(prefixOf(severity));
        subject.append(source).append(1, '.').append(name);
        for (const AdvisoryField& field : fields) field.addTo(message);
        if (quorlMsg_SetSendSubject(message, subject.c_str()) == QUORL_OK) message::snapshot(message, &content);
    } catch (const std::bad_alloc&) {
        // Not told.
    }
    quorlMsg_Destroy(message);
    publish(*thread, std::move(content));
}

bool isAdvisory(const message::ContentRef& content) noexcept {
    return content && local::staysHere(content.sendSubject());
}

}  // namespace quorl::transport

extern "C" void _quorlSupport_Advise(quorlMsg advisory) {
    using namespace quorl;
    if (!transport::advisoriesHeard()) return;
    ThreadState* thread = threadState();
    if (thread == nullptr) return;
    const KeptErrorText kept;
    message::ContentRef content;
    if (message::snapshot(advisory, &content) == QUORL_OK) transport::publish(*thread, std::move(content));
}
