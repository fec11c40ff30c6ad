// Numeric conversions that lose nothing: a value is converted only when the other type holds the very same one.
#pragma once

#include <cmath>
#include <limits>
#include <type_traits>

#include "quorl/quorl.h"

namespace quorl::message {

// True and *to set when from fits To exactly. Booleans are the numbers 0 and 1.
template <class To, class From>
bool convertExactly(From from, To* to) noexcept {
    if constexpr (std::is_same_v<From, quorl_bool>) {
        return convertExactly(static_cast<unsigned>(from != 0), to);
    } else if constexpr (std::is_same_v<To, quorl_bool>) {
        if (from != From{0} && from != From{1}) return false;
        *to = from != From{0} ? QUORL_TRUE : QUORL_FALSE;
        return true;
    } else if constexpr (std::is_floating_point_v<From> && std::is_floating_point_v<To>) {
        // A value above To's range has no defined conversion; infinities and NaN have.
        if (std::isfinite(from) && std::fabs(from) > std::numeric_limits<To>::max()) return false;
        const To result = static_cast<To>(from);
        if (!std::isnan(from) && static_cast<From>(result) != from) return false;
        *to = result;
        return true;
    } else if constexpr (std::is_floating_point_v<From>) {
        // Both bounds are powers of two (or 0), so that the comparison is exact; NaN fails it.
        constexpr From low = static_cast<From>(std::numeric_limits<To>::min());
        const From high = std::ldexp(From{1}, std::numeric_limits<To>::digits);
        if (!(from >= low && from < high) || from != std::trunc(from)) return false;
        *to = static_cast<To>(from);
        return true;
    } else if constexpr (std::is_floating_point_v<To>) {
        const To result = static_cast<To>(from);
        From back;
        if (!convertExactly(result, &back) || back != from) return false;
        *to = result;
        return true;
    } else {
        const To result = static_cast<To>(from);  // NOLINT(bugprone-signed-char-misuse): the sign is compared below
        if (static_cast<From>(result) != from || (result < To{0}) != (from < From{0})) return false;
        *to = result;
        return true;
    }
}

}  // namespace quorl::message
