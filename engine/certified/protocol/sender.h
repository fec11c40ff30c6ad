// The sending side of a machine: numbers, who is registered, what is kept for whom, and what became of it.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "certified/protocol/shared.h"
#include "certified/protocol/slots.h"
#include "certified/protocol/text_map.h"

namespace quorl::certified {

class Sender {
  public:
    explicit Sender(Shared& shared);

    uint64_t incarnation() const noexcept { return incarnation_; }

    // ---- from the ledger. False: it makes no sense.
    bool loadSender(Reader& value);
    bool loadSubject(Reader& key, Reader& value);
    bool loadSubscriber(std::string_view name, Reader& value);
    bool loadAgreement(uint64_t subjectId, std::string_view name, Reader& value);
    bool loadMessage(const StoredMessage& message);
    void start(bool complete);
    // Writes all that is stored once more, for a copy.
    void storeAll();
    // Each message that is kept.
    void forEachMessage(const std::function<void(const StoredMessage&)>& visit) const;
    // The network was away: says so, and reminds everybody now.
    void backOnLine();

    // ---- the program's; see Machine
    quorl_status send(const companion::Message& message, int64_t limit, uint64_t* number, int64_t* used);
    quorl_status sendReply(const companion::Message& message, std::string_view requester, int64_t limit,
                           uint64_t* number, int64_t* used);
    void setDefaultLimit(int64_t limit) noexcept { defaultLimit_ = limit; }
    quorl_status allow(std::string_view name);
    quorl_status disallow(std::string_view name);
    quorl_status add(std::string_view name, std::string_view pattern);
    quorl_status remove(std::string_view name, std::string_view pattern);
    quorl_status removeSendState(std::string_view subject);
    quorl_status expire(std::string_view subject, uint64_t upTo);
    void review(std::string_view pattern, const std::function<bool(const Review&)>& visit) const;
    void close();

    // ---- frames of listeners
    void onAnnounce(const Frame& frame);
    // Whether the frame shows the token that its name was told.
    bool believes(const Frame& frame) noexcept;
    void onSubscribe(const Frame& frame);
    void onConfirm(const Frame& frame);
    void onAsk(const Frame& frame);
    void onCancel(const Frame& frame);

    void notStored(const std::vector<NotStored>& messages);
    void fetched(const Fetch& fetch, const companion::Message& message);

    // ---- times
    void onExpiry(uint64_t subjectId);
    void onNote(uint64_t subscriberId);
    void onTransient(uint64_t subscriberId);
    void sayHello(std::string_view to);

    void count(Counts& counts) const noexcept;

  private:
    // Of an agreement that takes whatever session the listener registers with.
    static constexpr uint64_t anySession = UINT64_MAX;
    static constexpr int64_t firstNote = 500 * milliseconds;  // the shortest pause between notes

    struct Subject;
    struct Subscriber;

    struct Slot {
        companion::Message message;  // none: the ledger has the image
        int64_t expires = 0;         // wall clock; 0: never
        uint32_t size = 0;
        uint32_t waiting = 0;  // agreements that have not confirmed it
    };
    // What is kept of one subject for one listener.
    struct Agreement {
        Subject* subject = nullptr;
        Subscriber* subscriber = nullptr;
        NumberSet confirmed;     // or given up
        uint64_t session = 0;    // of the listener, in which it registered; 0: it was added
        uint64_t attempt = 0;    // of that session, the last one that changed something
        uint64_t givenUp = 0;    // the last number that will not come and of which the listener may not know; 0: none
        uint64_t noted = 0;      // how much was settled when it was last looked at
        int64_t progressAt = 0;  // monotonic; when that was last more than before
        bool lagging = false;    // and told so
    };
    struct Subject {
        uint32_t id = 0;
        std::string text;
        uint64_t last = 0;       // number
        uint64_t lastPlain = 0;  // of a message that nobody was registered for
        uint64_t durable = 0;    // no number up to it is given again after a crash, whatever becomes of messages
        uint64_t reserved = 0;   // the same after a power failure; used only where the ledger may lose its tail
        bool stored = false;
        bool transient = false;  // an inbox: forgotten when nothing is kept any more
        Slots<Slot> slots;
        std::vector<uint64_t> released;  // numbers that the ledger is still to forget
        std::vector<Agreement*> agreements;
        std::string prefix;  // of data frames
        std::set<std::pair<int64_t, uint64_t>>
            expiries;                        // of messages with a time limit: when, by the wall clock, and number
        int64_t expiryAt = INT64_MAX;        // of the timer that is set
        std::list<Subject*>::iterator idle;  // the list's end while it has agreements
    };
    struct Interest {
        std::string pattern;
        uint64_t session = 0;  // 0: added by the program
        uint64_t attempt = 0;
    };
    struct Subscriber {
        uint64_t id = 0;
        std::string name;
        std::string address;
        uint64_t session = 0;
        uint64_t token = 0;
        uint64_t switches = 0;  // how many sessions there were
        bool disallowed = false;
        bool transient = false;
        int64_t heard = 0;    // wall clock
        int64_t heardAt = 0;  // monotonic; when it was last heard, or first wanted
        int64_t noteAt = INT64_MAX;
        int64_t notedAt = INT64_MIN / 2;  // when the last note was sent
        Pause pause;
        uint32_t noteNext = 0;  // subject id from which the next note goes on
        std::vector<Interest> interests;
        std::map<uint32_t, std::unique_ptr<Agreement>> agreements;  // by subject id
        Subscriber();
    };
    struct Cached {
        uint32_t subject;
        uint64_t number;
        uint32_t size;
    };
    struct Wanted {
        uint32_t subject;
        uint64_t number;
        bool operator<(const Wanted& other) const noexcept {
            return subject != other.subject ? subject < other.subject : number < other.number;
        }
    };

