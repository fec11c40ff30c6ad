// What a member knows of the streams of tasks that come through the queue: which numbers are settled, and where the others are.
//
// Whatever a member hears of what is settled it remembers, whether it is the scheduler or not, so that whoever is the scheduler
// next gives nothing out that was done.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "dqueue/protocol/frame.h"

namespace quorl::dqueue {

struct ScheduledTask;

struct Stream {
    std::string name;
    uint64_t incarnation = 0;
    uint32_t subjectId = 0;
    StreamRef ref() const noexcept { return {name, incarnation, subjectId}; }

    NumberSet settled;  // completed, or will never come
    int64_t touchedAt = 0;

    // ---- the worker's
    std::unordered_map<uint64_t, uint32_t> held;  // numbers, and which of its tasks they are
    // Completed here, ascending, and the scheduler has not said that it knows.
    std::vector<uint64_t> unreported;

    // ---- of every member: how often what is not settled was reassigned, as the scheduler said
    std::unordered_map<uint64_t, uint32_t> counted;

    // ---- the scheduler's
    std::unordered_map<uint64_t, ScheduledTask*> tasks;
    uint64_t source = 0;                 // the stream of its certified machine; 0: none yet
    uint64_t delivered = 0;              // by it, the last number
    std::string subject;                 // empty: nothing has come yet
    uint32_t listener = 0;               // the one whose deliveries count
    std::vector<uint64_t> fresh;         // settled, and not told
    std::vector<ScheduledTask*> parked;  // which no worker with room takes, in their order
    bool dirty = false;

    uint32_t pins = 0;  // places that remember it otherwise

    bool idle() const noexcept {
        return pins == 0 && held.empty() && unreported.empty() && tasks.empty() && fresh.empty() && parked.empty();
    }
};

class Streams {
  public:
    static constexpr size_t most = 20'000;
    // Of one stream; more are not believed.
    static constexpr size_t rangesMost = 50'000;
    static constexpr size_t countedMost = 10'000;

    Stream* find(const StreamRef& ref) noexcept;
    // Null: there is no room. Throws std::bad_alloc.
    Stream* make(const StreamRef& ref, int64_t now);
    // Forgets those that nothing has happened to for so long.
    void forget(int64_t before) noexcept;
    size_t size() const noexcept { return all_.size(); }
    uint64_t memory() const noexcept;

    template <class F>
    void each(F&& visit) {
        for (auto& [ref, stream] : all_) visit(*stream);
    }

  private:
    struct Hash {
        size_t operator()(const StreamRef& ref) const noexcept {
            uint64_t hash = std::hash<std::string_view>()(ref.name) ^ ref.incarnation * 0x9e3779b97f4a7c15u;
            return static_cast<size_t>(hash ^ (uint64_t{ref.subjectId} << 20) ^ ref.subjectId);
        }
    };
    // The key looks into the stream.
    std::unordered_map<StreamRef, std::unique_ptr<Stream>, Hash> all_;
    Stream* last_ = nullptr;
};

}  // namespace quorl::dqueue
