// A hash table by text that is asked with views.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace quorl::certified {

struct TextHash {
    using is_transparent = void;
    size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>()(text); }
};

template <class T>
using TextMap = std::unordered_map<std::string, T, TextHash, std::equal_to<>>;

}  // namespace quorl::certified
