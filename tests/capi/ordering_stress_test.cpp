// Order: per sender and listener, messages arrive in the order sent, whatever else happens meanwhile.
#include <array>
#include <map>
#include <memory>

#include "stress.h"
#include "support.h"

namespace quorltest {
namespace {

constexpr int senders = 8;
constexpr int places = 8;       // queues with a listener that is watched
constexpr int dispatchers = 4;  // each over a group with two of the queues
constexpr uint64_t window = 4096;

// One life of a watched listener. Called on the thread that dispatches its queue, one call at a time.
struct Watched {
    std::array<int, senders> last;
    uint64_t came = 0;
    std::atomic<bool> disorder{false};
    Counter completed;

    Watched() { last.fill(-1); }
    void take(quorlMsg message) {
        quorl_i32 sender = -1;
        EXPECT_EQ(quorlMsg_GetI32Ex(message, "sender", &sender, 0), QUORL_OK);
        const int number = numberOf(message);
        int& before = last[static_cast<size_t>(sender)];
        // The first that it hears may be any, each further one is the next.
        if (before != -1 && number != before + 1) disorder = true;
        before = number;
        ++came;
    }
    static void onMessage(quorlEvent, quorlMsg message, void* closure) {
        static_cast<Watched*>(closure)->take(message);
    }
    static void onBatch(quorlMsg* messages, quorl_u32 size) {
        for (quorl_u32 i = 0; i < size; ++i) {
            void* closure = nullptr;
            EXPECT_EQ(quorlMsg_GetClosure(messages[i], &closure), QUORL_OK);
            static_cast<Watched*>(closure)->take(messages[i]);
        }
    }
    static void onComplete(quorlEvent, void* closure) { static_cast<Watched*>(closure)->completed.add(); }
};

class Ordering : public Open {
  protected:
    // A listener or, at odd places, a vector listener.
    void watch(size_t place) {
        watched[place] = std::make_unique<Watched>();
        Watched* closure = watched[place].get();
        if (place % 2 == 0) {
            events[place] = listen(queues[place], transport, "s.*", Watched::onMessage, closure);
        } else {
            EXPECT_EQ(quorlEvent_CreateGroupVectorListener(&events[place], queues[place], Watched::onBatch, transport,
                                                           "s.*", closure, nullptr),
                      QUORL_OK);
        }
    }
    void unwatch(size_t place) {
        EXPECT_EQ(quorlEvent_DestroyEx(events[place], Watched::onComplete), QUORL_OK);
        ASSERT_TRUE(watched[place]->completed.waitFor(1));
        EXPECT_FALSE(watched[place]->disorder) << "place " << place;
        total += watched[place]->came;
    }

