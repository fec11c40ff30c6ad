// Telling the program what goes wrong, or right again: messages on _QUORL.<INFO|WARN|ERROR>.<source>.<name> for the
// listeners of this process. docs/reference/advisories.md lists them all; whoever adds one adds its row.
//
//     advise(Severity::warn, "daemon", "lost", {{"daemon", url}, {"reason", why}, {"buffered", uint64_t{count}}});
//
// Every listener of the process whose pattern matches gets the message once, whichever transport it is on. It never
// leaves the process. May be called from any thread and from paths that have no way to fail: what cannot be told for
// want of memory is not told, and the calling thread's detail text stays as it is.
//
// Not with a lock held that belongs to a queue, a group, the timers or a router: listeners' queues take those.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "message/builder.h"
#include "message/delivery.h"

namespace quorl::transport {

enum class Severity : uint8_t { info, warn, error };

// One field of an advisory. An empty text is left out. What it points to has to live until advise returns.
class AdvisoryField {
  public:
    AdvisoryField(const char* name, bool value) noexcept : name_(name), kind_(Kind::boolean) { value_.boolean = value; }
    AdvisoryField(const char* name, uint32_t value) noexcept : name_(name), kind_(Kind::u32) { value_.u32 = value; }
    AdvisoryField(const char* name, uint64_t value) noexcept : name_(name), kind_(Kind::u64) { value_.u64 = value; }
    AdvisoryField(const char* name, double value) noexcept : name_(name), kind_(Kind::f64) { value_.f64 = value; }
    AdvisoryField(const char* name, std::string_view value) noexcept : name_(name), kind_(Kind::text), text_(value) {}
    AdvisoryField(const char* name, const char* value) noexcept : AdvisoryField(name, std::string_view(value)) {}
    // Left out when there are none.
    AdvisoryField(const char* name, const std::vector<std::string>& value) noexcept : name_(name), kind_(Kind::texts) {
        value_.texts = &value;
    }
    // A whole message as a field, without its subjects. Left out when the content is null or larger than 1 MiB.
    AdvisoryField(const char* name, const message::ContentRef& value) noexcept : name_(name), kind_(Kind::message) {
        value_.content = value ? &value : nullptr;
    }

    // Adds the field to a message, or leaves it out for want of memory.
    void addTo(message::Builder& message) const noexcept;

  private:
    enum class Kind : uint8_t { boolean, u32, u64, f64, text, texts, message };

    const char* name_;
    Kind kind_;
    union {
        bool boolean;
        uint32_t u32;
        uint64_t u64;
        double f64;
        const message::ContentRef* content;
        const std::vector<std::string>* texts;
    } value_{};
    std::string_view text_;
};

// Whether anybody listens to subjects of the system at all: worth asking before what an advisory says is gathered.
bool advisoriesHeard() noexcept;

// source and name: one element of a subject each.
void advise(Severity severity, std::string_view source, std::string_view name,
            std::initializer_list<AdvisoryField> fields) noexcept;

// The same with the fields that a message has been given, as AdvisoryField::addTo does; the calling thread's detail text is the
// caller's to keep.
void advise(Severity severity, std::string_view source, std::string_view name, message::Builder& message) noexcept;

// Whether the content is an advisory: its own loss is counted, but never told, or telling would have no end.
bool isAdvisory(const message::ContentRef& content) noexcept;

}  // namespace quorl::transport
