// Random operations on messages against a plain list of fields, from a seed that is printed and can be set.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "../../fuzz/operations/model.h"

namespace {

TEST(MessageOperations, AgreeWithAListOfFields) {
    const char* given = std::getenv("QUORL_SEED");
    const unsigned long seed = given != nullptr ? std::strtoul(given, nullptr, 0) : std::random_device()();
    std::printf("QUORL_SEED=%lu\n", seed);
    std::mt19937_64 random(seed);
    for (int round = 0; round < 300; ++round) {
        std::vector<uint8_t> decisions(64 + random() % 4'000);
        for (auto& each : decisions) each = static_cast<uint8_t>(random());
        const char* wrong = quorl::operations::Run(decisions.data(), decisions.size()).run();
        ASSERT_EQ(nullptr, wrong) << wrong << ", round " << round << ", detail: " << quorl_LastErrorText();
    }
}

}  // namespace
