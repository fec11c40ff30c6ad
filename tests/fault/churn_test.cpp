// Everything comes and goes under load, in every combination, and the books must balance: what was accepted was delivered
// once, dropped and counted, or waited for a listener that was destroyed.
#include <algorithm>
#include <array>
#include <deque>
#include <map>
#include <memory>

#include "../capi/stress.h"
#include "../capi/support.h"

namespace quorltest {
namespace {

constexpr uint64_t aliveMark = 0x616c697665;
constexpr size_t queueCount = 5;
constexpr int most = 1 << 19;  // messages of a round
constexpr int churners = 3;
constexpr int dispatchers = 3;

// Seconds that the test runs: QUORL_CHURN_SECONDS, or 15.
double churnSeconds() {
    const char* given = std::getenv("QUORL_CHURN_SECONDS");
    return given != nullptr ? std::strtod(given, nullptr) : 15;
}

struct Round;

// A queue of the round; those that are mortal are destroyed and replaced, and not counted.
struct QueueRow {
    std::atomic<quorlQueue> id{0};
    bool mortal = false;
    bool limited = false;                  // at some time of the round
    std::atomic<quorl_u64> dispatched{0};  // callbacks, and messages of batches
};

// The closure of a listener, vector listener or timer.
struct Feed {
    volatile uint64_t mark = aliveMark;
    Round* round = nullptr;
    QueueRow* queue = nullptr;
    std::string subject;
    bool stable = false;  // lives until the round is over
    bool wide = false;    // hears what is sent to the others too, also while it is destroyed
    std::atomic<quorlEvent> id{0};
    std::atomic<bool> destroyed{false};  // by whoever set it
    std::atomic<int> completions{0};
    std::atomic<quorl_u64> sent{0};
    std::atomic<quorl_u64> delivered{0};
    ~Feed() { mark = 0; }
};

struct Told {
    std::string subject;
    quorl_u64 object = 0;
    quorl_u64 lost = 0;
};

// What the thread decides by.
thread_local std::mt19937_64* dice = nullptr;
bool oneIn(unsigned sides) {
    return (*dice)() % sides == 0;
}

struct Round {
    // narrow: listeners alone come and go, all on one queue that is full and empty by turns.
    Round(uint64_t seed, bool narrow) : seed_(seed), narrow_(narrow), came_(new std::atomic<uint8_t>[most]()) {}

    void play(double seconds);

  private:
    Feed& newFeed(QueueRow& queue, bool stable) {
        std::lock_guard lock(mutex_);
        Feed& feed = feeds_.emplace_back();
        feed.round = this;
        feed.queue = &queue;
        feed.stable = stable;
        feed.subject = "f." + std::to_string(feeds_.size());
        return feed;
    }
    QueueRow& anyQueue() { return queues_[(*dice)() % queues_.size()]; }
    quorlTransport transportFor(bool stable) { return stable || !oneIn(4) ? steady_ : mortal_.load(); }

    // False when what it would belong to has just gone.
    bool createListener(Feed& feed, bool vector) {
        quorlEvent id = 0;
        const quorlTransport transport = transportFor(feed.stable);
        feed.wide = !feed.stable && (narrow_ || oneIn(4));
        const char* pattern = feed.wide ? "f.*" : feed.subject.c_str();
        const quorl_status status =
            vector ? quorlEvent_CreateGroupVectorListener(&id, feed.queue->id, onBatch, transport, pattern, &feed, this)
                   : quorlEvent_CreateListener(&id, feed.queue->id, onMessage, transport, pattern, &feed);
        return made(feed, id, status);
    }
    bool createTimer(Feed& feed) {
        quorlEvent id = 0;
        const quorl_status status = quorlEvent_CreateTimer(&id, feed.queue->id, onTimer, interval(), &feed);
        return made(feed, id, status);
    }
    static bool made(Feed& feed, quorlEvent id, quorl_status status) {
        if (status != QUORL_OK) {
            EXPECT_TRUE(status == QUORL_INVALID_QUEUE || status == QUORL_INVALID_TRANSPORT) << quorl_LastErrorText();
            feed.destroyed = true;
            feed.completions = 1;
            return false;
        }
        feed.id = id;
        return true;
    }
    static double interval() {
        static constexpr double choices[] = {0, 0, 1e-4, 1e-3};
        return choices[(*dice)() % std::size(choices)];
    }
    static void destroy(Feed& feed, quorlEvent id) {
        if (id == 0 || feed.destroyed.exchange(true)) return;
        EXPECT_EQ(quorlEvent_DestroyEx(id, onComplete), QUORL_OK) << quorl_LastErrorText();
    }
    static void onComplete(quorlEvent, void* closure) {
        auto& feed = *static_cast<Feed*>(closure);
        EXPECT_EQ(feed.mark, aliveMark);
        EXPECT_EQ(++feed.completions, 1);
        ++feed.round->completed_;
    }
    static void onQueueComplete(quorlQueue, void* closure) { ++static_cast<Round*>(closure)->queuesCompleted_; }

