// What the stress tests share: a seed that is printed and can be set, and how long they run.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

namespace quorltest {

// QUORL_SEED, or a new one. Threads draw from generators of their own, made from it: what each of them does is the same
// again, when it does it is not.
inline unsigned long stressSeed() {
    const char* given = std::getenv("QUORL_SEED");
    const unsigned long seed = given != nullptr ? std::strtoul(given, nullptr, 0) : std::random_device()();
    std::printf("QUORL_SEED=%lu\n", seed);
    std::fflush(stdout);  // a crash must not lose it
    return seed;
}

// QUORL_STRESS=long asks for the long form.
inline int stressSize(int brief, int thorough) {
    const char* given = std::getenv("QUORL_STRESS");
    return given != nullptr && std::strcmp(given, "long") == 0 ? thorough : brief;
}

}  // namespace quorltest
