// The guests, and the plans.
#include "sim/ftolerance_world.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "companion/access.h"
#include "companion/message.h"
#include "sim/world.h"

namespace quorl::sim {
namespace {

using namespace ftolerance;

enum Work : uint32_t { changeWeight, leaveGroup, watchGroup };

const char* const groupSubject = "_QUORL.FT.group";

// How long programs take to return from a deactivation, at most.
constexpr Time longestReturn = 50 * millisecond;

GroupTotals totals;

class Member : public Program {
  public:
    Member(Node& node, Life& life, std::function<Time()> now, const GroupTerms& terms, GroupSeam seam)
        : node_(node),
          life_(life),
          now_(std::move(now)),
          activation_(terms.activation),
          seam_(std::move(seam)),
          machine_(node.random()() | 1,
                   {life.weights.front().second, life.goal, {terms.heartbeat, terms.preparation, terms.activation}},
                   Label("node " + std::to_string(node.number()))) {
        node_.subscribe(groupSubject, 0);
        ranAt_ = node_.monotonic();
        MemberOutput out;
        machine_.start(time(), out);
        carryOut(out);
    }
    ~Member() override { life_.until = now_(); }

    Time due() const override { return std::min(machine_.due(), returnsAt_); }
    void tick() override {
        const bool stoodStill = acts_ && node_.monotonic() - ranAt_ >= 2 * activation_;
        MemberOutput out;
        if (returnsAt_ <= node_.monotonic()) {
            returnsAt_ = never;
            life_.steps.push_back({now_(), Deed::returned, 0});
            machine_.deactivated(time(), out);
        }
        machine_.tick(time(), out);
        if (machine_.due() <= node_.monotonic()) ADD_FAILURE() << "a tick that leaves itself due would spin";
        carryOut(out);
        ran(stoodStill);
    }
    void receive(uint32_t, const message::ContentRef& content) override {
        const bool stoodStill = acts_ && node_.monotonic() - ranAt_ >= 2 * activation_;
        const companion::Message message = companion::Access::wrap(content);
        Frame frame;
        ASSERT_EQ(decode(message.attributes(), &frame), nullptr);
        if (seam_.hears && !seam_.hears(frame)) return;
        MemberOutput out;
        machine_.receive(frame, time(), out);
        carryOut(out);
        ran(stoodStill);
    }
    void work(const WorkStep& step) override {
        if (life_.left != never || step.kind == watchGroup) return;
        const bool stoodStill = acts_ && node_.monotonic() - ranAt_ >= 2 * activation_;
        MemberOutput out;
        if (step.kind == changeWeight) {
            const auto weight = static_cast<uint16_t>(step.argument);
            life_.weights.emplace_back(now_(), weight);
            machine_.setWeight(weight, time(), out);
        } else {
            machine_.leave(time(), out);
        }
        carryOut(out);
        if (step.kind != leaveGroup) return ran(stoodStill);
        // A program ends its work before it leaves, and is told nothing more.
        life_.left = now_();
        returnsAt_ = never;
        acts_ = false;
    }

  private:
    Now time() const { return {node_.monotonic(), node_.wall()}; }
    void ran(bool stoodStill) {
        ranAt_ = node_.monotonic();
        if (stoodStill && !stopped_) life_.wentOnAfterPause = true;
    }
    void carryOut(MemberOutput& out) {
        if (seam_.tells) seam_.tells(out);
        stopped_ = false;
        for (const Told& told : out.actions) {
            switch (told.action) {
                case Action::prepare:
                    life_.steps.push_back({now_(), Deed::prepare, 0});
                    break;
                case Action::activate:
                    acts_ = true;
                    ++totals.activations;
                    life_.steps.push_back({now_(), Deed::activate, told.token});
                    break;
                case Action::deactivate:
                    acts_ = false;
                    stopped_ = true;
                    ++totals.deactivations;
                    life_.steps.push_back({now_(), Deed::deactivate, told.token});
                    returnsAt_ = node_.monotonic() + node_.random().between(0, longestReturn);
                    break;
            }
        }
        for (const Advisory& advisory : out.advisories) life_.disagreements += advisory.event == Event::disagreement;
        for (Frame& frame : out.frames) {
            if (seam_.sends && !seam_.sends(frame)) continue;
            const Block block = encode(frame);
            companion::Message message;
            ASSERT_EQ(companion::Message::empty(groupSubject, &message), QUORL_OK);
            ASSERT_EQ(message.withAttributes(block.span(), &message), QUORL_OK);
            node_.publish(companion::Access::take(std::move(message)));
        }
    }

