// Making each backend, and filling its way out.
#include "backends.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "server.h"
#include "sim/backend.h"

namespace quorltest {
namespace {

constexpr double limit = 60;  // seconds

class Embedded final : public Bus {
  public:
    Embedded() {
        for (quorlTransport* made : {&here, &there})
            EXPECT_EQ(quorlTransport_Create(made, "conformance", nullptr, ""), QUORL_OK) << quorl_LastErrorText();
    }
};

class Daemon final : public Bus {
  public:
    Daemon() {
        // Connections are shared by what the program has written: each gets one of its own.
        EXPECT_EQ(quorlTransport_Create(&here, nullptr, nullptr, server_.url().c_str()), QUORL_OK)
            << quorl_LastErrorText();
        EXPECT_EQ(quorlTransport_Create(&there, nullptr, nullptr, server_.address().c_str()), QUORL_OK)
            << quorl_LastErrorText();
    }
    ~Daemon() override { open(); }
    bool canBeAway() const override { return true; }
    void leave() override { server_.kill(); }
    void comeBack() override { EXPECT_TRUE(server_.start()); }
    bool canBeFull() const override { return true; }
    void shut() override {
        server_.signal(SIGSTOP);
        shut_ = true;
    }
    void open() override {
        if (shut_) server_.signal(SIGCONT);
        shut_ = false;
    }

  private:
    NatsServer server_;
    bool shut_ = false;
};

quorl::sim::Plan calm() {
    quorl::sim::Plan plan;
    plan.seed = 1;
    plan.rates.inOrder = true;
    plan.rates.longest = 3 * quorl::sim::millisecond;
    return plan;
}

// A bus whose frames go over the simulated network.
template <class Under>
class OverSimulated : public Under {
  public:
    bool canBeFull() const override { return true; }
    void shut() override { bus_.shut(0); }
    void open() override { bus_.open(0); }
    void pump() override { bus_.step(); }
    bool canBeLost() const override { return true; }
    void lose() override { bus_.lose(0, "the test has lost it"); }

  protected:
    quorl::sim::SimulatedBus bus_{calm()};
};

class Simulated final : public OverSimulated<Bus> {
  public:
    bool canBeAway() const override { return true; }
    void leave() override { bus_.leave(0); }
    void comeBack() override { bus_.comeBack(0); }
    Simulated() {
        here = bus_.transport(0);
        there = bus_.transport(1);
    }
};

class Circuit : public Bus {
  public:
    bool hearsItself() const override { return false; }
    bool canBeLost() const override { return true; }
    void lose() override { EXPECT_EQ(quorlTransport_Destroy(there), QUORL_OK) << quorl_LastErrorText(); }

  protected:
    void connect(quorlTransport belowHere, quorlTransport belowThere) {
        const char* subject = nullptr;
        ASSERT_EQ(quorlTransport_CreateAcceptVc(&there, &subject, belowThere), QUORL_OK) << quorl_LastErrorText();
        ASSERT_EQ(quorlTransport_CreateConnectVc(&here, subject, belowHere), QUORL_OK) << quorl_LastErrorText();
        const auto up = [](quorlTransport end) { return quorlTransport_WaitForVcConnection(end, 0) == QUORL_OK; };
        ASSERT_TRUE(until({}, [&] { return up(here) && up(there); }));
    }
};

class CircuitInside final : public Circuit {
  public:
    CircuitInside() {
        quorlTransport below = 0;
        EXPECT_EQ(quorlTransport_Create(&below, "conformance", nullptr, ""), QUORL_OK) << quorl_LastErrorText();
        connect(below, below);
    }
};

// Lost with the way below it.
class CircuitOverSimulated final : public OverSimulated<Circuit> {
  public:
    CircuitOverSimulated() { connect(bus_.transport(0), bus_.transport(1)); }
};

class CircuitOverCircuit final : public OverSimulated<Circuit> {
  public:
    CircuitOverCircuit() {
        connect(bus_.transport(0), bus_.transport(1));
        connect(here, there);
    }
};

template <class T>
std::unique_ptr<Bus> make() {
    return std::make_unique<T>();
}

}  // namespace

bool Bus::until(const std::vector<quorlQueue>& queues, const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
    while (!condition()) {
        bool any = false;
        for (const quorlQueue queue : queues) any |= quorlQueue_TimedDispatch(queue, 0) == QUORL_OK;
        if (any) continue;
        if (std::chrono::steady_clock::now() >= end) return false;
        pump();
        std::this_thread::yield();
    }
    return true;
}

std::vector<Candidate> candidates() {
    return {{"Embedded", make<Embedded>},
            {"Daemon", make<Daemon>},
            {"Simulated", make<Simulated>},
            {"Circuit", make<CircuitInside>},
            {"CircuitOverSimulated", make<CircuitOverSimulated>},
            {"CircuitOverCircuit", make<CircuitOverCircuit>}};
}

}  // namespace quorltest
