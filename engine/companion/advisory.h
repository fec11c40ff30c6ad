// What companion libraries tell the program: advisories, and their part of the statistics.
//
//     advise(Severity::warn, "certified", "expired", {{"subject", subject}, {"number", number}});
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string_view>

#include "companion/message.h"

namespace quorl::message {
class Builder;
}  // namespace quorl::message

namespace quorl::companion {

enum class Severity : uint8_t { info, warn, error };

// One field of an advisory. An empty text is left out, and so is no message. What it points to lives until advise returns.
class Field {
  public:
    enum class Kind : uint8_t { boolean, u32, u64, f64, text, message };

    Field(const char* name, bool value) noexcept : name(name), kind(Kind::boolean) { number.boolean = value; }
    Field(const char* name, uint32_t value) noexcept : name(name), kind(Kind::u32) { number.u32 = value; }
    Field(const char* name, uint64_t value) noexcept : name(name), kind(Kind::u64) { number.u64 = value; }
    Field(const char* name, double value) noexcept : name(name), kind(Kind::f64) { number.f64 = value; }
    Field(const char* name, std::string_view value) noexcept : name(name), kind(Kind::text), text(value) {}
    Field(const char* name, const char* value) noexcept : Field(name, std::string_view(value)) {}
    // A whole message as a field, without its subjects and attributes. Left out when it is larger than 1 MiB.
    Field(const char* name, const Message& value) noexcept : name(name), kind(Kind::message), message(&value) {}

    const char* name;
    Kind kind;
    union {
        bool boolean;
        uint32_t u32;
        uint64_t u64;
        double f64;
    } number{};
    std::string_view text;
    const Message* message = nullptr;
};

// Whether anybody listens to subjects of the system at all: worth asking before what an advisory says is gathered.
QUORL_API bool advisoriesHeard() noexcept;

// Publishes a message on _QUORL.<INFO|WARN|ERROR>.<source>.<name>; both are one element of a subject. Every listener of the process
// that matches gets it, and it never leaves the process. From any thread; what finds no memory is not told; the calling
// thread's detail text stays as it is. docs/reference/advisories.md lists them all.
QUORL_API void advise(Severity severity, std::string_view source, std::string_view name,
                      std::initializer_list<Field> fields) noexcept;

// A message of a module's in the statistics (Module::statistics), which its fields are added to.
class QUORL_API Statistics {
  public:
    explicit Statistics(message::Builder& into) noexcept : into_(into) {}
    Statistics& u32(const char* name, uint32_t value) noexcept;
    Statistics& u64(const char* name, uint64_t value) noexcept;
    Statistics& f64(const char* name, double value) noexcept;
    Statistics& text(const char* name, std::string_view value) noexcept;

  private:
    message::Builder& into_;
};

}  // namespace quorl::companion
