// Messages of companions, over the builder of the core.
#include "companion/builder.h"

#include <new>

#include "base/status.h"
#include "companion/access.h"
#include "message/builder.h"

namespace quorl::companion {

struct Builder::State {
    State() noexcept = default;
    explicit State(const message::ContentRef& from) noexcept : into(from) {}
    message::Builder into;
};

Builder::Builder() noexcept : state_(new (std::nothrow) State) {}
Builder::Builder(const Message& from) noexcept {
    message::ContentRef fields = Access::content(from);
    const quorl_status status = fields.attributes().empty() ? QUORL_OK : message::withAttributes(fields, {}, &fields);
    state_.reset(new (std::nothrow) State(fields));
    if (state_ != nullptr) state_->into.fails(status);
}
Builder::~Builder() = default;

Builder& Builder::without(const char* name) noexcept {
    if (state_ != nullptr) state_->into.without(name);
    return *this;
}

Builder& Builder::boolean(const char* name, bool value) noexcept {
    if (state_ != nullptr) state_->into.boolean(name, value);
    return *this;
}

Builder& Builder::u32(const char* name, uint32_t value) noexcept {
    if (state_ != nullptr) state_->into.u32(name, value);
    return *this;
}

Builder& Builder::u64(const char* name, uint64_t value) noexcept {
    if (state_ != nullptr) state_->into.u64(name, value);
    return *this;
}

Builder& Builder::f64(const char* name, double value) noexcept {
    if (state_ != nullptr) state_->into.f64(name, value);
    return *this;
}

Builder& Builder::text(const char* name, std::string_view value) noexcept {
    if (state_ != nullptr) state_->into.text(name, value);
    return *this;
}

Builder& Builder::inner(const char* name, const Message& value) noexcept {
    if (state_ != nullptr) state_->into.message(name, Access::content(value));
    return *this;
}

Builder& Builder::messages(const char* name, const std::vector<Message>& values) noexcept {
    if (state_ == nullptr) return *this;
    try {
        std::vector<message::ContentRef> contents;
        contents.reserve(values.size());
        for (const Message& value : values) contents.push_back(Access::content(value));
        state_->into.messages(name, contents);
    } catch (const std::bad_alloc&) {
        state_->into.fails(fail(QUORL_NO_MEMORY, "no memory for a message"));
    }
    return *this;
}

quorl_status Builder::message(std::string_view subject, Message* made) const noexcept {
    if (state_ == nullptr) return fail(QUORL_NO_MEMORY, "no memory for a message");
    message::ContentRef content;
    const quorl_status status =
        subject.empty() ? state_->into.content(&content) : state_->into.content(subject, &content);
    if (status == QUORL_OK) *made = Access::wrap(std::move(content));
    return status;
}

}  // namespace quorl::companion
