// Members whose program sends more than the daemon takes: what they say finds no room at first.
#include <map>
#include <memory>

#include "proxy.h"
#include "quorl/quorlft.h"
#include "support.h"

namespace quorltest {
namespace {

// Signs of life would not come in the life of this test.
constexpr double heartbeat = 86400;
constexpr double activation = 2 * heartbeat;
constexpr quorl_u64 connectedRoom = 4u << 20;  // bytes that wait before senders have to

// The newest of what monitors have told, by its name: of each group the weight of the member that it is about.
class Heard {
  public:
    static void onAdvisory(quorlEvent, quorlMsg message, void* closure) {
        const char* subject = nullptr;
        const char* group = nullptr;
        quorl_u32 weight = 0;
        if (quorlMsg_GetSendSubject(message, &subject) != QUORL_OK) return;
        if (quorlMsg_GetStringEx(message, "group", &group, 0) != QUORL_OK) return;
        if (quorlMsg_GetU32Ex(message, "weight", &weight, 0) != QUORL_OK) return;
        auto& to = *static_cast<Heard*>(closure);
        const std::lock_guard lock(to.mutex_);
        to.weights_[std::string(group) + std::string(subject).substr(std::string(subject).rfind('.'))] = weight;
        to.changed_.notify_all();
    }
    // "plant.left" and the like.
    bool await(const std::string& name, quorl_u32 weight) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::duration<double>(limit), [&] {
            const auto found = weights_.find(name);
            return found != weights_.end() && found->second == weight;
        });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::string, quorl_u32> weights_;
};

quorlftMember join(quorlTransport transport, const char* group) {
    const auto onAction = [](quorlftMember, const char*, quorlftAction, void*) {};
    quorlftMember member = 0;
    EXPECT_EQ(quorlftMember_Create(&member, QUORL_DEFAULT_QUEUE, onAction, transport, group, 1, 1, heartbeat, 0,
                                   activation, nullptr),
              QUORL_OK);
    return member;
}

void watch(quorlTransport transport, const char* group) {
    const auto onCount = [](quorlftMonitor, const char*, quorl_u32, void*) {};
    quorlftMonitor monitor = 0;
    EXPECT_EQ(quorlftMonitor_Create(&monitor, QUORL_DEFAULT_QUEUE, onCount, transport, group, activation, nullptr),
              QUORL_OK);
}

TEST_F(Open, whatAMemberSaysIsHeardWhenThereIsRoomForItAgain) {
    NatsServer server;
    Proxy proxy(server.port());
    const quorlTransport through = transportTo("nats://" + proxy.address());
    const quorlTransport direct = transportTo(server.url());
    const quorlTransport local = newTransport();
    const quorlQueue queue = newQueue();
    Heard heard;
    listen(queue, local, "_QUORL.INFO.ft.*", Heard::onAdvisory, &heard);
    std::atomic<bool> over{false};
    Threads threads;
    // Also when the test gives up in the middle.
    const std::shared_ptr<void> ending(nullptr, [&](void*) {
        over = true;
        quorlQueue_DestroyEx(queue, nullptr, nullptr);
        proxy.tell("thaw up");
    });
    threads.start([&] {
        while (quorlQueue_TimedDispatch(queue, -1) == QUORL_OK) {
        }
    });
    watch(direct, "plant");
    watch(local, "here");
    settleOn(direct);
    const quorlftMember member = join(through, "plant");
    const quorlftMember here = join(local, "here");
    ASSERT_TRUE(heard.await("plant.joined", 1));

    threads.start([&] {
        quorlMsg message = newMessage("flood");
        const std::vector<char> filler(200'000, 'x');
        EXPECT_EQ(quorlMsg_AddOpaqueEx(message, "bytes", filler.data(), static_cast<quorl_u32>(filler.size()), 0),
                  QUORL_OK);
        // On a busy machine the way may be frozen for so long that it counts as lost.
        while (!over) {
            const quorl_status status = quorlTransport_Send(through, message);
            if (status != QUORL_OK && status != QUORL_DAEMON_NOT_CONNECTED) {
                ADD_FAILURE() << status;
                break;
            }
        }
        quorlMsg_Destroy(message);
    });
    const auto awaitFull = [&] {
        while (Statistics(local).ofDaemon("waiting") < connectedRoom) {
        }
    };
    proxy.tell("freeze up");
    awaitFull();
    EXPECT_EQ(quorlftMember_SetWeight(member, 9), QUORL_OK);
    // Told by the same thread, behind it.
    EXPECT_EQ(quorlftMember_SetWeight(here, 9), QUORL_OK);
    EXPECT_TRUE(heard.await("here.changed", 9));
    proxy.tell("thaw up");
    EXPECT_TRUE(heard.await("plant.changed", 9));

    proxy.tell("freeze up");
    awaitFull();
    Threads leaving;
    leaving.start([&] { EXPECT_EQ(quorlftMember_Destroy(member), QUORL_OK); });
    while (quorlftMember_SetWeight(member, 9) == QUORL_OK) {
    }
    proxy.tell("thaw up");
    EXPECT_TRUE(heard.await("plant.left", 9));
}

}  // namespace
}  // namespace quorltest
