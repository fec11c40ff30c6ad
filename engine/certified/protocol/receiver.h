// The listening side of a machine: registering with senders, putting their messages in order, missing some, and confirming.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "certified/protocol/shared.h"
#include "certified/protocol/slots.h"
#include "certified/protocol/text_map.h"

namespace quorl::certified {

class Receiver {
  public:
    explicit Receiver(Shared& shared);

    // ---- from the ledger. False: it makes no sense.
    bool loadStream(Reader& key, Reader& value);
    bool loadConfirmed(Reader& key);
    void start();
    // The name is this machine's from now on; or is again.
    void settled();
    // The network was away: whatever waits for an answer is said again now.
    void backOnLine();
    // As of the sender.
    void storeAll();
    std::vector<std::string> patterns() const;

    // ---- the program's; see Machine
    quorl_status createListener(uint32_t number, std::string_view pattern);
    void destroyListener(uint32_t number, bool cancel);
    quorl_status confirm(uint32_t listener, StreamId id, uint64_t number, Machine::Confirm when);
    StreamId streamOf(const Frame& data, std::string_view subject) const noexcept;
    bool isStored(const Frame& data) const noexcept;
    void setRoom(uint64_t messages, uint64_t bytes);
    void setInactivity(int64_t interval);
    void close();

    // ---- what comes in
    void onPlain(const companion::Message& message, uint32_t listener);
    void onData(const Frame& frame, companion::Message message, uint32_t listener);
    void onResent(const Frame& frame, const companion::Message& message);
    // Data that a relay agent has kept, in the order in which it was given it. after: the number of the stream that came before,
    // 0: none did.
    void onKept(const Frame& frame, companion::Message message, uint64_t after);
    void onHello(const Frame& frame);
    void onChallenge(const Frame& frame);
    void onAccepted(const Frame& frame);
    void onRefused(const Frame& frame);
    void onNote(const Frame& frame);
    void onGone(const Frame& frame);
    void onUnknown(const Frame& frame);
    void onCancelled(const Frame& frame);
    void onEnded(const Frame& frame);

    // ---- times
    void onConfirmTime(uint64_t sourceId);
    void onStreamTime(uint64_t streamId);
    void onPatternTime(uint64_t sourceId);
    void onSourceTime(uint64_t sourceId);
    void onAnnounceTime();

    void count(Counts& counts) const noexcept;

  private:
    struct Source;

    // The listeners that have been given a message and have not confirmed it. Nearly always there is one.
    struct InFlight {
        uint32_t first = 0;
        std::unique_ptr<std::vector<uint32_t>> more;
    };
    enum class State : uint8_t {
        registering,  // the sender has not answered
        active,
        refused,     // what comes is plain
        cancelling,  // the sender is to forget it
    };
    // What one sender sends on one subject.
    struct Stream {
        StreamId id = 0;
        uint32_t stored = 0;  // its number in the ledger; 0: it is not there
        Source* source = nullptr;
        uint32_t subjectId = 0;  // 0: not known yet
        std::string subject;
        State state = State::registering;
        bool resumes = false;   // what is confirmed is known, and counts
        bool presumed = false;  // an answer to a request: it begins at 1 before the sender has said so
        std::vector<uint32_t> listeners;
        NumberSet confirmed;  // or will not come
        uint64_t next = 1;    // to be delivered
        Slots<InFlight> inFlight;
        std::map<uint64_t, companion::Message> early;
        uint64_t lastKnown = 0;
        uint64_t askedUpTo = 0;
        uint64_t attempt = 0;
        int64_t registerAt = INT64_MAX;
        int64_t askAt = INT64_MAX;
        int64_t timerAt = INT64_MAX;
        Pause registerPause;
        Pause askPause;
        bool positionDirty = false;       // not stored as it is
        bool confirmDirty = false;        // not told as it is
        std::set<uint64_t> storedBeyond;  // confirmed out of turn, and stored one by one
        std::vector<uint64_t> unstored;   // the same, and to be stored
        Stream();
    };
    struct Pattern {
        enum class State : uint8_t { wanted, registered, refused, cancelling } state = State::wanted;
        uint64_t attempt = 0;
        int64_t at = 0;
        Pause pause;
        Pattern();
    };
    // A sender as long as it keeps its state.
    struct Source {
        uint64_t id = 0;
        std::string name;
        std::string address;
        uint64_t incarnation = 0;
        uint64_t session = 0;
        uint64_t token = 0;
        int64_t heardAt = 0;
        int64_t tokenAt = 0;
        int64_t askedTokenAt = INT64_MIN / 2;  // when a frame without a token went out last
        bool hasName = false;                  // it was the last one to say so
        bool hadName = false;                  // and the program was not told that another one has it now
        bool superseded = false;               // the name has another incarnation now
        int64_t confirmAt = INT64_MAX;
        uint32_t sinceConfirm = 0;
        int64_t patternAt = INT64_MAX;
        int64_t forgetAt = INT64_MAX;
        std::vector<StreamId> dirty;
        std::unordered_map<uint32_t, Stream*> byId;
        TextMap<Stream*> bySubject;
        std::map<std::string, Pattern, std::less<>> patterns;
    };
    struct Listener {
        uint32_t number = 0;
        std::string pattern;
    };

