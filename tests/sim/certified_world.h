// Certified senders and listeners as guests of the simulated world.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "certified/protocol/frame.h"
#include "certified/protocol/machine.h"
#include "sim/certified_checker.h"
#include "sim/explore.h"

namespace quorl::sim {

// Stands between a machine and the rest, to plant faults as if the machine had them. Each may be null. They are made for each
// life of a program, so that a fault lives as long as the machine.
struct CertifiedSeam {
    // false: it does not go out; the frame may be changed, and is written anew.
    std::function<bool(certified::Frame&)> sends;
    std::function<bool(certified::Frame&)> hears;  // false: it does not come in
    std::function<void(certified::Transaction&)> stores;
    std::function<void(certified::News&)> tells;
    std::function<bool(std::string_view key, std::string& value)> loads;  // false: it is forgotten
    std::function<void(certified::Settings&)> settings;
    bool promisesEarly = false;  // what depends on storing does not wait for it
    bool confirmsTwice = false;  // a delivery is confirmed when it is made, not when the program says so
};
using CertifiedSeamOf = std::function<CertifiedSeam(bool sender)>;

Plan drawCertified(uint64_t seed);
// What was broken of the promises; empty: nothing.
std::string runCertified(const Plan& plan, const CertifiedSeamOf& seamOf = {});
std::string nameOfCertifiedWork(const WorkStep& step);

// Over all runs so far.
struct CertifiedRuns : CertifiedTotals {
    uint64_t runs = 0;
    uint64_t events = 0;
    uint64_t kills = 0;
    uint64_t highestMemory = 0;  // of one machine, bytes
};
const CertifiedRuns& certifiedRuns();

}  // namespace quorl::sim
