// The ends, and the promises.
#include "sim/circuit_world.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <utility>
#include <vector>

#include "sim/message.h"
#include "sim/world.h"

namespace quorl::sim {
namespace {

using transport::circuit::Machine;
using transport::circuit::Output;
using transport::circuit::Settings;
namespace circuit = transport::circuit;

enum Work : uint32_t { sendSome, closeEnd, abandonEnd };

// What is known of one end from outside: what it accepted, delivered and told.
struct End {
    uint64_t accepted = 0;
    std::vector<uint64_t> delivered;
    uint32_t connected = 0;
    uint32_t lost = 0;
    uint64_t undelivered = 0;
    bool closed = false;     // by its program
    bool abandoned = false;  // the way below was closed
    bool died = false;
    Machine::State state = Machine::State::accepting;
};

const char* const acceptor = "_INBOX.acceptor.1";
const char* const connector = "_INBOX.connector.1";

// One end of the circuit between node 0, which accepts, and node 1. A node that starts again has no circuit any more.
class CircuitEnd : public Program {
  public:
    CircuitEnd(Node& node, End& end, Seam seam)
        : node_(node),
          end_(end),
          seam_(std::move(seam)),
          machine_(node.number() == 0
                       ? Machine(Settings())
                       : Machine(Settings(), node.random()() | 1, connector, acceptor, node.monotonic())) {
        node_.subscribe(node.number() == 0 ? acceptor : connector, 0);
    }

    Time due() const override { return machine_.due(); }
    void tick() override {
        Output out;
        machine_.tick(node_.monotonic(), out);
        if (machine_.due() <= node_.monotonic()) ADD_FAILURE() << "a tick that leaves itself due would spin";
        carryOut(out);
    }
    void receive(uint32_t, const message::ContentRef& content) override {
        quorlMsg message = nullptr;
        ASSERT_EQ(message::handOver(content, &message), QUORL_OK);
        circuit::Frame frame;
        ASSERT_TRUE(circuit::decode(message, &frame));
        quorlMsg_Destroy(message);
        if (seam_.hears && !seam_.hears(frame)) return;
        Output out;
        machine_.receive(std::move(frame), node_.monotonic(), out);
        carryOut(out);
    }
    void work(const WorkStep& step) override {
        Output out;
        switch (step.kind) {
            case sendSome:
                for (uint64_t i = 0; i < step.argument; ++i) {
                    if (machine_.send(numbered("a.b", end_.accepted), node_.monotonic(), out) != QUORL_OK) break;
                    ++end_.accepted;
                }
                break;
            case closeEnd:
                end_.closed = true;
                machine_.close(node_.monotonic(), out);
                break;
            default:
                end_.abandoned = true;
                machine_.abandon("the way below was closed", out);
        }
        carryOut(out);
    }

  private:
    void carryOut(Output& out) {
        if (seam_.tells) seam_.tells(out);
        for (const auto& content : out.deliveries) end_.delivered.push_back(numberOf(content));
        end_.connected += out.connected;
        end_.lost += out.lost;
        end_.undelivered += out.undelivered;
        end_.state = machine_.state();
        bool crowded = false;
        for (auto& outgoing : out.frames) {
            if (seam_.sends && !seam_.sends(outgoing)) continue;
            message::ContentRef wire;
            const std::string& to = outgoing.to.empty() ? machine_.peer() : outgoing.to;
            ASSERT_EQ(circuit::encode(outgoing.frame, to, &wire), QUORL_OK);
            crowded = crowded || !node_.publish(std::move(wire));
            if (crowded) machine_.repeatSoon(outgoing.frame, node_.monotonic());
        }
    }

