// Messages that a companion library makes for the program.
//
//     Builder builder;
//     builder.text("subject", subject).u64("first", first);
//     if (const quorl_status status = builder.message("", &message); status != QUORL_OK) return status;
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "companion/message.h"

namespace quorl::companion {

// A field that finds no memory makes message() say so; what comes after it has no effect. Names are ASCII and short.
class [[gnu::visibility("default")]] Builder {
  public:
    Builder() noexcept;
    // Begins with the fields and subjects of another message, without its attributes.
    explicit Builder(const Message& from) noexcept;
    ~Builder();
    Builder(const Builder&) = delete;
    Builder& operator=(const Builder&) = delete;

    // Takes away the fields of that name.
    Builder& without(const char* name) noexcept;
    Builder& boolean(const char* name, bool value) noexcept;
    Builder& u32(const char* name, uint32_t value) noexcept;
    Builder& u64(const char* name, uint64_t value) noexcept;
    Builder& f64(const char* name, double value) noexcept;
    Builder& text(const char* name, std::string_view value) noexcept;
    // A whole message as one field, without its subjects and attributes; and several as one.
    Builder& inner(const char* name, const Message& value) noexcept;
    Builder& messages(const char* name, const std::vector<Message>& values) noexcept;

    // The message as it is now; the subject is valid, or empty for the one that it began with. QUORL_NO_MEMORY.
    quorl_status message(std::string_view subject, Message * made) const noexcept;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace quorl::companion
