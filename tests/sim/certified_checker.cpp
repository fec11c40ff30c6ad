// The promises, one by one.
#include "sim/certified_checker.h"

#include <algorithm>
#include <utility>

namespace quorl::sim {
namespace {

std::string nameOf(const CertifiedChecker::Message& message) {
    return "message " + std::to_string(message.count) + " of sender " + std::to_string(message.sender) +
           " on subject " + std::to_string(message.subject);
}

std::string at(uint32_t listener) {
    return " at listener " + std::to_string(listener);
}

}  // namespace

CertifiedChecker::CertifiedChecker(std::vector<Peer> peers)
    : peers_(std::move(peers)), lives_(peers_.size()), histories_(peers_.size()) {}

void CertifiedChecker::fail(const std::string& what) {
    if (broken_.empty()) broken_ = what;
}

void CertifiedChecker::owe(Pair& pair, uint32_t count) {
    if (!pair.delivered.contains(count) && pair.owed.insert(count).second) ++owed_;
}

void CertifiedChecker::settle(Pair& pair, uint32_t count) {
    owed_ -= pair.owed.erase(count);
}

void CertifiedChecker::forgive(Pair& pair) {
    owed_ -= pair.owed.size();
    pair.owed.clear();
}

template <class F>
void CertifiedChecker::forNumbers(uint32_t sender, uint32_t subject, uint64_t first, uint64_t last, F&& visit) {
    Sendings& sendings = sent_[{sender, subject}];
    for (uint32_t count = 0; count < sendings.list.size(); ++count) {
        Sent& one = sendings.list[count];
        if (one.history == histories_[sender] && one.generation == sendings.generation && one.number >= first &&
            one.number <= last)
            visit(count, one);
    }
}

// ---- senders

void CertifiedChecker::sent(const Message& message, uint64_t number, bool limited) {
    Sendings& sendings = sent_[{message.sender, message.subject}];
    sendings.list.resize(message.count + size_t{1});
    // A sender may forget a subject that nobody is registered for any more, and then counts anew. Where somebody is, the message with
    // that number never comes to him.
    const bool used = std::ranges::any_of(sendings.list, [&](const Sent& earlier) {
        return earlier.accepted && earlier.number >= number && earlier.generation == sendings.generation &&
               earlier.history == histories_[message.sender];
    });
    if (number == 1 || (number != 0 && used)) ++sendings.generation;
    // What a crash took before it was accepted may have had the number.
    for (Sent& earlier : sendings.list) {
        if (number != 0 && !earlier.accepted && earlier.number >= number && earlier.generation == sendings.generation)
            earlier.number = 0;
    }
    Sent& one = sendings.list.back();
    one.generation = sendings.generation;
    one.number = number;
    one.limited = limited;
    one.life = lives_[message.sender];
    one.history = histories_[message.sender];
}

void CertifiedChecker::accepted(const Message& message) {
    Sent& one = sent_[{message.sender, message.subject}].list[message.count];
    one.accepted = true;
    ++totals_.accepted;
    if (one.limited || !peers_[message.sender].reached) return;
    for (uint32_t listener = 0; listener < peers_.size(); ++listener) {
        const auto found = pairs_.find({listener, message.sender, message.subject});
        if (found != pairs_.end() && found->second.registered && peers_[listener].reached)
            owe(found->second, message.count);
    }
}

void CertifiedChecker::refused(const Message& message) {
    sent_[{message.sender, message.subject}].list[message.count].refused = true;
}

void CertifiedChecker::added(uint32_t sender, uint32_t listener, uint32_t subject) {
    if (peers_[listener].durable()) pair(listener, sender, subject).registered = true;
}

void CertifiedChecker::registered(uint32_t sender, uint32_t listener, uint32_t subject) {
    pair(listener, sender, subject).agreed = true;
}

void CertifiedChecker::confirmedTo(uint32_t sender, uint32_t listener, uint32_t subject, uint64_t first,
                                   uint64_t last) {
    Pair& of = pair(listener, sender, subject);
    forNumbers(sender, subject, first, last, [&](uint32_t count, Sent& one) {
        if (!of.confirms.contains(count) && !of.skipped.contains(one.number) && !one.refused)
            fail(nameOf({sender, subject, count}) + " is told as confirmed, and was not" + at(listener));
        if (of.told.insert(count).second) ++totals_.confirmed;
        // Who confirms has stored it.
        if (peers_[listener].ledger && of.confirms.contains(count)) of.forGood.insert(count);
    });
}

void CertifiedChecker::givenUp(uint32_t sender, uint32_t listener, uint32_t subject, uint64_t first, uint64_t last,
                               std::string_view reason) {
    Pair& of = pair(listener, sender, subject);
    const bool expired = reason.find("time limit") != std::string_view::npos;
    const bool failed = reason.find("send failed") != std::string_view::npos;
    const bool notAsked = reason.find("did not ask") != std::string_view::npos && !peers_[listener].durable();
    const bool cancelled = reason.find("has cancelled") != std::string_view::npos && cancelled_.contains(listener);
    forNumbers(sender, subject, first, last, [&](uint32_t count, Sent& one) {
        const bool may = notAsked || cancelled || (expired && one.limited) || (failed && !one.accepted);
        if (!may) fail(nameOf({sender, subject, count}) + " is given up without a cause for it" + at(listener));
        if (expired) ++totals_.expired;
        if (!of.delivered.contains(count)) of.givenUp.insert(count);
        settle(of, count);
    });
}

void CertifiedChecker::sendsAgain(uint32_t sender, uint32_t listener, uint32_t subject, uint64_t number) {
    Pair& of = pair(listener, sender, subject);
    forNumbers(sender, subject, number, number, [&](uint32_t count, Sent&) {
        if (of.told.contains(count))
            fail(nameOf({sender, subject, count}) + " is sent again, and was confirmed" + at(listener));
    });
}

// ---- listeners

void CertifiedChecker::listening(uint32_t listener, uint32_t sender, uint32_t subject, uint64_t from) {
    Pair& of = pair(listener, sender, subject);
    // What a sender without a ledger had promised before it died may arrive when it has started again, and knows nothing of it.
    if (!peers_[sender].ledger && !of.agreed) return;
    of.registered = true;
    of.from = from;
}

void CertifiedChecker::stopped(uint32_t listener, uint32_t sender, uint32_t subject) {
    fail("the sender " + std::to_string(sender) + " ends an agreement on subject " + std::to_string(subject) +
         " without a cause" + at(listener));
}

void CertifiedChecker::skipped(uint32_t listener, uint32_t sender, uint32_t subject, uint64_t first, uint64_t last) {
    Pair& of = pair(listener, sender, subject);
    if (last - first > 1'000'000) return fail("a million messages are skipped" + at(listener));
    forNumbers(sender, subject, first, last, [&](uint32_t, Sent& one) { of.skipped.insert(one.number); });
}

void CertifiedChecker::delivered(uint32_t listener, const Message& message, uint64_t number, bool certified) {
    const auto list = sent_.find({message.sender, message.subject});
    if (list == sent_.end() || message.count >= list->second.list.size())
        return fail(nameOf(message) + " was never sent" + at(listener));
    const Sent& one = list->second.list[message.count];
    Pair& of = pair(listener, message.sender, message.subject);
    if (!certified) {
        ++totals_.plain;
        if (of.inThisLife.contains(message.count))
            fail(nameOf(message) + " comes certified and then plain" + at(listener));
        of.plain.insert(message.count);
        return;
    }
    if (one.number != number) fail(nameOf(message) + " comes under another number" + at(listener));
    if (one.refused) fail(nameOf(message) + " was refused, and comes" + at(listener));
    const bool again = !of.inThisLife.insert(message.count).second || of.forGood.contains(message.count);
    if (again || of.plain.contains(message.count)) {
        ++totals_.duplicated;
        fail(nameOf(message) + " comes twice" + at(listener));
    }
    const auto last = of.last.find(one.history);
    if (last != of.last.end() && last->second >= message.count)
        fail(nameOf(message) + " comes after " + std::to_string(last->second) + at(listener));
    of.last[one.history] = message.count;
    if (of.delivered.insert(message.count).second && one.life != lives_[message.sender]) ++totals_.recovered;
    settle(of, message.count);
}

void CertifiedChecker::confirms(uint32_t listener, const Message& message) {
    Pair& of = pair(listener, message.sender, message.subject);
    of.confirms.insert(message.count);
    of.confirmsNow.insert(message.count);
}

void CertifiedChecker::confirmedForGood(uint32_t listener, const Message& message) {
    if (peers_[listener].ledger) pair(listener, message.sender, message.subject).forGood.insert(message.count);
}

void CertifiedChecker::cancels(uint32_t listener) {
    cancelled_.insert(listener);
    for (auto& [key, of] : pairs_) {
        if (std::get<0>(key) != listener) continue;
        of.registered = false;
        forgive(of);
    }
}

void CertifiedChecker::listensAnew(uint32_t listener) {
    for (auto& [key, of] : pairs_) {
        if (std::get<0>(key) != listener) continue;
        // What it has confirmed does not come again, as long as it lives.
        of.inThisLife = of.confirmsNow;
        of.last.clear();
    }
}

// ---- both

void CertifiedChecker::starts(uint32_t node, bool lostPower) {
    const Peer& peer = peers_[node];
    const bool first = lives_[node]++ == 0;
    if (first) return;
    const bool losesTail = lostPower && peer.process;
    if (!peer.ledger) ++histories_[node];
    for (auto& [key, of] : pairs_) {
        const auto [listener, sender, subject] = key;
        if (sender == node) {
            if (!peer.ledger) of.registered = of.agreed = false;
            // What was accepted only for as long as the power does not fail is not owed any more.
            if (!peer.ledger || losesTail) forgive(of);
            if (!peer.ledger || losesTail) of.told.clear();
        }
        if (listener != node) continue;
        if (!peer.durable()) {
            of.registered = false;
            forgive(of);
        }
        if (!peer.ledger || losesTail) of.forGood.clear();
        of.inThisLife.clear();
        of.confirmsNow.clear();
        of.plain.clear();
        of.last.clear();
    }
}

std::string CertifiedChecker::untold() const {
    for (const auto& [key, of] : pairs_) {
        const auto [listener, sender, subject] = key;
        if (!peers_[listener].ledger || !peers_[listener].durable() || !of.registered || !peers_[listener].reached ||
            !peers_[sender].reached || peers_[listener].process || peers_[sender].process ||
            cancelled_.contains(listener) || of.from == 0)
            continue;
        // What is given up is told to who waits for it.
        const auto& list = sent_.at({sender, subject}).list;
        for (const uint32_t count : of.givenUp) {
            if (list[count].refused || list[count].number < of.from || list[count].history != histories_[sender] ||
                of.delivered.contains(count) || of.plain.contains(count) || of.skipped.contains(list[count].number))
                continue;
            return nameOf({sender, subject, count}) + " is given up, and nobody says so" + at(listener);
        }
    }
    return "";
}

void CertifiedChecker::finish() {
    for (auto& [key, of] : pairs_) {
        const auto [listener, sender, subject] = key;
        totals_.lost += of.owed.size();
        if (!of.owed.empty()) fail(nameOf({sender, subject, *of.owed.begin()}) + " never comes" + at(listener));
    }
    if (const std::string left = untold(); !left.empty()) fail(left);
}

}  // namespace quorl::sim
