// The parameters that transports are made with when their makers say nothing else.
#pragma once

#include <algorithm>

#include "base/parameters.h"

namespace quorl::transport::parameters {

constexpr bool printable(std::string_view text) noexcept {
    return std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 0x7f; });
}

// Whether text is a well-formed name of a service or network: at most 63 bytes of printable ASCII without spaces, and not
// the address of a daemon.
constexpr bool validBusName(std::string_view text) noexcept {
    return text.size() <= 63 && printable(text) && text.find("://") == std::string_view::npos;
}

constexpr bool validDaemon(std::string_view text) noexcept {
    return text.size() <= 1023 && printable(text);
}

// By its scheme's backend; backends.cpp.
quorl_status checkDaemon(std::string_view address) noexcept;

inline constexpr TextParameter daemon{"daemon", validDaemon, checkDaemon};
inline constexpr TextParameter service{"service", validBusName};
inline constexpr TextParameter network{"network", validBusName};

inline constexpr const Parameter* all[] = {&daemon, &service, &network};

}  // namespace quorl::transport::parameters
