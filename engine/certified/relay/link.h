// A certified transport's side of what it says to its relay agent: connecting, taking what was kept, handing a copy over.
//
// The calls wait for the agent's answers, which come in on the host's thread. What was kept is taken on a thread of the link's own, no
// more at a time than the machine has room for, and is forgotten by the agent only when it is confirmed and that is stored.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "certified/protocol/store.h"
#include "certified/relay/frame.h"
#include "companion/message.h"
#include "companion/thread.h"

namespace quorl::certified {

// What a transport keeps, for its relay agent.
struct RelayCopy {
    std::vector<Write> state;           // putState alone
    std::vector<std::string> patterns;  // that it listens to
    std::vector<StoredMessage> messages;
};

class RelayLink {
  public:
    class Owner {
      public:
        virtual ~Owner() = default;
        // What the agent has kept, as it came to it.
        virtual void take(const companion::Message& message, uint64_t after) noexcept = 0;
        virtual bool isStored(const companion::Message& message) noexcept = 0;
        // An image of the copy. False: it cannot be read.
        virtual bool image(const StoredMessage& message, companion::Message* read) noexcept = 0;
    };

    RelayLink(Owner& owner, uint32_t transport, std::string_view agent, std::string_view name);
    ~RelayLink() { stop(); }
    RelayLink(const RelayLink&) = delete;
    RelayLink& operator=(const RelayLink&) = delete;

    // Before all others: where the answers are to be sent.
    quorl_status open();
    const std::string& inbox() const noexcept { return inbox_; }

    // One of these at a time. QUORL_TIMEOUT: the agent does not answer. QUORL_INTR: stop.
    quorl_status connect(int64_t deadline) noexcept;
    // How long the agent may say nothing before this gives up, in nanoseconds.
    quorl_status handOver(const RelayCopy& copy, int64_t patience) noexcept;
    // After connect.
    quorl_status startTaking() noexcept;
    void stopTaking() noexcept;

    // Ends what waits, and refuses everything from then on.
    void stop() noexcept;
    // What has come to the inbox.
    void received(const companion::Message& message) noexcept;

  private:
    struct Item {
        companion::Message message;
        uint64_t after = 0;
    };

    quorl_status say(RelayKind kind, uint64_t number, std::span<const uint8_t> rest,
                     const companion::Message* fields = nullptr) noexcept;
    template <class F>
    bool await(std::unique_lock<std::mutex>& lock, int64_t deadline, F&& condition);
    quorl_status silent() const noexcept;
    void callOff() noexcept;
    quorl_status sendPart(const RelayCopy& copy, const std::string& state, uint64_t number) noexcept;
    void takeAll() noexcept;
    void onItem(const RelayFrame& frame, const companion::Message& message);

    Owner& owner_;
    const uint32_t transport_;
    const std::string agent_;
    const std::string address_;  // the agent's
    const std::string name_;
    std::string inbox_;

    std::mutex lock_;  // guards what follows
    std::condition_variable changed_;
    uint64_t exchange_ = 0;  // the one that answers count for
    bool stopping_ = false;
    bool taking_ = false;
    bool connected_ = false;
    bool standsIn_ = false;
    uint64_t got_ = 0;
    std::string failure_;
    uint64_t nextItem_ = 1;
    bool paused_ = false;  // the agent waits to be asked again
    bool nothingMore_ = false;
    std::map<uint64_t, Item> items_;  // taken, and not confirmed yet
    std::unique_ptr<companion::Thread> thread_;
};

}  // namespace quorl::certified
