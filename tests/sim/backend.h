// Transports over the simulated network: what the engine's own code says to a backend, carried by a world.
//
//     SimulatedBus bus(plan);
//     quorlTransport here = bus.transport(0);     // over node 0
//     ... bus.step() lets the next thing happen
//
// The library is open. Any thread may use the transports; the bus outlives them, or they it.
#pragma once

#include <cstdint>
#include <memory>

#include "quorl/quorl.h"
#include "sim/plan.h"

namespace quorl::sim {

class SimulatedBus {
  public:
    explicit SimulatedBus(const Plan& plan);
    ~SimulatedBus();
    SimulatedBus(const SimulatedBus&) = delete;
    SimulatedBus& operator=(const SimulatedBus&) = delete;

    // A new transport over that node. 0: it could not be made.
    quorlTransport transport(uint32_t node);

    // Lets the next thing happen in the world. False: nothing will.
    bool step();

    // The node's way out stands still: a few messages wait for it, and then there is no room; or goes on.
    void shut(uint32_t node);
    void open(uint32_t node);

    // What the transports over the node report of their way: that it is gone, that it is back, that it is gone for good. A
    // message that is sent meanwhile is refused.
    void leave(uint32_t node);
    void comeBack(uint32_t node);
    void lose(uint32_t node, const char* reason);

    // Bytes of the largest message that they carry.
    static constexpr uint32_t largest = 4u << 20;

    struct State;

  private:
    std::shared_ptr<State> state_;
};

}  // namespace quorl::sim
