// Recognizes what a sender's connection that was lost still delivers behind what its next one has sent already.
//
// A sender counts its connections to daemons, its sessions, and each payload names the sender and the session. What was on its way
// when a session was lost may arrive late; once something of a later session has come, it must not be delivered any more, or the
// sender's messages would be out of order. It counts as lost, as the sender has told its program that it may be.
#pragma once

#include <cstdint>
#include <list>
#include <unordered_map>

#include "transport/nats/frame.h"

namespace quorl::transport::nats {

// Of one thread.
class Latecomers {
  public:
    // Senders that have lost a connection are kept, so many; the one that was heard longest ago gives way.
    static constexpr size_t mostSenders = 4096;

    // Whether something of a later session of its sender has come before. Throws std::bad_alloc.
    bool late(const Origin& origin) {
        // A sender that never lost a connection, as nearly all, is looked for only, and not kept.
        if (senders_.empty() && origin.session <= 1) return false;
        const auto found = senders_.find(origin.sender);
        if (found == senders_.end()) {
            if (origin.session > 1) keep(origin);
            return false;
        }
        heard_.splice(heard_.end(), heard_, found->second);
        if (origin.session < found->second->session) return true;
        found->second->session = origin.session;
        return false;
    }
    size_t senders() const noexcept { return senders_.size(); }

  private:
    void keep(const Origin& origin) {
        heard_.push_back(origin);
        try {
            senders_.emplace(origin.sender, std::prev(heard_.end()));
        } catch (...) {
            heard_.pop_back();
            throw;
        }
        if (heard_.size() <= mostSenders) return;
        senders_.erase(heard_.front().sender);
        heard_.pop_front();
    }

    std::list<Origin> heard_;  // the one that was heard last stands last
    std::unordered_map<uint64_t, std::list<Origin>::iterator> senders_;
};

}  // namespace quorl::transport::nats