    // ---- sources
    Source* findSource(std::string_view name, uint64_t incarnation) noexcept;
    Source* findSource(uint64_t id) noexcept;
    Source* makeSource(std::string_view name, uint64_t incarnation);
    Source* meet(std::string_view name, uint64_t incarnation);
    void wantAgain(Stream& stream, int64_t at);
    void forgetSource(Source& source);
    // The one that sent the frame to this session of this machine, or null.
    Source* authentic(const Frame& frame);
    void heard(Source& source);
    void supersede(std::string_view name, uint64_t incarnation);
    void wantPatterns(Source& source);
    void setPatternTime(Source& source, int64_t at);
    void setConfirmTime(Source& source, int64_t at);
    void setForgetTime(Source& source);
    void announceSoon();
    void startListening(uint32_t number, std::string_view pattern);

    // ---- streams
    Stream* findStream(StreamId id) noexcept;
    Stream* makeStream(Source& source, uint32_t subjectId, std::string_view subject);
    void forgetStream(Stream& stream);
    // The stream of that number and subject, made when somebody listens to it. Null: it is none of ours.
    Stream* streamFor(Source& source, uint32_t subjectId, std::string_view subject);
    void collectListeners(Stream& stream);
    bool wanted(std::string_view subject) const;
    void registerAgain(Stream& stream, int64_t at);
    void setStreamTime(Stream& stream);
    void sendSubscribe(Source& source, std::string_view subject, uint64_t attempt, uint8_t flags, uint32_t subjectId,
                       uint64_t number);
    void sendCancel(Source& source, std::string_view subject, uint64_t attempt, uint8_t flags);
    void subscribe(Stream& stream);
    void activate(Stream& stream, const Frame& accepted);
    void refuse(Stream& stream);
    // Everything that waits for the registration goes to the listeners as plain messages.
    void releaseAsPlain(Stream& stream, uint64_t below);

    // ---- messages
    void take(Stream& stream, uint64_t number, companion::Message message);
    bool keepEarly(Stream& stream, uint64_t number, companion::Message&& message);
    void dropEarly(Stream& stream, uint64_t upTo) noexcept;
    void deliverReady(Stream& stream);
    void deliver(Stream& stream, uint64_t number, const companion::Message& message);
    bool hasRoom(const Stream& stream) const noexcept;
    void lookForGap(Stream& stream, int64_t in);
    void ask(Stream& stream);
    void deliverPlain(const companion::Message& message, uint32_t listener);
    companion::Message withoutAttributes(const companion::Message& message) const;

    // ---- confirming
    void done(Stream& stream, uint64_t number, Machine::Confirm when);
    void moved(Stream& stream);
    void expectConfirm(Stream& stream, uint32_t messages);
    void flushConfirms(Source& source);
    void storePosition(Stream& stream);
    void eraseStored(Stream& stream);

    Shared& shared_;
    std::map<uint32_t, Listener> listeners_;
    std::unordered_map<StreamId, std::unique_ptr<Stream>> streams_;
    std::unordered_map<uint64_t, std::unique_ptr<Source>> sources_;
    TextMap<std::vector<Source*>> sourcesByName_;
    Source* lastSource_ = nullptr;  // that a message came from
    StreamId lastStream_ = 0;
    uint32_t lastStored_ = 0;
    uint64_t lastSourceId_ = 0;
    uint64_t attempts_ = 0;
    uint64_t earlyBytes_ = 0;
    uint64_t earlyCount_ = 0;
    int64_t inactivity_ = 0;
    uint64_t roomMessages_ = UINT64_MAX;
    uint64_t roomBytes_ = UINT64_MAX;
    int64_t announceAt_ = INT64_MAX;
    uint32_t announced_ = 0;                          // how often, since a listener was made
    std::unordered_map<uint32_t, StreamId> loading_;  // streams by their numbers in the ledger
};

}  // namespace quorl::certified
