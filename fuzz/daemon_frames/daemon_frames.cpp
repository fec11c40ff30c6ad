// Fuzz target: what a daemon may hand to subscriptions. The input is a list of steps, each a payload as it stands there, or
// one that is built around bytes of the input so that entries and parts are right enough to get deep.
//
// What is delivered is put into frames by an outbox once more, and has to come out of them as it was.
#include <algorithm>
#include <map>
#include <memory>
#include <tuple>

#include "event/alarm.h"
#include "message/wire.h"
#include "subject/subject.h"
#include "support.h"
#include "transport/nats/outbox.h"
#include "transport/nats/subscription.h"
#include "transport/nats/wire_subject.h"

namespace {

using namespace quorl;
using namespace quorl::fuzz;
using namespace quorl::transport;
using namespace quorl::transport::nats;
namespace wire = message::wire;

constexpr std::string_view prefix = "quorl.net.default.";
constexpr Assembler::Limits limits{32u << 10, 4, 1'000'000'000'000};
// Of what a frame makes the engine ask for, beyond what is in it: chunks of queues and of messages.
constexpr size_t largestAlways = 512u << 10;
constexpr size_t largestPerByte = 64;  // a table's row for each field of two bytes, and growth

// A listener with a queue of its own.
struct Ear {
    explicit Ear(const char* subject) {
        require(queue.entries.prepare(), "no memory for a queue");
        Lock front(queue.front.lock);
        Lock back(queue.back.lock);
        event::setThresholds(queue);
        listener.subject = subject;
        listener.queue = &queue;
    }
    ~Ear() {
        while (next()) {
        }
    }
    message::ContentRef next() {
        Lock lock(queue.front.lock);
        event::Entry entry;
        if (!queue.entries.take(&entry)) return {};
        queue.front.removed.fetch_add(1);
        return message::ContentRef::adopt(entry.content);
    }
    event::Queue queue;
    Listener listener;
};

bool same(const message::ContentRef& a, const message::ContentRef& b) {
    return a.sendSubject() == b.sendSubject() && a.replySubject() == b.replySubject() && a.byteSize() == b.byteSize() &&
           std::memcmp(a.bytes(), b.bytes(), a.byteSize()) == 0 && std::ranges::equal(a.attributes(), b.attributes());
}

// What an assembler may make of the parts, without bounds: the bytes of each entry that came in order.
class Expected {
  public:
    void take(const void* way, const Part& part) {
        std::string& bytes = entries_[{way, part.origin.sender, part.number, part.total}];
        if (part.offset == 0) bytes.clear();
        if (part.offset != bytes.size()) {
            entries_.erase({way, part.origin.sender, part.number, part.total});
            return;
        }
        bytes.append(reinterpret_cast<const char*>(part.data), part.size);
    }
    bool agrees(const void* way, const Part& part, const std::vector<uint8_t>& whole) {
        const auto at = entries_.find({way, part.origin.sender, part.number, part.total});
        return at != entries_.end() && at->second.size() == part.total && whole.size() == part.total &&
               std::memcmp(whole.data(), at->second.data(), whole.size()) == 0;
    }

  private:
    std::map<std::tuple<const void*, uint64_t, uint64_t, uint32_t>, std::string> entries_;
};

class Run {
  public:
    Run(const uint8_t* data, size_t size) : decide_(data, size) {
        subscriptions_[0]->add(plain_.listener);
        subscriptions_[1]->add(star_.listener);
        subscriptions_[1]->add(second_.listener);
        subscriptions_[2]->add(rest_.listener);
        subscriptions_[3]->add(system_.listener);
        inbound_.inboxes.add(inbox_.listener);
        inbound_.inboxes.add(below_.listener);
        echoIntake_.inboxes.add(echoInbox_.listener);
        echoSystem_.add(echo_.listener);
        outbox_.setConnected(true);
    }
    ~Run() {
        inbound_.inboxes.remove(inbox_.listener);
        inbound_.inboxes.remove(below_.listener);
        echoIntake_.inboxes.remove(echoInbox_.listener);
    }

    void run() {
        while (!decide_.empty()) {
            step();
            const uint64_t starred = deliveries_[1];
            drain();
            require(deliveries_[1] - starred == deliveries_[2] - secondBefore_, "two listeners of a pattern differ");
            secondBefore_ = deliveries_[2];
        }
    }

