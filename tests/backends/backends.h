// The transport backends, each as a bus with two transports on it.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "quorl/quorl.h"

namespace quorltest {

class Bus {
  public:
    Bus() = default;
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;
    virtual ~Bus() = default;

    // Each hears what the other sends.
    quorlTransport here = 0;
    quorlTransport there = 0;

    // Whether a transport hears what it sends itself.
    virtual bool hearsItself() const { return true; }
    // Whether the way out of here can be full, and then stands still from shut until open.
    virtual bool canBeFull() const { return false; }
    virtual void shut() {}
    virtual void open() {}
    // Whether the way of here can go away and come back, or be lost for good: by itself, not by what the program does.
    virtual bool canBeAway() const { return false; }
    virtual void leave() {}
    virtual void comeBack() {}
    virtual bool canBeLost() const { return false; }
    virtual void lose() {}
    // Lets time pass where it does not by itself.
    virtual void pump() {}

    // Waits until condition is true, dispatching queues meanwhile. False: it did not become so within the limit.
    bool until(const std::vector<quorlQueue>& queues, const std::function<bool()>& condition);
};

struct Candidate {
    const char* name;
    std::unique_ptr<Bus> (*make)();  // the library is open
};
std::vector<Candidate> candidates();

}  // namespace quorltest
