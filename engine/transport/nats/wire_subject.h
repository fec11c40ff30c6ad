// How subjects stand on the wire: "quorl.<network or default>.<service or default>.<subject>", with the bytes that a daemon
// does not take written as "%" and two hexadecimal digits. docs/reference/daemon-wire.md says the same in words.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "quorl/quorl.h"

namespace quorl::transport::nats {

// What subjects of a bus begin with, the point included. Throws std::bad_alloc.
std::string wirePrefix(std::string_view network, std::string_view service);

// The subject or pattern behind the prefix, as it is on the wire; wildcards stay wildcards. Throws std::bad_alloc.
std::string toWire(std::string_view prefix, std::string_view subject);

// A subject that came from the wire, read back.
struct ReadSubject {
    std::array<char, QUORL_SUBJECT_MAX + 1> text;
    size_t size = 0;

    std::string_view view() const noexcept { return {text.data(), size}; }
};

// False: no subject of ours has this form. What is read may still be malformed as a subject.
bool fromWire(std::string_view prefix, std::string_view wire, ReadSubject* subject) noexcept;

}  // namespace quorl::transport::nats
