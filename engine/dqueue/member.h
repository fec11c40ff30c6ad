// A member of a distributed queue: a machine on the library's host, and what it
// hears, says and hands to the program's listeners.
//
// The lock serializes the steps of the machine. Under it the ears of a step are
// opened and closed, its messages sent and its tasks posted, so that all have
// the order of the steps. Nothing waits under it, and nothing is told under it.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "companion/certified.h"
#include "companion/host.h"
#include "dqueue/protocol/machine.h"

namespace quorl::dqueue {

class QueueMember final : public companion::CertifiedTransport,
                          public companion::Guest,
                          public std::enable_shared_from_this<QueueMember> {
  public:
    // Makes a member and gives it an id. The settings are as check wants them.
    static quorl_status create(uint32_t transport, const Settings& settings, uint32_t* id);

    QueueMember(uint32_t transport, const Settings& settings, const Chance& chance);
    ~QueueMember() override;

    // ---- statuses of these have a detail text
    // Calls change(machine, now, output) as one step.
    template <class F>
    quorl_status call(F&& change) noexcept {
        return explain(step(std::forward<F>(change)));
    }
    quorl_status setWorkerTasks(uint32_t tasks) noexcept;
    quorl_status setBacklogLimit(bool inBytes, uint32_t limit) noexcept;
    // Tasks that wait for a worker.
    uint64_t unassigned() noexcept;

    // ---- the program is done with a task. QUORL_NOT_FOUND: this member does not
    // hold it (any more).
    quorl_status complete(uint32_t task) noexcept;
    quorl_status complete(const companion::Message& message) noexcept;
    // The program could not do it: it goes to another worker. The same.
    quorl_status giveBack(uint32_t task) noexcept;
    quorl_status giveBack(const companion::Message& message) noexcept;
    // The same of one that a queue's limit has dropped, a little later: takes no
    // lock that is held while tasks are posted.
    void drop(uint32_t task) noexcept;
    // Whether others have got what it held: its transport is gone. What waits in queues of the program is not its any more.
    bool isCutOff() const noexcept { return cutOff_.load(std::memory_order_acquire); }

    // ---- companion::CertifiedTransport
    bool isQueue() const noexcept override { return true; }
    quorl_status leave(quorlcmTransportOnComplete completion, const void* closure) noexcept override;
    quorl_status listen(uint32_t queue, quorlcmEventCallback callback, const char* pattern, const void* closure,
                        uint32_t* id) noexcept override;
    void unlisten(uint32_t listener, bool cancel) noexcept;

    // ---- what the library and its host tell
    void closed() noexcept override;
    void completed() noexcept override;
    void parentCloses() noexcept override;
    void parentClosed() noexcept override;
    void wake() noexcept override;
    void received(uint32_t ear, companion::Message&& message) noexcept override;

  private:
    // One step, and what comes of it; evenEnded: also when the member is closed.
    // Without a detail text.
    template <class F>
    quorl_status step(F&& change, bool evenEnded = false) noexcept;
    template <class F>
    quorl_status onTask(const companion::Message& message, F&& change) noexcept;
    void carryOut(quorl_status status) noexcept;
    void open(const Ear& ear) noexcept;
    void openMissing() noexcept;
    void bury() noexcept;
    bool enqueue(companion::Message&& message) noexcept;
    void flush() noexcept;
    void flushAll(int64_t deadline) noexcept;
    void post(Task& task) noexcept;
    void takeDropped() noexcept;
    void makeRoomForDropped(uint32_t tasks);
    void answerStatus(const companion::Message& question) noexcept;
    quorl_status start() noexcept;
    quorl_status explain(quorl_status status) const noexcept;
    void tell(const News& news) const noexcept;
    void tell(const Event& event) const noexcept;

    static Now now() noexcept { return {companion::monotonicNow(), companion::wallNow()}; }

    const uint32_t transport_;
    const std::string queue_;
    const std::string statusSubject_;
    std::atomic<uint32_t> id_{0};
    std::atomic<bool> left_{false};  // nothing is held any more, or the time for that has passed
    std::atomic<bool> cutOff_{false};

    std::mutex droppedLock_;
    std::vector<uint32_t> dropped_;  // tasks; guarded by it

    std::mutex lock_;  // guards what follows
    Machine machine_;
    Output out_;
    bool ended_ = false;
    int64_t leaveBy_ = 0;  // 0: it does not leave
    uint64_t backlogMessages_ = 0;
    uint64_t backlogBytes_ = 0;
    std::deque<companion::Message> backlog_;  // what found no room
    std::map<uint32_t, uint32_t> ears_;       // the library's listeners: the numbers of the machine's ears
    std::vector<Ear> missing_;                // ears that could not be opened yet
    std::vector<DeadLetter> letters_;         // that could not be sent yet
    uint32_t statusEar_ = 0;                  // of the library's listeners
    std::vector<uint32_t> listeners_;         // of the program
};

// The host of all members; the module starts and stops it.
companion::Host& host() noexcept;
quorl_status useModule() noexcept;

// What the module tells of all members.
struct Figures {
    std::atomic<uint32_t> members{0};
    std::atomic<uint64_t> delivered{0};  // tasks, to queues
    std::atomic<uint64_t> completed{0};  // by programs here
    std::atomic<uint64_t> dropped{0};    // by the limits of queues
    std::atomic<uint64_t> deadLetters{0};
};
Figures& figures() noexcept;

template <class F>
quorl_status QueueMember::step(F&& change, bool evenEnded) noexcept {
    News news;
    quorl_status status;
    {
        const std::lock_guard lock(lock_);
        if (ended_ && !evenEnded) return QUORL_INVALID_TRANSPORT;
        out_.clear();
        try {
            status = change(machine_, now(), out_);
        } catch (const std::bad_alloc&) {
            status = QUORL_NO_MEMORY;
        }
        carryOut(status);
        news = out_.takeRest();
    }
    if (news.left && !left_.exchange(true)) host().schedule(*this, companion::monotonicNow());
    tell(news);
    return status;
}

}  // namespace quorl::dqueue
