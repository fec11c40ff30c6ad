// The simulated world's time, network and faults.
#include "sim/world.h"

#include <algorithm>
#include <utility>

namespace quorl::sim {
namespace {

constexpr int64_t million = 1'000'000;
// The wall clock when a world begins.
constexpr int64_t wallStart = 1'800'000'000 * second;
// A program's own messages come back to it this fast, and are never lost.
constexpr Time withinNode = 10 * microsecond;
constexpr Time shortestSync = 100 * microsecond;
constexpr Time longestSync = 10 * millisecond;
// What a monotonic clock may say when a machine has started again.
constexpr Time startTakes = 100 * second;

int32_t draw(Random& random, int32_t drift) {
    return static_cast<int32_t>(random.between(-drift, drift));
}

}  // namespace

// ---- node ---------------------------------------------------------------------------------------------------------

Node::Node(World& world, uint32_t number)
    : world_(world), number_(number), random_(mix(world.plan_.seed ^ mix(number + 1))) {
    monotonicStart_ = random_.between(0, 1000) * second;
    wallStart_ = wallStart + random_.between(-60, 60) * second;
    monotonicDrift_ = draw(random_, world.plan_.rates.drift);
    wallDrift_ = draw(random_, world.plan_.rates.drift);
}

Time Node::monotonic() const noexcept {
    return monotonicStart_ + world_.now_ + world_.now_ / million * monotonicDrift_;
}

Time Node::wall() const noexcept {
    return wallStart_ + world_.now_ + world_.now_ / million * wallDrift_;
}

Time Node::worldTimeOf(Time monotonic) const noexcept {
    if (monotonic == never) return never;
    const Time passed = std::max<Time>(monotonic - monotonicStart_, 0);
    // Late by a little: what is called has come.
    return passed - passed / (million + monotonicDrift_) * monotonicDrift_ + 2 * million * 2000 / million;
}

void Node::subscribe(std::string_view pattern, uint32_t tag) {
    subscriptions_.push_back(std::make_unique<Subscription>(Subscription{this, starts_, tag, std::string(pattern)}));
    world_.subscriptions_.insert(subscriptions_.back()->pattern, subscriptions_.back().get());
}

bool Node::acts() noexcept {
    if (dying_) return false;
    if (actionsLeft_ != 0 && world_.now_ < world_.plan_.healedAt && --actionsLeft_ == 0) dying_ = true;
    return !dying_;
}

bool Node::publish(message::ContentRef content) {
    if (world_.now_ < crowdedUntil_) return false;
    if (!acts()) return true;
    world_.note(content.byteSize());
    world_.subscriptions_.match(content.sendSubject(), [&](Subscription* to) { world_.transmit(*this, *to, content); });
    return true;
}

bool Node::put(std::string key, std::string value) {
    if (world_.now_ < fullUntil_ || !acts()) return false;
    store_.put(std::move(key), std::move(value));
    return true;
}

bool Node::erase(std::string key) {
    if (world_.now_ < fullUntil_ || !acts()) return false;
    store_.erase(std::move(key));
    return true;
}

bool Node::write(std::vector<Store::Change> changes) {
    if (world_.now_ < fullUntil_ || !acts()) return false;
    store_.write(std::move(changes));
    return true;
}

void Node::sync(uint64_t token) {
    if (dying_) return;
    Random fate(mix(world_.plan_.seed ^ mix(uint64_t{number_} << 48 ^ ++syncs_)));
    syncedAt_ = std::max(syncedAt_, world_.now_ + fate.between(shortestSync, longestSync));
    World::Event event{syncedAt_, 0, World::Kind::persisted, number_, starts_, token, {}, store_.writes()};
    world_.push(std::move(event));
}

// ---- world --------------------------------------------------------------------------------------------------------

World::World(const Plan& plan, Start start, ClassOf classOf)
    : plan_(plan), start_(std::move(start)), classOf_(std::move(classOf)) {
    links_.resize(size_t{plan.nodes} * plan.nodes);
    for (uint32_t number = 0; number < plan.nodes; ++number) nodes_.push_back(std::make_unique<Node>(*this, number));
    for (size_t i = 0; i < plan.faults.size(); ++i)
        push({plan.faults[i].at, 0, Kind::fault, plan.faults[i].node, 0, i, {}});
    for (size_t i = 0; i < plan.work.size(); ++i) push({plan.work[i].at, 0, Kind::work, plan.work[i].node, 0, i, {}});
    for (auto& node : nodes_) begin(*node);
}

World::~World() {
    for (auto& node : nodes_) end(*node, never);
}

void World::push(Event event) {
    event.order = order_++;
    queue_.push_back(std::move(event));
    std::ranges::push_heap(queue_, Later());
}

bool World::reachable(uint32_t from, uint32_t to) const noexcept {
    if (now_ >= plan_.healedAt) return (plan_.healed >> from & plan_.healed >> to & 1) != 0;
    return links_[from * plan_.nodes + to].cutUntil <= now_;
}

Time World::setsOut(uint32_t from, uint32_t to, const message::ContentRef& content) const {
    Time at = now_;
    for (const Sieve& sieve : sieves_) {
        if (sieve.until <= now_ || sieve.from != from || (sieve.to != to && sieve.to != from)) continue;
        if (!classOf_ || classOf_(content) != sieve.kind) continue;
        if (!sieve.holds) return never;
        at = std::max(at, sieve.until);
    }
    return at;
}

// Each message's fate depends on its number on its link alone, so that a plan without one of its faults meets the same fates
// otherwise.
void World::transmit(Node& from, Node::Subscription& to, const message::ContentRef& content) {
    const uint32_t target = to.node->number_;
    ++sent_;
    if (target == from.number_) return push({now_ + withinNode, 0, Kind::message, target, to.start, to.tag, content});
    Link& way = link(from.number_, target);
    Random fate(mix(plan_.seed ^ mix(uint64_t{from.number_} << 40 ^ uint64_t{target} << 32 ^ way.messages++)));
    if (!reachable(from.number_, target)) return;
    const Time setsOutAt = setsOut(from.number_, target, content);
    if (setsOutAt == never) return;
    const bool healed = now_ >= plan_.healedAt;
    if (!healed && fate.chance(plan_.rates.loss)) return;
    const int copies = !healed && fate.chance(plan_.rates.duplication) ? 2 : 1;
    for (int i = 0; i < copies; ++i) {
        Time arrival = setsOutAt + fate.between(plan_.rates.shortest, plan_.rates.longest);
        if (plan_.rates.inOrder && setsOutAt == now_) arrival = way.lastArrival = std::max(way.lastArrival, arrival);
        push({arrival, 0, Kind::message, target, to.start, to.tag, content});
    }
}

bool World::step() {
    Node* first = nullptr;
    Time due = never;
    for (auto& node : nodes_) {
        if (!node->program_) continue;
        const Time at = node->program_->due();
        if (at == never) continue;
        const Time when = std::max({node->worldTimeOf(at), node->standsUntil_, now_});
        if (when >= due) continue;
        due = when;
        first = node.get();
    }
    if (queue_.empty() && first == nullptr) return false;
    ++events_;
    if (queue_.empty() || (first != nullptr && due < queue_.front().at)) {
        now_ = due;
        note(static_cast<uint64_t>(now_) ^ first->number_);
        first->program_->tick();
        endIfDying(*first);
        return true;
    }
    std::ranges::pop_heap(queue_, Later());
    Event event = std::move(queue_.back());
    queue_.pop_back();
    now_ = std::max(now_, event.at);
    const Time stands = nodes_[event.node]->standsUntil_;
    if (event.kind != Kind::fault && stands > now_) {
        event.at = stands;
        queue_.push_back(std::move(event));  // with its order: what waited comes in its turn
        std::ranges::push_heap(queue_, Later());
        return true;
    }
    note(static_cast<uint64_t>(now_) ^ static_cast<uint64_t>(event.kind) << 8 ^ event.node);
    happen(std::move(event));
    return true;
}

void World::happen(Event event) {
    Node& node = *nodes_[event.node];
    const bool same = node.program_ && node.starts_ == event.start;
    switch (event.kind) {
        case Kind::message:
            if (same) node.program_->receive(static_cast<uint32_t>(event.argument), event.content);
            break;
        case Kind::persisted:
            if (!same) break;
            node.store_.synced(event.writes);
            node.program_->persisted(event.argument);
            break;
        case Kind::work:
            if (node.program_) node.program_->work(plan_.work[event.argument]);
            break;
        case Kind::fault:
            strike(plan_.faults[event.argument]);
            break;
        case Kind::start:
            if (!node.program_) begin(node);
            break;
    }
    endIfDying(node);
}

void World::strike(const FaultStep& fault) {
    if (now_ >= plan_.healedAt) return;
    Node& node = *nodes_[fault.node];
    // Nothing that is wrong lasts beyond the healing.
    const Time until = std::min(now_ + fault.lasts, plan_.healedAt);
    const auto cut = [&](uint32_t from, uint32_t to) {
        if (from != to) link(from, to).cutUntil = std::max(link(from, to).cutUntil, until);
    };
    switch (fault.fault) {
        case Fault::split:
            cut(fault.peer, fault.node);
            [[fallthrough]];
        case Fault::cut:
            cut(fault.node, fault.peer);
            break;
        case Fault::isolate:
            for (uint32_t other = 0; other < nodes(); ++other) {
                cut(fault.node, other);
                cut(other, fault.node);
            }
            break;
        case Fault::pause:
            node.standsUntil_ = std::max(node.standsUntil_, until);
            break;
        case Fault::powerLoss:
            node.store_.losePower(node.random_);
            node.monotonicStart_ += node.random_.between(0, startTakes) - node.monotonic();
            [[fallthrough]];
        case Fault::kill:
            if (node.program_) end(node, until - now_);
            break;
        case Fault::killAt:
            node.actionsLeft_ = fault.amount;
            node.restartAfter_ = fault.lasts;
            break;
        case Fault::wallClock:
            node.wallStart_ += fault.amount;
            break;
        case Fault::diskFull:
            node.fullUntil_ = std::max(node.fullUntil_, until);
            break;
        case Fault::noRoom:
            node.crowdedUntil_ = std::max(node.crowdedUntil_, until);
            break;
        case Fault::lose:
        case Fault::hold:
            sieves_.push_back(
                {until, fault.node, fault.peer, static_cast<uint32_t>(fault.amount), fault.fault == Fault::hold});
            break;
    }
}

void World::begin(Node& node) {
    ++node.starts_;
    node.dying_ = false;
    node.actionsLeft_ = 0;
    node.program_ = start_(node);
    endIfDying(node);
}

void World::endIfDying(Node& node) {
    if (node.dying_ && node.program_) end(node, std::max<Time>(std::min(node.restartAfter_, plan_.healedAt - now_), 0));
}

void World::end(Node& node, Time restartAfter) {
    node.dying_ = true;
    node.program_.reset();
    for (auto& subscription : node.subscriptions_) subscriptions_.remove(subscription->pattern, subscription.get());
    node.subscriptions_.clear();
    node.standsUntil_ = 0;
    if (restartAfter != never) push({now_ + restartAfter, 0, Kind::start, node.number_, 0, 0, {}});
}

void World::run(Time until) {
    run(until, [] { return false; });
}

bool World::run(Time until, const std::function<bool()>& done) {
    while (!done()) {
        if (now_ > until || !step()) return done();
    }
    return true;
}

}  // namespace quorl::sim