    Node& node_;
    Life& life_;
    const std::function<Time()> now_;
    const Time activation_;
    const GroupSeam seam_;
    ftolerance::Member machine_;
    Time returnsAt_ = never;
    Time ranAt_ = 0;
    bool acts_ = false;
    bool stopped_ = false;  // by the last step
};

class Watcher : public Program {
  public:
    Watcher(Node& node, Lives& lives, std::function<Time()> now, const GroupTerms& terms, GroupSeam seam)
        : node_(node), lives_(lives), now_(std::move(now)), seam_(std::move(seam)), machine_(terms.lostInterval) {
        if (node.starts() > 1) watch();
    }
    ~Watcher() override {
        if (life_ != nullptr) life_->until = now_();
    }

    Time due() const override { return life_ == nullptr ? never : machine_.due(); }
    void tick() override {
        MonitorOutput out;
        machine_.tick(time(), out);
        if (machine_.due() <= node_.monotonic()) ADD_FAILURE() << "a tick that leaves itself due would spin";
        carryOut(out);
    }
    void receive(uint32_t, const message::ContentRef& content) override {
        const companion::Message message = companion::Access::wrap(content);
        Frame frame;
        ASSERT_EQ(decode(message.attributes(), &frame), nullptr);
        if (seam_.hears && !seam_.hears(frame)) return;
        MonitorOutput out;
        machine_.receive(frame, time(), out);
        carryOut(out);
    }
    void work(const WorkStep& step) override {
        if (step.kind == watchGroup) watch();
    }

  private:
    Now time() const { return {node_.monotonic(), node_.wall()}; }
    void watch() {
        if (life_ != nullptr) return;
        life_ = &lives_.emplace_back();
        life_->node = node_.number();
        life_->monitor = true;
        life_->from = now_();
        life_->goal = 0;
        node_.subscribe(groupSubject, 0);
        MonitorOutput out;
        machine_.start(time(), out);
        carryOut(out);
    }
    void carryOut(MonitorOutput& out) {
        if (seam_.counts) seam_.counts(out);
        for (const uint32_t count : out.counts) life_->counts.emplace_back(now_(), count);
        totals.counts += out.counts.size();
    }

