// A relay agent: stands in for certified transports that have left the network, from copies of their ledgers, and keeps for them what
// comes meanwhile. docs/internals/certified.md says what it does when.
//
// Two threads: the host's, on which requests come in and stand-ins deliver, and the one that runs the agent, which answers the
// requests and may wait for the disk.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "certified/committer.h"
#include "certified/ledger/ledger.h"
#include "certified/node.h"
#include "certified/relay/frame.h"
#include "certified/relay/mailbox.h"
#include "companion/host.h"

namespace quorl::certified {

class RelayAgent final : public companion::Guest, public std::enable_shared_from_this<RelayAgent> {
  public:
    struct Wish {
        uint32_t transport = 0;
        std::string name;
        std::string ledger;
        bool sync = false;
    };
    // Until stop becomes readable. Statuses have a detail text; ready is called when it answers.
    static quorl_status run(const Wish& wish, int stop, void (*ready)());

    explicit RelayAgent(const Wish& wish);

    void wake() noexcept override {}
    void received(uint32_t listener, companion::Message&& message) noexcept override;

  private:
    // A transport that this agent knows.
    struct Client final : Node::StandIn {
        Client(RelayAgent& its, uint32_t itsNumber, std::string_view itsName, uint64_t limit)
            : agent(its), number(itsNumber), name(itsName), mailbox(itsNumber, limit) {}
        void delivered(const companion::Message& message) noexcept override { agent.keep(*this, message); }
        void heard(const companion::Message& message) noexcept override { agent.keep(*this, message); }
        // A copy that is being handed over.
        bool copies() const noexcept { return exchange != 0; }

        RelayAgent& agent;
        const uint32_t number;
        const std::string name;
        bool away = false;
        std::vector<std::string> patterns;
        uint32_t standIn = 0;  // its certified transport; 0: none
        Mailbox mailbox;       // under the agent's lock

        // The copy that is handed over at present.
        uint64_t exchange = 0;
        uint64_t got = 0;
        bool ackDue = false;
        std::string inbox;
        std::string state;
        std::unique_ptr<Ledger> copy;
        uint64_t copyToken = 0;
        int64_t partAt = 0;  // when its last part came
    };
    class Loading;

    quorl_status open();
    quorl_status start(void (*ready)());
    void serve(int stop);
    void end();
    void handle(const companion::Message& message);
    // Gives up copies of which nothing comes any more.
    void sweep();
    // Null: it is not known, or there is no room for one more.
    Client* client(std::string_view name, bool make);
    bool makeRoom();
    void dropCopy(Client& client);
    std::string pathOf(const Client& client) const { return ledgerPath_ + "." + std::to_string(client.number); }
    void removeCopy(const Client& client) const;

    void onConnect(Client& client, const RelayFrame& frame);
    void onTake(Client& client, const RelayFrame& frame);
    void onPart(Client& client, const RelayFrame& frame, const companion::Message& message);
    void onEnd(Client& client, const RelayFrame& frame);
    Outcome beginCopy(Client& client);
    Outcome addToCopy(Client& client, Transaction transaction);
    quorl_status standIn(Client& client);
    void standDown(Client& client);
    void giveUpCopy(Client& client, const RelayFrame& frame, const std::string& why);

    void keep(Client& client, const companion::Message& message) noexcept;
    void answer(const RelayFrame& frame, std::string_view inbox, const companion::Message* fields = nullptr) const;
    // Hands a transaction over. Under the lock.
    Outcome submit(Transaction transaction, bool wait, std::unique_lock<std::mutex>& lock);
    Outcome storeClient(const Client& client);
    void ended(uint64_t token, const Outcome& outcome) noexcept;

    const uint32_t transport_;
    const std::string name_;
    const std::string ledgerPath_;
    const bool sync_;
    uint64_t limit_ = 0;
    std::unique_ptr<Ledger> ledger_;
    Committer committer_;
    int wake_ = -1;  // an eventfd that says that requests wait
    uint32_t lastClient_ = 0;
    size_t stateBytes_ = 0;  // of all copies that are being handed over

    std::mutex lock_;                                                      // guards what follows, and all mailboxes
    std::map<std::string, std::unique_ptr<Client>, std::less<>> clients_;  // changed by the agent's thread alone
    std::map<uint64_t, std::pair<std::string, uint64_t>> unstored_;        // client and item, by token
    std::deque<companion::Message> requests_;
    bool ended_ = false;
    uint64_t lastToken_ = 0;
    bool failed_ = false;  // the ledger has refused something: the next transaction says that this is known
};

}  // namespace quorl::certified