    // ---- callbacks

    static void enter(Feed& feed, quorl_u64 count) {
        EXPECT_EQ(feed.mark, aliveMark);
        EXPECT_EQ(feed.completions, 0) << "a callback after the completion";
        feed.delivered += count;
        feed.queue->dispatched += count;
    }
    static void leave(Feed& feed, quorlEvent id) {
        EXPECT_EQ(feed.completions, 0) << "the completion came during a callback";
        if (!feed.stable && oneIn(8)) destroy(feed, id);
        if (oneIn(32)) feed.round->sendTo(feed.round->anyStable());
        if (oneIn(64)) quorlQueue_SetPriority(feed.queue->id, static_cast<quorl_u32>((*dice)() % 4));
    }
    void arrive(quorlMsg message) {
        const int number = numberOf(message);
        if (number < 0 || number >= most) {
            ADD_FAILURE() << "no number that was sent: " << number;
        } else {
            EXPECT_EQ(came_[number].exchange(1), 0) << "message " << number << " came twice";
        }
    }
    static void onMessage(quorlEvent id, quorlMsg message, void* closure) {
        auto& feed = *static_cast<Feed*>(closure);
        enter(feed, 1);
        if (!feed.wide) feed.round->arrive(message);
        leave(feed, id);
    }
    static void onBatch(quorlMsg* messages, quorl_u32 size) {
        Feed* first = nullptr;
        for (quorl_u32 i = 0; i < size; ++i) {
            void* closure = nullptr;
            EXPECT_EQ(quorlMsg_GetClosure(messages[i], &closure), QUORL_OK);
            auto& feed = *static_cast<Feed*>(closure);
            enter(feed, 1);
            if (!feed.wide) feed.round->arrive(messages[i]);
            if (first == nullptr) first = &feed;
        }
        std::shuffle(messages, messages + size, *dice);
        leave(*first, first->id);
    }
    static void onTimer(quorlEvent id, quorlMsg, void* closure) {
        auto& feed = *static_cast<Feed*>(closure);
        enter(feed, 1);
        if (oneIn(8)) quorlEvent_ResetTimerInterval(id, interval());
        leave(feed, id);
    }
    static void onRequest(quorlEvent, quorlMsg request, void* closure) {
        auto& round = *static_cast<Round*>(closure);
        quorlMsg reply = newMessage("unused", numberOf(request));
        EXPECT_EQ(quorlTransport_SendReply(round.steady_, reply, request), QUORL_OK) << quorl_LastErrorText();
        EXPECT_EQ(quorlMsg_Destroy(reply), QUORL_OK);
    }
    static void onAdvisory(quorlEvent, quorlMsg message, void* closure) {
        const char* subject = nullptr;
        Told told;
        EXPECT_EQ(quorlMsg_GetSendSubject(message, &subject), QUORL_OK);
        told.subject = subject + sizeof "_QUORL." - 1;
        const bool listener = told.subject.find(".listener.") != std::string::npos;
        quorlMsg_GetU64Ex(message, listener ? "listener" : "queue", &told.object, 0);
        quorlMsg_GetU64Ex(message, "lost", &told.lost, 0);
        static_cast<Round*>(closure)->told_.push_back(std::move(told));
    }

    // ---- what churners do

