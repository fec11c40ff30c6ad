// Certified names, the subjects under which their machines hear, and the matching of patterns.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quorl::certified {

// Bytes of a certified name.
inline constexpr size_t nameMax = 200;

// Where every machine hears, and where the one with that name does.
inline constexpr std::string_view everybody = "_QUORL.CM.ALL";
inline constexpr std::string_view addressPrefix = "_QUORL.CM.TO.";

// A certified name is a subject without wildcards of at most nameMax bytes.
bool validName(std::string_view name) noexcept;
// Subjects as the engine defines them: plain ones, and patterns, which a plain one is too.
bool validSubject(std::string_view subject) noexcept;
bool validPattern(std::string_view pattern) noexcept;
bool hasWildcard(std::string_view pattern) noexcept;
// Both are valid.
bool matches(std::string_view pattern, std::string_view subject) noexcept;

// Throws std::bad_alloc.
std::string addressOf(std::string_view name);

}  // namespace quorl::certified
