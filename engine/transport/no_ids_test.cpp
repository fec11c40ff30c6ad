// Every id is taken: what creating an object of each kind says.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "base/registry.h"
#include "quorl/quorl.h"

namespace quorl {
namespace {

constexpr uint32_t mostObjects = 4'194'302;  // as quorl.h says, beside the default queue

void onNothing(quorlEvent, quorlMsg, void*) {}

bool refused(quorl_status status, const char* kind) {
    const std::string begin = "no id is free for a " + std::string(kind) + ": 4194302 ";
    return status == QUORL_NO_MEMORY && std::strncmp(quorl_LastErrorText(), begin.c_str(), begin.size()) == 0;
}

// The number of the first thing that went wrong; 0: none did.
int fill() {
    if (quorl_Open() != QUORL_OK) return 1;
    quorlTransport transport = 0;
    if (quorlTransport_Create(&transport, nullptr, nullptr, nullptr) != QUORL_OK) return 2;
    std::vector<uint32_t> ids;
    for (uint32_t id = 0; (id = registry::reserve()) != 0;) ids.push_back(id);
    if (ids.size() != mostObjects - 1) return 3;
    quorlQueue queue = 0;
    quorlQueueGroup group = 0;
    quorlEvent event = 0;
    quorlTransport other = 0;
    const char* subject = nullptr;
    if (!refused(quorlQueue_Create(&queue), "queue")) return 4;
    if (!refused(quorlQueueGroup_Create(&group), "queue group")) return 5;
    if (!refused(quorlEvent_CreateTimer(&event, 1, onNothing, 1, nullptr), "timer")) return 6;
    if (!refused(quorlEvent_CreateListener(&event, 1, onNothing, transport, "a", nullptr), "listener")) return 7;
    if (!refused(quorlTransport_Create(&other, nullptr, nullptr, nullptr), "transport")) return 8;
    if (quorlTransport_CreateAcceptVc(&other, &subject, transport) != QUORL_NO_MEMORY) return 9;
    if (std::strstr(quorl_LastErrorText(), "no id is free") == nullptr) return 9;
    // One that is given back serves the next.
    registry::abandon(ids.back());
    ids.pop_back();
    if (quorlQueueGroup_Create(&group) != QUORL_OK) return 10;
    if (!refused(quorlQueueGroup_Create(&group), "queue group")) return 11;
    for (const uint32_t id : ids) registry::abandon(id);
    return quorl_Close() == QUORL_OK ? 0 : 12;
}

// In a process of its own: ids that were taken once are used in another order afterwards.
TEST(NoIds, everyKindOfObjectSaysSo) {
    const pid_t child = fork();
    if (child == 0) _exit(fill());
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << status;
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
}  // namespace quorl