    Feed& anyStable() { return *stable_[(*dice)() % stable_.size()]; }
    void sendTo(Feed& feed) {
        const int number = numbers_.fetch_add(1);
        if (number >= most) return;
        ++feed.sent;
        const quorl_status status = sendNumber(steady_, feed.subject.c_str(), number);
        EXPECT_EQ(status, QUORL_OK) << quorl_LastErrorText();
    }
    void ask() {
        quorlMsg request = newMessage("r", static_cast<int>((*dice)() % 1000));
        quorlMsg reply = nullptr;
        EXPECT_EQ(quorlTransport_SendRequest(steady_, request, &reply, limit), QUORL_OK) << quorl_LastErrorText();
        if (reply != nullptr) {
            EXPECT_EQ(numberOf(reply), numberOf(request));
            EXPECT_EQ(quorlMsg_Destroy(reply), QUORL_OK);
        }
        EXPECT_EQ(quorlMsg_Destroy(request), QUORL_OK);
    }
    void limitAnew(QueueRow& queue) {
        const quorlQueue id = queue.id;
        if (queue.limited) {
            static constexpr quorlQueueLimitPolicy policies[] = {QUORLQUEUE_DISCARD_FIRST, QUORLQUEUE_DISCARD_LAST,
                                                                 QUORLQUEUE_DISCARD_NEW};
            const auto events = static_cast<quorl_u32>(1 + (*dice)() % 8);
            if (oneIn(8)) {
                quorlQueue_SetLimitPolicy(id, QUORLQUEUE_DISCARD_NONE, 0, 0);
            } else {
                quorlQueue_SetLimitPolicy(id, policies[(*dice)() % 3], events,
                                          static_cast<quorl_u32>(1 + (*dice)() % events));
            }
        }
    }
    void regroup(QueueRow& queue) {
        const quorlQueueGroup group = groups_[(*dice)() % groups_.size()];
        if (oneIn(2)) {
            quorlQueueGroup_Add(group, queue.id);
        } else {
            quorlQueueGroup_Remove(group, queue.id);
        }
        quorlQueue_SetPriority(queue.id, static_cast<quorl_u32>((*dice)() % 4));
    }
    void replaceGroup() {
        quorlQueueGroup fresh = 0;
        EXPECT_EQ(quorlQueueGroup_Create(&fresh), QUORL_OK);
        for (auto& queue : queues_) quorlQueueGroup_Add(fresh, queue.id);
        EXPECT_EQ(quorlQueueGroup_Destroy(groups_[(*dice)() % groups_.size()].exchange(fresh)), QUORL_OK);
    }
    void replaceQueue(QueueRow& queue) {
        const quorlQueue fresh = newQueue();
        quorlQueue_SetLimitPolicy(fresh, QUORLQUEUE_DISCARD_LAST, 3, 2);
        const quorlQueue old = queue.id.exchange(fresh);
        quorlQueueGroup_Add(groups_[0], fresh);
        ++queuesDestroyed_;
        EXPECT_EQ(quorlQueue_DestroyEx(old, onQueueComplete, this), QUORL_OK);
    }
    void replaceTransport() {
        quorlTransport fresh = 0;
        EXPECT_EQ(quorlTransport_Create(&fresh, nullptr, nullptr, nullptr), QUORL_OK);
        EXPECT_EQ(quorlTransport_Destroy(mortal_.exchange(fresh)), QUORL_OK);
    }

