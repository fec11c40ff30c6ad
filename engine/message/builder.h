// Builds the engine's own messages: advisories, statistics, frames of protocols.
//
//     Builder message;
//     message.u32("queue", id).text("name", name);
//     if (message.status() != QUORL_OK) ...
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "message/delivery.h"

namespace quorl::message {

struct Slot;
struct Value;

// A field's name or its id; the engine's own messages need no more than one of them.
struct Key {
    const char* name = nullptr;  // ASCII, at most QUORL_FIELD_NAME_MAX bytes
    uint16_t id = 0;

    Key(const char* fieldName) noexcept : name(fieldName) {}  // NOLINT(google-explicit-constructor)
    Key(uint16_t fieldId) noexcept : id(fieldId) {}           // NOLINT(google-explicit-constructor)
};

// Fields are added one after the other; the first failure is kept, with its detail text, and ends the adding.
class Builder {
  public:
    Builder() noexcept;
    // Begins with the fields and subjects of another message.
    explicit Builder(const ContentRef& from) noexcept;
    ~Builder();
    Builder(const Builder&) = delete;
    Builder& operator=(const Builder&) = delete;

    quorl_status status() const noexcept { return status_; }

    // Takes away the fields of that name.
    Builder& without(const char* name) noexcept;
    Builder& boolean(Key key, bool value) noexcept;
    Builder& u8(Key key, uint8_t value) noexcept;
    Builder& u32(Key key, uint32_t value) noexcept;
    Builder& u64(Key key, uint64_t value) noexcept;
    Builder& f64(Key key, double value) noexcept;
    // A text ends at its first zero byte, if it has one.
    Builder& text(Key key, const char* value) noexcept;
    Builder& text(Key key, const std::string& value) noexcept { return text(key, value.c_str()); }
    Builder& text(Key key, std::string_view value) noexcept;
    Builder& texts(Key key, const std::vector<std::string>& values) noexcept;
    Builder& bytes(Key key, const void* value, uint32_t size) noexcept;
    // Whole messages as fields, without their subjects.
    Builder& message(Key key, const ContentRef& value) noexcept;
    Builder& message(Key key, const Builder& value) noexcept;
    Builder& messages(Key key, const std::vector<ContentRef>& values) noexcept;

    // A failure of the caller's own; the first one is kept.
    void fails(quorl_status status) noexcept {
        if (status_ == QUORL_OK) status_ = status;
    }
    // Leaves the failure out: for fields that are told only when there is memory for them.
    void forgive() noexcept {
        if (slot_ != nullptr) status_ = QUORL_OK;
    }

    // The message as it is now, without subjects, or with these, which are valid. The status, or QUORL_NO_MEMORY.
    quorl_status content(ContentRef* content) const noexcept;
    quorl_status content(std::string_view sendSubject, ContentRef* content) const noexcept;

  private:
    Builder& add(Key key, const Value& value) noexcept;
    Builder& number(Key key, uint8_t type, const void* value) noexcept;

    Slot* slot_;
    quorl_status status_;
};

}  // namespace quorl::message
