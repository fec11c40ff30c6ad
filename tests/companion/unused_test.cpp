// A program that uses no companion loads none, and nothing that they stand on.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "quorl/quorl.h"

namespace {

TEST(UnusedCompanions, areNotLoadedNorWhatTheyStandOn) {
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    quorlTransport transport = 0;
    EXPECT_EQ(quorlTransport_Create(&transport, nullptr, nullptr, nullptr), QUORL_OK);
    bool core = false;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        core = core || line.find("libquorl.so") != std::string::npos;
        for (const char* other : {"libquorlcm", "libquorlft", "libquorlsd", "sqlite"})
            EXPECT_EQ(line.find(other), std::string::npos) << line;
    }
    EXPECT_TRUE(core);
    EXPECT_EQ(quorl_Close(), QUORL_OK);
}

}  // namespace
