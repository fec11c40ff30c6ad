// A simulated world: nodes with programs, disks and clocks of their own, and a network between them, all in one thread.
//
//     World world(plan, [&](Node& node) { return std::make_unique<Echo>(node); });
//     world.run(plan.healedAt + 10 * second);
//
// Messages are routed by the engine's own trie. The same plan gives the same run, to the last event.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "message/delivery.h"
#include "sim/plan.h"
#include "sim/store.h"
#include "subject/trie.h"

namespace quorl::sim {

class World;
class Node;

// What runs on a node, from a start to its end. It knows the world through its node alone, and nothing survives it but what
// it wrote to the node's store.
class Program {
  public:
    Program() = default;
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    virtual ~Program() = default;

    // When tick wants to be called, on the node's monotonic clock; never.
    virtual Time due() const { return never; }
    virtual void tick() {}
    // A message that one of the node's subscriptions matches, once for each of them; tag is the subscription's.
    virtual void receive(uint32_t, const message::ContentRef&) {}
    // What was written before node.sync(token) is safe.
    virtual void persisted(uint64_t) {}
    // A step of the plan's work.
    virtual void work(const WorkStep&) {}
};

class Node {
  public:
    Node(World& world, uint32_t number);

    uint32_t number() const noexcept { return number_; }
    // The program's; null while the node is down.
    Program* program() const noexcept { return program_.get(); }
    uint32_t starts() const noexcept { return starts_; }

    // ---- for the program ----
    Time monotonic() const noexcept;
    Time wall() const noexcept;
    Random& random() noexcept { return random_; }

    // False: its program is at its end, and nothing that it does has an effect any more.
    bool acting() const noexcept { return !dying_; }

    // The subscription ends with the program.
    void subscribe(std::string_view pattern, uint32_t tag);
    // False: there is no room on the way out, and nothing was sent.
    bool publish(message::ContentRef content);

    const Store::Content& stored() const noexcept { return store_.content(); }
    // False: the disk is full, and nothing was written.
    bool put(std::string key, std::string value);
    bool erase(std::string key);
    // Counts as one write, and is carried out whole or not at all.
    bool write(std::vector<Store::Change> changes);
    // persisted(token) comes when what was written so far is safe; after a while, and in the order of the calls.
    void sync(uint64_t token);

  private:
    friend class World;
    struct Subscription {
        Node* node;
        uint32_t start;  // of the node, in which it was made
        uint32_t tag;
        std::string pattern;
    };

    // Counts a write or a send; false: the program is at its end and does nothing any more.
    bool acts() noexcept;
    Time worldTimeOf(Time monotonic) const noexcept;

    World& world_;
    const uint32_t number_;
    std::unique_ptr<Program> program_;
    uint32_t starts_ = 0;
    bool dying_ = false;       // inside its program, which goes when it returns
    Time restartAfter_ = 0;    // of dying
    int64_t actionsLeft_ = 0;  // until it dies; 0: it does not
    Time standsUntil_ = 0;
    Time fullUntil_ = 0;
    Time crowdedUntil_ = 0;
    Time syncedAt_ = 0;  // when the last sync so far is through
    uint64_t syncs_ = 0;
    Store store_;
    Random random_;
    int64_t monotonicStart_;
    int64_t wallStart_;
    int32_t monotonicDrift_;  // parts per million
    int32_t wallDrift_;
    std::vector<std::unique_ptr<Subscription>> subscriptions_;
};

class World {
  public:
    using Start = std::function<std::unique_ptr<Program>(Node&)>;
    using ClassOf = std::function<uint32_t(const message::ContentRef&)>;

    // start makes a node's program, at the beginning and after each end. classOf tells messages apart for faults that meet some
    // of them. The plan, start and classOf outlive the world.
    World(const Plan& plan, Start start, ClassOf classOf = {});
    World(const World&) = delete;
    World& operator=(const World&) = delete;
    ~World();

    Time now() const noexcept { return now_; }
    Node& node(uint32_t number) noexcept { return *nodes_[number]; }
    uint32_t nodes() const noexcept { return static_cast<uint32_t>(nodes_.size()); }

    // Lets the next thing happen. False: nothing will, ever.
    bool step();
    // Lets everything happen until that time, or until nothing more will.
    void run(Time until);
    // The same until done is true; false when it never became so.
    bool run(Time until, const std::function<bool()>& done);

    uint64_t events() const noexcept { return events_; }
    uint64_t sent() const noexcept { return sent_; }  // messages, each counted once for each receiving node
    // A number that two runs share only if the same happened in both.
    uint64_t trace() const noexcept { return trace_; }

  private:
    friend class Node;
    enum class Kind : uint8_t { message, fault, work, persisted, start };
    struct Event {
        Time at;
        uint64_t order;
        Kind kind;
        uint32_t node;
        uint32_t start;     // of the node, for which it is meant
        uint64_t argument;  // an index, a tag, or a token
        message::ContentRef content;
        uint64_t writes = 0;  // of persisted
    };
    struct Later {
        bool operator()(const Event& one, const Event& other) const noexcept {
            return one.at != other.at ? one.at > other.at : one.order > other.order;
        }
    };
    struct Link {
        Time cutUntil = 0;
        Time lastArrival = 0;
        uint64_t messages = 0;
    };
    // What a fault does to messages of one class.
    struct Sieve {
        Time until;
        uint32_t from;
        uint32_t to;  // from: all
        uint32_t kind;
        bool holds;
    };

    Link& link(uint32_t from, uint32_t to) noexcept { return links_[from * nodes() + to]; }
    void push(Event event);
    void transmit(Node& from, Node::Subscription& to, const message::ContentRef& content);
    void happen(Event event);
    void strike(const FaultStep& fault);
    void begin(Node& node);
    void end(Node& node, Time restartAfter);
    void endIfDying(Node& node);
    void note(uint64_t what) noexcept { trace_ = mix(trace_ ^ what); }
    bool reachable(uint32_t from, uint32_t to) const noexcept;
    // When the message sets out; never: it is lost.
    Time setsOut(uint32_t from, uint32_t to, const message::ContentRef& content) const;

    const Plan& plan_;
    const Start start_;
    const ClassOf classOf_;
    Time now_ = 0;
    uint64_t order_ = 0;
    uint64_t events_ = 0;
    uint64_t sent_ = 0;
    uint64_t trace_ = 0;
    std::vector<std::unique_ptr<Node>> nodes_;
    std::vector<Link> links_;
    std::vector<Sieve> sieves_;
    std::vector<Event> queue_;  // a heap
    subject::Trie<Node::Subscription> subscriptions_;
};

}  // namespace quorl::sim