    Node& node_;
    Lives& lives_;
    const std::function<Time()> now_;
    const GroupSeam seam_;
    Monitor machine_;
    Life* life_ = nullptr;  // since it watches
};

// Everything about a group that is no fault and no work, and so survives when a plan is shrunk.
struct Group {
    GroupTerms terms;
    std::vector<uint16_t> weights;
    std::vector<uint16_t> goals;
    bool watched = false;  // by the last node
};

Group groupOf(const Plan& plan) {
    Random random(mix(plan.seed ^ 0x6701));
    Group group;
    GroupTerms& terms = group.terms;
    // A heartbeat takes longer than any message, and no message alone is late enough for a hint.
    terms.heartbeat = random.between(260, 1000) * millisecond;
    terms.activation = terms.heartbeat * random.between(22, 60) / 10;
    const Time first = terms.heartbeat * 18 / 10;
    if (random.coin()) terms.preparation = first + (terms.activation - first) * random.between(0, 8) / 10;
    for (Time* time : {&terms.heartbeat, &terms.preparation, &terms.activation}) *time = *time / 1000 * 1000;
    terms.lostInterval = terms.heartbeat * random.between(22, 60) / 10;
    group.watched = plan.nodes > 2 && random.coin();
    terms.goal = static_cast<uint16_t>(random.coin() ? 1 : random.between(1, 4));
    const int64_t weights = random.between(1, 3);
    const bool disagree = random.below(10) == 0;
    for (uint32_t node = 0; node < plan.nodes; ++node) {
        group.weights.push_back(static_cast<uint16_t>(random.between(1, weights)));
        group.goals.push_back(disagree ? static_cast<uint16_t>(random.between(1, 3)) : terms.goal);
    }
    return group;
}

}  // namespace

std::string runGroup(const Plan& plan, const GroupSeamOf& seamOf) {
    const Group group = groupOf(plan);
    const GroupTerms& terms = group.terms;
    Lives lives;
    World* running = nullptr;
    const auto now = [&] { return running != nullptr ? running->now() : 0; };
    World world(plan, [&](Node& node) -> std::unique_ptr<Program> {
        const uint32_t number = node.number();
        const bool watches = group.watched && number + 1 == plan.nodes;
        GroupSeam seam = seamOf ? seamOf(number, watches) : GroupSeam();
        if (watches) return std::make_unique<Watcher>(node, lives, now, terms, std::move(seam));
        Life& life = lives.emplace_back();
        life.node = number;
        life.from = now();
        life.goal = group.goals[number];
        life.weights.emplace_back(life.from, group.weights[number]);
        return std::make_unique<Member>(node, life, now, terms, std::move(seam));
    });
    running = &world;
    const Time end = plan.healedAt + terms.activation + 2 * terms.heartbeat + terms.lostInterval + 2 * second;
    world.run(end);
    totals.events += world.events();
    totals.lives += lives.size();
    return brokenPromise(plan, terms, lives, end, &totals.sides);
}

Plan drawGroup(uint64_t seed) {
    Random random(seed);
    Plan plan;
    plan.seed = seed;
    plan.nodes = static_cast<uint32_t>(random.between(1, 9));
    plan.rates = drawRates(random);
    constexpr auto bit = [](Fault fault) { return 1u << static_cast<uint32_t>(fault); };
    FaultChoice choice{.most = 6, .span = 8 * second, .longest = 8 * second};
    choice.kinds = bit(Fault::cut) | bit(Fault::split) | bit(Fault::isolate) | bit(Fault::pause) | bit(Fault::kill) |
                   bit(Fault::powerLoss) | bit(Fault::killAt) | bit(Fault::wallClock) | bit(Fault::noRoom);
    if (random.below(8) == 0) {
        // One dies, and nothing else is wrong.
        plan.rates.loss = 0;
        const auto node = static_cast<uint32_t>(random.below(plan.nodes));
        plan.faults.push_back({random.between(5, 9) * second, Fault::kill, node, 0, random.between(1, 10) * second, 0});
    } else if (random.below(4) != 0) {
        plan.faults = drawFaults(random, plan.nodes, choice);
    }
    plan.healedAt = random.between(0, 12) * second;
    // Two sides, for long enough that each of them comes to rest.
    if (random.below(3) == 0) {
        const uint64_t side = random();
        const Time at = random.between(0, plan.healedAt);
        const Time lasts = random.between(1, 12) * second;
        for (uint32_t one = 0; one < plan.nodes; ++one) {
            for (uint32_t other = one + 1; other < plan.nodes; ++other) {
                if (((side >> one ^ side >> other) & 1) != 0)
                    plan.faults.push_back({at, Fault::split, one, other, lasts, 0});
            }
        }
        plan.healedAt = std::max(plan.healedAt, at + lasts);
    }
    // One of two does not hear the other, for long.
    if (plan.nodes == 2 && random.coin()) {
        const auto deaf = static_cast<uint32_t>(random.below(2));
        const Time lasts = random.between(8, 20) * second;
        plan.faults.push_back({plan.healedAt, Fault::cut, 1 - deaf, deaf, lasts, 0});
        plan.healedAt += lasts;
        plan.rates.loss = 0;
    }
    if (random.below(5) == 0) plan.healed = random();
    const uint64_t works = random.below(6);
    for (uint64_t i = 0; i < works; ++i) {
        const auto node = static_cast<uint32_t>(random.below(plan.nodes));
        const bool leaves = random.below(4) == 0;
        plan.work.push_back({random.between(0, 10 * second), node, leaves ? leaveGroup : changeWeight,
                             static_cast<uint64_t>(random.between(1, 4))});
    }
    plan.work.push_back({random.below(3) == 0 ? 0 : random.between(0, 12 * second), plan.nodes - 1, watchGroup, 0});
    return plan;
}

std::string nameOfGroupWork(const WorkStep& step) {
    switch (step.kind) {
        case changeWeight:
            return "weight " + std::to_string(step.argument);
        case leaveGroup:
            return "leave";
        default:
            return "watch";
    }
}

const GroupTotals& groupTotals() {
    return totals;
}

}  // namespace quorl::sim
