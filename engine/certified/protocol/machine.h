// Certified delivery for one certified name, without input and output: calls, messages and the time go in; what to store,
// what to send, what to deliver and what to tell comes out. Whoever drives it serializes the calls.
//
//     Machine machine(settings, chance);
//     machine.load(key, value) ... machine.load(stored) ...   // what the ledger holds
//     machine.start(now, out);
//     ... and then, after each step:
//     if (out.store.token != 0) hand out.store over to the ledger; machine.persisted(token, now, out) when it is safe
//     for (auto& message : out.messages) transport.send(message);      // subject and attributes are set
//     for (auto& delivery : out.deliveries) ...                        // in the order in which they stand
//     ... and machine.tick(now, out) when machine.due() has come
//
// The driver listens to machine.address(), to everybody (subject.h), and to the pattern of each listener. What comes there
// goes to receive, with the number of the listener whose pattern it was. The document is docs/internals/certified.md.
//
// Functions that may throw throw std::bad_alloc; what they were doing is then as if a frame had been lost, and a send has
// not been accepted. Statuses come without a detail text.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "certified/protocol/store.h"
#include "certified/protocol/timers.h"
#include "companion/message.h"

namespace quorl::certified {

// Both clocks, in nanoseconds. Intervals are measured by the monotonic one; time limits, which survive a restart, by the wall.
struct Now {
    int64_t monotonic = 0;
    int64_t wall = 0;
};

struct Settings {
    std::string name;          // certified name, valid
    bool lasting = true;       // false: the name is the library's own and ends with the object
    bool requestOld = false;   // whether what was kept for the name before is asked for
    bool ledger = false;       // whether there is one; without, out.store is always empty and persisted is not called
    bool mayLoseTail = false;  // of the ledger: a power failure may take what was written last
    // The name is a distributed queue's: its members agree among themselves which of them has it, and what is delivered as a
    // plain message keeps its attributes, by which they tell whether they have done it already.
    bool queue = false;

    // Of the sender. A send beyond them is QUORL_QUEUE_LIMIT.
    uint64_t pendingBytes = 1ull << 30;          // images that are kept; 0: as many as there is room for
    uint32_t nearlyFull = 80;                    // percent of it at which it is told
    uint64_t cacheBytes = 8ull << 20;            // images that are kept in memory although the ledger has them
    uint32_t listeners = 1024;                   // names that may be registered
    uint32_t agreements = 100'000;               // of all of them: pairs of a subject and a name
    uint32_t patterns = 256;                     // of one name
    int64_t transientSilence = 600'000'000'000;  // after which a listener whose name was the library's own is forgotten

    // Of the listener.
    uint32_t inFlight = 10'000;         // delivered and not confirmed, of one sender and subject
    uint32_t earlyMessages = 1024;      // that came before their turn, of one sender and subject
    uint64_t earlyBytes = 64ull << 20;  // of all of them
    uint32_t sources = 10'000;          // senders that are known
    uint32_t streams = 100'000;         // pairs of a sender and a subject
    int64_t lagging = 60'000'000'000;   // how long a listener may confirm nothing before it is told
};

// Drawn by the driver, of a source that nobody can guess.
struct Chance {
    uint64_t incarnation = 0;             // of the sender's state, where the ledger holds none
    uint64_t instance = 0;                // of this machine
    std::array<uint64_t, 2> senderKey{};  // as incarnation
    std::array<uint64_t, 2> listenerKey{};
};

// Names a stream, that is what one sender sends on one subject, in this machine. Never used twice, never 0.
using StreamId = uint64_t;

struct Delivery {
    uint32_t listener = 0;  // as the driver numbered it
    // With the attributes of a certified message; with none when it is a plain one: by a sender that is not certified, or not
    // yet registered with.
    companion::Message message;
    StreamId stream = 0;  // 0: a plain message, which is not confirmed
    uint64_t number = 0;
};

struct Event {
    enum class Kind : uint8_t {
        // Of the sender; name is the listener's.
        registered,  // name, subject, first: from which number on it is kept for
        ended,       // name, subject, reason: the agreement is over; last: how many messages it had not confirmed
        confirmed,   // name, subject, first to last: those that it has confirmed
        completed,   // subject, first to last: everybody has confirmed them, after what was told of each
        settled,  // subject, first to last: nobody is waited for, since nobody was registered or the last was given up
        expired,  // subject, first to last: their time limit has passed, or the program expired them
        undelivered,    // name, subject, first to last, reason: it had not confirmed what is given up
        lagging,        // name, subject, first: the oldest that it has not confirmed; last: how many there are
        nearlyFull,     // first: bytes kept; last: the limit
        noLongerFull,   // the same
        refused,        // name, subject, reason: it may not register
        storageFailed,  // sends are refused until it works again
        storageWorks,
        // Of the listener; name is the sender's.
        listening,          // name, subject, first: registered, from that number on
        skipped,            // name, subject, first to last, reason: will never come
        stopped,            // name, subject, reason: the sender has ended the agreement, or refuses it
        senderStartedAnew,  // name: it has lost its state
        // Of both.
        nameTaken,      // another program has the name: this one does nothing until the other one is gone
        nameContested,  // another program has asked for the name; this one keeps it
        nameFree,       // the other one is gone, and this one goes on
        newerPeer,      // a message of a version that this one does not know has come; told once
    };
    Kind kind = Kind::registered;
    std::string name;
    std::string subject;
    uint64_t first = 0;
    uint64_t last = 0;
    const char* reason = "";  // static text
};

// What a step has for the program.
struct News {
    std::vector<Delivery> deliveries;  // in order
    std::vector<Event> events;
};

struct Output : News {
    using Rest = News;