    void churn() {
        std::vector<Feed*> mine;
        while (!over_ && numbers_ < most) {
            switch (narrow_ ? 0 : (*dice)() % 16) {
                case 0:
                case 1:
                case 2:
                case 3:
                case 4: {
                    Feed& feed = newFeed(narrow_ ? queues_[1] : anyQueue(), false);
                    if (!createListener(feed, !narrow_ && oneIn(3))) break;
                    for (auto count = (*dice)() % 8; count != 0; --count) sendTo(feed);
                    if (!narrow_ && oneIn(4)) {
                        mine.push_back(&feed);
                    } else {
                        destroy(feed, feed.id);
                    }
                    break;
                }
                case 5:
                case 6:
                    for (auto count = (*dice)() % 16; count != 0; --count) sendTo(anyStable());
                    break;
                case 7: {
                    Feed& feed = newFeed(anyQueue(), false);
                    if (createTimer(feed)) mine.push_back(&feed);
                    break;
                }
                case 8:
                case 9:
                    if (!mine.empty()) {
                        Feed& feed = *mine[(*dice)() % mine.size()];
                        quorlEvent_ResetTimerInterval(feed.id, interval());  // refused for what is no timer, or gone
                        sendTo(feed);
                    }
                    break;
                case 10:
                    while (mine.size() > (*dice)() % 16) {
                        destroy(*mine.back(), mine.back()->id);
                        mine.pop_back();
                    }
                    break;
                case 11:
                    limitAnew(anyQueue());
                    break;
                case 12:
                    regroup(anyQueue());
                    break;
                case 13:
                    ask();
                    break;
                case 14:
                    if (oneIn(4)) replaceGroup();
                    if (QueueRow& queue = anyQueue(); queue.mortal) replaceQueue(queue);
                    break;
                default:
                    if (oneIn(4)) replaceTransport();
                    break;
            }
        }
        for (Feed* feed : mine) destroy(*feed, feed->id);
    }
    void dispatch() {
        while (!done_) {
            const double timeout = oneIn(2) ? 0 : 0.002;
            if (oneIn(4)) quorlQueue_TimedDispatch(requests_, timeout);
            if (oneIn(2)) {
                quorlQueueGroup_TimedDispatch(groups_[(*dice)() % groups_.size()], timeout);
            } else {
                quorlQueue_TimedDispatch(narrow_ ? queues_[1].id : anyQueue().id, timeout);
            }
        }
    }

    void setUp();
    void settleBooks();
    void checkAdvisories();
    quorl_u64 objects(const char* name);
    struct Counts {
        quorl_u64 dispatched = 0;
        quorl_u64 dropped = 0;
        quorl_u64 waiting = 0;
    };
    std::map<quorlQueue, Counts> statistics();

    template <class F>
    static bool await(F&& happened) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
        while (!happened()) {
            if (std::chrono::steady_clock::now() > end) return false;
            std::this_thread::yield();
        }
        return true;
    }
    template <class F>
    void startThread(Threads& threads, uint64_t number, F&& body) {
        threads.start([this, number, body] {
            std::mt19937_64 random(seed_ * 31 + number);
            dice = &random;
            body();
            dice = nullptr;
        });
    }