    Node& node_;
    End& end_;
    const Seam seam_;
    Machine machine_;
};

class Idle : public Program {};

// Where nothing is lost and nobody leaves, nobody is given up.
std::string brokenWithoutFaults(const std::array<End, 2>& ends) {
    for (const End& end : ends) {
        if (end.closed || end.abandoned) return "";
    }
    return ends[0].lost + ends[1].lost != 0 ? "a circuit is lost without a reason" : "";
}

CircuitTotals totals;

// The promise for what one end sent to the other. Empty when it was kept.
std::string brokenBetween(const char* name, const End& sender, const End& receiver) {
    for (size_t i = 0; i < receiver.delivered.size(); ++i) {
        if (receiver.delivered[i] != i)
            return std::string(name) + ": message " + std::to_string(receiver.delivered[i]) + " came in place of " +
                   std::to_string(i);
    }
    const uint64_t missing = sender.accepted - receiver.delivered.size();
    if (receiver.delivered.size() > sender.accepted) return std::string(name) + ": more came than were sent";
    if (missing == 0 || sender.died || sender.abandoned) return "";
    // A program that has closed its end takes in what is on its way, and throws it away.
    if (receiver.closed || receiver.abandoned) return "";
    if (sender.undelivered < missing && sender.lost + sender.closed != 0)
        return std::string(name) + ": " + std::to_string(missing) + " are missing and " +
               std::to_string(sender.undelivered) + " were told";
    if (sender.lost == 0 && !sender.closed) return std::string(name) + ": messages are missing, and nobody says so";
    return "";
}

// At the end, when the world has been healthy for long: an end is up beside one that is up, or it has been told.
std::string brokenAtTheEnd(const std::array<End, 2>& ends) {
    for (int i = 0; i < 2; ++i) {
        const End& end = ends[static_cast<size_t>(i)];
        const End& other = ends[static_cast<size_t>(1 - i)];
        if (end.died) continue;
        const bool ended = end.lost != 0 || end.closed || end.abandoned;
        if (end.lost > 1) return "a loss was told twice";
        if (end.connected != 0 && !ended && (other.died || other.lost != 0 || other.closed || other.abandoned))
            return "the peer is gone, and nobody says so";
        if (end.closed && end.state != Machine::State::done) return "a closed end is not done";
        if (!ended && !other.died && other.lost == 0 && !other.closed && !other.abandoned && end.connected == 0)
            return "two healthy ends are not connected";
    }
    return "";
}

}  // namespace

std::string runCircuit(const Plan& plan, const SeamOf& seamOf) {
    std::array<End, 2> ends;
    World world(plan, [&](Node& node) -> std::unique_ptr<Program> {
        if (node.starts() == 1)
            return std::make_unique<CircuitEnd>(node, ends[node.number()], seamOf ? seamOf(node.number()) : Seam());
        ends[node.number()].died = true;
        return std::make_unique<Idle>();
    });
    world.run(plan.healedAt + 60 * second);
    for (uint32_t i = 0; i < 2; ++i) ends[i].died |= world.node(i).starts() > 1 || world.node(i).program() == nullptr;
    for (const End& end : ends) {
        totals.accepted += end.accepted;
        totals.delivered += end.delivered.size();
        totals.told += end.undelivered;
        totals.circuitsLost += end.lost;
        totals.kills += end.died;
    }
    totals.events += world.events();
    std::string broken = brokenBetween("from the acceptor", ends[0], ends[1]);
    if (broken.empty()) broken = brokenBetween("from the connector", ends[1], ends[0]);
    if (broken.empty()) broken = brokenAtTheEnd(ends);
    if (broken.empty() && plan.rates.loss == 0 && plan.faults.empty()) broken = brokenWithoutFaults(ends);
    return broken;
}

Plan drawCircuit(uint64_t seed) {
    Random random(seed);
    Plan plan;
    plan.seed = seed;
    plan.rates = drawRates(random);
    constexpr auto bit = [](Fault fault) { return 1u << static_cast<uint32_t>(fault); };
    FaultChoice choice{.most = 5, .span = 6 * second, .longest = 15 * second};
    choice.kinds = bit(Fault::cut) | bit(Fault::split) | bit(Fault::pause) | bit(Fault::wallClock) | bit(Fault::noRoom);
    if (random.below(4) == 0) choice.kinds |= bit(Fault::kill) | bit(Fault::killAt);
    plan.faults = drawFaults(random, plan.nodes, choice);
    const uint64_t bursts = random.below(8);
    for (uint64_t i = 0; i < bursts; ++i)
        plan.work.push_back({random.between(0, 6 * second), static_cast<uint32_t>(random.below(2)), sendSome,
                             1 + random.below(random.below(10) == 0 ? 600 : 12)});
    for (uint32_t node = 0; node < 2; ++node) {
        if (random.below(4) != 0) continue;
        plan.work.push_back({random.between(0, 8 * second), node, random.below(4) == 0 ? abandonEnd : closeEnd, 0});
    }
    plan.healedAt = 8 * second;
    return plan;
}

std::string nameOfCircuitWork(const WorkStep& step) {
    switch (step.kind) {
        case sendSome:
            return "send";
        case closeEnd:
            return "close";
        default:
            return "abandon";
    }
}

const CircuitTotals& circuitTotals() {
    return totals;
}

}  // namespace quorl::sim
