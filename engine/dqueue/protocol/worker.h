// The worker of a member: it attaches itself to whoever is the scheduler, gives its program the tasks that come, and reports what
// was completed until the scheduler has said that it knows.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "certified/protocol/slots.h"
#include "dqueue/protocol/shared.h"

namespace quorl::dqueue {

class Worker {
  public:
    static constexpr size_t patternsMost = 64;

    explicit Worker(Shared& shared);

    // ---- the program's; see Machine
    quorl_status createListener(uint32_t number, std::string_view pattern);
    void destroyListener(uint32_t number, bool cancel);
    quorl_status complete(uint32_t task);
    quorl_status giveBack(uint32_t task, GroupKind kind);
    uint32_t taskOf(const companion::Message& message) const noexcept;
    // Weight, tasks or patterns have changed.
    void offerAnew();
    void leave();
    // It holds nothing, and the scheduler knows of all that it did.
    bool finished() const noexcept;
    // Says what it has completed and not yet said.
    void flush();

    // ---- what comes in; the members are others than this one, or this one's own scheduler
    void onBeat(const Frame& frame);
    void onTask(const Frame& frame, const companion::Message& message);
    void onSettled(const Frame& frame);
    void onCounted(const Frame& frame);
    void onWelcome(const Frame& frame);
    void onVoided(const Frame& frame);

    int64_t due() const noexcept;
    void tick();

    const Term& term() const noexcept { return term_; }
    // Whether it hears a scheduler.
    bool connected() const noexcept { return connected_; }
    void count(Counts& counts) const noexcept;
    // Numbers that the scheduler of before took itself: they were with it when it was lost.
    static constexpr size_t takenMost = 10'000;

  private:
    struct Listener {
        uint32_t number = 0;
        std::string pattern;
    };
    struct Held {
        Stream* stream = nullptr;
        uint64_t number = 0;
        uint32_t listener = 0;
        uint32_t reassigned = 0;
        uint32_t handOut = 0;  // by which it came in this attachment; 0: before it
    };
    struct Returned {
        Stream* stream = nullptr;
        uint64_t number = 0;
        uint32_t handOut = 0;
        GroupKind kind = GroupKind::released;
        uint64_t report = 0;  // in which it was said last
    };
    struct Taken {
        Stream* stream = nullptr;
        uint64_t number = 0;
    };

    void attach(const Term& term);
    void sendAttach();
    void sendOffer();
    void sendInventory();
    void sendReports(GroupLists& lists, uint64_t report);
    void reportAgain();
    void reportWithin(int64_t time) noexcept;
    void lose();
    void deliver(const Frame& frame, const companion::Message& message, Stream& stream, uint64_t number);
    uint32_t listenerFor(std::string_view subject) const noexcept;
    void release(uint64_t local);
    // The whole number of a task, of which programs have the lower half; 0: it is none.
    uint64_t localOf(uint32_t task) const noexcept;
    void makeRoomFor(Stream& stream);
    void reported(Stream& stream, uint64_t number) noexcept;
    void sayNow() noexcept;
    void covered(Stream& stream);
    void returnTask(const Held& held, GroupKind kind) noexcept;
    void forgetTaken(bool lost);
    static bool isUnreported(const Stream& stream, uint64_t number) noexcept;

    Shared& shared_;
    std::vector<Listener> listeners_;     // in the order in which they were created
    std::vector<std::string> cancelled_;  // patterns
    certified::Slots<Held> held_;
    uint64_t lastLocal_ = 0;
    bool leaving_ = false;

    Term term_;
    bool connected_ = false;
    int64_t heardAt_ = 0;  // the scheduler
    uint64_t attachment_ = 0;
    bool offerTaken_ = false;
    bool inventoryTaken_ = false;
    uint64_t offerVersion_ = 1;
    int64_t attachAt_ = INT64_MAX;
    int64_t attachedAt_ = INT64_MIN / 2;
    Pause attachPause_{200 * milliseconds, 2 * seconds};
    int64_t correctedAt_ = INT64_MIN / 2;  // when a scheduler of an earlier term was last told so

    NumberSet received_;
    std::vector<std::pair<Stream*, uint64_t>> fresh_;  // completed, and not said
    std::vector<Stream*> reporting_;                   // that have anything unreported
    uint64_t unreported_ = 0;
    std::vector<Returned> returned_;
    std::vector<Taken> taken_;
    uint64_t lastReport_ = 0;
    int64_t reportAt_ = INT64_MAX;
    int64_t againAt_ = INT64_MAX;
    Pause againPause_{250 * milliseconds, 2 * seconds};
};

}  // namespace quorl::dqueue