    const uint64_t seed_;
    const bool narrow_;
    const std::unique_ptr<std::atomic<uint8_t>[]> came_;
    std::atomic<int> numbers_{0};
    std::mutex mutex_;
    std::deque<Feed> feeds_;
    std::vector<Feed*> stable_;
    std::array<QueueRow, queueCount> queues_;
    std::array<std::atomic<quorlQueueGroup>, 2> groups_;
    quorlTransport steady_ = 0;
    std::atomic<quorlTransport> mortal_{0};
    quorlQueue requests_ = 0;
    quorlQueue advisories_ = 0;
    std::vector<Told> told_;
    std::atomic<bool> over_{false};
    std::atomic<bool> done_{false};
    std::atomic<int> completed_{0};
    std::atomic<int> queuesDestroyed_{0};
    std::atomic<int> queuesCompleted_{0};
};

void Round::setUp() {
    ASSERT_EQ(quorlTransport_Create(&steady_, nullptr, nullptr, nullptr), QUORL_OK);
    quorlTransport mortal = 0;
    ASSERT_EQ(quorlTransport_Create(&mortal, nullptr, nullptr, nullptr), QUORL_OK);
    mortal_ = mortal;
    requests_ = newQueue();
    advisories_ = newQueue();
    listen(requests_, steady_, "r", onRequest, this);
    listen(advisories_, steady_, "_QUORL.*.queue.*", onAdvisory, this);
    listen(advisories_, steady_, "_QUORL.*.listener.*", onAdvisory, this);
    for (auto& group : groups_) {
        quorlQueueGroup made = 0;
        ASSERT_EQ(quorlQueueGroup_Create(&made), QUORL_OK);
        group = made;
    }
    for (size_t i = 0; i < queues_.size(); ++i) {
        QueueRow& queue = queues_[i];
        queue.id = newQueue();
        queue.mortal = i == 4;
        queue.limited = i != 0;
        if (i == 1) {  // a few events, the newest refused
            ASSERT_EQ(quorlQueue_SetLimitPolicy(queue.id, QUORLQUEUE_DISCARD_NEW, 4, 1), QUORL_OK);
        } else {
            limitAnew(queue);
        }
        ASSERT_EQ(quorlQueueGroup_Add(groups_[i % 2], queue.id), QUORL_OK);
        if (queue.mortal) continue;
        for (const bool vector : {false, true}) {
            Feed& feed = newFeed(queue, true);
            ASSERT_TRUE(createListener(feed, vector));
            stable_.push_back(&feed);
        }
    }
}

quorl_u64 Round::objects(const char* name) {
    quorlMsg request = newMessage("_QUORL.STATS");
    quorlMsg reply = nullptr;
    EXPECT_EQ(quorlTransport_SendRequest(steady_, request, &reply, limit), QUORL_OK);
    quorlMsg inner = nullptr;
    quorl_u64 value = UINT64_MAX;
    EXPECT_EQ(quorlMsg_GetMsgEx(reply, "objects", &inner, 0), QUORL_OK);
    EXPECT_EQ(quorlMsg_GetU64Ex(inner, name, &value, 0), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(reply), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(request), QUORL_OK);
    return value;
}

std::map<quorlQueue, Round::Counts> Round::statistics() {
    std::map<quorlQueue, Counts> all;
    quorlMsg request = newMessage("_QUORL.STATS");
    quorlMsg reply = nullptr;
    EXPECT_EQ(quorlTransport_SendRequest(steady_, request, &reply, limit), QUORL_OK);
    const quorlMsg* queues = nullptr;
    quorl_u32 count = 0;
    EXPECT_EQ(quorlMsg_GetMsgArrayEx(reply, "queues", &queues, &count, 0), QUORL_OK);
    for (quorl_u32 i = 0; i < count; ++i) {
        const auto whole = [&](const char* name) {
            quorl_u64 value = UINT64_MAX;
            EXPECT_EQ(quorlMsg_GetU64Ex(queues[i], name, &value, 0), QUORL_OK);
            return value;
        };
        all[static_cast<quorlQueue>(whole("queue"))] = {whole("dispatched"), whole("dropped"), whole("waiting")};
    }
    EXPECT_EQ(quorlMsg_Destroy(reply), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(request), QUORL_OK);
    return all;
}

// Nobody sends, and nobody dispatches any more.
void Round::settleBooks() {
    const auto counted = statistics();
    std::map<quorlQueue, quorl_u64> dropped;
    for (const QueueRow& queue : queues_) {
        if (queue.mortal) continue;
        const auto found = counted.find(queue.id);
        ASSERT_NE(found, counted.end());
        EXPECT_EQ(found->second.waiting, 0u);
        EXPECT_EQ(found->second.dispatched, queue.dispatched) << "queue " << queue.id;
        dropped[queue.id] = found->second.dropped;
        quorl_u64 lost = 0;
        for (const Feed* feed : stable_) {
            if (feed->queue != &queue) continue;
            EXPECT_LE(feed->delivered, feed->sent);
            if (!queue.limited) {
                EXPECT_EQ(feed->delivered, feed->sent) << feed->subject;
            }
            lost += feed->sent - feed->delivered;
        }
        EXPECT_LE(lost, found->second.dropped) << "lost of the listeners that stayed, in queue " << queue.id;
    }
    // Whatever is raised ends with what it is about.
    for (Feed& feed : feeds_) destroy(feed, feed.id);
    for (QueueRow& queue : queues_) {
        ++queuesDestroyed_;
        EXPECT_EQ(quorlQueue_DestroyEx(queue.id, onQueueComplete, this), QUORL_OK);
    }
    EXPECT_TRUE(await([&] {
        return std::all_of(feeds_.begin(), feeds_.end(), [](const Feed& feed) { return feed.completions != 0; }) &&
               queuesCompleted_ == queuesDestroyed_;
    }));
    for (const Feed& feed : feeds_) EXPECT_EQ(feed.completions, 1);
    while (quorlQueue_TimedDispatch(advisories_, 0) == QUORL_OK) {
    }
    checkAdvisories();
    std::map<quorl_u64, quorl_u64> told;
    for (const Told& each : told_) {
        if (each.subject.ends_with("limit_end") || each.subject.ends_with("slow_end")) told[each.object] += each.lost;
    }
    for (const auto& [queue, count] : dropped) EXPECT_EQ(told[queue], count) << "told as lost of queue " << queue;
    for (const Feed* feed : stable_)
        EXPECT_EQ(told[feed->id], feed->sent - feed->delivered) << "told as lost of " << feed->subject;
}

// Each begin has its end, in turn.
void Round::checkAdvisories() {
    std::map<std::pair<quorl_u64, std::string>, int> open;
    for (const Told& told : told_) {
        const bool begin = told.subject.ends_with("_begin");
        const size_t from = told.subject.rfind('.') + 1;
        int& count = open[{told.object, told.subject.substr(from, told.subject.rfind('_') - from)}];
        count += begin ? 1 : -1;
        EXPECT_TRUE(count == 0 || count == 1) << told.subject << " of " << told.object;
    }
    for (const auto& [what, count] : open) {
        if (what.first == advisories_ || what.first == requests_) continue;
        EXPECT_EQ(count, 0) << what.second << " of " << what.first << " has no end";
    }
}

void Round::play(double seconds) {
    std::mt19937_64 random(seed_);
    dice = &random;
    setUp();
    if (testing::Test::HasFatalFailure()) return;
    const quorl_u64 messages = objects("messages");
    Threads dispatching;
    Threads churning;
    for (int i = 0; i < dispatchers; ++i) startThread(dispatching, static_cast<uint64_t>(i), [this] { dispatch(); });
    for (int i = 0; i < churners; ++i) startThread(churning, 100u + static_cast<uint64_t>(i), [this] { churn(); });
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    // The advisories' dispatcher is this thread, which has nothing else to do.
    while (std::chrono::steady_clock::now() < end && numbers_ < most) quorlQueue_TimedDispatch(advisories_, 0.01);
    over_ = true;
    churning.join();
    for (Feed& feed : feeds_) {
        if (!feed.stable) destroy(feed, feed.id);
    }
    EXPECT_TRUE(await([&] {
        return std::all_of(queues_.begin(), queues_.end(), [](const QueueRow& queue) {
            quorl_u32 count = 1;
            return quorlQueue_GetCount(queue.id, &count) == QUORL_OK && count == 0;
        });
    })) << "what waits is not dispatched";
    done_ = true;
    dispatching.join();
    // A callback may have sent on while the queues were counted.
    for (QueueRow& queue : queues_) {
        while (quorlQueue_TimedDispatch(queue.id, 0) == QUORL_OK) {
        }
    }
    for (QueueRow& queue : queues_) {
        while (quorlQueue_TimedDispatch(queue.id, 0) == QUORL_OK) {
        }
    }
    settleBooks();
    EXPECT_EQ(objects("messages"), messages) << "messages that nobody has destroyed";
    for (const auto& group : groups_) EXPECT_EQ(quorlQueueGroup_Destroy(group), QUORL_OK);
    for (const quorlQueue queue : {requests_, advisories_}) {
        ++queuesDestroyed_;
        EXPECT_EQ(quorlQueue_DestroyEx(queue, onQueueComplete, this), QUORL_OK);
    }
    EXPECT_TRUE(await([&] { return queuesCompleted_ == queuesDestroyed_; }));
    EXPECT_EQ(quorlTransport_Destroy(steady_), QUORL_OK);
    EXPECT_EQ(quorlTransport_Destroy(mortal_), QUORL_OK);
    dice = nullptr;
}

TEST(Churn, theBooksBalance) {
    const char* mark = "queue.highwater=50";
    ASSERT_EQ(quorl_SetQRParameters(1, &mark), QUORL_OK);
    const unsigned long seed = stressSeed();
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(churnSeconds());
    for (uint64_t number = 0; std::chrono::steady_clock::now() < end && !HasFailure(); ++number) {
        ASSERT_EQ(quorl_Open(), QUORL_OK);
        {
            Round round(seed + number * 1000, number % 2 == 0);
            round.play(1.5);
            ASSERT_EQ(quorl_Close(), QUORL_OK);
        }
        if (HasFailure()) ADD_FAILURE() << "round " << number << " of QUORL_SEED=" << seed;
    }
    mark = "queue.highwater=100000";
    ASSERT_EQ(quorl_SetQRParameters(1, &mark), QUORL_OK);
}

}  // namespace
}  // namespace quorltest