  private:
    void step() {
        const uint8_t kind = decide_.byte();
        const uint8_t to = decide_.byte();
        switch (kind % 8) {
            case 0:  // as it stands, on a subject of ours
                return send(to, subject(to), std::string(decide_.counted()));
            case 1: {  // and on any subject
                const std::string onWire(decide_.bytes(decide_.byte()));
                return send(to, onWire, std::string(decide_.counted()));
            }
            case 2: {  // entries as they stand
                std::string payload = head(kind >= 128 ? FrameKind::attributed : FrameKind::entries);
                payload += decide_.counted();
                return send(to, subject(to), payload);
            }
            case 3: {  // entries that fit, one after the other
                std::string payload = head(kind >= 128 ? FrameKind::attributed : FrameKind::entries);
                for (int i = decide_.byte() % 4; i >= 0; --i) {
                    payload += entry();
                    if (kind >= 128) payload += trailer();
                }
                return send(to, subject(to), payload);
            }
            case 4:  // an image by itself
                return send(to, subject(to), image(decide_.counted()));
            case 5:
                return sendPart(to);
            case 6:
                return sendInParts(to);
            default:
                return other(to);
        }
    }

    std::string trailer() {
        const std::string_view bytes = decide_.counted().substr(0, message::attributesMax);
        if (bytes.empty()) return {};
        std::string made(message::trailer::sizeFor(bytes.size()), '\0');
        message::trailer::write(reinterpret_cast<uint8_t*>(made.data()),
                                {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
        return made;
    }

    // Of few senders, most of which have lost no connection.
    Origin origin() {
        const uint8_t who = decide_.byte();
        return {who % 3u, (who & 0x80) != 0 ? who / 3 % 4u : 1u};
    }
    std::string head(FrameKind kind) {
        std::string text(entriesHeaderSize, '\0');
        auto* to = reinterpret_cast<uint8_t*>(text.data());
        wire::store(to, frameHead(kind));
        writeOrigin(to, origin());
        return text;
    }
    // Fields with a header that fits them.
    static std::string image(std::string_view fields) {
        std::string made(wire::headerSize, '\0');
        const size_t count = fields.empty() ? 0 : static_cast<uint8_t>(fields.front());
        if (!fields.empty()) fields.remove_prefix(1);
        made += fields;
        auto* to = reinterpret_cast<uint8_t*>(made.data());
        wire::store(to, wire::magic);
        wire::store(to + wire::sizeAt, static_cast<uint32_t>(made.size()));
        wire::store(to + wire::countAt, static_cast<uint32_t>(count));
        return made;
    }
    std::string entry() {
        const uint8_t form = decide_.byte();
        std::string made;
        if ((form & 1) != 0) {
            const std::string_view reply = decide_.bytes(decide_.byte());
            made += static_cast<char>(reply.size());
            made += reply;
        } else {
            made += '\0';
        }
        if ((form & 2) != 0) return made.append(decide_.counted());
        return made.append(image(decide_.counted()));
    }
    static std::string subject(uint8_t to) {
        constexpr std::string_view subjects[] = {"a.b",           "a.c%20d", "_INBOX.x.1", "_INBOX.x.2",
                                                 "_QUORL.INFO.n", "x",       "a.*",        "_INBOX.x.1.7"};
        return std::string(prefix).append(subjects[to / 16 % 8]);
    }

    void sendPart(uint8_t to) {
        Part part{};
        part.origin = origin();
        part.number = decide_.byte() % 6;
        part.total = decide_.oneIn(4) ? static_cast<uint32_t>(decide_.eight()) : decide_.two();
        part.offset = decide_.oneIn(4) ? static_cast<uint32_t>(decide_.eight()) : decide_.two();
        send(to, subject(to), partOf(part, decide_.counted()));
    }
    static std::string partOf(const Part& part, std::string_view bytes) {
        std::string payload(partHeaderSize, '\0');
        writePartHeader(reinterpret_cast<uint8_t*>(payload.data()), part);
        return payload.append(bytes);
    }
    // A good entry as a sender cuts it, of which one part may get lost, or come twice, or give way to another message.
    void sendInParts(uint8_t to) {
        const std::string whole = entry();
        const size_t size = 1 + decide_.two() % 4096;
        const uint8_t fate = decide_.byte();
        Part part{};
        part.origin = origin();
        part.number = decide_.byte() % 6;
        part.total = static_cast<uint32_t>(whole.size());
        // Hundreds of parts show no more than a few.
        size_t number = 0;
        for (size_t at = 0; at < whole.size() && number < 64; at += size, ++number) {
            part.offset = static_cast<uint32_t>(at);
            const std::string payload = partOf(part, std::string_view(whole).substr(at, size));
            if (fate % 8 == 1 && number == fate / 8) continue;
            send(to, subject(to), payload);
            if (fate % 8 == 2 && number == fate / 8) send(to, subject(to), payload);
            if (fate % 8 == 3 && number == fate / 8) sendPart(to);
        }
    }

    void other(uint8_t what) {
        if (what % 4 == 0) {
            // The listener goes, and another one comes, in the middle of a message.
            const size_t which = what / 4 % 2;
            const std::string pattern = subscriptions_[which]->pattern();
            subscriptions_[which] = std::make_unique<Subscription>(inbound_, pattern);
            if (which == 0) {
                subscriptions_[0]->add(plain_.listener);
            } else {
                subscriptions_[1]->add(star_.listener);
                subscriptions_[1]->add(second_.listener);
            }
            return;
        }
        if (what % 4 == 1) now_ += int64_t{decide_.two()} * 20'000'000;
        directly();
    }
    // The assembler by itself, with a clock that goes as the input says.
    void directly() {
        const std::string_view bytes = decide_.counted();
        const Block block(bytes);
        Part part{};
        if (!readPart(block.data(), block.size(), &part)) return;
        assemble(part);
    }
    void assemble(const Part& part) {
        Assembler::Whole whole;
        expected_.take(this, part);
        if (direct_.take(this, "a.b", part, now_, &whole))
            require(expected_.agrees(this, part, *whole), "an entry is not what its parts were");
        require(direct_.bytesHeld() <= limits.bytes, "more bytes of parts are held than there may be");
    }

    void send(uint8_t to, const std::string& onWire, const std::string& payload) {
        const Block block(payload);
        const Block name(onWire);
        read(block);
        const std::string_view subject(reinterpret_cast<const char*>(name.data()), name.size());
        Asked::reset();
        for (size_t i = 0; i < 5; ++i) {
            if (to % 16 != 15 && i != to % 16 % 5) continue;
            subscriptions_[i]->received(subject, block.data(), block.size());
            require(inbound_.assembler.bytesHeld() <= limits.bytes, "more bytes of parts are held than there may be");
        }
        require(Asked::most() <= largestAlways + largestPerByte * std::max(payload.size(), limits.bytes),
                "a size that was only announced was asked for");
        lookAtRejections();
    }
    // What a program is told of messages that were none.
    void lookAtRejections() {
        Rejections::Notice notice;
        if (!inbound_.rejections.take(&notice)) return;
        rejected_ += notice.count;
        require(rejected_ == inbound_.rejections.total(), "messages that were none are counted twice, or not at all");
        require(notice.reason != nullptr && *notice.reason != '\0', "a message is rejected without a reason");
        require(notice.subject.size() <= size_t{3} * QUORL_SUBJECT_MAX, "the subject of a notice is too long");
        require(subject::wellFormed(notice.subject) || std::all_of(notice.subject.begin(), notice.subject.end(),
                                                                   [](char c) { return c > ' ' && c < 0x7f; }),
                "the subject of a notice cannot be shown");
    }
    // The readers by themselves.
    void read(const Block& block) {
        FrameKind kind;
        if (!readKind(block.data(), block.size(), &kind)) return;
        if (kind == FrameKind::entries || kind == FrameKind::attributed) {
            const bool trailed = kind == FrameKind::attributed;
            Origin origin;
            if (!readOrigin(block.data(), block.size(), &origin)) return;
            size_t at = entriesHeaderSize;
            Entry entry;
            size_t used = 0;
            while (readEntry(block.data() + at, block.size() - at, &entry, &used, trailed)) {
                require(used != 0 && used <= block.size() - at, "an entry claims more than there is");
                require(trailed == !entry.attributes.empty() && entry.attributes.size() <= message::attributesMax,
                        "an entry has attributes that none can have");
                const size_t behind = message::trailer::sizeFor(entry.attributes.size());
                require(
                    entry.image >= block.data() + at && entry.image + entry.size + behind == block.data() + at + used,
                    "an entry's image is not at its end");
                require(entrySize(entry.replySubject.size(), entry.size, entry.attributes.size()) == used,
                        "an entry's pieces are not the entry");
                at += used;
            }
        }
        Part part;
        if (kind == FrameKind::part && readPart(block.data(), block.size(), &part)) {
            require(part.data + part.size == block.data() + block.size(), "a part claims more than there is");
            assemble(part);
        }
    }

    void drain() {
        Ear* const ears[] = {&plain_, &star_, &second_, &rest_, &system_, &inbox_, &below_};
        for (size_t i = 0; i < 7; ++i) {
            while (const message::ContentRef content = ears[i]->next()) {
                ++deliveries_[i];
                check(content, i >= 4);
            }
        }
    }
    void check(const message::ContentRef& content, bool system) {
        require(subject::validForSending(content.sendSubject()), "a message has a malformed subject");
        require(system || !subject::isSystem(content.sendSubject()), "a program's listener got what is the system's");
        require(content.replySubject().empty() || subject::validForSending(content.replySubject()),
                "a message has a malformed reply subject");
        require(content.byteSize() >= wire::headerSize && content.byteSize() <= QUORL_MSG_MAX_SIZE,
                "a message has a size that none can have");
        // Out again, and in once more.
        size_t waiting = 0;
        require(outbox_.put(content, forever, &waiting) == QUORL_OK, "a message that came in does not go out");
        std::unique_ptr<Outbox::Chunk> chunk = outbox_.take();
        require(chunk != nullptr && chunk->frames.size() == 1, "a message makes no frame");
        const Outbox::Frame& frame = chunk->frames.front();
        if (frame.size == 0) {
            require(same(chunk->contents[frame.content], content), "a large message is not sent as it is");
        } else {
            const Block payload({reinterpret_cast<const char*>(chunk->payloadOf(frame)), frame.size});
            const bool toInbox = subject::isInbox(content.sendSubject());
            Ear& ear = toInbox ? echoInbox_ : echo_;
            (toInbox ? echoInboxes_ : echoSystem_).received(chunk->subjectOf(frame), payload.data(), payload.size());
            if (!toInbox || content.sendSubject() == "_INBOX.x.1") {
                const message::ContentRef again = ear.next();
                require(again && same(again, content), "a message differs when it has come in twice");
            }
            require(!ear.next(), "one message went out and two came in");
        }
        outbox_.giveBack(std::move(chunk));
    }

    Decisions decide_;
    Inbound inbound_{prefix, limits};
    Inbound echoIntake_{prefix};
    Ear plain_{"a.b"}, star_{"a.*"}, second_{"a.*"}, rest_{">"}, system_{"_QUORL.>"}, inbox_{"_INBOX.x.1"},
        below_{"_INBOX.x.1.*"};
    Ear echo_{"_QUORL.>"}, echoInbox_{"_INBOX.x.1"};
    std::unique_ptr<Subscription> subscriptions_[5] = {
        std::make_unique<Subscription>(inbound_, "a.b"), std::make_unique<Subscription>(inbound_, "a.*"),
        std::make_unique<Subscription>(inbound_, ">"), std::make_unique<Subscription>(inbound_, "_QUORL.>"),
        std::make_unique<Subscription>(inbound_, "_INBOX.x.>")};
    Subscription echoSystem_{echoIntake_, "_QUORL.>"};
    Subscription echoInboxes_{echoIntake_, "_INBOX.x.>"};
    Observer nobody_;
    Outbox outbox_{prefix, 1u << 20, nobody_};
    Assembler direct_{limits};
    Expected expected_;
    int64_t now_ = 0;
    uint64_t deliveries_[7] = {};
    uint64_t secondBefore_ = 0;
    uint64_t rejected_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    Asked::watch();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Run(data, size).run();
    return 0;
}