    Transaction store;
    std::vector<companion::Message> messages;  // ready to be sent, in order
    std::vector<Fetch> fetches;

    void clear() noexcept {
        store.token = 0;
        store.sync = store.afterFailure = false;
        store.writes.clear();
        messages.clear();
        fetches.clear();
        deliveries.clear();
        events.clear();
    }
    Rest takeRest() noexcept { return std::exchange(static_cast<News&>(*this), {}); }
};

// What is kept for one subject, for those who look into a ledger.
struct Review {
    struct Listener {
        std::string_view name;
        uint64_t confirmed = 0;    // everything up to it
        uint64_t unconfirmed = 0;  // messages that are kept for it
        int64_t heard = 0;         // wall clock, 0: never
        bool registered = false;   // false: it was added, and has not registered yet
    };
    std::string_view subject;
    uint64_t first = 0;  // the oldest that is kept; last + 1: none is
    uint64_t last = 0;   // that was sent
    uint64_t messages = 0;
    uint64_t bytes = 0;
    std::vector<Listener> listeners;
};

struct Counts {
    uint64_t messages = 0;  // kept
    uint64_t bytes = 0;     // of their images
    uint64_t memory =
        0;  // bytes, roughly, of everything that grows with messages: images in memory, slots, what is early
    uint64_t listeners = 0;  // names that are known
    uint64_t agreements = 0;
    uint64_t sources = 0;
    uint64_t streams = 0;
    uint64_t foreign =
        0;  // frames that were not for this machine, or of nobody who may send them: forged, or very late
};

struct Frame;
class Presence;
class Receiver;
class Sender;
struct Shared;

class Machine {
  public:
    Machine(const Settings& settings, const Chance& chance);
    Machine(Machine&&) noexcept;
    Machine& operator=(Machine&&) noexcept;
    ~Machine();

    const std::string& name() const noexcept;
    // The subject on which messages for it alone come.
    const std::string& address() const noexcept;

    // ---- before start: what the ledger holds. First the state, in any order; then the messages, by subject and number
    // ascending. QUORL_VERSION_MISMATCH: of a version that is newer; QUORL_ARG_CONFLICT: of another name;
    // QUORL_INVALID_FILE: it makes no sense.
    quorl_status load(std::string_view key, std::string_view value);
    quorl_status load(const StoredMessage& message);
    // All of it was given: whether it makes sense. The statuses are load's.
    quorl_status check();
    // complete: nothing that was ever handed over and persisted is missing. False after a power failure, where the ledger may
    // lose its tail; when in doubt, false.
    // The statuses are load's; the machine is of no use after one.
    quorl_status start(bool complete, Now now, Output& out);

    // ---- time and storage
    int64_t due() const noexcept;  // monotonic clock; INT64_MAX: never
    void tick(Now now, Output& out);
    void persisted(uint64_t token, Now now, Output& out);
    // The transaction with that token, and everything handed over since, was not carried out. Sends among it were not
    // accepted. From now on sends are refused with that status, and a transaction that says afterFailure is tried now and then.
    void storageFailed(uint64_t token, quorl_status status, Now now, Output& out);
    // An answer to out.fetches: the image under any subject, with its reply subject; none: it cannot be read.
    void fetched(const Fetch& fetch, const companion::Message& message, Now now, Output& out);

    // ---- sending
    // limit: nanoseconds, 0 for the default. Without agreements the message goes out at once; otherwise when it is stored.
    // number (may be null) and the attributes of what goes out are the message's. A subject of the system's goes out as a plain
    // message. QUORL_INVALID_SUBJECT, QUORL_QUEUE_LIMIT, QUORL_NOT_PERMITTED (the name is taken), what storageFailed said.
    // used (may be null): the limit that it has got, 0: none.
    quorl_status send(const companion::Message& message, int64_t limit, Now now, Output& out,
                      uint64_t* number = nullptr, int64_t* used = nullptr);
    // To an inbox, for the certified name that asked (see requesterOf): it is registered for the answer without being asked.
    quorl_status sendReply(const companion::Message& message, std::string_view requester, int64_t limit, Now now,
                           Output& out, uint64_t* number = nullptr, int64_t* used = nullptr);
    // Nanoseconds, 0 for never. Of what is sent from now on.
    void setDefaultTimeLimit(int64_t limit) noexcept;

