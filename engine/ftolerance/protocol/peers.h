// The members that a member or a monitor hears of, in the order in which it heard them last.
//
// All share one time limit, so that order says who is silent first: a frame costs a look into a hash table and two links.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

#include "ftolerance/protocol/frame.h"

namespace quorl::ftolerance {

struct Peer {
    Frame last;              // newest frame; of one that has left too, so that late frames of it are known to be late
    int64_t heard = 0;       // when
    bool suspected = false;  // silent for long enough to prepare for its loss
    Peer* earlier = nullptr;
    Peer* later = nullptr;
};

class Peers {
  public:
    // Whoever sends may invent members. More are not kept.
    static constexpr size_t most = 1024;

    size_t size() const noexcept { return all_.size(); }
    // How often one was added or removed, or has left.
    uint64_t changes() const noexcept { return changes_; }
    bool full() const noexcept { return all_.size() >= most; }
    Peer* find(uint64_t member) noexcept;
    // Not known yet, and there is room. Throws std::bad_alloc.
    Peer& add(const Frame& frame, int64_t now);
    void heard(Peer& peer, const Frame& frame, int64_t now) noexcept;
    void hearAgain(Peer& peer, int64_t now) noexcept;
    void suspect(Peer& peer) noexcept;
    void remove(Peer& peer) noexcept;
    // Silence counts from now on, for all of them.
    void hearAllAnew(int64_t now) noexcept;

    // Who was heard the longest time ago, of those that are not suspected and of those that are; null: none.
    Peer* quietest() const noexcept { return trusted_.first; }
    Peer* quietestSuspect() const noexcept { return suspected_.first; }

    template <class F>
    void each(F&& look) const {
        for (const auto& [member, peer] : all_) look(peer);
    }

  private:
    struct List {
        Peer* first = nullptr;
        Peer* last = nullptr;
        void append(Peer& peer) noexcept;
        void take(Peer& peer) noexcept;
    };
    List& listOf(const Peer& peer) noexcept { return peer.suspected ? suspected_ : trusted_; }

    std::unordered_map<uint64_t, Peer> all_;
    uint64_t changes_ = 0;
    List trusted_;
    List suspected_;
};

}  // namespace quorl::ftolerance