    quorlTransport transport = 0;
    std::array<quorlQueue, places> queues{};
    std::array<quorlEvent, places> events{};
    std::array<std::unique_ptr<Watched>, places> watched;
    uint64_t total = 0;
};

TEST_F(Ordering, holdsUnderRandomPrioritiesAndDestruction) {
    const unsigned long seed = stressSeed();
    const int each = stressSize(3000, 125'000);
    transport = newTransport();
    std::array<quorlQueueGroup, dispatchers> groups{};
    for (auto& group : groups) ASSERT_EQ(quorlQueueGroup_Create(&group), QUORL_OK);
    for (size_t place = 0; place < places; ++place) {
        queues[place] = newQueue();
        ASSERT_EQ(quorlQueueGroup_Add(groups[place % dispatchers], queues[place]), QUORL_OK);
        watch(place);
    }
    Threads threads;
    for (const auto group : groups) {
        threads.start([group] {
            while (quorlQueueGroup_TimedDispatch(group, -1) == QUORL_OK) {
            }
        });
    }
    std::atomic<int> running{senders};
    for (int sender = 0; sender < senders; ++sender) {
        threads.start([&, sender] {
            // Half of them share a transport, the others have one of their own.
            const quorlTransport own = sender % 2 == 0 ? transport : newTransport();
            const std::string subject = "s." + std::to_string(sender);
            quorlMsg message = newMessage(subject.c_str(), 0);
            EXPECT_EQ(quorlMsg_AddI32Ex(message, "sender", sender, 0), QUORL_OK);
            for (int i = 0; i < each; ++i) {
                EXPECT_EQ(quorlMsg_UpdateI32Ex(message, "n", i, 0), QUORL_OK);
                EXPECT_EQ(quorlTransport_Send(own, message), QUORL_OK);
                // Not further ahead of the dispatchers than that.
                for (size_t place = 0; i % 64 == 0 && place < places; ++place) {
                    while (countOf(queues[place]) > window) std::this_thread::yield();
                }
            }
            EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
            if (own != transport) {
                EXPECT_EQ(quorlTransport_Destroy(own), QUORL_OK);
            }
            --running;
        });
    }
    // Meanwhile: other priorities, other lives of the watched listeners, and things that come and go beside them.
    std::mt19937_64 random(seed);
    while (running != 0) {
        const size_t place = random() % places;
        switch (random() % 8) {
            case 0:
                unwatch(place);
                watch(place);
                break;
            case 1: {
                const quorlQueue passing = newQueue();
                EXPECT_EQ(quorlQueueGroup_Add(groups[place % dispatchers], passing), QUORL_OK);
                EXPECT_EQ(quorlQueue_SetLimitPolicy(passing, QUORLQUEUE_DISCARD_FIRST, 50, 10), QUORL_OK);
                const quorlEvent event = listen(
                    passing, transport, "s.*", [](quorlEvent, quorlMsg, void*) {}, nullptr);
                std::this_thread::yield();
                EXPECT_EQ(quorlQueue_DestroyEx(passing, nullptr, nullptr), QUORL_OK);
                EXPECT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
                break;
            }
            case 2: {
                const quorlEvent passing = listen(
                    queues[place], transport, "s.*", [](quorlEvent, quorlMsg, void*) {}, nullptr);
                std::this_thread::yield();
                EXPECT_EQ(quorlEvent_DestroyEx(passing, nullptr), QUORL_OK);
                break;
            }
            case 3: {
                quorlEvent timer = 0;
                EXPECT_EQ(quorlEvent_CreateTimer(
                              &timer, queues[place], [](quorlEvent, quorlMsg, void*) {}, 0, nullptr),
                          QUORL_OK);
                std::this_thread::yield();
                EXPECT_EQ(quorlEvent_DestroyEx(timer, nullptr), QUORL_OK);
                break;
            }
            default:
                EXPECT_EQ(quorlQueue_SetPriority(queues[place], static_cast<quorl_u32>(random() % 4)), QUORL_OK);
                std::this_thread::yield();
        }
    }
    for (size_t place = 0; place < places; ++place) {
        while (countOf(queues[place]) != 0) std::this_thread::yield();
        unwatch(place);
    }
    for (const auto group : groups) EXPECT_EQ(quorlQueueGroup_Destroy(group), QUORL_OK);
    threads.join();
    EXPECT_GT(total, 0u);
    EXPECT_LE(total, uint64_t{senders} * static_cast<uint64_t>(each) * places);
}

// Four threads over one group, no destruction: nothing is lost, nothing comes twice, and the events of one queue are
// taken in their order, which each thread alone sees too.
TEST_F(Ordering, sharedGroupsLoseNothing) {
    const int each = stressSize(3000, 125'000);
    transport = newTransport();
    quorlQueueGroup group = 0;
    ASSERT_EQ(quorlQueueGroup_Create(&group), QUORL_OK);
    struct Heard {
        std::unique_ptr<std::atomic<uint8_t>[]> times;
        std::atomic<uint64_t> came{0};
        std::atomic<int> disorder{0};
    };
    std::vector<Heard> heard(places);
    for (size_t place = 0; place < places; ++place) {
        heard[place].times = std::make_unique<std::atomic<uint8_t>[]>(static_cast<size_t>(each) * senders);
        queues[place] = newQueue();
        ASSERT_EQ(quorlQueueGroup_Add(group, queues[place]), QUORL_OK);
        listen(
            queues[place], transport, "s",
            [](quorlEvent event, quorlMsg message, void* closure) {
                auto& to = *static_cast<Heard*>(closure);
                quorl_i32 sender = -1;
                EXPECT_EQ(quorlMsg_GetI32Ex(message, "sender", &sender, 0), QUORL_OK);
                const int number = numberOf(message);
                to.times[static_cast<size_t>(number) * senders + static_cast<size_t>(sender)].fetch_add(1);
                thread_local std::map<std::pair<quorlEvent, int>, int> last;
                const auto [before, first] = last.try_emplace({event, sender}, number);
                if (!first && before->second >= number) ++to.disorder;
                before->second = number;
                ++to.came;
            },
            &heard[place]);
    }
    Threads threads;
    for (int i = 0; i < dispatchers; ++i) {
        threads.start([group] {
            while (quorlQueueGroup_TimedDispatch(group, -1) == QUORL_OK) {
            }
        });
    }
    Threads sending;
    for (int sender = 0; sender < senders; ++sender) {
        sending.start([&, sender] {
            quorlMsg message = newMessage("s", 0);
            EXPECT_EQ(quorlMsg_AddI32Ex(message, "sender", sender, 0), QUORL_OK);
            for (int i = 0; i < each; ++i) {
                EXPECT_EQ(quorlMsg_UpdateI32Ex(message, "n", i, 0), QUORL_OK);
                EXPECT_EQ(quorlTransport_Send(transport, message), QUORL_OK);
                for (size_t place = 0; i % 64 == 0 && place < places; ++place) {
                    while (countOf(queues[place]) > window) std::this_thread::yield();
                }
            }
            EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
        });
    }
    sending.join();
    for (Heard& one : heard) {
        while (one.came != static_cast<uint64_t>(each) * senders) std::this_thread::yield();
        EXPECT_EQ(one.disorder, 0);
        for (size_t i = 0; i < static_cast<size_t>(each) * senders; ++i) ASSERT_EQ(one.times[i], 1);
    }
    EXPECT_EQ(quorlQueueGroup_Destroy(group), QUORL_OK);
    threads.join();
}

}  // namespace
}  // namespace quorltest
