// The table and its two lists.
#include "ftolerance/protocol/peers.h"

#include <utility>

namespace quorl::ftolerance {

void Peers::List::append(Peer& peer) noexcept {
    peer.earlier = last;
    peer.later = nullptr;
    (last != nullptr ? last->later : first) = &peer;
    last = &peer;
}

void Peers::List::take(Peer& peer) noexcept {
    (peer.earlier != nullptr ? peer.earlier->later : first) = peer.later;
    (peer.later != nullptr ? peer.later->earlier : last) = peer.earlier;
}

Peer* Peers::find(uint64_t member) noexcept {
    const auto at = all_.find(member);
    return at == all_.end() ? nullptr : &at->second;
}

Peer& Peers::add(const Frame& frame, int64_t now) {
    Peer& peer = all_.try_emplace(frame.member).first->second;
    peer.last = frame;
    peer.heard = now;
    trusted_.append(peer);
    ++changes_;
    return peer;
}

void Peers::heard(Peer& peer, const Frame& frame, int64_t now) noexcept {
    changes_ += frame.state == State::left;
    peer.last = frame;
    hearAgain(peer, now);
}

void Peers::hearAgain(Peer& peer, int64_t now) noexcept {
    listOf(peer).take(peer);
    peer.heard = now;
    peer.suspected = false;
    trusted_.append(peer);
}

void Peers::suspect(Peer& peer) noexcept {
    trusted_.take(peer);
    peer.suspected = true;
    suspected_.append(peer);
}

void Peers::remove(Peer& peer) noexcept {
    listOf(peer).take(peer);
    ++changes_;
    all_.erase(peer.last.member);
}

void Peers::hearAllAnew(int64_t now) noexcept {
    trusted_ = suspected_ = {};
    for (auto& [member, peer] : all_) {
        peer.heard = now;
        peer.suspected = false;
        trusted_.append(peer);
    }
}

}  // namespace quorl::ftolerance
