// Whoever watches a group without joining it: frames and the time go in, counts of active members come out.
//
// A count is told when it changes. The first one is told when an active member is heard, or as zero when none was for the
// lost interval: until then a monitor does not know. It sends nothing, and no member knows of it.
#pragma once

#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "ftolerance/protocol/disagreements.h"
#include "ftolerance/protocol/frame.h"
#include "ftolerance/protocol/output.h"
#include "ftolerance/protocol/peers.h"

namespace quorl::ftolerance {

struct MonitorOutput {
    using Rest = MonitorOutput;

    std::vector<uint32_t> counts;
    std::vector<Advisory> advisories;  // what the members do, too

    void clear() noexcept {
        counts.clear();
        advisories.clear();
    }
    // Mostly there is nothing, and the room for it stays.
    Rest takeRest() noexcept {
        if (counts.empty() && advisories.empty()) return {};
        return std::exchange(*this, {});
    }
};

class Monitor {
  public:
    // Advisories of each kind of change in a lost interval: whoever draws the group wants to see it whole.
    static constexpr uint32_t mostChanges = 2 * Peers::most;

    // lostInterval: nanoseconds of silence after which a member counts as lost; from shortestInterval to longestInterval.
    explicit Monitor(int64_t lostInterval) noexcept;

    void start(Now now, MonitorOutput& out);
    void receive(const Frame& frame, Now now, MonitorOutput& out);
    void receive(std::span<const uint8_t> bytes, Now now, MonitorOutput& out);
    void tick(Now now, MonitorOutput& out);
    int64_t due() const noexcept { return due_; }

    const Peers& peers() const noexcept { return peers_; }

  private:
    void step(int64_t now, MonitorOutput& out);
    void take(const Frame& frame, int64_t now, MonitorOutput& out);
    void finish(int64_t now, MonitorOutput& out);
    void tell(Event event, const Frame& about, uint64_t number, int64_t now, MonitorOutput& out,
              const char* reason = "") noexcept;

    int64_t lostInterval_;
    AdvisoryLimits limits_;
    Peers peers_;
    Disagreements disagreements_;
    uint32_t active_ = 0;
    uint32_t told_ = 0;
    bool knows_ = false;  // a first count was told
    int64_t listensFrom_ = 0;
    int64_t stepped_ = 0;
    int64_t due_ = INT64_MAX;
};

}  // namespace quorl::ftolerance