    // QUORL_INVALID_NAME, QUORL_INVALID_SUBJECT, QUORL_QUEUE_LIMIT, QUORL_NOT_FOUND. While storage does not work it is tried with
    // what the call changes; if it does not work then either, the change is stored when it does, and what storageFailed said is
    // the status, here or of the transaction.
    quorl_status allowListener(std::string_view name, Now now, Output& out);
    quorl_status disallowListener(std::string_view name, Now now, Output& out);
    quorl_status addListener(std::string_view name, std::string_view pattern, Now now, Output& out);
    quorl_status removeListener(std::string_view name, std::string_view pattern, Now now, Output& out);
    quorl_status removeSendState(std::string_view subject, Now now, Output& out);
    quorl_status expireMessages(std::string_view subject, uint64_t upTo, Now now, Output& out);
    // The same for what is to be stored anyway.
    quorl_status retryStorage(Now now, Output& out);

    // Each subject that matches; null or empty: each one. visit says whether to stop.
    void review(std::string_view pattern, const std::function<bool(const Review&)>& visit) const;

    // ---- listening
    // number is the driver's choice, not 0 and not in use. QUORL_INVALID_SUBJECT, QUORL_QUEUE_LIMIT.
    quorl_status createListener(uint32_t number, std::string_view pattern, Now now, Output& out);
    // cancel: the senders are told to forget the name for what nobody else here listens to. What the listener has not confirmed
    // is delivered again, to whoever listens next, unless it was also delivered to another listener here.
    void destroyListener(uint32_t number, bool cancel, Now now, Output& out);
    // The listener has done with it. at once: it is stored in this step; otherwise soon, together with others.
    // QUORL_NOT_PERMITTED: not a listener of that stream; QUORL_NOT_FOUND: no such stream or number. Confirming twice is no error.
    enum class Confirm : uint8_t { now, soon };
    quorl_status confirm(uint32_t listener, StreamId stream, uint64_t number, Confirm when, Now now, Output& out);
    // Of a message that a listener was given; 0: it is a plain one, or its sender is forgotten.
    StreamId streamOf(const companion::Message& message, uint64_t* number) const noexcept;
    // So much more may be delivered, of all streams together; what is beyond stays with its senders. A message goes as long as
    // neither is 0. Without a call there is no such limit.
    void setRoom(uint64_t messages, uint64_t bytes, Now now, Output& out);
    // Nanoseconds; 0: never.
    void setPublisherInactivity(int64_t interval, Now now, Output& out);

    // ---- what comes in
    // listener: the number of the one whose pattern it matched; 0: it came to the address, or to everybody.
    void receive(companion::Message message, uint32_t listener, Now now, Output& out);

    // ---- a relay agent, which stands in for the machine while it is off the network
    // What the ledger holds, once more in this step's transaction; who listens here, and each message that is kept.
    void copy(Now now, Output& out);
    std::vector<std::string> patterns() const;
    void forEachMessage(const std::function<void(const StoredMessage&)>& visit) const;
    // Whether a subscribe, a confirm or a cancel that came to the address shows that it is from whom it names.
    bool believes(const companion::Message& message) const noexcept;
    // What it has kept: frames that came to the address, and data in the order in which it was given it. after: the number
    // of that sender and subject that it was given before, 0: none.
    void kept(companion::Message message, uint64_t after, Now now, Output& out);
    // Whether what was kept is confirmed, and that is stored. Frames that are no data always are.
    bool isStored(const companion::Message& message) const noexcept;
    // The network is there again. What was sent meanwhile may not have arrived.
    void backOnLine(Now now, Output& out);

    // The program closes: numbers are stored exactly, and what can be sent is sent. No call follows but persisted.
    void close(Now now, Output& out);

    Counts counts() const noexcept;
    // Another program has the name, and this one does nothing.
    bool suspended() const noexcept;

  private:
    quorl_status loadState();
    void storeVersion();
    void settled();
    quorl_status stored(quorl_status status);
    void dispatch(const Frame& frame, companion::Message message, uint32_t listener);
    void onTime(const Timers::Timer& timer);

    std::unique_ptr<Shared> shared_;
    std::unique_ptr<Sender> sender_;
    std::unique_ptr<Receiver> receiver_;
    std::unique_ptr<Presence> presence_;
    std::vector<std::pair<std::string, std::string>> loaded_;  // until start
    bool newerTold_ = false;
};

// What a received message says of itself. False: it is no certified message. Views live as long as the message.
struct Attributes {
    std::string_view sender;
    uint64_t number = 0;
    int64_t limit = 0;  // nanoseconds, 0: none
};
bool attributesOf(const companion::Message& message, Attributes* attributes) noexcept;
// The certified name of who sent the message; empty: it is not certified.
std::string_view requesterOf(const companion::Message& message) noexcept;

}  // namespace quorl::certified
