// Subjects: their syntax, the system's own prefixes, and what it means for one to match a pattern.
#pragma once

#include <string_view>

namespace quorl::subject {

// What a piece of text is as a subject. A subject is 1 to QUORL_SUBJECT_MAX bytes of UTF-8 without a zero byte:
// elements separated by '.', none of them empty. '*' stands only as a whole element and matches one; '>' stands only as
// the whole last element and matches one or more.
enum class Form {
    malformed,
    plain,    // no wildcard: messages can be sent to it
    pattern,  // with a wildcard: only good for listening
};

Form formOf(std::string_view text) noexcept;
// Which rule a malformed text breaks, for a detail text; null: none.
const char* whyMalformed(std::string_view text) noexcept;

inline bool wellFormed(std::string_view text) noexcept {
    return formOf(text) != Form::malformed;
}
inline bool validForListening(std::string_view text) noexcept {
    return wellFormed(text);
}
inline bool validForSending(std::string_view text) noexcept {
    return formOf(text) == Form::plain;
}

// Whether the subject is the system's: an inbox, an advisory, or a protocol's own traffic.
inline bool isSystem(std::string_view subject) noexcept {
    return subject.starts_with('_');
}
// Whether the subject is a point-to-point address that a transport made.
inline bool isInbox(std::string_view subject) noexcept {
    return subject.starts_with("_INBOX.");
}

// Whether the subject is the system's and nothing that a program may send to: neither an inbox nor below "_QUORL.".
inline bool isReserved(std::string_view subject) noexcept {
    return isSystem(subject) && !isInbox(subject) && !subject.starts_with("_QUORL.");
}

// Whether pattern, valid for listening, matches subject, valid for sending. Element by element, for one pair: the
// definition that Trie is tested against. Whoever has many patterns uses a Trie.
bool matches(std::string_view pattern, std::string_view subject) noexcept;

}  // namespace quorl::subject