    // ---- subjects
    Subject* find(std::string_view text) noexcept;
    Subject* find(uint64_t id) noexcept;
    Subject& make(std::string_view text, bool transient);
    void forgetSubject(Subject& subject);
    void limitIdle();
    void reserveNumbers(Subject& subject) const noexcept;
    void storeSubject(Subject& subject);
    void storeSender();

    // ---- subscribers
    Subscriber* findSubscriber(std::string_view name) noexcept;
    Subscriber* findSubscriber(uint64_t id) noexcept;
    Subscriber& makeSubscriber(std::string_view name);
    void storeSubscriber(const Subscriber& subscriber);
    void forgetIfNothing(Subscriber& subscriber);
    uint64_t tokenOf(const Subscriber* subscriber, const Frame& frame) const;
    uint64_t tokenFor(std::string_view name, uint64_t session, uint64_t switches) const;
    // The one whose session and token the frame shows, or null.
    Subscriber* authentic(const Frame& frame);
    void heardFrom(Subscriber& subscriber);
    bool takeUpSession(Subscriber& subscriber, const Frame& frame);
    bool newlyRefused(const Frame& frame);
    bool addInterest(Subscriber& subscriber, std::string_view pattern, uint64_t session, uint64_t attempt);
    void applyInterest(Subscriber& subscriber, const Interest& interest);

    // ---- agreements
    // Whoever has promised it has it safe from a power failure first (syncStep). Where it follows from an interest, or is for
    // what this step sends, a failure takes both.
    Agreement& agree(Subject& subject, Subscriber& subscriber, uint64_t from, uint64_t session);
    void store(Agreement& agreement);
    // flushReleased follows, when the last one of the subject was ended.
    void end(Agreement& agreement, Reason reason, bool tellListener);
    // Counts numbers as confirmed, or as given up for this listener, where given says why.
    void settle(Agreement& agreement, Range range, Reason given);
    // A message that everybody has confirmed, or that is given up.
    // There is room for it in released.
    void release(Subject& subject, uint64_t number) noexcept;
    void forget(Subject& subject, uint64_t number) noexcept;
    void takeBack(Subject& subject, uint64_t first);
    static void makeRoom(Subject& subject, uint64_t numbers);
    void flushReleased(Subject& subject);
    void giveUp(Subject& subject, Range range, Reason reason);
    uint64_t unconfirmed(const Agreement& agreement) const noexcept;
    uint64_t firstUnconfirmed(const Agreement& agreement) const noexcept;
    uint64_t nextUnconfirmed(const Agreement& agreement, uint64_t number) const noexcept;
    void expectConfirmation(Subscriber& subscriber);
    void remindNow(Subscriber& subscriber);

    // ---- messages
    quorl_status sendOn(Subject& subject, const companion::Message& message, int64_t limit, uint64_t* number,
                        int64_t* used);
    companion::Message dataOf(const Subject& subject, uint64_t number, int64_t limit,
                              const companion::Message& message);
    void resend(const Agreement& agreement, uint64_t number, const Slot& slot, const companion::Message& message);
    void sendGone(const Agreement& agreement, const std::vector<Range>& ranges, Reason reason);
    void sendUnknown(const Frame& frame);
    void cache(Subject& subject, uint64_t number, Slot& slot);
    void watchFullness();
    void setExpiryTimer(Subject& subject);

    Shared& shared_;
    uint64_t incarnation_;
    std::array<uint64_t, 2> key_;
    uint32_t nextId_ = 1;
    uint32_t idLimit_ = 1;  // ids below it are reserved in the ledger
    int64_t defaultLimit_ = 0;

    std::unordered_map<uint32_t, std::unique_ptr<Subject>> subjects_;
    TextMap<Subject*> subjectsByText_;
    std::list<Subject*> idle_;  // without agreements, the longest first
    std::unordered_map<uint64_t, std::unique_ptr<Subscriber>> subscribers_;
    TextMap<Subscriber*> subscribersByName_;
    uint64_t lastSubscriber_ = 0;
    uint64_t agreements_ = 0;
    std::deque<uint64_t> refused_;  // hashes of what was refused, and told

    uint64_t messages_ = 0;  // kept
    uint64_t bytes_ = 0;
    uint64_t memoryBytes_ = 0;  // of images that are in memory
    bool nearlyFull_ = false;
    std::deque<Cached> cached_;  // the oldest first; some are gone already
    uint64_t cachedBytes_ = 0;
    std::map<Wanted, std::vector<uint64_t>> wanted_;  // images that were asked for, and the subscribers that want them
};

}  // namespace quorl::certified
